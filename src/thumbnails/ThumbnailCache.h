#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "thumbnails/ThumbEdits.h"

#include <cstdint>
#include <filesystem>
#include <list>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#endif

#include <QImage>
#include <QObject>
#include <QThreadPool>

namespace varnel {

// Thumbnails of the library's screens: the files under ".thumbs" and their pictures in memory,
// both made on worker threads so that asking never blocks the main thread. Ask with image();
// when no picture is at hand yet, `ready` follows once it is.
class ThumbnailCache : public QObject {
    Q_OBJECT

public:
    explicit ThumbnailCache(std::filesystem::path root, QObject* parent = nullptr);
    ~ThumbnailCache() override;

    // The screen's picture, `imageHeight()` pixels tall, when one is in memory (it may be a
    // picture still being checked against its file). Otherwise the work is queued, once, and a
    // null image is returned.
    QImage image(const ScreenID& screen);
    // Whether making the screen's thumbnail failed since the last revalidate().
    bool hasFailed(const ScreenID& screen) const { return failed_.contains(screen); }

    int imageHeight() const { return imageHeight_; }
    // Pictures of the old height are shown until they are read again at the new one.
    void setImageHeight(int pixels);
    // The files may have changed: pictures in memory stay on screen until checked again.
    void revalidate();
    // Follows renamed, copied and removed screens (FlowLibrary::thumbnailsChanged).
    void apply(const ThumbEdits& edits);
    void setRoot(std::filesystem::path root);
    // A library open read-only is never written: its thumbnails are kept in `elsewhere` (a
    // cache folder of the user's) instead of its ".thumbs" folders. None: in the library.
    void setThumbnailFolder(std::optional<std::filesystem::path> elsewhere);
    // Waits until every queued picture is made and announced (for tests and shutdown).
    void waitForIdle();
    // How many bytes of pictures are kept in memory at most.
    void setMemoryBudget(std::int64_t bytes);

signals:
    void ready(const varnel::ScreenID& screen);
    void failed(const varnel::ScreenID& screen);

private:
    struct Entry {
        QImage image;
        std::int64_t fileTime = 0; // of the thumbnail file the picture was read from
        bool checked = true;
    };
    using Recency = std::list<ScreenID>;
    struct Slot {
        Entry entry;
        Recency::iterator use;
    };
    void queue(const ScreenID& screen, std::int64_t knownFileTime);
    void store(const ScreenID& screen, Entry entry);
    void drop(const ScreenID& screen);
    void trim();
    void stopWork();

    std::filesystem::path root_;
    std::optional<std::filesystem::path> elsewhere_;
    int imageHeight_ = 220;
    std::int64_t budget_ = 96ll << 20;
    std::int64_t bytes_ = 0;
    std::uint64_t generation_ = 0; // results of older generations are dropped
    std::unordered_map<ScreenID, Slot> memory_;
    Recency recency_; // most recently used first
    std::unordered_set<ScreenID> pending_;
    std::unordered_set<ScreenID> failed_;
    QThreadPool pool_;
};

} // namespace varnel
