#pragma once

#include <opencv2/core.hpp>

namespace varnel {

// A Gaussian blur with edge pixels repeated outward. Large sigmas are blurred on a picture
// shrunk by box averaging and grown back bilinearly, with the sigma reduced by what the
// shrinking and growing already spread; the result stays within a level or two of the exact blur
// at a small fraction of its cost.
cv::Mat gaussianBlur(const cv::Mat& image, double sigma);

// The exact blur, for sigmas too small to shrink and for comparison.
cv::Mat exactGaussianBlur(const cv::Mat& image, double sigma);

} // namespace varnel
