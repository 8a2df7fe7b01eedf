#pragma once

#include <opencv2/core.hpp>

#include <QImage>

namespace varnel {

// A copy of a BGRA picture as a QImage (the same bytes in memory on little-endian machines);
// null for an empty one.
inline QImage qImageOf(const cv::Mat& bgra) {
    if (bgra.empty())
        return {};
    return QImage(bgra.data, bgra.cols, bgra.rows, static_cast<qsizetype>(bgra.step),
                  QImage::Format_ARGB32)
        .copy();
}

} // namespace varnel
