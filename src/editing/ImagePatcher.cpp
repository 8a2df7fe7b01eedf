#include "editing/ImagePatcher.h"

#include "editing/ImageRedactor.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace varnel::ImagePatcher {

std::optional<cv::Mat> crop(const cv::Mat& bgra, const NormalizedRect& rect) {
    if (bgra.empty())
        return std::nullopt;
    const double w = rect.width * bgra.cols, h = rect.height * bgra.rows;
    if (!(w >= 1) || !(h >= 1))
        return std::nullopt;
    const int x0 = static_cast<int>(std::floor(rect.minX() * bgra.cols));
    const int y0 = static_cast<int>(std::floor(rect.minY() * bgra.rows));
    const int x1 = static_cast<int>(std::ceil(rect.maxX() * bgra.cols));
    const int y1 = static_cast<int>(std::ceil(rect.maxY() * bgra.rows));
    const cv::Rect pixels(x0, y0, x1 - x0, y1 - y0);
    if ((pixels & cv::Rect(0, 0, bgra.cols, bgra.rows)) != pixels)
        return std::nullopt;
    return bgra(pixels).clone();
}

namespace {

// A BGRA patch in the channels and bit depth of the picture it is drawn on.
cv::Mat inLayoutOf(const cv::Mat& bgra, const cv::Mat& picture) {
    cv::Mat out;
    switch (picture.channels()) {
    case 1:
        cv::cvtColor(bgra, out, cv::COLOR_BGRA2GRAY);
        break;
    case 2: {
        cv::Mat grey, alpha;
        cv::cvtColor(bgra, grey, cv::COLOR_BGRA2GRAY);
        cv::extractChannel(bgra, alpha, 3);
        cv::merge(std::vector<cv::Mat>{grey, alpha}, out);
        break;
    }
    case 3:
        cv::cvtColor(bgra, out, cv::COLOR_BGRA2BGR);
        break;
    default:
        out = bgra;
    }
    if (picture.depth() == CV_16U)
        out.convertTo(out, CV_16U, 257);
    return out;
}

} // namespace

void draw(const cv::Mat& patch, const NormalizedRect& rect, cv::Mat& bgra) {
    const int x0 = static_cast<int>(std::lround(rect.minX() * bgra.cols));
    const int y0 = static_cast<int>(std::lround(rect.minY() * bgra.rows));
    const int x1 = static_cast<int>(std::lround(rect.maxX() * bgra.cols));
    const int y1 = static_cast<int>(std::lround(rect.maxY() * bgra.rows));
    if (patch.empty() || x1 <= x0 || y1 <= y0)
        return;
    cv::Mat scaled;
    const bool shrinking = x1 - x0 < patch.cols || y1 - y0 < patch.rows;
    cv::resize(patch, scaled, cv::Size(x1 - x0, y1 - y0), 0, 0,
               shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);
    // Only the part that falls on the picture is drawn.
    const cv::Rect target =
        cv::Rect(x0, y0, x1 - x0, y1 - y0) & cv::Rect(0, 0, bgra.cols, bgra.rows);
    if (target.empty())
        return;
    cv::Mat region = bgra(target);
    const cv::Mat source = scaled(target - cv::Point(x0, y0));
    cv::Mat alpha;
    cv::extractChannel(source, alpha, 3);
    ImageRedactor::blendInto(region, inLayoutOf(source, bgra), alpha);
}

bool apply(const cv::Mat& patch, const NormalizedRect& rect,
           const std::filesystem::path& destination,
           const std::optional<std::filesystem::path>& source) {
    cv::Mat image = ImageRedactor::load(source.value_or(destination));
    if (image.empty() || patch.empty())
        return false;
    draw(patch, rect, image);
    return ImageRedactor::writePng(image, destination);
}

} // namespace varnel::ImagePatcher
