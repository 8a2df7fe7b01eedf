#include "editing/ImageRedactor.h"

#include "editing/GaussianBlur.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "media/PngImage.h"
#include "media/PngWriter.h"

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

// The pixels each zone touches, whole pixels outward, within the picture; zones that overlap
// share one area, so that no pixel is blended twice.
std::vector<cv::Rect> coveredAreas(const std::vector<RedactShape>& shapes, int width, int height) {
    std::vector<cv::Rect> areas;
    for (const auto& shape : shapes) {
        const auto& r = shape.rect;
        if (!(r.width > 0) || !(r.height > 0))
            continue;
        const int x0 = static_cast<int>(std::floor(std::clamp(r.minX(), 0.0, 1.0) * width));
        const int y0 = static_cast<int>(std::floor(std::clamp(r.minY(), 0.0, 1.0) * height));
        const int x1 = static_cast<int>(std::ceil(std::clamp(r.maxX(), 0.0, 1.0) * width));
        const int y1 = static_cast<int>(std::ceil(std::clamp(r.maxY(), 0.0, 1.0) * height));
        cv::Rect area(x0, y0, x1 - x0, y1 - y0);
        if (area.empty())
            continue;
        // Absorb every area this one meets, until none is left to meet.
        for (bool merged = true; merged;) {
            merged = false;
            for (auto it = areas.begin(); it != areas.end(); ++it)
                if (!(*it & area).empty()) {
                    area |= *it;
                    areas.erase(it);
                    merged = true;
                    break;
                }
        }
        areas.push_back(area);
    }
    return areas;
}

// The frosted picture over `area` only. A Gaussian of sigma s reaches 3s pixels (OpenCV's
// kernel size for 8-bit pictures), so blurring the area of a view into the whole picture reads
// the same neighbours, and replicates the same edges, as blurring the whole picture would.
cv::Mat frostedArea(const cv::Mat& image, const cv::Rect& area, const Frost& frost) {
    const int reach = static_cast<int>(std::ceil(std::max(0.0, frost.sigma) * 3)) + 1;
    const cv::Rect padded =
        cv::Rect(area.x - reach, area.y - reach, area.width + 2 * reach, area.height + 2 * reach) &
        cv::Rect(0, 0, image.cols, image.rows);
    cv::Mat frosted = frost.tinted(gaussianBlur(image(padded), frost.sigma));
    return frosted(area - padded.tl()).clone();
}

} // namespace

Frost Frost::forBGRA(const RedactStyle& style) {
    const auto level = [](double c) { return std::clamp(c, 0.0, 1.0) * 255; };
    return {style.blur,
            {level(style.blue), level(style.green), level(style.red), -1},
            std::clamp(style.opacity, 0.0, 1.0)};
}

Frost Frost::forPicture(const RedactStyle& style, const cv::Mat& picture) {
    const double top = picture.depth() == CV_16U ? 65535 : 255;
    const auto level = [top](double c) { return std::clamp(c, 0.0, 1.0) * top; };
    const double luma =
        0.2126 * level(style.red) + 0.7152 * level(style.green) + 0.0722 * level(style.blue);
    cv::Scalar tint;
    switch (picture.channels()) {
    case 1:
        tint = {luma};
        break;
    case 2:
        tint = {luma, -1};
        break;
    default:
        tint = {level(style.blue), level(style.green), level(style.red), -1};
    }
    return {style.blur, tint, std::clamp(style.opacity, 0.0, 1.0)};
}

cv::Mat Frost::tinted(cv::Mat blurred) const {
    if (opacity <= 0)
        return blurred;
    const int channels = blurred.channels();
    if (blurred.depth() == CV_16U) {
        for (int y = 0; y < blurred.rows; ++y) {
            auto* row = blurred.ptr<std::uint16_t>(y);
            for (int x = 0; x < blurred.cols * channels; ++x) {
                const double level = tint[x % channels];
                if (level >= 0)
                    row[x] =
                        cv::saturate_cast<std::uint16_t>(row[x] * (1 - opacity) + level * opacity);
            }
        }
        return blurred;
    }
    // A lookup table per channel: the tint is one affine map of each 8-bit value. A negative
    // tint leaves its channel (alpha) alone.
    cv::Mat table(1, 256, CV_8UC(channels));
    for (int v = 0; v < 256; ++v)
        for (int c = 0; c < channels; ++c)
            table.ptr<uchar>(0)[v * channels + c] =
                tint[c] < 0 ? static_cast<uchar>(v)
                            : cv::saturate_cast<uchar>(v * (1 - opacity) + tint[c] * opacity);
    cv::LUT(blurred, table, blurred);
    return blurred;
}

cv::Mat frostedImage(const cv::Mat& bgra, const RedactStyle& style) {
    const Frost frost = Frost::forBGRA(style);
    return frost.tinted(gaussianBlur(bgra, frost.sigma));
}

cv::Mat tinted(cv::Mat blurred, const RedactStyle& style) {
    return Frost::forBGRA(style).tinted(std::move(blurred));
}

namespace {

template <typename T>
void blendRows(cv::Mat& background, const cv::Mat& foreground, const cv::Mat& mask) {
    const int channels = background.channels();
    for (int y = 0; y < background.rows; ++y) {
        auto* out = background.ptr<T>(y);
        const auto* in = foreground.ptr<T>(y);
        const auto* m = mask.ptr<std::uint8_t>(y);
        for (int x = 0; x < background.cols; ++x) {
            const std::uint32_t a = m[x];
            if (a == 0)
                continue;
            for (int c = x * channels; c < (x + 1) * channels; ++c)
                out[c] = static_cast<T>((in[c] * a + out[c] * (255 - a) + 127) / 255);
        }
    }
}

} // namespace

void blendInto(cv::Mat& background, const cv::Mat& foreground, const cv::Mat& mask) {
    if (background.depth() == CV_16U)
        blendRows<std::uint16_t>(background, foreground, mask);
    else
        blendRows<std::uint8_t>(background, foreground, mask);
}

cv::Mat blend(const cv::Mat& background, const cv::Mat& foreground, const cv::Mat& mask) {
    cv::Mat out = background.clone();
    blendInto(out, foreground, mask);
    return out;
}

bool applyFrost(const std::vector<RedactShape>& shapes, cv::Mat& image, const Frost& frost,
                const cv::Mat& mask) {
    if (mask.size() != image.size())
        return false;
    // Every area is frosted from the untouched picture before any is blended in.
    const auto areas = coveredAreas(shapes, image.cols, image.rows);
    std::vector<cv::Mat> frosted;
    frosted.reserve(areas.size());
    for (const auto& area : areas)
        frosted.push_back(frostedArea(image, area, frost));
    for (std::size_t i = 0; i < areas.size(); ++i) {
        cv::Mat region = image(areas[i]);
        blendInto(region, frosted[i], mask(areas[i]));
    }
    return true;
}

bool applyToPixels(const std::vector<RedactShape>& shapes, cv::Mat& bgra, const RedactStyle& style,
                   const cv::Mat* precomputedMask) {
    const Frost frost = Frost::forPicture(style, bgra);
    if (precomputedMask)
        return applyFrost(shapes, bgra, frost, *precomputedMask);
    const auto mask = maskImage(shapes, bgra.cols, bgra.rows);
    return mask && applyFrost(shapes, bgra, frost, *mask);
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

std::string encodePng(const cv::Mat& bgra) {
    double minAlpha = 0;
    cv::Mat alpha;
    cv::extractChannel(bgra, alpha, 3);
    cv::minMaxLoc(alpha, &minAlpha);
    if (minAlpha >= 255) // screenshots are opaque: the fast writer drops the alpha channel
        return PngWriter::encode(bgra.data, bgra.cols, bgra.rows, bgra.step[0]);
    PngImage image;
    image.pixels = bgra;
    return image.encode();
}

bool writePng(const cv::Mat& bgra, const std::filesystem::path& file) {
    try {
        const std::string png = encodePng(bgra);
        if (png.empty())
            return false;
        FileOps::writeAtomically(file, png);
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

cv::Mat load(const std::filesystem::path& file) {
    std::string bytes;
    try {
        bytes = FileOps::read(file);
    } catch (const std::exception&) {
        return {};
    }
    auto decoded = PngImage::decode(bytes);
    if (!std::holds_alternative<PngImage>(decoded))
        return {};
    cv::Mat image = std::get<PngImage>(decoded).pixels;
    if (image.depth() == CV_16U) // 16-bit PNGs exist; what is baked and shown is 8-bit
        image.convertTo(image, CV_8U, 1.0 / 257);
    if (image.empty() || image.depth() != CV_8U)
        return {};
    cv::Mat bgra;
    switch (image.channels()) {
    case 1:
        cv::cvtColor(image, bgra, cv::COLOR_GRAY2BGRA);
        break;
    case 2: {
        cv::Mat grey, alpha;
        cv::extractChannel(image, grey, 0);
        cv::extractChannel(image, alpha, 1);
        cv::merge(std::vector<cv::Mat>{grey, grey, grey, alpha}, bgra);
        break;
    }
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
    if (!applyToPixels(shapes, image, style))
        return false;
    return writePng(image, destination);
}

std::optional<cv::Mat> blurredImage(const std::filesystem::path& file, const RedactStyle& style) {
    const cv::Mat image = load(file);
    if (image.empty())
        return std::nullopt;
    return frostedImage(image, style);
}

} // namespace varnel::ImageRedactor
