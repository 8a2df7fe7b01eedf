#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

typedef struct _GstAppSrc GstAppSrc;
typedef struct xcb_connection_t xcb_connection_t;

namespace varnel {

// Reads an X window's own pixels, 30 times a second, into a GStreamer app source. The window
// is redirected off screen with the Composite extension, so the parts another window covers
// are read as they are, not as the screen shows them. A window that is not mapped (minimized)
// gives no frames at all rather than stale ones.
class WindowGrabber {
public:
    // Connects to the X server and redirects the window; `error` says why not, if it fails.
    explicit WindowGrabber(std::uint32_t window);
    ~WindowGrabber();
    WindowGrabber(const WindowGrabber&) = delete;
    WindowGrabber& operator=(const WindowGrabber&) = delete;

    const std::string& error() const { return error_; }

    // Starts pushing frames into `source` (which must outlive the grabber's `stop`).
    void start(GstAppSrc* source);
    void stop();

    // While paused, nothing is read (the window is hidden).
    void setPaused(bool paused) { paused_ = paused; }

private:
    void run(std::stop_token stop, GstAppSrc* source);

    std::uint32_t window_;
    xcb_connection_t* connection_ = nullptr;
    bool composite_ = false;
    std::string error_;
    std::atomic<bool> paused_{false};
    std::jthread thread_;
};

} // namespace varnel
