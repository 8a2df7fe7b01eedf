#pragma once

#ifndef Q_MOC_RUN
#include <map>
#include <optional>
#include <set>
#include <string>
#endif

#include <QImage>
#include <QObject>

namespace varnel {

// Avatars of Figma users, fetched once per address for the whole run of the app. Main thread
// only; many rows showing one author start one fetch.
class FigmaAvatarCache : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // Starts a fetch unless the address is none, loaded, being fetched, failed before, or no
    // address one may fetch from.
    void ensureLoaded(const std::optional<std::string>& url);
    QImage image(const std::string& url) const;
    bool isInFlight(const std::string& url) const { return inFlight_.contains(url); }
    int fetchesStarted() const { return started_; }

signals:
    void imageLoaded(const QString& url);

private:
    std::map<std::string, QImage> images_;
    std::set<std::string> inFlight_;
    std::set<std::string> failed_; // not tried again until the app restarts
    int started_ = 0;
};

} // namespace varnel
