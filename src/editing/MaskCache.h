#pragma once

#include "editing/RedactRecords.h"

#include <opencv2/core.hpp>

#include <mutex>
#include <optional>
#include <vector>

namespace varnel {

// The zones' mask of a clip, made once per frame size and shared by every frame. Frames may be
// filtered on several threads; the lock serializes lookups, and a mask once handed out is only
// read.
class MaskCache {
public:
    explicit MaskCache(std::vector<RedactShape> shapes) : shapes_(std::move(shapes)) {}

    const std::vector<RedactShape>& shapes() const { return shapes_; }

    // The mask for frames of this size; none when it can't be made (the previous one stays).
    std::optional<cv::Mat> image(cv::Size extent);

private:
    std::mutex lock_;
    std::vector<RedactShape> shapes_;
    std::optional<std::pair<cv::Size, cv::Mat>> cached_;
};

} // namespace varnel
