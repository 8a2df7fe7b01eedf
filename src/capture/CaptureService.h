#pragma once

#ifndef Q_MOC_RUN
#include "capture/AdbClient.h"
#include "capture/CapturedFrame.h"
#include "capture/MovieWriter.h"
#include "capture/SimulatorWindows.h"
#include "capture/VideoFrame.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#endif

#include <QObject>

typedef struct _GstDevice GstDevice;
typedef struct _GstElement GstElement;

namespace varnel {

// A source could not be started; the description says why.
class CaptureError : public std::runtime_error {
public:
    enum class Kind { cannotAddInput, accessDenied };
    CaptureError(Kind kind, const std::string& description)
        : std::runtime_error(description), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

struct PixelSize {
    int width = 0;
    int height = 0;
    bool operator==(const PixelSize&) const = default;
};

// Runs one capture source at a time (a camera or an emulator window) as a GStreamer pipeline
// ending in a BGRA sink that keeps only the newest frame, keeps that frame in a FrameBox and
// records clips from it. Frames arrive on GStreamer's streaming thread, which also makes every
// MovieWriter call; published state changes on the main thread only.
class AdbScreenFeed;
class WindowGrabber;
class WindowWatch;

class CaptureService : public QObject {
    Q_OBJECT

public:
    explicit CaptureService(QObject* parent = nullptr);
    ~CaptureService() override;

    bool isRunning() const { return isRunning_; }
    PixelSize resolution() const { return resolution_; }
    bool isRecordingVideo() const { return isRecordingVideo_; }
    // The window being captured is minimized or otherwise unmapped: it gives no picture.
    bool isSourceHidden() const { return sourceHidden_; }

    // Camera source; throws CaptureError.
    void start(GstDevice* device);
    // Window source (an X window id); throws CaptureError.
    void startWindow(const X11Window& window);
    // An Android device by its adb serial: its screen recorder's stream for the picture and
    // clips, its own screenshots for stills. Throws CaptureError.
    void startAdb(const std::string& serial, const AdbClient& client);
    // Any source described as a GStreamer launch line ending in raw video (tests, benchmarks).
    void startDescription(const std::string& description);
    void stop();

    bool startRecording(const std::filesystem::path& file);
    void stopRecording();

    VideoFrame latestFrame() const { return frameBox_.latest(); }
    // The latest frame as a still screen; none before the first frame. For an Android device,
    // the device's own screenshot, or the latest frame with a note when that fails.
    std::optional<CapturedFrame> stillFrame() const;
    // An Android device's screenshot, as taken: the PNG, or why there is none.
    struct Screenshot {
        std::string png;
        std::string failure;
    };
    // For an Android source, what takes its screenshot; it holds all it needs, so it may run on
    // any thread while the main thread goes on (a phone takes up to a second or two). Empty for
    // other sources.
    std::function<Screenshot()> screenshotTask() const;
    // The still a screenshot makes, or the latest frame with a note when it failed.
    std::optional<CapturedFrame> stillFrom(Screenshot screenshot) const;
    // How often the running Android device's screen recorder was started.
    int adbStreams() const;
    MovieWriter::Counts recordingCounts();
    // Frames the running source has made, and frames that reached the frame box.
    std::uint64_t framesProduced() const { return framesProduced_; }
    std::uint64_t framesReceived() const { return framesReceived_; }

    // The clip's file once it is complete (main thread).
    std::function<void(const std::filesystem::path&)> onRecordingFinished;
    // Frames of a size other than the first go into a clip scaled to fit; starting another
    // source finishes the clip first.

signals:
    void runningChanged();
    void resolutionChanged();
    void recordingChanged();
    // A new frame is in the box. Posted at most once until the main thread has seen it.
    void frameArrived();
    // The source ended by itself (window closed, camera unplugged) with GStreamer's reason.
    void streamStopped(const QString& reason);
    void sourceHiddenChanged();
    // A recording ended without any frame, so no clip will come.
    void recordingAbandoned();
    // A recording ended early because the clip could not be written; `kept` when what was
    // written plays and is in the clip's file.
    void recordingFailed(const QString& reason, bool kept);

private:
    // The latest frame as a still screen.
    std::optional<CapturedFrame> latestStill() const;
    void startPipeline(GstElement* source, const char* what);
    void stopPipeline();
    void ingest(VideoFrame frame);
    void sourceEnded(unsigned generation, const QString& reason);
    void setRunning(bool running);
    void setSourceHidden(bool hidden);
    void recordingEnded(const MovieWriter::Outcome& outcome);

    GstElement* pipeline_ = nullptr;
    std::unique_ptr<WindowWatch> windowWatch_;
    std::unique_ptr<WindowGrabber> windowGrabber_;
    std::unique_ptr<AdbScreenFeed> adbFeed_;
    // The Android device being captured, for its screenshots.
    std::optional<std::pair<AdbClient, std::string>> adbDevice_;
    std::atomic<bool> sourceHidden_{false};
    unsigned generation_ = 0;
    bool isRunning_ = false;
    PixelSize resolution_;
    bool isRecordingVideo_ = false;
    unsigned recording_ = 0;
    bool finishing_ = false;

    FrameBox frameBox_;
    // Serializes the streaming thread's frames with the main thread's recording calls.
    std::mutex sampleQueue_;
    MovieWriter movie_;
    std::atomic<int> lastWidth_{0};
    std::atomic<int> lastHeight_{0};
    std::atomic<bool> framePosted_{false};
    std::atomic<std::uint64_t> framesProduced_{0};
    std::atomic<std::uint64_t> framesReceived_{0};
    std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
};

} // namespace varnel
