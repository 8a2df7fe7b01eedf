#pragma once

#ifndef Q_MOC_RUN
#include "capture/CapturedFrame.h"
#include "library/CaptureSource.h"
#include "library/Date.h"
#include "library/FlowStore.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QObject>

namespace varnel {

// One run of capturing: stages stills and clips under ".inprogress/<session>" in the library
// root, numbered as they come, and saves them as a new flow or adds them to an existing one.
// Lives on the main thread; `changed` tells the capture window to show the new state.
class SessionController : public QObject {
    Q_OBJECT

public:
    using FrameSource = std::function<std::optional<CapturedFrame>()>;
    using Clock = std::function<Date()>;

    SessionController(FlowStore& store, FrameSource capture, Clock now = &Date::now,
                      QObject* parent = nullptr);

    bool isRecording() const { return isRecording_; }
    bool isRecordingVideo() const { return isRecordingVideo_; }
    int screenCount() const { return static_cast<int>(pending_.size()); }
    // The last eight staged files, oldest first.
    const std::vector<std::filesystem::path>& recentThumbnails() const { return recent_; }
    const std::vector<std::filesystem::path>& stagedThumbnails() const { return staged_; }
    std::optional<Date> startedAt() const { return startedAt_; }
    const std::optional<std::string>& appendTarget() const { return appendTarget_; }

    // Throws the file system's error when the staging folder can't be made.
    void start(const std::optional<std::string>& appendingTo = std::nullopt);
    bool add(CaptureSource source);
    // Why the last `add` failed, in words for the user; empty after a success.
    const std::string& addFailure() const { return addFailure_; }
    // What the user should know of the last still added (not what was asked for); often empty.
    const std::string& addNote() const { return addNote_; }
    static constexpr const char* kNoPicture =
        "Nothing to capture: the source shows no picture yet.";
    std::optional<std::filesystem::path> beginVideo(int width, int height);
    bool commitVideo();
    bool deleteStaged(const std::string& filename);
    // Saves the session; none when there was nothing to save. Throws store errors; the session
    // ends either way.
    std::optional<std::filesystem::path> stop(const std::string& application,
                                              const std::string& name,
                                              const std::string& categoryL1,
                                              const std::string& deviceName);
    void cancel();

signals:
    void changed();

private:
    struct PendingScreen {
        std::string filename;
        Date capturedAt;
        CaptureSource source;
    };

    std::optional<std::filesystem::path> saveNewFlow(const std::string& application,
                                                     const std::string& name,
                                                     const std::string& categoryL1,
                                                     const std::string& deviceName);
    std::optional<std::filesystem::path> appendToFlow(const std::string& folderName);
    // Moves the staged files into the flow in capture order, numbered from `number`, adds their
    // screens to `meta`, and removes the staging folder.
    void clearStagingLeftovers();
    void appendPending(std::string filename, CaptureSource source);
    void publishLists();
    void endSession();
    void removeStagingFolder();

    FlowStore& store_;
    FrameSource capture_;
    Clock now_;

    bool isRecording_ = false;
    bool isRecordingVideo_ = false;
    std::vector<std::filesystem::path> recent_;
    std::vector<std::filesystem::path> staged_;
    std::optional<Date> startedAt_;

    std::optional<std::string> sessionID_;
    std::optional<std::filesystem::path> stagingDir_;
    Date startDate_;
    std::vector<PendingScreen> pending_;
    int lastWidth_ = 0;
    int lastHeight_ = 0;
    std::optional<std::string> appendTarget_;
    std::optional<std::string> pendingVideoFilename_;
    long long nextIndex_ = 1;
    std::string addFailure_;
    std::string addNote_;
};

} // namespace varnel
