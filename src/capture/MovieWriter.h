#pragma once

#include "capture/VideoFrame.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

typedef struct _GstElement GstElement;
typedef struct _GstCaps GstCaps;

namespace varnel {

// Records frames into an H.264 QuickTime movie. Idle → armed by `begin` → writing from the
// first frame, which fixes the size and starts the time line → `finish`, which reports the
// file once it is complete. A frame of another size is scaled into the first size with its
// aspect kept. A frame that comes while the encoder is still busy is dropped rather than
// queued. Used from one thread at a time (the owner serializes the calls).
class MovieWriter {
public:
    // How one recording ended. `failure` is empty when the movie was completed as asked;
    // otherwise it says why, and the file is kept only when what was written plays.
    struct Outcome {
        unsigned recording = 0;
        std::filesystem::path file;
        std::string failure;
        bool kept = false;
    };
    using Finished = std::function<void(const Outcome&)>;
    // The writer of `recording` met an error; the owner should finish it (any thread).
    using Failing = std::function<void(unsigned recording)>;

    // How many frames may wait for the encoder before new ones are dropped.
    static constexpr unsigned kQueueLimit = 4;

    MovieWriter() = default;
    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // Called once per recording that got as far as a first frame, on a worker thread (or on
    // the caller's thread when the writer could not be made).
    void setOnFinish(Finished onFinish) { onFinish_ = std::move(onFinish); }
    void setOnFailing(Failing onFailing) { onFailing_ = std::move(onFailing); }

    // Arms a new recording and returns its number.
    unsigned begin(const std::filesystem::path& file);
    void append(const VideoFrame& frame);
    // Ends the recording; true when an outcome is on its way to `onFinish` (false when no
    // frame arrived after `begin`).
    bool finish();
    void reset();

    bool isActive() const { return active_; }
    bool isWriting() const { return writer_ != nullptr; }
    unsigned recording() const { return recording_; }

    struct Counts {
        std::uint64_t appended = 0;
        std::uint64_t dropped = 0;
    };
    // Frames written and dropped since the last `begin`.
    Counts counts() const { return {appended_, dropped_}; }

    // Blocks until every finished recording has been reported.
    void waitForFinished();

    // Frames a movie file holds that can be read back in order; 0 when it can't be read.
    static int playableFrames(const std::filesystem::path& file);

private:
    bool createWriter(const VideoFrame& first);
    void report(Outcome outcome);

    GstElement* writer_ = nullptr;
    GstElement* source_ = nullptr;
    GstCaps* caps_ = nullptr;
    std::optional<std::filesystem::path> pendingURL_;
    bool active_ = false;
    unsigned recording_ = 0;
    std::int64_t firstTime_ = -1;
    std::int64_t lastTime_ = -1; // of the last frame written, from the first

    std::int64_t frameDuration_ = 0;
    std::chrono::steady_clock::time_point firstClock_;
    std::uint64_t appended_ = 0;
    std::uint64_t dropped_ = 0;
    Finished onFinish_;
    Failing onFailing_;
    std::mutex finishersMutex_;
    std::vector<std::jthread> finishers_;
};

} // namespace varnel
