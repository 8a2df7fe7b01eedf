#pragma once

#ifndef Q_MOC_RUN
#include "figma/FigmaAccountCache.h"
#include "figma/KeychainStore.h"

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#endif

#include <QObject>
#include <QThreadPool>

namespace varnel {

class FlowLibrary;

// Publish runs of the app: one at a time, off the main thread, each success recorded in the
// library on the main thread as it happens. The band shows its state and outcome per flow.
class FigmaSyncService : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kNoToken = "Add your Figma token in Settings → Figma first";

    FigmaSyncService(FlowLibrary& library, SecretStore& secrets, FigmaAPIFactory factory,
                     QObject* parent = nullptr);
    // Waits for a run under way; what it still had to record is dropped.
    ~FigmaSyncService() override;

    // Starts a publish of the flow, unless one is under way for it.
    void publish(const std::string& folderName);
    bool isSyncing(const std::string& folderName) const { return running_.contains(folderName); }

    struct Outcome {
        std::string text; // the summary line or the error's message
        bool failed = false;
    };
    std::optional<Outcome> lastOutcome(const std::string& folderName) const;
    // Runs the main thread's events until no run is under way.
    void waitForIdle();

signals:
    void stateChanged(const QString& folderName);

private:
    void finish(const std::string& folderName, Outcome outcome);

    FlowLibrary& library_;
    SecretStore& secrets_;
    FigmaAPIFactory factory_;
    std::set<std::string> running_;
    std::map<std::string, Outcome> outcomes_;
    std::shared_ptr<std::atomic<bool>> closing_ = std::make_shared<std::atomic<bool>>(false);
    QThreadPool pool_;
};

} // namespace varnel
