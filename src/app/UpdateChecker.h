#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "app/ReleaseFeed.h"

#include <QFutureWatcher>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#endif

namespace varnel {

class AppSettings;

// This build's version, as the release feed numbers them.
std::string_view applicationVersion();

struct UpdateCheckResult {
    enum class Outcome { upToDate, newer, failed };
    Outcome outcome = Outcome::failed;
    // The newer release; for upToDate, the feed's newest (older than or the same as this one).
    std::optional<Release> release;
    // Why the check failed, for the user.
    std::string problem;
};

// Reads the feed at `feedUrl` (https, or http on this computer) and compares its newest release
// with `currentVersion`. Blocking; never throws.
// `cancel`, set from another thread, ends it within about a second.
UpdateCheckResult checkForUpdates(const std::string& feedUrl, std::string_view currentVersion,
                                  std::shared_ptr<const std::atomic<bool>> cancel = nullptr);

// Runs update checks off the main thread: when the user asks, and once a week when the user
// turned that on. Reading the feed is all it does: nothing is downloaded or installed.
class UpdateChecker : public QObject {
    Q_OBJECT

public:
    static constexpr double kWeek = 7 * 24 * 3600;

    UpdateChecker(AppSettings& settings, std::string currentVersion, QObject* parent = nullptr);
    ~UpdateChecker() override;

    // A check the user asked for; one at a time.
    void checkNow();
    // A background check, when the weekly check is on and a week has passed since the last
    // successful one; called at start and every hour after.
    void checkIfDue();
    bool isChecking() const { return watcher_.isRunning(); }

signals:
    // `userAsked`: from checkNow, to be answered whatever the outcome.
    void checked(const varnel::UpdateCheckResult& result, bool userAsked);

private:
    void start(bool userAsked);
    void finish();

    AppSettings& settings_;
    std::string currentVersion_;
    QFutureWatcher<UpdateCheckResult> watcher_;
    QTimer hourly_;
    // Quitting stops a check under way rather than waiting for a slow server.
    std::shared_ptr<std::atomic<bool>> cancel_ = std::make_shared<std::atomic<bool>>(false);
    bool userAsked_ = false;
};

} // namespace varnel
