// Publish and pull end to end: a flow of the library, the sync run and a Figma on 127.0.0.1.
#include "figma/FigmaAPI.h"
#include "figma/FigmaAccountCache.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaAvatarCache.h"
#include "figma/FigmaCommentSync.h"
#include "figma/FigmaPublishableWork.h"
#include "figma/FigmaSyncService.h"
#include "figma/FigmaThreadActions.h"
#include "library/FlowLibrary.h"
#include "support/FakeFigma.h"
#include "support/MemorySecrets.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace varnel {
namespace {

using test::FakeFigma;

class FigmaSyncTest : public ::testing::Test {
protected:
    FigmaSyncTest()
        : figma("FILEKEY", "secret-token"), api("secret-token", figma.baseURL()),
          library(FlowStore(dir / "library")) {
        library.open();
        folder = library.createEmptyFlow("Acme", "Sign up", std::nullopt, Date::now()).folderName;
        std::vector<std::filesystem::path> files;
        for (const char* name : {"a.png", "b.png", "c.png"}) {
            test::writePicture(dir / name, 39, 84);
            files.push_back(dir / name);
        }
        library.store().addScreens(folder, files, Date::now());
        library.reload();
        flowId = meta().id;
        page = figma.addPage("Flows");
        // Screens 01 and 02 are on the board; 03 was added after the import.
        board = figma.addBoard(page, flowId, "2026-11-22T09:00:00Z", 1000, 500,
                               {{"01.png", 0, 0, 390, 844}, {"02.png", 440, 0, 390, 844}});
        library.setFigmaFileURL(folder, figma.fileLink());
    }
    ~FigmaSyncTest() override { EXPECT_EQ(figma.violations(), std::vector<std::string>{}); }

    const FlowMeta& meta() { return library.meta(folder); }
    std::vector<ScreenComment> pins(const std::string& file) {
        return library.comments(folder, file);
    }
    void addPin(const std::string& file, const std::string& id, double x, double y,
                const std::string& text) {
        auto list = pins(file);
        ScreenComment p;
        p.id = id;
        p.x = x;
        p.y = y;
        p.text = text;
        list.push_back(p);
        library.saveComments(folder, file, list);
    }
    void editPin(const std::string& file, const std::string& id,
                 const std::function<void(ScreenComment&)>& change) {
        auto list = pins(file);
        for (auto& p : list)
            if (p.id == id)
                change(p);
        library.saveComments(folder, file, list);
    }
    FigmaSyncResult publish() {
        return FigmaCommentSync::run(meta(), api, library.figmaPersistence(folder));
    }
    std::string publishText() { return resultText(publish()); }
    std::optional<std::string> postedId(const std::string& file, const std::string& id) {
        for (const auto& p : pins(file))
            if (p.id == id)
                return p.postedId;
        return std::nullopt;
    }
    std::vector<FigmaThread> threads(const std::string& file) {
        return meta().screen(file)->figmaThreads.value_or(std::vector<FigmaThread>{});
    }
    int countRequests(const std::string& method) {
        int n = 0;
        for (const auto& r : figma.requests())
            n += r.method == method;
        return n;
    }

    test::TempDir dir;
    FakeFigma figma;
    FigmaAPI api;
    FlowLibrary library;
    std::string folder, flowId, page, board;
};

TEST_F(FigmaSyncTest, FirstPublishPostsEveryPinOnItsScreen) {
    addPin("01.png", "p1", 0.5, 0.5, "Centre");
    addPin("02.png", "p2", 0.25, 0.75, "Lower left");
    addPin("03.png", "p3", 0.5, 0.5, "Not imported");
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 3);
    QSignalSpy refreshed(&library, &FlowLibrary::figmaThreadsRefreshed);

    EXPECT_EQ(publishText(), "2 posted · 1 skipped — screen not on the board");
    const auto c1 = figma.comment(*postedId("01.png", "p1"));
    ASSERT_TRUE(c1);
    EXPECT_EQ((*c1)["message"], "Centre");
    EXPECT_EQ((*c1)["client_meta"]["node_id"], board);
    EXPECT_EQ((*c1)["client_meta"]["node_offset"]["x"], 195);
    EXPECT_EQ((*c1)["client_meta"]["node_offset"]["y"], 422);
    const auto c2 = figma.comment(*postedId("02.png", "p2"));
    EXPECT_EQ((*c2)["client_meta"]["node_offset"]["x"], 440 + 97.5);
    EXPECT_EQ((*c2)["client_meta"]["node_offset"]["y"], 633);
    EXPECT_EQ(postedId("03.png", "p3"), std::nullopt);
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 1); // the skipped pin stays pending

    // The pulled threads sit on their screens, at the pins' places.
    ASSERT_EQ(threads("01.png").size(), 1u);
    EXPECT_DOUBLE_EQ(*threads("01.png")[0].x, 0.5);
    EXPECT_EQ(threads("01.png")[0].authorHandle, FakeFigma::kUserHandle);
    EXPECT_TRUE(meta().figmaLastPulledAt);
    EXPECT_EQ(refreshed.count(), 1);

    // The link without a node id found the board by a depth-2 fetch.
    const auto log = figma.requests();
    EXPECT_EQ(log[0].rawQuery, "depth=2&plugin_data=shared");
    EXPECT_EQ(log[1].path, "/v1/files/FILEKEY/nodes");

    // Nothing changed: nothing is sent but the reads.
    figma.clearLog();
    EXPECT_EQ(publishText(), "1 skipped — screen not on the board");
    EXPECT_EQ(countRequests("POST") + countRequests("DELETE"), 0);
}

TEST_F(FigmaSyncTest, EditedMovedAndDeletedPins) {
    addPin("01.png", "edit", 0.1, 0.1, "Typo");
    addPin("01.png", "move", 0.2, 0.2, "Here");
    addPin("02.png", "drop", 0.3, 0.3, "Obsolete");
    ASSERT_EQ(publishText(), "3 posted");
    const auto oldEdit = *postedId("01.png", "edit");
    const auto oldMove = *postedId("01.png", "move");
    const auto dropped = *postedId("02.png", "drop");

    editPin("01.png", "edit", [](ScreenComment& p) { p.text = "Fixed"; });
    editPin("01.png", "move", [](ScreenComment& p) { p.x = 0.9; });
    library.saveComments(folder, "02.png", {});
    EXPECT_EQ(meta().figmaPendingDeletes, std::vector<std::string>{dropped});
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 3);

    EXPECT_EQ(publishText(), "2 posted · 3 deleted");
    EXPECT_FALSE(figma.comment(oldEdit));
    EXPECT_FALSE(figma.comment(oldMove));
    EXPECT_FALSE(figma.comment(dropped));
    const auto edited = figma.comment(*postedId("01.png", "edit"));
    ASSERT_TRUE(edited);
    EXPECT_EQ((*edited)["message"], "Fixed");
    const auto moved = figma.comment(*postedId("01.png", "move"));
    EXPECT_EQ((*moved)["client_meta"]["node_offset"]["x"], 0.9 * 390);
    EXPECT_FALSE(meta().figmaPendingDeletes);
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 0);
    EXPECT_EQ(figma.comments().size(), 2u);
}

TEST_F(FigmaSyncTest, DeletedInFigmaRepliesReanchoredAndForeignThreads) {
    addPin("01.png", "gone", 0.1, 0.1, "Will vanish");
    addPin("01.png", "talk", 0.5, 0.5, "Discuss");
    addPin("02.png", "stray", 0.5, 0.5, "Will be moved in Figma");
    ASSERT_EQ(publishText(), "3 posted");
    const auto talk = *postedId("01.png", "talk");
    const auto stray = *postedId("02.png", "stray");

    figma.deleteInFigma(*postedId("01.png", "gone"));
    figma.addForeignReply(talk, "Later reply", "2026-11-22T12:00:02Z");
    figma.addForeignReply(talk, "First reply", "2026-11-22T12:00:01Z");
    const std::string screen2 = figma.screenNode(board, "02.png");
    figma.reanchor(stray, screen2, 5, 5); // re-attached to the frame by someone
    figma.addForeignComment("Their note", screen2, 39, 84.4, "2026-11-22T09:00:00Z");
    figma.addForeignComment("Far away", page, -500, -500, "2026-11-22T12:00:00Z");

    EXPECT_EQ(
        publishText(),
        "1 posted · 1 deleted · 1 removed — deleted in Figma · 1 comments elsewhere in the file");
    EXPECT_EQ(pins("01.png").size(), 1u); // "gone" was removed locally, with nothing queued
    EXPECT_FALSE(meta().figmaPendingDeletes);
    EXPECT_NE(*postedId("02.png", "stray"), stray);
    EXPECT_FALSE(figma.comment(stray));

    const auto first = threads("01.png");
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].rootId, talk);
    ASSERT_EQ(first[0].replies.size(), 2u);
    EXPECT_EQ(first[0].replies[0].text, "First reply");
    EXPECT_EQ(first[0].replies[1].authorHandle, FakeFigma::kForeignHandle);
    const auto second = threads("02.png");
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[0].text, "Their note"); // oldest first
    EXPECT_NEAR(*second[0].x, 0.1, 1e-9);
    EXPECT_NEAR(*second[0].y, 0.1, 1e-9);
    EXPECT_EQ(second[1].rootId, *postedId("02.png", "stray"));
}

TEST_F(FigmaSyncTest, RunsThatStopBeforeSending) {
    addPin("01.png", "p", 0.5, 0.5, "Hello");
    const FlowMeta before = meta();

    library.setFigmaFileURL(folder, "https://example.com/file/X");
    EXPECT_EQ(publishText(), "Check the Figma file link");
    library.setFigmaFileURL(folder, "https://www.figma.com/design/OTHER/x");
    EXPECT_EQ(publishText(), "Figma file not found — check the link");
    library.setFigmaFileURL(folder, figma.fileLink());

    figma.rejectToken(403);
    EXPECT_EQ(publishText(), "Figma refused the token — check Settings → Figma");
    figma.rejectToken(401);
    EXPECT_EQ(publishText(), "Figma refused the token — check Settings → Figma");
    figma.rejectToken(0);
    figma.failNext("GET", "/v1/files/FILEKEY", 500);
    EXPECT_EQ(publishText(), "Network error — publish again to retry");

    figma.removeNode(board);
    EXPECT_EQ(publishText(), "No board for this flow — re-import with the updated plugin");
    EXPECT_EQ(countRequests("POST") + countRequests("DELETE"), 0);
    EXPECT_EQ(pins("01.png"), before.screen("01.png")->pins());
    EXPECT_FALSE(meta().figmaLastPulledAt);
}

TEST_F(FigmaSyncTest, ScreensRenumberedAfterImport) {
    addPin("01.png", "p", 0.5, 0.5, "Hello");
    library.store().deleteScreens(folder, {"02.png"}); // 03 becomes 02
    library.reload();
    ASSERT_TRUE(meta().screensRenumberedAt);
    EXPECT_EQ(publishText(), "Screens changed since import — re-import the flow, then publish");
    EXPECT_EQ(countRequests("POST"), 0);

    // A new import after the renumbering, linked with its node id, is found directly.
    const std::string fresh =
        figma.addBoard(page, flowId, "2099-01-01T00:00:00Z", 0, 2000,
                       {{"01.png", 0, 0, 390, 844}, {"02.png", 440, 0, 390, 844}});
    library.setFigmaFileURL(folder, figma.fileLink(fresh));
    figma.clearLog();
    EXPECT_EQ(publishText(), "1 posted");
    EXPECT_EQ(figma.requests()[0].rawQuery, "ids=" + fresh + "&plugin_data=shared");
    EXPECT_EQ((*figma.comment(*postedId("01.png", "p")))["client_meta"]["node_id"], fresh);
}

TEST_F(FigmaSyncTest, AFailureMidRunIsRedoneByTheNextRun) {
    addPin("01.png", "a", 0.1, 0.1, "One");
    addPin("01.png", "b", 0.2, 0.2, "Two");
    addPin("02.png", "c", 0.3, 0.3, "Three");
    figma.failNext("POST", "/comments", 500); // the first post fails
    figma.failNext("POST", "/comments", 429); // and so does the second
    EXPECT_EQ(publishText(), "1 posted · 2 failed — publish again to retry");
    EXPECT_EQ(postedId("01.png", "a"), std::nullopt);
    EXPECT_EQ(postedId("01.png", "b"), std::nullopt);
    ASSERT_TRUE(postedId("02.png", "c"));
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 2);

    // A repost whose delete fails keeps the old comment queued, so nothing is lost or doubled.
    editPin("02.png", "c", [](ScreenComment& p) { p.text = "Three!"; });
    const auto old = *postedId("02.png", "c");
    figma.failNext("DELETE", "/comments/" + old, 500);
    EXPECT_EQ(publishText(), "3 posted · 1 failed — publish again to retry");
    EXPECT_EQ(meta().figmaPendingDeletes, std::vector<std::string>{old});
    EXPECT_TRUE(figma.comment(old));

    EXPECT_EQ(publishText(), "1 deleted");
    EXPECT_FALSE(figma.comment(old));
    EXPECT_EQ(figma.comments().size(), 3u);
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 0);
}

class FigmaServicesTest : public FigmaSyncTest {
protected:
    FigmaServicesTest() { FigmaAuth::setToken("secret-token", secrets); }

    FigmaAPIFactory factory() {
        return [base = figma.baseURL()](const std::string& token) {
            return std::make_unique<FigmaAPI>(token, base);
        };
    }
    template <typename Done> void waitFor(Done done) {
        while (!done())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    test::MemorySecrets secrets;
};

TEST_F(FigmaServicesTest, PublishRunsOffTheMainThreadAndRecordsOnIt) {
    FigmaSyncService service(library, secrets, factory());
    QSignalSpy state(&service, &FigmaSyncService::stateChanged);
    addPin("01.png", "p", 0.5, 0.5, "Hello");

    service.publish(folder);
    EXPECT_TRUE(service.isSyncing(folder));
    service.publish(folder); // ignored while the first runs
    service.waitForIdle();
    EXPECT_EQ(state.count(), 2); // started, finished
    ASSERT_TRUE(service.lastOutcome(folder));
    EXPECT_EQ(service.lastOutcome(folder)->text, "1 posted");
    EXPECT_FALSE(service.lastOutcome(folder)->failed);
    EXPECT_TRUE(postedId("01.png", "p"));
    EXPECT_EQ(countRequests("POST"), 1);

    figma.rejectToken(403);
    service.publish(folder);
    service.waitForIdle();
    EXPECT_EQ(service.lastOutcome(folder)->text,
              "Figma refused the token — check Settings → Figma");
    EXPECT_TRUE(service.lastOutcome(folder)->failed);

    // Without a token nothing is sent at all.
    figma.clearLog();
    FigmaAuth::setToken("", secrets);
    service.publish(folder);
    EXPECT_FALSE(service.isSyncing(folder));
    EXPECT_EQ(service.lastOutcome(folder)->text, "Add your Figma token in Settings → Figma first");
    EXPECT_TRUE(figma.requests().empty());
}

TEST_F(FigmaServicesTest, ReplyAndDeleteFromTheThreadPanel) {
    addPin("01.png", "p", 0.5, 0.5, "Hello");
    ASSERT_EQ(publishText(), "1 posted");
    const std::string root = *postedId("01.png", "p");
    FigmaThreadActions actions(library, secrets, factory());
    QSignalSpy done(&actions, &FigmaThreadActions::finished);
    QSignalSpy refreshed(&library, &FlowLibrary::figmaThreadsRefreshed);

    actions.reply(folder, "01.png", root, "Thanks");
    waitFor([&] { return done.count() == 1; });
    EXPECT_EQ(done[0][2].toString(), "");
    ASSERT_EQ(threads("01.png")[0].replies.size(), 1u);
    EXPECT_EQ(threads("01.png")[0].replies[0].text, "Thanks");
    EXPECT_EQ(threads("01.png")[0].replies[0].authorHandle, FakeFigma::kUserHandle);
    EXPECT_EQ(figma.comments().size(), 2u);
    EXPECT_EQ(refreshed.count(), 1);
    EXPECT_EQ(actions.threadURL(folder, root), "https://www.figma.com/design/FILEKEY#" + root);

    // A thread someone deleted in Figma meanwhile answers 404.
    const std::string theirs = figma.addForeignComment("Theirs", board, 10, 10, "");
    figma.deleteInFigma(theirs);
    actions.reply(folder, "01.png", theirs, "Too late");
    waitFor([&] { return done.count() == 2; });
    EXPECT_EQ(done[1][2].toString(), "This thread was deleted in Figma");

    actions.deleteThread(folder, "01.png", root);
    waitFor([&] { return done.count() == 3; });
    EXPECT_EQ(done[2][2].toString(), "");
    EXPECT_TRUE(figma.comments().empty());
    EXPECT_TRUE(threads("01.png").empty());
    EXPECT_TRUE(pins("01.png").empty()); // the pin went with its thread, queueing nothing
    EXPECT_FALSE(meta().figmaPendingDeletes);
}

TEST_F(FigmaServicesTest, AccountAndAvatarsAreFetchedOnce) {
    FigmaAvatarCache avatars;
    FigmaAccountCache account(secrets, avatars, factory());
    QSignalSpy changed(&account, &FigmaAccountCache::changed);
    account.ensureLoaded();
    EXPECT_TRUE(account.loading());
    account.ensureLoaded(); // no second request while one is under way
    waitFor([&] { return !account.avatar().isNull(); });
    ASSERT_TRUE(account.account());
    EXPECT_EQ(account.account()->handle, FakeFigma::kUserHandle);
    EXPECT_EQ(account.avatar().pixelColor(0, 0), QColor(13, 153, 255));
    account.ensureLoaded(); // known: nothing asked
    int meRequests = 0;
    for (const auto& r : figma.requests())
        meRequests += r.path == "/v1/me";
    EXPECT_EQ(meRequests, 1);

    // Many rows with one author: one fetch.
    const std::string url = figma.baseURL() + "/avatars/2002.png";
    avatars.ensureLoaded(url);
    avatars.ensureLoaded(url);
    EXPECT_TRUE(avatars.isInFlight(url));
    avatars.ensureLoaded(std::nullopt);
    avatars.ensureLoaded("http://example.com/a.png"); // not fetched in clear from elsewhere
    EXPECT_EQ(avatars.fetchesStarted(), 2);           // the account's and this one
    waitFor([&] { return !avatars.isInFlight(url); });
    EXPECT_EQ(avatars.image(url).pixelColor(0, 0), QColor(240, 80, 40));
    avatars.ensureLoaded(url);
    EXPECT_EQ(avatars.fetchesStarted(), 2); // the account's and this one

    // A refused token leaves no account, and says why.
    account.clear();
    figma.rejectToken(403);
    account.ensureLoaded();
    waitFor([&] { return !account.loading(); });
    EXPECT_FALSE(account.account());
    EXPECT_EQ(account.lastError(), "Figma refused the token — check Settings → Figma");
}

} // namespace
} // namespace varnel

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
