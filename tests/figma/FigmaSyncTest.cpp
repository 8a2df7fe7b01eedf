// Publish and pull end to end: a flow of the library, the sync run and a Figma on 127.0.0.1.
#include "figma/FigmaAPI.h"
#include "figma/FigmaAccountCache.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaAvatarCache.h"
#include "figma/FigmaCommentSync.h"
#include "figma/FigmaPublishableWork.h"
#include "figma/FigmaSyncService.h"
#include "figma/FigmaThreadActions.h"
#include "figma/HttpClient.h"
#include "model/FlowLibrary.h"
#include "support/FakeFigma.h"
#include "support/MemorySecrets.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <random>
#include <thread>

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

// Comments missing from Figma's answer would look deleted in Figma, and their pins would go.
TEST_F(FigmaSyncTest, ACommentsAnswerWithoutTheCommentsChangesNothing) {
    addPin("01.png", "a", 0.2, 0.2, "First");
    addPin("02.png", "b", 0.4, 0.4, "Second");
    ASSERT_EQ(publishText(), "2 posted");
    const std::string id = *postedId("01.png", "a");
    figma.addForeignReply(id, "Seen", "2026-11-22T12:00:00Z");
    ASSERT_EQ(publishText(), "Nothing to publish");
    ASSERT_EQ(threads("01.png").size(), 1u);
    const auto inFigma = figma.comments();

    const std::vector<std::string> answers = {
        "{}",
        R"({"comments": null})",
        R"({"comments": {"id": ")" + id + R"("}})",
        R"({"comments": [42]})",
        R"({"comments": [{"message": "First"}]})",
        "[]",
        "",
        // A pin's comment without a usable place would look moved off the board: its pin would
        // be posted again and the comment deleted.
        R"({"comments": [{"id": ")" + id + R"(", "message": "First", "client_meta": 7}]})",
        R"({"comments": [{"id": ")" + id +
            R"(", "message": "First", "client_meta": {"node_id": 12}}]})",
        R"({"comments": [{"id": ")" + id +
            R"(", "message": "First", "client_meta": {"node_id": "1:2", "node_offset": {}}}]})",
    };
    const auto unchanged = [&](const FlowMeta& before, const std::string& body) {
        for (const char* file : {"01.png", "02.png", "03.png"}) {
            EXPECT_EQ(pins(file), before.screen(file)->pins()) << body;
            EXPECT_EQ(threads(file),
                      before.screen(file)->figmaThreads.value_or(std::vector<FigmaThread>{}))
                << body;
        }
        EXPECT_EQ(meta().figmaPendingDeletes, before.figmaPendingDeletes) << body;
        EXPECT_EQ(meta().figmaLastPulledAt, before.figmaLastPulledAt) << body;
        EXPECT_EQ(countRequests("POST") + countRequests("DELETE"), 0) << body;
        EXPECT_EQ(figma.comments(), inFigma) << body;
    };

    // The answer the plan is made from, with a pin waiting to be posted.
    addPin("02.png", "c", 0.6, 0.6, "Waiting");
    for (const auto& body : answers) {
        const FlowMeta before = meta();
        figma.clearLog();
        figma.answerNext("GET", "/comments", 200, body);
        const FigmaSyncResult result = publish();
        ASSERT_TRUE(std::holds_alternative<FigmaSyncError>(result)) << body;
        EXPECT_EQ(resultText(result), "Network error — publish again to retry") << body;
        unchanged(before, body);
    }

    // The answer the threads are pulled from, after a publish with nothing to send.
    library.saveComments(folder, "02.png", {pins("02.png")[0]});
    ASSERT_EQ(publishText(), "Nothing to publish");
    for (const auto& body : answers) {
        const FlowMeta before = meta();
        figma.clearLog();
        figma.answerNext("GET", "/comments", 200, nlohmann::json{{"comments", inFigma}}.dump());
        figma.answerNext("GET", "/comments", 200, body);
        const FigmaSyncResult result = publish();
        ASSERT_TRUE(std::holds_alternative<FigmaSyncError>(result)) << body;
        EXPECT_EQ(resultText(result), "Network error — publish again to retry") << body;
        unchanged(before, body);
    }
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

TEST_F(FigmaSyncTest, RelinkingToAnotherFileKeepsThePins) {
    addPin("01.png", "a", 0.2, 0.2, "First");
    addPin("02.png", "b", 0.4, 0.4, "Second");
    ASSERT_EQ(publishText(), "2 posted");
    // "b" was recorded before pins named their file, as older versions did.
    editPin("02.png", "b", [](ScreenComment& p) { p.postedFileKey.reset(); });
    const auto inA = figma.comments();

    // The flow imported again into file B, whose link the user pastes.
    figma.addFile("BKEY");
    const std::string pageB = figma.addPage("Flows", "BKEY");
    figma.addBoard(pageB, flowId, "2026-11-23T09:00:00Z", 0, 0,
                   {{"01.png", 0, 0, 390, 844}, {"02.png", 440, 0, 390, 844}});
    figma.addForeignComment(
        "Welcome to B",
        figma.screenNode(figma.addBoard(pageB, "other", {}, 0, 3000, {{"x.png", 0, 0, 10, 10}}),
                         "x.png"),
        1, 1, "");
    library.setFigmaFileURL(folder, figma.fileLink({}, "BKEY"));
    EXPECT_TRUE(threads("01.png").empty()); // A's threads can't be answered through B's link
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 2);

    EXPECT_EQ(publishText(), "2 posted · 1 comments elsewhere in the file");
    ASSERT_EQ(pins("01.png").size(), 1u);
    ASSERT_EQ(pins("02.png").size(), 1u);
    EXPECT_EQ(pins("01.png")[0].postedFileKey, "BKEY");
    EXPECT_EQ(figma.comments("BKEY").size(), 3u);
    EXPECT_EQ(figma.comments(), inA); // nothing in A was touched
    EXPECT_EQ(threads("02.png").size(), 1u);
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 0);

    // Back to A: its comments are still the pins' own; none is posted a second time.
    library.setFigmaFileURL(folder, figma.fileLink());
    EXPECT_EQ(publishText(), "2 posted");
    EXPECT_EQ(figma.comments(), inA);
    EXPECT_EQ(*postedId("01.png", "a"), inA[0]["id"]);

    // Deleting a pin now deletes its comment in A only.
    library.saveComments(folder, "01.png", {});
    EXPECT_EQ(publishText(), "1 deleted");
    EXPECT_EQ(figma.comments().size(), 1u);
    EXPECT_EQ(figma.comments("BKEY").size(), 3u);
}

TEST_F(FigmaSyncTest, AThreadOthersRepliedInIsNeverDeleted) {
    addPin("01.png", "moved", 0.2, 0.2, "Move me");
    addPin("02.png", "dropped", 0.5, 0.5, "On a screen that goes");
    addPin("01.png", "mine", 0.7, 0.7, "Only my own reply");
    ASSERT_EQ(publishText(), "3 posted");
    const auto moved = *postedId("01.png", "moved");
    const auto dropped = *postedId("02.png", "dropped");
    const auto mine = *postedId("01.png", "mine");
    figma.addForeignReply(moved, "I disagree", "2026-11-22T12:00:00Z");
    figma.addForeignReply(dropped, "Keep this", "2026-11-22T12:00:01Z");
    ASSERT_EQ(publishText(), "Nothing to publish"); // pulls the replies
    ASSERT_EQ(threads("01.png")[0].replies.size(), 1u);

    // Changed on disk behind the lock (an older version, or by hand), and a pin deleted.
    editPin("01.png", "moved", [](ScreenComment& p) { p.x = 0.9; });
    editPin("01.png", "mine", [](ScreenComment& p) { p.text = "Edited"; });
    library.saveComments(folder, "02.png", {});
    EXPECT_EQ(meta().figmaPendingDeletes, std::vector<std::string>{dropped});
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 2); // the moved pin waits on its replies

    EXPECT_EQ(publishText(), "1 posted · 1 deleted · 2 kept as they are — others replied in Figma");
    EXPECT_FALSE(figma.comment(mine));
    ASSERT_TRUE(figma.comment(moved));
    EXPECT_EQ((*figma.comment(moved))["client_meta"]["node_offset"]["x"], 0.2 * 390);
    ASSERT_TRUE(figma.comment(dropped));
    EXPECT_EQ(figma.comments().size(), 5u); // three threads, two replies
    EXPECT_FALSE(meta().figmaPendingDeletes);
    // Locally both conversations are still there: the kept one as a thread of its own.
    ASSERT_EQ(threads("01.png").size(), 2u);
    EXPECT_EQ(threads("01.png")[0].replies[0].text, "I disagree");
    ASSERT_EQ(threads("02.png").size(), 1u);
    EXPECT_EQ(threads("02.png")[0].replies[0].text, "Keep this");

    EXPECT_EQ(FigmaPublishableWork::count(meta()), 0);
    EXPECT_EQ(publishText(), "1 kept as they are — others replied in Figma");
    EXPECT_EQ(figma.comments().size(), 5u);
}

// Figma, with the run interrupted at one request the way a quit does: the request is either
// carried out and its answer lost, or never sent.
class InterruptingAPI : public FigmaCommentAPI {
public:
    InterruptingAPI(FigmaCommentAPI& inner, int at, bool afterActing)
        : inner_(inner), countdown_(at), afterActing_(afterActing) {}

    const std::shared_ptr<std::atomic<bool>> stop = std::make_shared<std::atomic<bool>>(false);

    FigmaAccount me() override {
        return step([&] { return inner_.me(); });
    }
    FigmaNode file(const std::string& key, int depth) override {
        return step([&] { return inner_.file(key, depth); });
    }
    FigmaNode file(const std::string& key, const std::string& ids) override {
        return step([&] { return inner_.file(key, ids); });
    }
    std::optional<FigmaNode> nodes(const std::string& key, const std::string& id) override {
        return step([&] { return inner_.nodes(key, id); });
    }
    std::vector<FigmaCommentRef> comments(const std::string& key) override {
        return step([&] { return inner_.comments(key); });
    }
    std::string postComment(const std::string& key, const std::string& message,
                            const FigmaClientMeta& meta) override {
        return step([&] { return inner_.postComment(key, message, meta); });
    }
    std::string postReply(const std::string& key, const std::string& message,
                          const std::string& commentId) override {
        return step([&] { return inner_.postReply(key, message, commentId); });
    }
    void deleteComment(const std::string& key, const std::string& commentId) override {
        step([&] {
            inner_.deleteComment(key, commentId);
            return true;
        });
    }

private:
    template <typename F> auto step(F request) -> decltype(request()) {
        if (*stop)
            throw Http::Cancelled();
        if (countdown_-- == 0) {
            if (afterActing_)
                request();
            *stop = true;
            throw Http::Cancelled();
        }
        return request();
    }

    FigmaCommentAPI& inner_;
    int countdown_;
    bool afterActing_;
};

TEST_F(FigmaSyncTest, InterruptedRunsNeverPostAPinTwice) {
    std::mt19937 random(17);
    const auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    int counter = 0;
    const auto addSome = [&](int n) {
        for (int i = 0; i < n; ++i) {
            const std::string id = "p" + std::to_string(++counter);
            addPin(pick(2) ? "01.png" : "02.png", id, 0.1 * pick(10), 0.1 * pick(10), "Pin " + id);
        }
    };
    addSome(8);
    int interrupted = 0;
    for (int run = 0; run < 50; ++run) {
        // What a user does between runs: edits, moves, new pins, deleted pins.
        const std::string file = pick(2) ? "01.png" : "02.png";
        auto list = pins(file);
        if (!list.empty()) {
            auto& p = list[pick(static_cast<int>(list.size()))];
            switch (pick(4)) {
            case 0:
                p.text += " (edited " + std::to_string(run) + ")";
                break;
            case 1:
                p.x = 0.1 * pick(10);
                break;
            case 2:
                list.erase(list.begin() + pick(static_cast<int>(list.size())));
                break;
            default:
                break;
            }
            library.saveComments(folder, file, list);
        }
        if (pick(3) == 0)
            addSome(1);

        // The run stops at a random request, or its bookkeeping fails at a random step.
        InterruptingAPI interrupting(api, pick(9), pick(2) == 0);
        FigmaPublishPersistence persistence = library.figmaPersistence(folder);
        if (pick(4) == 0) {
            auto steps = std::make_shared<int>(pick(6));
            const auto inner = persistence.markPosted;
            persistence.markPosted = [=](const auto& f, const auto& p, const auto& id,
                                         const auto& sig, const auto& key) {
                if ((*steps)-- == 0)
                    throw std::runtime_error("the app is closing");
                inner(f, p, id, sig, key);
            };
        }
        const auto result =
            FigmaCommentSync::run(meta(), interrupting, persistence, interrupting.stop.get());
        interrupted += *interrupting.stop;
    }
    ASSERT_GT(interrupted, 30);
    ASSERT_EQ(publishText().find("failed"), std::string::npos);

    // Every pin is in Figma once, as it is now; a comment no pin names is a pin posted twice.
    std::set<std::string> named;
    int local = 0;
    for (const char* file : {"01.png", "02.png"}) {
        for (const auto& p : pins(file)) {
            ++local;
            ASSERT_TRUE(p.postedId) << p.text;
            const auto posted = figma.comment(*p.postedId);
            ASSERT_TRUE(posted) << p.text;
            EXPECT_EQ((*posted)["message"], p.text);
            named.insert(*p.postedId);
        }
    }
    int postedTwice = 0, orphans = 0;
    for (const auto& c : figma.comments()) {
        if (named.contains(c["id"]))
            continue;
        bool duplicate = false;
        for (const char* file : {"01.png", "02.png"})
            for (const auto& p : pins(file))
                duplicate = duplicate || c["message"] == p.text;
        (duplicate ? postedTwice : orphans)++;
    }
    std::cout << "pins posted twice across 50 interrupted runs: " << postedTwice
              << "; comments of pins deleted while their post was unrecorded: " << orphans << "\n";
    EXPECT_EQ(postedTwice, 0);
    EXPECT_EQ(static_cast<int>(figma.comments().size()), local + orphans);
    EXPECT_FALSE(meta().figmaPendingDeletes);
}

TEST_F(FigmaSyncTest, BookkeepingFollowsTheFlowById) {
    addPin("01.png", "p", 0.5, 0.5, "Hello");
    const FigmaPublishPersistence persistence = library.figmaPersistence(folder);
    const std::string renamed = library.renameFlow(folder, "Sign up, renamed");
    ASSERT_NE(renamed, folder);
    persistence.markPosted("01.png", "p", "c1", "sig", "FILEKEY");
    folder = renamed;
    EXPECT_EQ(postedId("01.png", "p"), "c1");

    library.deleteFlow(folder);
    EXPECT_THROW(persistence.markPosted("01.png", "p", "c2", "sig", "FILEKEY"), std::exception);
}

// Screens deleted while a run goes on renumber the rest: each step still lands on the screen the
// run meant, never on the neighbour that took its name.
TEST_F(FigmaSyncTest, BookkeepingFollowsScreensRenumberedDuringTheRun) {
    addPin("01.png", "gone", 0.1, 0.1, "On the screen that goes");
    addPin("02.png", "moved", 0.2, 0.2, "On a renumbered screen");
    addPin("02.png", "removed", 0.3, 0.3, "Deleted in Figma");
    addPin("03.png", "last", 0.4, 0.4, "On the last screen");
    const FigmaPublishPersistence persistence = library.figmaPersistence(folder);
    const auto roots = [&](const std::string& file) {
        std::vector<std::string> ids;
        for (const auto& t : threads(file))
            ids.push_back(t.rootId);
        return ids;
    };
    const auto pulled = [](const std::string& root) {
        FigmaThread t;
        t.rootId = root;
        t.x = t.y = 0.5;
        t.text = root;
        return std::vector<FigmaThread>{t};
    };

    library.deleteScreens(folder, {"01.png"}); // 02 becomes 01, 03 becomes 02
    test::writePicture(dir / "d.png", 39, 84);
    library.addScreens(folder, {dir / "d.png"}); // a new 03
    ASSERT_EQ(pins("01.png").size(), 2u);
    ASSERT_EQ(pins("01.png")[0].id, "moved");

    persistence.markPosted("02.png", "moved", "c-moved", "sig", "FILEKEY");
    persistence.markPosted("01.png", "gone", "c-gone", "sig", "FILEKEY");
    persistence.removeLocalPin("02.png", "removed");
    persistence.saveThreads({{"01.png", pulled("t-gone")},
                             {"02.png", pulled("t-moved")},
                             {"03.png", pulled("t-last")}});

    EXPECT_EQ(postedId("01.png", "moved"), "c-moved");
    ASSERT_EQ(pins("01.png").size(), 1u) << "the pin deleted in Figma went from its own screen";
    EXPECT_EQ(pins("02.png").size(), 1u);
    EXPECT_EQ(postedId("02.png", "last"), std::nullopt);
    // The post of a pin deleted with its screen is deleted by the next run.
    EXPECT_EQ(meta().figmaPendingDeletes, std::vector<std::string>{"c-gone"});
    EXPECT_EQ(roots("01.png"), std::vector<std::string>{"t-moved"});
    EXPECT_EQ(roots("02.png"), std::vector<std::string>{"t-last"});
    EXPECT_EQ(roots("03.png"), std::vector<std::string>{}) << "a screen added meanwhile";

    // The flow renamed, put in a category that is renamed, and its screens reordered: still
    // followed.
    const FigmaPublishPersistence later = library.figmaPersistence(folder);
    const std::string mine = library.comments(folder, "02.png")[0].id;
    folder = library.renameFlow(folder, "Sign up, again");
    folder = library.moveFlow(folder, "Acme", "Onboarding");
    library.renameCategory("Onboarding", "Welcome");
    folder = library.folderOfFlow(flowId);
    ASSERT_NE(folder.find("welcome"), std::string::npos) << folder;
    library.reorderScreens(folder, {"02.png", "01.png", "03.png"});
    later.markPosted("02.png", mine, "c-mine", "sig", "FILEKEY");
    later.saveThreads({{"01.png", pulled("t-one")}, {"02.png", pulled("t-two")}});
    EXPECT_EQ(postedId("01.png", mine), "c-mine");
    EXPECT_EQ(roots("01.png"), std::vector<std::string>{"t-two"});
    EXPECT_EQ(roots("02.png"), std::vector<std::string>{"t-one"});
    EXPECT_EQ(roots("03.png"), std::vector<std::string>{});
    EXPECT_EQ(meta().figmaPendingDeletes, std::vector<std::string>{"c-gone"});
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

// Secrets whose next read runs the event loop, as the desktop keychain's does, with a click in it.
class ReentrantSecrets : public test::MemorySecrets {
public:
    std::optional<std::string> data(const std::string& key) override {
        if (auto click = std::exchange(duringRead, nullptr))
            click();
        return MemorySecrets::data(key);
    }
    std::function<void()> duringRead;
};

// Runs the main thread's events until Figma holds back an answer.
void waitUntilHanging(const FakeFigma& figma) {
    while (!figma.hanging()) {
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

TEST_F(FigmaServicesTest, QuittingDuringARunAbortsItsRequestAndNothingIsPostedTwice) {
    for (int i = 0; i < 8; ++i)
        addPin(i % 2 ? "01.png" : "02.png", "p" + std::to_string(i), 0.1 * i, 0.5,
               "Pin " + std::to_string(i));
    figma.hangNext("POST", "/comments");
    auto service = std::make_unique<FigmaSyncService>(library, secrets, factory());
    service->publish(folder);
    waitUntilHanging(figma);

    service.reset();              // the app quits
    EXPECT_TRUE(figma.hanging()); // it did not wait for the answer
    figma.release();
    ASSERT_EQ(figma.comments().size(), 1u); // Figma took the post whose answer never came
    EXPECT_EQ(FigmaPublishableWork::count(meta()), 8);

    EXPECT_EQ(publishText(), "8 posted");
    EXPECT_EQ(figma.comments().size(), 8u);
}

TEST_F(FigmaServicesTest, ARenamedFlowStopsItsRunAndTheNextRunFinishesIt) {
    addPin("01.png", "a", 0.5, 0.5, "First");
    addPin("02.png", "b", 0.5, 0.5, "Second");
    figma.hangNext("POST", "/comments");
    FigmaSyncService service(library, secrets, factory());
    service.publish(folder);
    waitUntilHanging(figma);
    folder = library.renameFlow(folder, "Renamed while syncing");
    EXPECT_TRUE(service.isSyncing(folder)); // the same flow, under its new name
    service.waitForIdle();
    figma.release();
    ASSERT_TRUE(service.lastOutcome(folder));
    EXPECT_EQ(service.lastOutcome(folder)->text, "Stopped — sync again to finish");

    service.publish(folder);
    service.waitForIdle();
    EXPECT_EQ(service.lastOutcome(folder)->text, "2 posted");
    EXPECT_EQ(figma.comments().size(), 2u);
}

TEST_F(FigmaServicesTest, SwitchingLibrariesStopsTheRunFirst) {
    addPin("01.png", "a", 0.5, 0.5, "First");
    addPin("02.png", "b", 0.5, 0.5, "Second");
    figma.hangNext("POST", "/comments");
    FigmaSyncService service(library, secrets, factory());
    service.publish(folder);
    waitUntilHanging(figma);
    const auto oldRoot = library.root();
    library.setRoot(dir / "another library");
    EXPECT_TRUE(figma.hanging()) << "the run was stopped, not waited for";
    EXPECT_FALSE(service.isSyncing(folder));
    figma.release();

    // Back in the first library, the next run finishes the work without a second post.
    library.setRoot(oldRoot);
    service.publish(folder);
    service.waitForIdle();
    EXPECT_EQ(service.lastOutcome(folder)->text, "2 posted");
    EXPECT_EQ(figma.comments().size(), 2u);
}

TEST_F(FigmaServicesTest, ThreadsPulledWhileAScreenIsDeletedStayOnTheirScreens) {
    addPin("01.png", "a", 0.5, 0.5, "On the first screen");
    addPin("02.png", "b", 0.5, 0.5, "On the second screen");
    ASSERT_EQ(publishText(), "2 posted");
    const std::string first = *postedId("01.png", "a");
    const std::string second = *postedId("02.png", "b");
    figma.addForeignReply(second, "Agreed", "2026-11-22T12:00:00Z");

    FigmaSyncService service(library, secrets, factory());
    figma.hangNext("GET", "/comments");
    service.publish(folder);
    waitUntilHanging(figma);
    library.deleteScreens(folder, {"01.png"}); // 02 becomes 01, 03 becomes 02
    EXPECT_TRUE(service.isSyncing(folder));
    figma.release();
    service.waitForIdle();
    ASSERT_TRUE(service.lastOutcome(folder));
    EXPECT_FALSE(service.lastOutcome(folder)->failed) << service.lastOutcome(folder)->text;

    // The second screen, now 01, has its own thread with the new reply, and nothing else.
    const auto moved = threads("01.png");
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_EQ(moved[0].rootId, second);
    EXPECT_EQ(moved[0].replies.size(), 1u);
    EXPECT_TRUE(threads("02.png").empty()) << "the last screen, now 02, has no threads";
    EXPECT_EQ(meta().figmaPendingDeletes, std::vector<std::string>{first});
}

TEST_F(FigmaServicesTest, ASecondClickWhileTheKeychainIsReadStartsNothing) {
    ReentrantSecrets keychain;
    FigmaAuth::setToken("secret-token", keychain);
    FigmaSyncService service(library, keychain, factory());
    addPin("01.png", "p", 0.5, 0.5, "Once");
    keychain.duringRead = [&] { service.publish(folder); };
    service.publish(folder);
    service.waitForIdle();
    EXPECT_EQ(countRequests("POST"), 1);
    EXPECT_EQ(figma.comments().size(), 1u);

    const std::string root = *postedId("01.png", "p");
    FigmaThreadActions actions(library, keychain, factory());
    QSignalSpy done(&actions, &FigmaThreadActions::finished);
    keychain.duringRead = [&] { actions.reply(folder, "01.png", root, "Only once"); };
    actions.reply(folder, "01.png", root, "Only once");
    EXPECT_TRUE(actions.isBusy(root));
    waitFor([&] { return done.count() == 1; });
    EXPECT_FALSE(actions.isBusy(root));
    EXPECT_EQ(figma.comments().size(), 2u);
}

TEST_F(FigmaServicesTest, TheThreadPanelsRequestsSayWhatHappened) {
    addPin("01.png", "p", 0.5, 0.5, "Hello");
    ASSERT_EQ(publishText(), "1 posted");
    const std::string root = *postedId("01.png", "p");
    FigmaAvatarCache avatars(figma.baseURL());
    FigmaAccountCache account(secrets, avatars, factory());
    account.ensureLoaded();
    waitFor([&] { return !account.loading(); });
    FigmaThreadActions actions(library, secrets, factory(), &account);
    QSignalSpy done(&actions, &FigmaThreadActions::finished);

    // Figma took the reply; who wrote it could not be asked, so the known account says.
    figma.failNext("GET", "/v1/me", 500);
    actions.reply(folder, "01.png", root, "Accepted");
    waitFor([&] { return done.count() == 1; });
    EXPECT_EQ(done[0][2].toString(), "");
    ASSERT_EQ(threads("01.png")[0].replies.size(), 1u);
    EXPECT_EQ(threads("01.png")[0].replies[0].text, "Accepted");
    EXPECT_EQ(threads("01.png")[0].replies[0].authorId, FakeFigma::kUserId);
    EXPECT_EQ(figma.comments().size(), 2u);

    // Someone else's thread: Figma answers 403, which is about the thread, not the token.
    const std::string theirs = figma.addForeignComment("Theirs", board, 10, 10, "");
    actions.deleteThread(folder, "01.png", theirs);
    waitFor([&] { return done.count() == 2; });
    EXPECT_EQ(done[1][2].toString(), "Only the thread’s author can delete it");
    EXPECT_TRUE(figma.comment(theirs));
}

TEST_F(FigmaServicesTest, AccountAndAvatarsAreFetchedOnce) {
    FigmaAvatarCache avatars(figma.baseURL());
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
    avatars.ensureLoaded("http://example.com/a.png");  // not fetched in clear from elsewhere
    avatars.ensureLoaded("https://example.com/a.png"); // nor from a host that isn't Figma's
    EXPECT_EQ(avatars.fetchesStarted(), 2);            // the account's and this one
    EXPECT_TRUE(FigmaAvatarCache::isAllowedAvatarURL("https://s3-alpha.figma.com/profile/1", ""));
    EXPECT_FALSE(FigmaAvatarCache::isAllowedAvatarURL("http://s3-alpha.figma.com/profile/1", ""));
    EXPECT_FALSE(FigmaAvatarCache::isAllowedAvatarURL("https://figma.com.evil.test/a.png", ""));
    EXPECT_FALSE(FigmaAvatarCache::isAllowedAvatarURL(figma.baseURL() + "/a.png", ""));
    waitFor([&] { return !avatars.isInFlight(url); });
    EXPECT_EQ(avatars.image(url).pixelColor(0, 0), QColor(240, 80, 40));
    avatars.ensureLoaded(url);
    EXPECT_EQ(avatars.fetchesStarted(), 2); // the account's and this one

    // An answer far beyond an avatar's size is cut off, not loaded.
    const std::string huge = figma.baseURL() + "/avatars/huge.png";
    avatars.ensureLoaded(huge);
    waitFor([&] { return !avatars.isInFlight(huge); });
    EXPECT_TRUE(avatars.image(huge).isNull());

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
