#include "app/UpdateChecker.h"

#include "app/AppSettings.h"
#include "figma/HttpClient.h"

#include <QtConcurrent>

#include <chrono>

namespace varnel {

namespace {

constexpr std::size_t kMaxFeedBytes = 1 << 20;

double secondsNow() {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

} // namespace

std::string_view applicationVersion() {
    return VARNEL_VERSION;
}

UpdateCheckResult checkForUpdates(const std::string& feedUrl, std::string_view currentVersion,
                                  std::shared_ptr<const std::atomic<bool>> cancel) {
    UpdateCheckResult result;
    if (!Http::isAllowedURL(feedUrl)) {
        result.problem = "The release feed “" + feedUrl + "” is not an https address.";
        return result;
    }
    Http::Request request;
    request.url = feedUrl;
    request.headers = {{"Accept", "application/json"},
                       {"User-Agent", "Varnel/" + std::string(currentVersion)}};
    request.timeoutSeconds = 20;
    request.maxBytes = kMaxFeedBytes;
    request.maxRedirects = 3;
    request.cancel = std::move(cancel);
    try {
        const Http::Response response = Http::perform(request);
        if (response.status != 200) {
            result.problem = "The release feed at " + feedUrl + " answered with HTTP status " +
                             std::to_string(response.status) + ".";
            return result;
        }
        const std::optional<Release> newest = ReleaseFeed::parse(response.body).newest();
        result.release = newest;
        result.outcome = newest && compareVersions(newest->version, currentVersion) > 0
                             ? UpdateCheckResult::Outcome::newer
                             : UpdateCheckResult::Outcome::upToDate;
    } catch (const Http::TransportError& e) {
        result.problem = "Couldn’t reach the release feed at " + feedUrl + ": " + e.what() + ".";
    } catch (const ReleaseFeedError& e) {
        result.problem = "The release feed at " + feedUrl + " can’t be read: " + e.what() + ".";
    } catch (const std::exception& e) {
        result.problem = "Couldn’t read the release feed at " + feedUrl + ": " + e.what() + ".";
    }
    return result;
}

UpdateChecker::UpdateChecker(AppSettings& settings, std::string currentVersion, QObject* parent)
    : QObject(parent), settings_(settings), currentVersion_(std::move(currentVersion)) {
    connect(&watcher_, &QFutureWatcher<UpdateCheckResult>::finished, this, &UpdateChecker::finish);
    hourly_.setInterval(std::chrono::hours(1));
    connect(&hourly_, &QTimer::timeout, this, &UpdateChecker::checkIfDue);
    hourly_.start();
}

UpdateChecker::~UpdateChecker() {
    *cancel_ = true;
    watcher_.waitForFinished();
}

void UpdateChecker::checkNow() {
    if (isChecking()) {
        userAsked_ = true; // the one under way answers
        return;
    }
    start(true);
}

void UpdateChecker::checkIfDue() {
    if (!settings_.checkForUpdatesWeekly() || isChecking())
        return;
    if (secondsNow() - settings_.lastUpdateCheck() < kWeek)
        return;
    start(false);
}

void UpdateChecker::start(bool userAsked) {
    userAsked_ = userAsked;
    watcher_.setFuture(
        QtConcurrent::run([feed = settings_.updateFeed(), version = currentVersion_] {
            return checkForUpdates(feed, version);
        }));
}

void UpdateChecker::finish() {
    const UpdateCheckResult result = watcher_.result();
    // A failed check is tried again in an hour; a successful one waits a week.
    if (result.outcome != UpdateCheckResult::Outcome::failed)
        settings_.setLastUpdateCheck(secondsNow());
    emit checked(result, userAsked_);
}

} // namespace varnel
