#include "app/AppSettings.h"
#include "app/UpdateChecker.h"
#include "support/StaticServer.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <gtest/gtest.h>

#include <chrono>

using namespace varnel;
using namespace varnel::test;
using Outcome = UpdateCheckResult::Outcome;

namespace {

std::string feed(std::initializer_list<std::string> versions) {
    std::string releases;
    for (const auto& v : versions)
        releases += std::string(releases.empty() ? "" : ",") + R"({"version": ")" + v +
                    R"(", "date": "2026-12-01", "notes": "What )" + v +
                    R"( brings.\nAnd more.", "url": "https://varnel.app/download/)" + v + R"("})";
    return R"({"releases": [)" + releases + "]}";
}

std::string problemWith(const std::string& document) {
    try {
        ReleaseFeed::parse(document);
    } catch (const ReleaseFeedError& e) {
        return e.what();
    }
    return "";
}

class UpdateCheckerTest : public ::testing::Test {
protected:
    UpdateCheckerTest() {
        settings.setUpdateFeed(server.url("/releases.json"));
        server.serve("/releases.json", feed({"0.1.0", "0.3.0", "0.2.0"}));
        QObject::connect(&checker, &UpdateChecker::checked,
                         [this](const UpdateCheckResult& result, bool userAsked) {
                             results.emplace_back(result, userAsked);
                         });
    }
    // Waits until the checker has answered `count` times, or a while.
    void waitForResults(std::size_t count) {
        QDeadlineTimer deadline(20000);
        while (results.size() < count && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    static double daysAgo(double days) {
        using namespace std::chrono;
        return duration<double>(system_clock::now().time_since_epoch()).count() - days * 86400;
    }

    TempDir dir;
    StaticServer server;
    AppSettings settings{std::make_unique<QSettings>(
        QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)};
    UpdateChecker checker{settings, "0.2.0"};
    std::vector<std::pair<UpdateCheckResult, bool>> results;
};

} // namespace

TEST(ReleaseFeedTest, VersionsOrderAsReleasesDo) {
    EXPECT_GT(compareVersions("0.2.0", "0.1.9"), 0);
    EXPECT_GT(compareVersions("0.10.0", "0.9.0"), 0) << "numbers, not text";
    EXPECT_EQ(compareVersions("1.0", "1.0.0"), 0);
    EXPECT_LT(compareVersions("1.0.0", "1.0.1"), 0);
    EXPECT_LT(compareVersions("0.2.0-beta.1", "0.2.0"), 0) << "a pre-release comes first";
    EXPECT_GT(compareVersions("0.2.0-beta.1", "0.1.0"), 0);
    EXPECT_LT(compareVersions("0.2.0-beta.1", "0.2.0-beta.2"), 0);
    for (const char* bad : {"", "v1.0", "1..0", "1.0.", "1.0-", "one", "1.2.3.4.5"})
        EXPECT_FALSE(isVersion(bad)) << bad;
}

TEST(ReleaseFeedTest, AFeedIsReadOnlyWhenItIsWhatItsFormatSays) {
    const ReleaseFeed parsed = ReleaseFeed::parse(feed({"0.9.0", "0.10.0", "0.2.0"}));
    ASSERT_EQ(parsed.releases.size(), 3u);
    ASSERT_TRUE(parsed.newest());
    EXPECT_EQ(parsed.newest()->version, "0.10.0") << "in any order";
    EXPECT_EQ(parsed.newest()->notes, "What 0.10.0 brings.\nAnd more.");
    EXPECT_EQ(parsed.newest()->url, "https://varnel.app/download/0.10.0");
    EXPECT_FALSE(ReleaseFeed::parse(R"({"releases": []})").newest());

    EXPECT_EQ(problemWith("<html>"), "it is not JSON");
    EXPECT_EQ(problemWith(R"({"versions": []})"), "it has no \"releases\" list");
    EXPECT_EQ(problemWith(R"({"releases": [1]})"), "release 1 is not an object");
    EXPECT_EQ(problemWith(R"({"releases": [{"version": "0.2.0", "url": "https://a"}]})"),
              "release 1 has no \"date\" text");
    EXPECT_EQ(
        problemWith(R"({"releases": [{"version": "latest", "date": "", "url": "https://a"}]})"),
        "“latest” is not a version");
    EXPECT_EQ(
        problemWith(R"({"releases": [{"version": "0.2.0", "date": "", "url": "http://a/x.deb"}]})"),
        "the download address of 0.2.0 is not an https address");
    EXPECT_EQ(problemWith(R"({"releases": [{"version": "0.2.0", "date": "", "notes": 3,
                                            "url": "https://a"}]})"),
              "release 1 has no \"notes\" text");
}

// Against a feed on this computer: newer, the same, older, broken, missing, unreachable.
TEST(UpdateCheckTest, SaysWhatTheFeedSaysOrWhyItCouldNotBeRead) {
    StaticServer server;
    const std::string url = server.url("/releases.json");

    server.serve("/releases.json", feed({"0.1.0", "0.3.0", "0.2.0"}));
    UpdateCheckResult result = checkForUpdates(url, "0.2.0");
    EXPECT_EQ(result.outcome, Outcome::newer);
    ASSERT_TRUE(result.release);
    EXPECT_EQ(result.release->version, "0.3.0");
    EXPECT_EQ(result.release->url, "https://varnel.app/download/0.3.0");
    EXPECT_EQ(server.requests(), 1) << "the feed is read; nothing is downloaded";

    EXPECT_EQ(checkForUpdates(url, "0.3.0").outcome, Outcome::upToDate);
    result = checkForUpdates(url, "0.4.0-beta.1");
    EXPECT_EQ(result.outcome, Outcome::upToDate) << "a build newer than any release";
    EXPECT_EQ(result.release->version, "0.3.0");
    server.serve("/releases.json", R"({"releases": []})");
    EXPECT_EQ(checkForUpdates(url, "0.2.0").outcome, Outcome::upToDate);

    server.serve("/releases.json", "{\"releases\": [");
    result = checkForUpdates(url, "0.2.0");
    EXPECT_EQ(result.outcome, Outcome::failed);
    EXPECT_EQ(result.problem, "The release feed at " + url + " can’t be read: it is not JSON.");

    server.serve("/releases.json", "gone", 404);
    result = checkForUpdates(url, "0.2.0");
    EXPECT_EQ(result.outcome, Outcome::failed);
    EXPECT_EQ(result.problem, "The release feed at " + url + " answered with HTTP status 404.");

    result = checkForUpdates("http://127.0.0.1:9/releases.json", "0.2.0");
    EXPECT_EQ(result.outcome, Outcome::failed);
    EXPECT_TRUE(result.problem.starts_with(
        "Couldn’t reach the release feed at http://127.0.0.1:9/releases.json: "))
        << result.problem;

    result = checkForUpdates("http://varnel.app/releases.json", "0.2.0");
    EXPECT_EQ(result.outcome, Outcome::failed);
    EXPECT_EQ(result.problem,
              "The release feed “http://varnel.app/releases.json” is not an https address.");
}

TEST_F(UpdateCheckerTest, TheWeeklyCheckRunsOnlyWhenTurnedOnAndAWeekHasPassed) {
    settings.setLastUpdateCheck(daysAgo(30));
    checker.checkIfDue();
    QCoreApplication::processEvents();
    EXPECT_FALSE(checker.isChecking());
    EXPECT_EQ(server.requests(), 0) << "off unless the user turns it on";

    settings.setCheckForUpdatesWeekly(true);
    settings.setLastUpdateCheck(daysAgo(6));
    checker.checkIfDue();
    EXPECT_FALSE(checker.isChecking()) << "checked less than a week ago";

    settings.setLastUpdateCheck(daysAgo(8));
    checker.checkIfDue();
    waitForResults(1);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].first.outcome, Outcome::newer);
    EXPECT_FALSE(results[0].second) << "in the background";
    EXPECT_GT(settings.lastUpdateCheck(), daysAgo(0.01)) << "the next is due in a week";
    checker.checkIfDue();
    EXPECT_FALSE(checker.isChecking());

    // A failed check is not a check: it is tried again.
    settings.setLastUpdateCheck(daysAgo(8));
    server.serve("/releases.json", "{", 200);
    checker.checkIfDue();
    waitForResults(2);
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[1].first.outcome, Outcome::failed);
    EXPECT_LT(settings.lastUpdateCheck(), daysAgo(7));
}

TEST_F(UpdateCheckerTest, ACheckTheUserAsksForIsAnsweredWhateverTheSetting) {
    checker.checkNow();
    checker.checkNow(); // a second press while the first is under way
    waitForResults(1);
    QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_TRUE(results[0].second);
    EXPECT_EQ(results[0].first.outcome, Outcome::newer);
    EXPECT_EQ(server.requests(), 1);
}

int main(int argc, char** argv) {
    return runWithOwnSettings(argc, argv);
}
