#pragma once

#include "editing/RedactRecords.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace varnel::ImageRedactor {

// A frost in the terms of one picture's channels: the blur in its pixels, the tint level of
// each channel (negative: the channel is left alone) and the tint's opacity.
struct Frost {
    double sigma = 0;
    cv::Scalar tint;
    double opacity = 0;

    static Frost forBGRA(const RedactStyle& style);
    // For a picture of 1 to 4 channels (grey, grey and alpha, BGR, BGRA) of 8 or 16 bits;
    // grey pictures take the tint's luma.
    static Frost forPicture(const RedactStyle& style, const cv::Mat& picture);
    cv::Mat tinted(cv::Mat blurred) const;
};

// The picture blurred with a Gaussian of sigma `style.blur` (edge pixels repeat outward) and
// tinted with the style's colour at its opacity. BGRA in, BGRA out; alpha is kept.
cv::Mat frostedImage(const cv::Mat& bgra, const RedactStyle& style);

// The blurred picture with the style's colour laid over it at the style's opacity.
cv::Mat tinted(cv::Mat blurred, const RedactStyle& style);

// `foreground` where the mask is white, `background` where it is black, mixed in between.
// Both 8-bit or both 16-bit, the mask 8-bit.
cv::Mat blend(const cv::Mat& background, const cv::Mat& foreground, const cv::Mat& mask);
void blendInto(cv::Mat& background, const cv::Mat& foreground, const cv::Mat& mask);

// Frosts the zones of a picture of any channel count in place through a mask of its size.
bool applyFrost(const std::vector<RedactShape>& shapes, cv::Mat& image, const Frost& frost,
                const cv::Mat& mask);

// Frosts the zones of a picture in place, blurring only around them: BGRA, or any layout that
// Frost::forPicture takes. A mask already made for this size (by a clip's cache) may be passed.
// False when no mask can be made.
bool applyToPixels(const std::vector<RedactShape>& shapes, cv::Mat& bgra, const RedactStyle& style,
                   const cv::Mat* precomputedMask = nullptr);

// White where the zones are (rectangles, or the ellipses inscribed in them), black elsewhere,
// with anti-aliased edges; none for an empty size.
std::optional<cv::Mat> maskImage(const std::vector<RedactShape>& shapes, int width, int height);

// Frosts the zones of `source` (or of `destination` itself) and writes the result to
// `destination` as PNG. False when there are no zones or the picture can't be read or written.
bool apply(const std::vector<RedactShape>& shapes, const std::filesystem::path& destination,
           const std::optional<std::filesystem::path>& source, const RedactStyle& style);

// The whole picture frosted, for showing through a mask while zones move; none when unreadable.
std::optional<cv::Mat> blurredImage(const std::filesystem::path& file, const RedactStyle& style);

// A made-up screen (background, header, two text lines, three buttons) in light or dark colours.
cv::Mat sampleContent(int width, int height, bool dark);
// The sample frosted on its right half with the style, as the redaction settings show it.
cv::Mat samplePreview(int width, int height, bool dark, const RedactStyle& style);

// PNG bytes of a BGRA picture (empty on failure); opaque pictures take the fast writer.
std::string encodePng(const cv::Mat& bgra);
// Writes the picture as PNG, atomically; false on failure.
bool writePng(const cv::Mat& bgra, const std::filesystem::path& file);

// The picture of a file as BGRA; empty when it can't be read.
cv::Mat load(const std::filesystem::path& file);

} // namespace varnel::ImageRedactor
