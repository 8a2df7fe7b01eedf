#pragma once

#ifndef Q_MOC_RUN
#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
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
    // Avatar files are small; a larger answer is not an avatar.
    static constexpr std::size_t kMaxBytes = 1 << 20;

    // `apiBaseURL`: the Figma API in use; a stand-in of it (a proxy, the tests' server) serves
    // its avatars too.
    explicit FigmaAvatarCache(std::string apiBaseURL = {}, QObject* parent = nullptr);
    // Aborts the fetches in flight.
    ~FigmaAvatarCache() override;

    // Whether an avatar may be fetched from `url`: Figma's own hosts over https, or the origin of
    // the API in use. Addresses come from meta.json files, which may come from anywhere.
    static bool isAllowedAvatarURL(const std::string& url, const std::string& apiBaseURL);

    // Starts a fetch unless the address is none, loaded, being fetched, failed before, or no
    // address one may fetch from.
    void ensureLoaded(const std::optional<std::string>& url);
    QImage image(const std::string& url) const;
    bool isInFlight(const std::string& url) const { return inFlight_.contains(url); }
    int fetchesStarted() const { return started_; }

signals:
    void imageLoaded(const QString& url);

private:
    std::string apiBaseURL_;
    std::shared_ptr<std::atomic<bool>> stop_ = std::make_shared<std::atomic<bool>>(false);
    std::map<std::string, QImage> images_;
    std::set<std::string> inFlight_;
    std::set<std::string> failed_; // not tried again until the app restarts
    int started_ = 0;
};

} // namespace varnel
