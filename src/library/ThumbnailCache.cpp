#include "library/ThumbnailCache.h"

#include "library/LibraryLayout.h"
#include "library/ThumbnailFiles.h"

#include <QThread>

#include <algorithm>

namespace varnel {

ThumbnailCache::ThumbnailCache(std::filesystem::path root, QObject* parent)
    : QObject(parent), root_(std::move(root)) {
    // Leave a core to the main thread, so that scrolling stays smooth.
    pool_.setMaxThreadCount(std::max(1, QThread::idealThreadCount() - 1));
}

ThumbnailCache::~ThumbnailCache() {
    pool_.clear();
    pool_.waitForDone();
}

std::optional<std::filesystem::path> ThumbnailCache::thumbnail(const ScreenID& screen) {
    if (!LibraryLayout::isSafeFolderName(screen.folder) ||
        !LibraryLayout::isSafeFileName(screen.filename))
        return std::nullopt;
    const auto source = root_ / screen.folder / screen.filename;
    const auto thumb = ThumbnailFiles::url(root_, screen);
    if (ThumbnailFiles::isFresh(source, thumb))
        return thumb;
    if (!pending_.insert(screen).second)
        return std::nullopt;
    pool_.start([this, screen, source, thumb] {
        const bool made = ThumbnailFiles::render(source, thumb);
        QMetaObject::invokeMethod(
            this,
            [this, screen, thumb, made] {
                pending_.erase(screen);
                if (made)
                    emit ready(screen, QString::fromStdString(thumb.string()));
                else
                    emit failed(screen);
            },
            Qt::QueuedConnection);
    });
    return std::nullopt;
}

void ThumbnailCache::apply(const ThumbEdits& edits) {
    // Work still queued for the old names would write under names that now mean other screens.
    pool_.clear();
    pool_.waitForDone();
    pending_.clear();
    ThumbnailFiles::apply(root_, edits);
}

void ThumbnailCache::setRoot(std::filesystem::path root) {
    pool_.clear();
    pool_.waitForDone();
    pending_.clear();
    root_ = std::move(root);
}

void ThumbnailCache::waitForIdle() {
    pool_.waitForDone();
}

} // namespace varnel
