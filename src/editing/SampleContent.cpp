// The synthetic screen that the redaction settings frost to show a preset.
#include "editing/ImageRedactor.h"

#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>

namespace varnel::ImageRedactor {

namespace {

struct Element {
    double x, y, w, h; // fractions of the size, origin bottom-left
    std::array<double, 3> light;
    std::array<double, 3> dark;
};

constexpr std::array<Element, 7> kElements = {{
    {0, 0, 1, 1, {0.96, 0.96, 0.98}, {0.1, 0.1, 0.12}},             // background
    {0.06, 0.74, 0.88, 0.16, {0.3, 0.55, 0.98}, {0.2, 0.48, 0.95}}, // header bar
    {0.06, 0.52, 0.55, 0.1, {0.62, 0.64, 0.7}, {0.42, 0.44, 0.5}},  // text line 1
    {0.06, 0.38, 0.74, 0.1, {0.74, 0.76, 0.8}, {0.3, 0.32, 0.38}},  // text line 2
    {0.06, 0.12, 0.28, 0.16, {0.18, 0.8, 0.44}, {0.18, 0.8, 0.44}}, // green button
    {0.4, 0.12, 0.28, 0.16, {0.98, 0.58, 0.2}, {0.98, 0.58, 0.2}},  // orange button
    {0.72, 0.12, 0.22, 0.16, {0.92, 0.3, 0.36}, {0.92, 0.3, 0.36}}, // red button
}};

} // namespace

cv::Mat sampleContent(int width, int height, bool dark) {
    cv::Mat image(std::max(1, height), std::max(1, width), CV_8UC4, cv::Scalar(0, 0, 0, 255));
    const double W = image.cols, H = image.rows;
    for (const auto& e : kElements) {
        const auto& rgb = dark ? e.dark : e.light;
        // Rows count from the top here; the layout counts from the bottom.
        const cv::Point topLeft(static_cast<int>(std::lround(e.x * W)),
                                static_cast<int>(std::lround(H - (e.y + e.h) * H)));
        const cv::Point bottomRight(static_cast<int>(std::lround((e.x + e.w) * W)),
                                    static_cast<int>(std::lround(H - e.y * H)));
        cv::rectangle(image, cv::Rect(topLeft, bottomRight),
                      cv::Scalar(std::lround(rgb[2] * 255), std::lround(rgb[1] * 255),
                                 std::lround(rgb[0] * 255), 255),
                      cv::FILLED);
    }
    return image;
}

cv::Mat samplePreview(int width, int height, bool dark, const RedactStyle& style) {
    cv::Mat image = sampleContent(width, height, dark);
    RedactShape rightHalf;
    rightHalf.rect = {0.5, 0, 0.5, 1};
    applyToPixels({rightHalf}, image, style);
    return image;
}

} // namespace varnel::ImageRedactor
