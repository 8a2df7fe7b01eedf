#include "capture/VideoFrame.h"

#include <gst/gst.h>
#include <gst/video/video.h>

#include <utility>

namespace varnel {

VideoFrame::VideoFrame(GstSample* sample) : sample_(sample) {
    if (!sample_)
        return;
    GstVideoInfo info;
    GstCaps* caps = gst_sample_get_caps(sample_);
    if (caps && gst_video_info_from_caps(&info, caps)) {
        width_ = GST_VIDEO_INFO_WIDTH(&info);
        height_ = GST_VIDEO_INFO_HEIGHT(&info);
    }
}

VideoFrame::VideoFrame(const VideoFrame& other)
    : sample_(other.sample_ ? gst_sample_ref(other.sample_) : nullptr), width_(other.width_),
      height_(other.height_) {}

VideoFrame::VideoFrame(VideoFrame&& other) noexcept
    : sample_(std::exchange(other.sample_, nullptr)), width_(std::exchange(other.width_, 0)),
      height_(std::exchange(other.height_, 0)) {}

VideoFrame& VideoFrame::operator=(VideoFrame other) noexcept {
    std::swap(sample_, other.sample_);
    std::swap(width_, other.width_);
    std::swap(height_, other.height_);
    return *this;
}

VideoFrame::~VideoFrame() {
    if (sample_)
        gst_sample_unref(sample_);
}

std::int64_t VideoFrame::presentationTime() const {
    GstBuffer* buffer = sample_ ? gst_sample_get_buffer(sample_) : nullptr;
    if (!buffer || !GST_BUFFER_PTS_IS_VALID(buffer))
        return -1;
    return static_cast<std::int64_t>(GST_BUFFER_PTS(buffer));
}

bool VideoFrame::withPixels(const PixelVisitor& visit) const {
    if (!sample_)
        return false;
    GstVideoInfo info;
    GstCaps* caps = gst_sample_get_caps(sample_);
    GstBuffer* buffer = gst_sample_get_buffer(sample_);
    if (!caps || !buffer || !gst_video_info_from_caps(&info, caps))
        return false;
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ))
        return false;
    visit(static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
          static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0)));
    gst_video_frame_unmap(&frame);
    return true;
}

} // namespace varnel
