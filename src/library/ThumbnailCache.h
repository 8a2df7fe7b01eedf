#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "library/ThumbEdits.h"

#include <filesystem>
#include <optional>
#include <set>
#endif

#include <QObject>
#include <QThreadPool>

namespace varnel {

// Thumbnails of the library's screens, made on worker threads so that asking never blocks the
// main thread. Ask with thumbnail(); when it isn't ready, `ready` follows once it is.
class ThumbnailCache : public QObject {
    Q_OBJECT

public:
    explicit ThumbnailCache(std::filesystem::path root, QObject* parent = nullptr);
    ~ThumbnailCache() override;

    // The thumbnail file when it is up to date; otherwise it is queued (once) and none is
    // returned.
    std::optional<std::filesystem::path> thumbnail(const ScreenID& screen);
    // Follows renamed, copied and removed screens (FlowLibrary::thumbnailsChanged).
    void apply(const ThumbEdits& edits);
    void setRoot(std::filesystem::path root);
    // Waits until every queued thumbnail is made (for tests and shutdown).
    void waitForIdle();

signals:
    void ready(const varnel::ScreenID& screen, const QString& path);
    void failed(const varnel::ScreenID& screen);

private:
    std::filesystem::path root_;
    std::set<ScreenID> pending_;
    QThreadPool pool_;
};

} // namespace varnel
