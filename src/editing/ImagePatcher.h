#pragma once

#include "library/NormalizedRect.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <optional>

namespace varnel::ImagePatcher {

// The pixels under a normalized rectangle, widened to whole pixels; none when the rectangle is
// thinner than a pixel or lies outside the picture.
std::optional<cv::Mat> crop(const cv::Mat& bgra, const NormalizedRect& rect);

// Lays the patch, scaled, onto the picture of `source` (or of `destination`) at the
// normalized rectangle and writes the result to `destination` as PNG.
bool apply(const cv::Mat& patch, const NormalizedRect& rect,
           const std::filesystem::path& destination,
           const std::optional<std::filesystem::path>& source);

// Lays a BGRA patch onto a picture of any layout ImageRedactor frosts, through its alpha.
void draw(const cv::Mat& patch, const NormalizedRect& rect, cv::Mat& picture);

} // namespace varnel::ImagePatcher
