#pragma once

#ifndef Q_MOC_RUN
#include "figma/FigmaAccountCache.h"
#include "figma/KeychainStore.h"

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#endif

#include <QObject>
#include <QThreadPool>

namespace varnel {

class FlowLibrary;

// Publish runs of the app: one at a time per flow, off the main thread, each success recorded
// in the library on the main thread as it happens. The band shows its state and outcome per
// flow. A run stops at its next request when its flow is renamed, moved or deleted, when the
// library is switched, and when the app quits.
class FigmaSyncService : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kNoToken = "Add your Figma token in Settings → Figma first";

    FigmaSyncService(FlowLibrary& library, SecretStore& secrets, FigmaAPIFactory factory,
                     QObject* parent = nullptr);
    // Stops the runs under way, aborting their requests, and records what they had done.
    ~FigmaSyncService() override;

    // Starts a publish of the flow, unless one is under way for it.
    void publish(const std::string& folderName);
    bool isSyncing(const std::string& folderName) const;

    struct Outcome {
        std::string text; // the summary line or the error's message
        bool failed = false;
    };
    std::optional<Outcome> lastOutcome(const std::string& folderName) const;
    // Runs the main thread's events until no run is under way.
    void waitForIdle();
    // Asks every run to stop, then waits for them; their successes are recorded.
    void stopAll();

signals:
    void stateChanged(const QString& folderName);

private:
    struct Run {
        std::string folderName; // where the flow was when the run started
        std::filesystem::path root;
        std::shared_ptr<std::atomic<bool>> stop = std::make_shared<std::atomic<bool>>(false);
    };
    std::optional<std::string> flowId(const std::string& folderName) const;
    void finish(const std::string& flowId, const std::string& folderName, Outcome outcome);
    void stopRelocatedRuns();

    FlowLibrary& library_;
    SecretStore& secrets_;
    FigmaAPIFactory factory_;
    std::map<std::string, Run> running_;      // by flow id
    std::map<std::string, Outcome> outcomes_; // by flow id
    QThreadPool pool_;
};

} // namespace varnel
