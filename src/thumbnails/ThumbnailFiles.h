#pragma once

#include "thumbnails/ThumbEdits.h"

#include <filesystem>
#include <string_view>

namespace varnel::ThumbnailFiles {

namespace fs = std::filesystem;

// Thumbnails are stored this tall; the gallery scales them down to its row height.
inline constexpr int kHeight = 600;

// root / folder / ".thumbs/v1" / (the screen's name without extension) + ".jpg"
fs::path url(const fs::path& root, const ScreenID& screen);

// Whether the thumbnail exists and is not older than its screen file.
bool isFresh(const fs::path& screenFile, const fs::path& thumbnail);

// Decodes a still screen and writes its thumbnail through a ".tmp" file. Returns false when
// the screen can't be read (clips get theirs from the media framework).
bool render(const fs::path& screenFile, const fs::path& thumbnail, int height = kHeight);

// Applies the edits of a screen operation to the thumbnail files: removals, then copies,
// then the renames as one simultaneous mapping. A thumbnail that can't follow is removed, so
// that it is made again rather than shown for the wrong screen.
void apply(const fs::path& root, const ThumbEdits& edits);

} // namespace varnel::ThumbnailFiles
