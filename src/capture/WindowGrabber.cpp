#include "capture/WindowGrabber.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <xcb/composite.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <chrono>
#include <cstdlib>
#include <memory>

namespace varnel {

namespace {

constexpr int kFramesPerSecond = 30;

template <typename Reply> using ReplyPtr = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply> ReplyPtr<Reply> owned(Reply* reply) {
    return ReplyPtr<Reply>(reply, &std::free);
}

// A shared memory segment that the X server writes a picture into.
class SharedImage {
public:
    explicit SharedImage(xcb_connection_t* connection) : connection_(connection) {}
    ~SharedImage() { release(); }

    // Room for `bytes`; false when shared memory can't be had.
    bool reserve(std::size_t bytes) {
        if (bytes <= size_)
            return true;
        release();
        id_ = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
        if (id_ < 0)
            return false;
        data_ = shmat(id_, nullptr, 0);
        shmctl(id_, IPC_RMID, nullptr); // freed once both sides detach
        if (data_ == reinterpret_cast<void*>(-1)) {
            data_ = nullptr;
            return false;
        }
        segment_ = xcb_generate_id(connection_);
        if (auto* error = xcb_request_check(
                connection_, xcb_shm_attach_checked(connection_, segment_, id_, 0))) {
            std::free(error);
            shmdt(data_);
            data_ = nullptr;
            return false;
        }
        size_ = bytes;
        return true;
    }

    xcb_shm_seg_t segment() const { return segment_; }
    const void* data() const { return data_; }

private:
    void release() {
        if (!data_)
            return;
        xcb_shm_detach(connection_, segment_);
        xcb_flush(connection_);
        shmdt(data_);
        data_ = nullptr;
        size_ = 0;
    }

    xcb_connection_t* connection_;
    int id_ = -1;
    void* data_ = nullptr;
    xcb_shm_seg_t segment_ = 0;
    std::size_t size_ = 0;
};

} // namespace

WindowGrabber::WindowGrabber(std::uint32_t window)
    : window_(window), connection_(xcb_connect(nullptr, nullptr)) {
    if (xcb_connection_has_error(connection_)) {
        error_ = "The X server can't be reached.";
        return;
    }
    const auto* shm = xcb_get_extension_data(connection_, &xcb_shm_id);
    if (!shm || !shm->present) {
        error_ = "The X server lacks shared memory (MIT-SHM).";
        return;
    }
    const auto* composite = xcb_get_extension_data(connection_, &xcb_composite_id);
    if (composite && composite->present) {
        std::free(xcb_composite_query_version_reply(
            connection_, xcb_composite_query_version(connection_, 0, 2), nullptr));
        // Automatic redirection: the screen looks the same, and the window's pixels are kept
        // whole off screen even where others cover it.
        auto* error = xcb_request_check(
            connection_, xcb_composite_redirect_window_checked(connection_, window_,
                                                               XCB_COMPOSITE_REDIRECT_AUTOMATIC));
        composite_ = error == nullptr;
        std::free(error);
    }
}

WindowGrabber::~WindowGrabber() {
    stop();
    if (composite_)
        xcb_composite_unredirect_window(connection_, window_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    xcb_disconnect(connection_);
}

void WindowGrabber::start(GstAppSrc* source) {
    if (!error_.empty() || thread_.joinable())
        return;
    thread_ = std::jthread([this, source](std::stop_token stop) { run(stop, source); });
}

void WindowGrabber::stop() {
    if (!thread_.joinable())
        return;
    thread_.request_stop();
    thread_.join();
}

void WindowGrabber::run(std::stop_token stop, GstAppSrc* source) {
    using Clock = std::chrono::steady_clock;
    const auto period = std::chrono::nanoseconds(1'000'000'000 / kFramesPerSecond);
    SharedImage image(connection_);
    xcb_pixmap_t pixmap = 0;
    int width = 0, height = 0;
    auto next = Clock::now();
    auto forgetPixmap = [&] {
        if (pixmap)
            xcb_free_pixmap(connection_, pixmap);
        pixmap = 0;
    };

    while (!stop.stop_requested()) {
        next += period;
        std::this_thread::sleep_until(next);
        if (Clock::now() - next > period * 4)
            next = Clock::now(); // fell behind: don't try to catch up in a burst
        if (paused_)
            continue;
        auto attributes = owned(xcb_get_window_attributes_reply(
            connection_, xcb_get_window_attributes(connection_, window_), nullptr));
        auto geometry = owned(
            xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window_), nullptr));
        if (!attributes || !geometry)
            continue; // gone: the window watch reports it
        if (attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
            forgetPixmap(); // a window mapped again has new storage
            continue;
        }
        if (geometry->depth != 24 && geometry->depth != 32)
            continue;
        if (geometry->width != width || geometry->height != height)
            forgetPixmap();
        width = geometry->width;
        height = geometry->height;
        if (composite_ && !pixmap) {
            pixmap = xcb_generate_id(connection_);
            if (auto* error = xcb_request_check(
                    connection_,
                    xcb_composite_name_window_pixmap_checked(connection_, window_, pixmap))) {
                std::free(error);
                pixmap = 0;
                continue;
            }
        }
        const std::size_t bytes = static_cast<std::size_t>(width) * height * 4;
        if (!image.reserve(bytes))
            continue;
        auto grabbed = owned(xcb_shm_get_image_reply(
            connection_,
            xcb_shm_get_image(connection_, composite_ ? pixmap : window_, 0, 0,
                              static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height),
                              ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, image.segment(), 0),
            nullptr));
        if (!grabbed)
            continue;

        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, bytes, nullptr);
        gst_buffer_fill(buffer, 0, image.data(), bytes);
        GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRx", "width",
                                            G_TYPE_INT, width, "height", G_TYPE_INT, height,
                                            "framerate", GST_TYPE_FRACTION, kFramesPerSecond, 1,
                                            "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
        GstCaps* current = gst_app_src_get_caps(source);
        if (!current || !gst_caps_is_equal(current, caps))
            gst_app_src_set_caps(source, caps);
        if (current)
            gst_caps_unref(current);
        gst_caps_unref(caps);
        gst_app_src_push_buffer(source, buffer);
    }
    forgetPixmap();
    xcb_flush(connection_);
}

} // namespace varnel
