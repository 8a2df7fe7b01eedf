#include "thumbnails/ThumbnailCache.h"

#include "library/LibraryLayout.h"
#include "thumbnails/ThumbnailFiles.h"

#include <QCoreApplication>
#include <QImageReader>
#include <QThread>

#include <algorithm>

namespace varnel {

namespace {

std::int64_t fileTime(const std::filesystem::path& file) {
    std::error_code ec;
    const auto time = std::filesystem::last_write_time(file, ec);
    return ec ? -1 : static_cast<std::int64_t>(time.time_since_epoch().count());
}

QImage decode(const std::filesystem::path& thumbnail, int height) {
    QImageReader reader(QString::fromStdString(thumbnail.string()));
    const QSize size = reader.size();
    if (size.isValid() && size.height() != height)
        reader.setScaledSize(size.scaled(size.width(), height, Qt::KeepAspectRatio));
    QImage image = reader.read();
    // The format the painter draws fastest.
    return image.isNull() ? image : image.convertToFormat(QImage::Format_RGB32);
}

std::int64_t bytesOf(const QImage& image) {
    return static_cast<std::int64_t>(image.sizeInBytes());
}

} // namespace

ThumbnailCache::ThumbnailCache(std::filesystem::path root, QObject* parent)
    : QObject(parent), root_(std::move(root)) {
    // Leave a core to the main thread, so that scrolling stays smooth.
    pool_.setMaxThreadCount(std::max(1, QThread::idealThreadCount() - 1));
}

ThumbnailCache::~ThumbnailCache() {
    pool_.clear();
    pool_.waitForDone();
}

QImage ThumbnailCache::image(const ScreenID& screen) {
    if (const auto found = memory_.find(screen); found != memory_.end()) {
        Slot& slot = found->second;
        recency_.splice(recency_.begin(), recency_, slot.use);
        if (!slot.entry.checked)
            queue(screen, slot.entry.fileTime);
        return slot.entry.image;
    }
    if (!failed_.contains(screen))
        queue(screen, -1);
    return {};
}

void ThumbnailCache::queue(const ScreenID& screen, std::int64_t knownFileTime) {
    if (!LibraryLayout::isSafeFolderName(screen.folder) ||
        !LibraryLayout::isSafeFileName(screen.filename)) {
        failed_.insert(screen);
        return;
    }
    if (!pending_.insert(screen).second)
        return;
    const auto source = root_ / screen.folder / screen.filename;
    const auto thumb = ThumbnailFiles::url(elsewhere_.value_or(root_), screen);
    const int height = imageHeight_;
    const std::uint64_t generation = generation_;
    pool_.start([this, screen, source, thumb, height, generation, knownFileTime] {
        bool made = ThumbnailFiles::isFresh(source, thumb) || ThumbnailFiles::render(source, thumb);
        Entry entry;
        entry.fileTime = made ? fileTime(thumb) : -1;
        const bool unchanged = made && entry.fileTime == knownFileTime;
        if (made && !unchanged) {
            entry.image = decode(thumb, height);
            made = !entry.image.isNull();
        }
        QMetaObject::invokeMethod(
            this,
            [this, screen, entry = std::move(entry), made, unchanged, generation]() mutable {
                if (generation != generation_)
                    return;
                pending_.erase(screen);
                if (!made) {
                    drop(screen);
                    failed_.insert(screen);
                    emit failed(screen);
                    return;
                }
                if (unchanged) {
                    if (const auto found = memory_.find(screen); found != memory_.end())
                        found->second.entry.checked = true;
                    return;
                }
                store(screen, std::move(entry));
                emit ready(screen);
            },
            Qt::QueuedConnection);
    });
}

void ThumbnailCache::store(const ScreenID& screen, Entry entry) {
    drop(screen);
    entry.checked = true;
    bytes_ += bytesOf(entry.image);
    recency_.push_front(screen);
    memory_.emplace(screen, Slot{std::move(entry), recency_.begin()});
    trim();
}

void ThumbnailCache::drop(const ScreenID& screen) {
    const auto found = memory_.find(screen);
    if (found == memory_.end())
        return;
    bytes_ -= bytesOf(found->second.entry.image);
    recency_.erase(found->second.use);
    memory_.erase(found);
}

void ThumbnailCache::trim() {
    while (bytes_ > budget_ && recency_.size() > 1)
        drop(recency_.back());
}

void ThumbnailCache::stopWork() {
    pool_.clear();
    pool_.waitForDone();
    pending_.clear();
    ++generation_;
}

void ThumbnailCache::setImageHeight(int pixels) {
    if (pixels == imageHeight_)
        return;
    stopWork();
    imageHeight_ = pixels;
    // Pictures of the old height stand in until they are read again at the new one.
    for (auto& [screen, slot] : memory_) {
        slot.entry.checked = false;
        slot.entry.fileTime = -1;
    }
}

void ThumbnailCache::revalidate() {
    // Work under way may have read the files before they changed: its results don't count.
    ++generation_;
    pending_.clear();
    for (auto& [screen, slot] : memory_)
        slot.entry.checked = false;
    failed_.clear();
}

void ThumbnailCache::apply(const ThumbEdits& edits) {
    // Work still queued for the old names would write under names that now mean other screens.
    stopWork();
    ThumbnailFiles::apply(root_, edits);
    for (const auto& screen : edits.removals)
        drop(screen);
    for (const auto& [from, to] : edits.copies) {
        if (const auto found = memory_.find(from); found != memory_.end())
            store(to, Entry(found->second.entry));
    }
    // The renames are one simultaneous mapping: take every moving picture out first.
    std::vector<std::pair<ScreenID, Entry>> moving;
    for (const auto& [from, to] : edits.renames) {
        if (const auto found = memory_.find(from); found != memory_.end())
            moving.emplace_back(to, found->second.entry);
        drop(from);
    }
    for (const auto& [from, to] : edits.renames)
        drop(to);
    for (auto& [to, entry] : moving) {
        store(to, std::move(entry));
        memory_.at(to).entry.checked = false; // its file moved too: look again before trusting it
    }
}

void ThumbnailCache::setRoot(std::filesystem::path root) {
    stopWork();
    root_ = std::move(root);
    memory_.clear();
    recency_.clear();
    bytes_ = 0;
    failed_.clear();
}

void ThumbnailCache::setThumbnailFolder(std::optional<std::filesystem::path> elsewhere) {
    if (elsewhere == elsewhere_)
        return;
    stopWork();
    elsewhere_ = std::move(elsewhere);
}

void ThumbnailCache::waitForIdle() {
    pool_.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

void ThumbnailCache::setMemoryBudget(std::int64_t bytes) {
    budget_ = bytes;
    trim();
}

} // namespace varnel
