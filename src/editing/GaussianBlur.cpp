#include "editing/GaussianBlur.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace varnel {

namespace {

// The shrunk picture keeps this much sigma, enough for the Gaussian's shape to survive.
constexpr double kReducedSigma = 4.0;

} // namespace

cv::Mat exactGaussianBlur(const cv::Mat& image, double sigma) {
    if (!(sigma > 0))
        return image.clone();
    cv::Mat out;
    cv::GaussianBlur(image, out, cv::Size(0, 0), sigma, sigma, cv::BORDER_REPLICATE);
    return out;
}

cv::Mat gaussianBlur(const cv::Mat& image, double sigma) {
    const int factor = static_cast<int>(std::floor(sigma / kReducedSigma));
    if (factor < 2 || image.cols < 2 * factor || image.rows < 2 * factor)
        return exactGaussianBlur(image, sigma);
    // A box of f pixels spreads by (f^2 - 1) / 12, growing back bilinearly by about f^2 / 6.
    const double f2 = double(factor) * factor;
    const double spread = (f2 - 1) / 12 + f2 / 6;
    const double reduced = std::sqrt(std::max(0.0, sigma * sigma - spread)) / factor;

    // Pad to whole boxes with repeated edges, so that every box averages real neighbours.
    const int padRight = (factor - image.cols % factor) % factor;
    const int padBottom = (factor - image.rows % factor) % factor;
    cv::Mat padded;
    cv::copyMakeBorder(image, padded, 0, padBottom, 0, padRight, cv::BORDER_REPLICATE);
    cv::Mat small;
    cv::resize(padded, small, cv::Size(padded.cols / factor, padded.rows / factor), 0, 0,
               cv::INTER_AREA);
    cv::GaussianBlur(small, small, cv::Size(0, 0), reduced, reduced, cv::BORDER_REPLICATE);
    cv::Mat grown;
    cv::resize(small, grown, padded.size(), 0, 0, cv::INTER_LINEAR);
    return grown(cv::Rect(0, 0, image.cols, image.rows)).clone();
}

} // namespace varnel
