#include "editing/ImageRedactor.h"

#include "library/Errors.h"
#include "library/FileOps.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace varnel::ImageRedactor {

namespace {

// Sub-rows per pixel row for an ellipse's curved edges; straight edges are exact.
constexpr int kEllipseSamples = 8;

// Adds a horizontal span [x0, x1) at `weight` to one row's coverage, each pixel by the part
// of it that the span covers.
void addSpan(std::vector<float>& coverage, double x0, double x1, double weight) {
    const int width = static_cast<int>(coverage.size());
    x0 = std::max(0.0, x0);
    x1 = std::min(static_cast<double>(width), x1);
    for (int x = static_cast<int>(std::floor(x0)); x < x1 && x < width; ++x) {
        const double covered = std::min(x1, x + 1.0) - std::max(x0, static_cast<double>(x));
        if (covered > 0)
            coverage[static_cast<std::size_t>(x)] += static_cast<float>(covered * weight);
    }
}

// Paints one zone in white over the mask, anti-aliased by how much of each pixel it covers.
void paintZone(cv::Mat& mask, RedactShape::Kind kind, double x, double y, double w, double h) {
    if (!(w > 0) || !(h > 0))
        return;
    const int first = std::max(0, static_cast<int>(std::floor(y)));
    const int end = std::min(mask.rows, static_cast<int>(std::ceil(y + h)));
    std::vector<float> coverage(static_cast<std::size_t>(mask.cols));
    for (int row = first; row < end; ++row) {
        std::fill(coverage.begin(), coverage.end(), 0.0f);
        if (kind == RedactShape::Kind::rect) {
            const double rowCovered = std::min(y + h, row + 1.0) - std::max(y, double(row));
            addSpan(coverage, x, x + w, rowCovered);
        } else {
            const double cx = x + w / 2, cy = y + h / 2, rx = w / 2, ry = h / 2;
            for (int k = 0; k < kEllipseSamples; ++k) {
                const double dy = (row + (k + 0.5) / kEllipseSamples - cy) / ry;
                if (dy * dy >= 1)
                    continue;
                const double half = rx * std::sqrt(1 - dy * dy);
                addSpan(coverage, cx - half, cx + half, 1.0 / kEllipseSamples);
            }
        }
        auto* out = mask.ptr<std::uint8_t>(row);
        for (int col = 0; col < mask.cols; ++col) {
            const float a = std::min(1.0f, coverage[static_cast<std::size_t>(col)]);
            if (a > 0)
                out[col] = static_cast<std::uint8_t>(std::lround(out[col] + (255 - out[col]) * a));
        }
    }
}

// The smallest pixel rectangle holding every white pixel of the mask.
cv::Rect coveredArea(const cv::Mat& mask) {
    cv::Mat points;
    cv::findNonZero(mask, points);
    return points.empty() ? cv::Rect() : cv::boundingRect(points);
}

// The frosted picture over `area` only. A Gaussian of sigma s reaches 3s pixels (OpenCV's
// kernel size for 8-bit pictures), so blurring the area of a view into the whole picture reads
// the same neighbours, and replicates the same edges, as blurring the whole picture would.
cv::Mat frostedArea(const cv::Mat& bgra, const cv::Rect& area, const RedactStyle& style) {
    const int reach = static_cast<int>(std::ceil(std::max(0.0, style.blur) * 3)) + 1;
    const cv::Rect padded =
        cv::Rect(area.x - reach, area.y - reach, area.width + 2 * reach, area.height + 2 * reach) &
        cv::Rect(0, 0, bgra.cols, bgra.rows);
    cv::Mat frosted = frostedImage(bgra(padded), style);
    return frosted(area - padded.tl()).clone();
}

} // namespace

cv::Mat frostedImage(const cv::Mat& bgra, const RedactStyle& style) {
    cv::Mat blurred;
    if (style.blur > 0)
        cv::GaussianBlur(bgra, blurred, cv::Size(0, 0), style.blur, style.blur,
                         cv::BORDER_REPLICATE);
    else
        blurred = bgra.clone();
    const double alpha = std::clamp(style.opacity, 0.0, 1.0);
    if (alpha <= 0)
        return blurred;
    const cv::Scalar tint(std::clamp(style.blue, 0.0, 1.0) * 255 * alpha,
                          std::clamp(style.green, 0.0, 1.0) * 255 * alpha,
                          std::clamp(style.red, 0.0, 1.0) * 255 * alpha, 0);
    std::vector<cv::Mat> channels;
    cv::split(blurred, channels);
    for (int c = 0; c < 3; ++c)
        channels[static_cast<std::size_t>(c)].convertTo(channels[static_cast<std::size_t>(c)], -1,
                                                        1 - alpha, tint[c]);
    cv::Mat out;
    cv::merge(channels, out);
    return out;
}

std::optional<cv::Mat> maskImage(const std::vector<RedactShape>& shapes, int width, int height) {
    if (width < 1 || height < 1)
        return std::nullopt;
    cv::Mat mask(height, width, CV_8UC1, cv::Scalar(0));
    for (const auto& shape : shapes) {
        // Pixel rows run down from the top, as the rectangles' y does: no flip.
        paintZone(mask, shape.kind, shape.rect.minX() * width, shape.rect.minY() * height,
                  shape.rect.width * width, shape.rect.height * height);
    }
    return mask;
}

cv::Mat load(const std::filesystem::path& file) {
    cv::Mat image = cv::imread(file.string(), cv::IMREAD_UNCHANGED);
    if (image.empty() || image.depth() != CV_8U)
        return {};
    cv::Mat bgra;
    switch (image.channels()) {
    case 1:
        cv::cvtColor(image, bgra, cv::COLOR_GRAY2BGRA);
        break;
    case 3:
        cv::cvtColor(image, bgra, cv::COLOR_BGR2BGRA);
        break;
    case 4:
        bgra = image;
        break;
    default:
        return {};
    }
    return bgra;
}

bool apply(const std::vector<RedactShape>& shapes, const std::filesystem::path& destination,
           const std::optional<std::filesystem::path>& source, const RedactStyle& style) {
    if (shapes.empty())
        return false;
    cv::Mat image = load(source.value_or(destination));
    if (image.empty() || image.cols <= 1 || image.rows <= 1)
        return false;
    const auto mask = maskImage(shapes, image.cols, image.rows);
    if (!mask)
        return false;
    const cv::Rect area = coveredArea(*mask);
    if (!area.empty()) {
        const cv::Mat frosted = frostedArea(image, area, style);
        cv::Mat region = image(area);
        const cv::Mat weights = (*mask)(area);
        for (int y = 0; y < area.height; ++y) {
            auto* out = region.ptr<cv::Vec4b>(y);
            const auto* in = frosted.ptr<cv::Vec4b>(y);
            const auto* m = weights.ptr<std::uint8_t>(y);
            for (int x = 0; x < area.width; ++x) {
                const int a = m[x];
                if (a == 0)
                    continue;
                for (int c = 0; c < 4; ++c)
                    out[x][c] = static_cast<std::uint8_t>(
                        (in[x][c] * a + out[x][c] * (255 - a) + 127) / 255);
            }
        }
    }
    std::vector<std::uint8_t> png;
    try {
        if (!cv::imencode(".png", image, png))
            return false;
        FileOps::writeAtomically(
            destination, std::string_view(reinterpret_cast<const char*>(png.data()), png.size()));
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

std::optional<cv::Mat> blurredImage(const std::filesystem::path& file, const RedactStyle& style) {
    const cv::Mat image = load(file);
    if (image.empty())
        return std::nullopt;
    return frostedImage(image, style);
}

} // namespace varnel::ImageRedactor
