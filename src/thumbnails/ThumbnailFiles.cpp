#include "thumbnails/ThumbnailFiles.h"

#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"
#include "media/PngSize.h"
#include "media/PosterFrame.h"

#include <QImage>
#include <QImageReader>
#include <QPainter>
#include <QString>

#include <vector>

namespace varnel::ThumbnailFiles {

namespace {

bool safe(const ScreenID& screen) {
    return LibraryLayout::isSafeFolderName(screen.folder) &&
           LibraryLayout::isSafeFileName(screen.filename);
}

void removeQuietly(const fs::path& file) {
    std::error_code ec;
    fs::remove(file, ec);
}

} // namespace

fs::path url(const fs::path& root, const ScreenID& screen) {
    return root / screen.folder / LibraryLayout::kThumbsFolder / "v1" /
           (ScreenFiles::stem(screen.filename) + ".jpg");
}

bool isFresh(const fs::path& screenFile, const fs::path& thumbnail) {
    std::error_code ec;
    const auto thumbTime = fs::last_write_time(thumbnail, ec);
    if (ec)
        return false;
    const auto screenTime = fs::last_write_time(screenFile, ec);
    return !ec && thumbTime >= screenTime;
}

QImage readStill(const fs::path& screenFile, int height) {
    QImageReader reader(QString::fromStdString(screenFile.string()));
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (!size.isValid() || oversizeProblem("", size.width(), size.height()))
        return {};
    if (size.height() > height)
        reader.setScaledSize(size.scaled(size.width(), height, Qt::KeepAspectRatio));
    return reader.read();
}

bool render(const fs::path& screenFile, const fs::path& thumbnail, int height) {
    QImage image = ScreenFiles::isClip(screenFile.filename().string())
                       ? PosterFrame::grab(screenFile)
                       : readStill(screenFile, height);
    if (image.isNull())
        return false;
    if (image.height() > height)
        image = image.scaledToHeight(height, Qt::SmoothTransformation);
    if (image.hasAlphaChannel()) {
        // Composite over white so transparent areas don't turn black in JPEG.
        QImage flat(image.size(), QImage::Format_RGB32);
        flat.fill(Qt::white);
        QPainter painter(&flat);
        painter.drawImage(0, 0, image);
        painter.end();
        image = flat;
    }
    std::error_code ec;
    fs::create_directories(thumbnail.parent_path(), ec);
    if (ec)
        return false;
    const fs::path temp =
        thumbnail.parent_path() / (thumbnail.filename().string() + "." + newUUIDString() + ".tmp");
    if (!image.save(QString::fromStdString(temp.string()), "JPG", 85)) {
        removeQuietly(temp);
        return false;
    }
    fs::rename(temp, thumbnail, ec);
    if (ec) {
        removeQuietly(temp);
        return false;
    }
    return true;
}

void apply(const fs::path& root, const ThumbEdits& edits) {
    for (const auto& screen : edits.removals) {
        if (safe(screen))
            removeQuietly(url(root, screen));
    }
    std::error_code ec;
    for (const auto& [from, to] : edits.copies) {
        if (!safe(from) || !safe(to))
            continue;
        const fs::path target = url(root, to);
        fs::create_directories(target.parent_path(), ec);
        fs::copy_file(url(root, from), target, fs::copy_options::overwrite_existing, ec);
    }
    // Two steps through unique names, so that swaps work.
    std::vector<std::pair<fs::path, fs::path>> staged;
    for (const auto& [from, to] : edits.renames) {
        if (!safe(from) || !safe(to))
            continue;
        const fs::path source = url(root, from);
        const fs::path temp = source.parent_path() / (newUUIDString() + ".moving");
        fs::rename(source, temp, ec);
        if (!ec)
            staged.emplace_back(temp, url(root, to));
        else
            removeQuietly(url(root, to)); // the target's old picture would be wrong now
    }
    for (const auto& [temp, target] : staged) {
        fs::create_directories(target.parent_path(), ec);
        fs::rename(temp, target, ec);
        if (ec)
            removeQuietly(temp);
    }
}

} // namespace varnel::ThumbnailFiles
