#pragma once

#include "capture/AdbClient.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

typedef struct _GstAppSrc GstAppSrc;

namespace varnel {

// An Android device's screen as H.264 from its screen recorder, pushed into an appsrc. The
// recorder stops at its time limit (three minutes) or for reasons of its own; it is started
// again at once, and the new stream opens with its parameter sets and a key frame, so the
// picture goes on.
class AdbScreenFeed {
public:
    static constexpr const char* kCommand = "screenrecord --output-format=h264 -";

    AdbScreenFeed(AdbClient client, std::string serial);
    ~AdbScreenFeed();
    AdbScreenFeed(const AdbScreenFeed&) = delete;
    AdbScreenFeed& operator=(const AdbScreenFeed&) = delete;

    // Starts feeding `source` (which must outlive the feed). `ended` runs on the feed's thread
    // when the device can't be recorded any more, with the reason.
    void start(GstAppSrc* source, std::function<void(const std::string&)> ended);
    void stop();
    // How often the recorder was started.
    int streams() const { return streams_; }

private:
    void run();
    // Feeds one recorder run; false when it gave no picture at all (`why` says what it said).
    bool feedOne(std::string& why);

    AdbClient client_;
    std::string serial_;
    GstAppSrc* source_ = nullptr;
    std::function<void(const std::string&)> ended_;
    std::mutex mutex_;
    std::unique_ptr<AdbStream> current_;
    bool stopping_ = false;
    std::atomic<int> streams_{0};
    std::thread thread_;
};

} // namespace varnel
