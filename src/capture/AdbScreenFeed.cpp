#include "capture/AdbScreenFeed.h"

#include <gst/app/gstappsrc.h>

#include <chrono>

namespace varnel {

namespace {

// A recorder that keeps ending without a picture is not going to give one.
constexpr int kFruitlessStarts = 3;

bool startsLikeH264(const std::string& head) {
    return head.rfind(std::string("\0\0\0\1", 4), 0) == 0 ||
           head.rfind(std::string("\0\0\1", 3), 0) == 0;
}

} // namespace

AdbScreenFeed::AdbScreenFeed(AdbClient client, std::string serial)
    : client_(std::move(client)), serial_(std::move(serial)) {}

AdbScreenFeed::~AdbScreenFeed() {
    stop();
}

void AdbScreenFeed::start(GstAppSrc* source, std::function<void(const std::string&)> ended) {
    source_ = source;
    ended_ = std::move(ended);
    thread_ = std::thread([this] { run(); });
}

void AdbScreenFeed::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        if (current_)
            current_->cancel();
    }
    if (thread_.joinable())
        thread_.join();
}

bool AdbScreenFeed::feedOne(std::string& why) {
    {
        auto stream = client_.open(serial_, kCommand);
        std::lock_guard lock(mutex_);
        if (stopping_)
            return true;
        current_ = std::move(stream);
    }
    ++streams_;
    std::string head;
    bool pictures = false;
    char buffer[64 * 1024];
    for (;;) {
        const std::size_t got = current_->read(buffer, sizeof buffer);
        if (got == 0)
            break;
        if (!pictures) {
            // Until the stream shows itself to be H.264, it may be the recorder's complaint.
            head.append(buffer, got);
            if (head.size() < 4)
                continue;
            if (!startsLikeH264(head)) {
                why = head.substr(0, 300);
                break;
            }
            pictures = true;
            gst_app_src_push_buffer(source_, gst_buffer_new_memdup(head.data(), head.size()));
            continue;
        }
        gst_app_src_push_buffer(source_, gst_buffer_new_memdup(buffer, got));
    }
    std::lock_guard lock(mutex_);
    current_.reset();
    return pictures;
}

void AdbScreenFeed::run() {
    int fruitless = 0;
    std::string reason;
    for (;;) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_)
                return;
        }
        std::string why;
        try {
            fruitless = feedOne(why) ? 0 : fruitless + 1;
        } catch (const AdbError& error) {
            reason = error.what();
            break;
        }
        if (fruitless >= kFruitlessStarts) {
            reason = "The phone's screen recorder gives no picture" +
                     (why.empty() ? std::string(".") : ": " + why);
            break;
        }
    }
    std::lock_guard lock(mutex_);
    if (!stopping_ && ended_)
        ended_(reason);
}

} // namespace varnel
