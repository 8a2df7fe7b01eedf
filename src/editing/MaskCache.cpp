#include "editing/MaskCache.h"

#include "editing/ImageRedactor.h"

namespace varnel {

std::optional<cv::Mat> MaskCache::image(cv::Size extent) {
    std::lock_guard guard(lock_);
    if (cached_ && cached_->first == extent)
        return cached_->second;
    auto mask = ImageRedactor::maskImage(shapes_, extent.width, extent.height);
    if (!mask)
        return std::nullopt;
    cached_ = std::make_pair(extent, *mask);
    return mask;
}

} // namespace varnel
