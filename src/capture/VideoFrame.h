#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

typedef struct _GstSample GstSample;

namespace varnel {

// One BGRA (or BGRx) picture from a capture source: a shared reference to GStreamer's sample,
// never a copy of its pixels.
class VideoFrame {
public:
    VideoFrame() = default;
    // Takes over one reference of `sample`.
    explicit VideoFrame(GstSample* sample);
    VideoFrame(const VideoFrame& other);
    VideoFrame(VideoFrame&& other) noexcept;
    VideoFrame& operator=(VideoFrame other) noexcept;
    ~VideoFrame();

    bool isNull() const { return sample_ == nullptr; }
    int width() const { return width_; }
    int height() const { return height_; }
    // Presentation time in nanoseconds on the source's clock; -1 when unknown.
    std::int64_t presentationTime() const;
    GstSample* sample() const { return sample_; }

    using PixelVisitor = std::function<void(const std::uint8_t* pixels, std::size_t stride)>;
    // Calls `visit` with the mapped pixels; false when they can't be read.
    bool withPixels(const PixelVisitor& visit) const;

private:
    GstSample* sample_ = nullptr;
    int width_ = 0;
    int height_ = 0;
};

// The latest frame of the running source, shared between GStreamer's streaming thread, which
// replaces it on every frame, and its readers.
class FrameBox {
public:
    void put(VideoFrame frame) {
        {
            std::lock_guard lock(mutex_);
            std::swap(buffer_, frame);
        } // the old frame is released outside the lock
    }
    VideoFrame latest() const {
        std::lock_guard lock(mutex_);
        return buffer_;
    }
    void clear() { put(VideoFrame()); }

private:
    mutable std::mutex mutex_;
    VideoFrame buffer_;
};

} // namespace varnel
