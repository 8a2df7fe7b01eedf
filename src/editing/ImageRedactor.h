#pragma once

#include "editing/RedactRecords.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <optional>
#include <vector>

namespace varnel::ImageRedactor {

// The picture blurred with a Gaussian of sigma `style.blur` (edge pixels repeat outward) and
// tinted with the style's colour at its opacity. BGRA in, BGRA out; alpha is kept.
cv::Mat frostedImage(const cv::Mat& bgra, const RedactStyle& style);

// White where the zones are (rectangles, or the ellipses inscribed in them), black elsewhere,
// with anti-aliased edges; none for an empty size.
std::optional<cv::Mat> maskImage(const std::vector<RedactShape>& shapes, int width, int height);

// Frosts the zones of `source` (or of `destination` itself) and writes the result to
// `destination` as PNG. False when there are no zones or the picture can't be read or written.
bool apply(const std::vector<RedactShape>& shapes, const std::filesystem::path& destination,
           const std::optional<std::filesystem::path>& source, const RedactStyle& style);

// The whole picture frosted, for showing through a mask while zones move; none when unreadable.
std::optional<cv::Mat> blurredImage(const std::filesystem::path& file, const RedactStyle& style);

// The picture of a file as BGRA; empty when it can't be read.
cv::Mat load(const std::filesystem::path& file);

} // namespace varnel::ImageRedactor
