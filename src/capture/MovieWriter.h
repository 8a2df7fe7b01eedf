#pragma once

#include "capture/VideoFrame.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

typedef struct _GstElement GstElement;

namespace varnel {

// Records frames into an H.264 QuickTime movie. Idle → armed by `begin` → writing from the
// first frame, which fixes the size and starts the time line → `finish`, which reports the file
// once it is complete. A frame that comes while the encoder is still busy is dropped rather
// than queued. Used from one thread at a time (the owner serializes the calls).
class MovieWriter {
public:
    using Finished = std::function<void(const std::filesystem::path& file)>;

    // How many frames may wait for the encoder before new ones are dropped.
    static constexpr unsigned kQueueLimit = 4;

    MovieWriter() = default;
    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // Called on a worker thread when a finished file is complete.
    void setOnFinish(Finished onFinish) { onFinish_ = std::move(onFinish); }

    void begin(const std::filesystem::path& file);
    void append(const VideoFrame& frame);
    // Ends the recording; true when a file is on its way to `onFinish` (false when no frame
    // arrived after `begin`, or the writer could not be made).
    bool finish();
    void reset();

    bool isActive() const { return active_; }
    bool isWriting() const { return writer_ != nullptr; }

    struct Counts {
        std::uint64_t appended = 0;
        std::uint64_t dropped = 0;
    };
    // Frames written and dropped since the last `begin`.
    Counts counts() const { return {appended_, dropped_}; }

    // Blocks until every finished recording has been reported.
    void waitForFinished();

private:
    bool createWriter(const VideoFrame& first);

    GstElement* writer_ = nullptr;
    GstElement* source_ = nullptr;
    std::optional<std::filesystem::path> pendingURL_;
    bool active_ = false;
    std::int64_t firstTime_ = -1;
    std::int64_t frameDuration_ = 0;
    std::chrono::steady_clock::time_point firstClock_;
    std::uint64_t appended_ = 0;
    std::uint64_t dropped_ = 0;
    Finished onFinish_;
    std::mutex finishersMutex_;
    std::vector<std::jthread> finishers_;
};

} // namespace varnel
