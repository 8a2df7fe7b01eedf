#pragma once

#include <QImage>

#include <chrono>
#include <filesystem>

namespace varnel::PosterFrame {

// The first picture of a clip, decoded by the media framework; a null image when the clip
// can't be decoded in time.
QImage grab(const std::filesystem::path& clip,
            std::chrono::milliseconds timeout = std::chrono::seconds(10));

} // namespace varnel::PosterFrame
