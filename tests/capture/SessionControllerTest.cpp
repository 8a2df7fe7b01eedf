#include "capture/SessionController.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"
#include "library/LibraryCheck.h"
#include "library/LibraryLayout.h"
#include "support/SmallDisk.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

using namespace varnel;
using namespace varnel::test;

namespace {

// The screens of a capture whose save failed, by their bytes: in flows of the library after
// the next opening, each once, and the library checks clean.
std::multiset<std::string> capturedAfterOpening(const fs::path& root) {
    FlowStore reopened(root);
    reopened.recover();
    std::multiset<std::string> found;
    for (const auto& summary : reopened.readIndex().flows)
        for (const auto& screen : reopened.meta(summary.folderName).screens)
            found.insert(readFile(root / summary.folderName / screen.filename));
    EXPECT_EQ(checkLibrary(reopened), std::vector<std::string>{});
    return found;
}

// 2024-05-01 14:03:27 UTC
constexpr double kStart = 736265007;

class SessionTest : public ::testing::Test {
protected:
    SessionTest()
        : store(dir.path()),
          session(
              store, [this] { return nextFrame(); }, [this] { return Date{clock += 1}; }) {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    std::optional<CapturedFrame> nextFrame() {
        if (!frameAvailable)
            return std::nullopt;
        ++frames;
        return CapturedFrame{
            pngBytes(width, height, "frame " + std::to_string(frames)), width, height, {}};
    }

    // Records a clip the way the capture window does; `written` = the recording made a file.
    bool recordClip(bool written, int w = 0, int h = 0) {
        const auto file = session.beginVideo(w, h);
        if (!file)
            return false;
        if (written)
            writeFile(*file, "clip " + file->filename().string());
        return session.commitVideo();
    }

    std::vector<std::string> screenFiles(const fs::path& flow) {
        std::vector<std::string> out;
        for (const auto& screen : store.meta(fs::relative(flow, dir.path()).string()).screens)
            out.push_back(screen.filename);
        return out;
    }

    fs::path stagingRoot() const { return dir.path() / std::string(LibraryLayout::kStagingFolder); }

    TempDir dir;
    FlowStore store;
    double clock = kStart - 1;
    bool frameAvailable = true;
    int frames = 0;
    int width = 1179, height = 2556;
    SessionController session;
};

TEST_F(SessionTest, StillsAndClipsShareNumbersAndGapsCloseOnSave) {
    session.start();
    ASSERT_TRUE(session.isRecording());
    ASSERT_TRUE(session.add(CaptureSource::manual));
    ASSERT_TRUE(session.add(CaptureSource::manual));
    ASSERT_TRUE(recordClip(true));
    EXPECT_EQ(session.screenCount(), 3);
    ASSERT_EQ(session.stagedThumbnails().size(), 3u);
    EXPECT_EQ(session.stagedThumbnails()[2].filename(), "03.mov");

    ASSERT_TRUE(session.deleteStaged("01.png"));
    EXPECT_FALSE(session.deleteStaged("01.png")) << "already gone";
    EXPECT_EQ(session.screenCount(), 2);

    const auto flow = session.stop("Acme", "Sign up", "Onboarding", "Pixel 8");
    ASSERT_TRUE(flow);
    EXPECT_EQ(*flow, dir.path() / "acme/onboarding/sign-up");
    EXPECT_EQ(screenFiles(*flow), (std::vector<std::string>{"01.png", "02.mov"}));
    EXPECT_EQ(readFile(*flow / "01.png"), pngBytes(1179, 2556, "frame 2")) << "the second still";
    EXPECT_EQ(readFile(*flow / "02.mov"), "clip 03.mov");
    EXPECT_FALSE(session.isRecording());
    EXPECT_EQ(session.screenCount(), 0);
    EXPECT_FALSE(fs::exists(stagingRoot() / "x")) << "staging removed";
    EXPECT_TRUE(!fs::exists(stagingRoot()) || fs::is_empty(stagingRoot()));
}

TEST_F(SessionTest, SavedMetaAndIndexDescribeTheSession) {
    session.start();
    const Date started{kStart};
    ASSERT_TRUE(session.add(CaptureSource::manual));
    ASSERT_TRUE(session.add(CaptureSource::automatic));
    const auto flow = session.stop("  Acme ", "  Sign up ", " ", " ");
    ASSERT_TRUE(flow);

    const auto index = store.readIndex();
    ASSERT_EQ(index.flows.size(), 1u);
    const auto& summary = index.flows[0];
    EXPECT_EQ(summary.folderName, "acme/uncategorized/sign-up");
    EXPECT_EQ(summary.screenCount, 2);
    const FlowMeta meta = store.meta(summary.folderName);
    EXPECT_EQ(meta.id, summary.id);
    EXPECT_FALSE(meta.id.empty());
    EXPECT_EQ(meta.application, "Acme");
    EXPECT_EQ(meta.name, "Sign up");
    EXPECT_EQ(meta.categoryL1, std::nullopt) << "blank category is none";
    EXPECT_EQ(meta.deviceName, std::nullopt);
    EXPECT_EQ(meta.date, started);
    EXPECT_EQ(meta.width, 1179);
    EXPECT_EQ(meta.height, 2556);
    ASSERT_EQ(meta.screens.size(), 2u);
    EXPECT_EQ(meta.screens[0].capturedAt, Date{kStart + 1});
    EXPECT_EQ(meta.screens[1].source, CaptureSource::automatic);
    EXPECT_FALSE(meta.screens[0].redactions.has_value());
}

TEST_F(SessionTest, BlankNameTakesTheStartTimeAndRepeatedNamesGetSuffixes) {
    session.start();
    ASSERT_TRUE(session.add(CaptureSource::manual));
    const auto dated = session.stop("", "   ", "", "");
    ASSERT_TRUE(dated);
    EXPECT_EQ(dated->filename(), "2024-05-01-14-03-27");
    EXPECT_EQ(store.meta("uncategorized/uncategorized/2024-05-01-14-03-27").name,
              "2024-05-01 14.03.27");
    EXPECT_EQ(store.meta("uncategorized/uncategorized/2024-05-01-14-03-27").application,
              std::nullopt);

    for (const char* expected : {"checkout", "checkout-2"}) {
        session.start();
        ASSERT_TRUE(session.add(CaptureSource::manual));
        const auto flow = session.stop("Shop", "Checkout", "Payments", "");
        ASSERT_TRUE(flow);
        EXPECT_EQ(flow->filename(), expected);
    }
}

TEST_F(SessionTest, NothingCapturedSavesNothing) {
    const auto before = treeSnapshot(dir.path());
    session.start();
    EXPECT_TRUE(fs::exists(stagingRoot()));
    EXPECT_FALSE(session.stop("Acme", "Empty", "", ""));
    EXPECT_FALSE(session.isRecording());
    EXPECT_EQ(store.readIndex().flows.size(), 0u);
    for (const auto& [path, content] : treeSnapshot(dir.path()))
        EXPECT_EQ(path.find("inprogress/"), std::string::npos) << path;

    // A source without a picture captures nothing either.
    session.start();
    frameAvailable = false;
    EXPECT_FALSE(session.add(CaptureSource::manual));
    EXPECT_EQ(session.screenCount(), 0);
    session.cancel();
}

TEST_F(SessionTest, FailedClipLeavesAGapOnlyWhileStaging) {
    session.start();
    ASSERT_TRUE(session.add(CaptureSource::manual));
    EXPECT_FALSE(recordClip(false, 800, 600)) << "no file, no screen";
    EXPECT_FALSE(session.isRecordingVideo());
    ASSERT_TRUE(session.add(CaptureSource::manual));
    EXPECT_EQ(session.stagedThumbnails().back().filename(), "03.png");

    const auto flow = session.stop("Acme", "Gap", "", "");
    ASSERT_TRUE(flow);
    EXPECT_EQ(screenFiles(*flow), (std::vector<std::string>{"01.png", "02.png"}));
    EXPECT_EQ(store.meta("acme/uncategorized/gap").width, 1179)
        << "the still after the clip gave the size";
}

TEST_F(SessionTest, ClipCallsOutOfOrderAreRefused) {
    EXPECT_FALSE(session.beginVideo(10, 10)) << "no session";
    EXPECT_FALSE(session.commitVideo());
    session.start();
    const auto first = session.beginVideo(640, 480);
    ASSERT_TRUE(first);
    EXPECT_TRUE(session.isRecordingVideo());
    EXPECT_FALSE(session.beginVideo(640, 480)) << "one clip at a time";
    writeFile(*first, "clip");
    EXPECT_TRUE(session.commitVideo());
    EXPECT_FALSE(session.commitVideo()) << "nothing reserved any more";
    const auto flow = session.stop("", "Clip only", "", "");
    ASSERT_TRUE(flow);
    const FlowMeta meta = store.meta("uncategorized/uncategorized/clip-only");
    EXPECT_EQ(meta.width, 640) << "a clip's size counts when it is the last";
    EXPECT_EQ(meta.screens.at(0).filename, "01.mov");
}

TEST_F(SessionTest, RecentStripShowsTheLastEightOldestFirst) {
    session.start();
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(session.add(CaptureSource::manual));
    ASSERT_EQ(session.recentThumbnails().size(), 8u);
    EXPECT_EQ(session.recentThumbnails().front().filename(), "03.png");
    EXPECT_EQ(session.recentThumbnails().back().filename(), "10.png");
    EXPECT_EQ(session.stagedThumbnails().size(), 10u);
    session.cancel();
    EXPECT_TRUE(session.recentThumbnails().empty());
}

TEST_F(SessionTest, AddingToAFlowNumbersAfterItsScreens) {
    const auto summary = store.createEmptyFlow("Acme", "Settings", std::string("Profile"), Date{1});
    for (const char* name : {"a.png", "b.png", "c.png"})
        writePicture(dir / name, 4, 4);
    store.addScreens(summary.folderName, {dir / "a.png", dir / "b.png", dir / "c.png"}, Date{2});
    width = 1290;
    height = 2796;

    session.start(summary.folderName);
    EXPECT_EQ(session.appendTarget(), summary.folderName);
    ASSERT_TRUE(session.add(CaptureSource::manual));
    ASSERT_TRUE(recordClip(true));
    const auto flow = session.stop("ignored", "ignored", "", "");
    ASSERT_TRUE(flow);
    EXPECT_EQ(*flow, store.flowURL(summary.folderName));
    EXPECT_EQ(screenFiles(*flow),
              (std::vector<std::string>{"01.png", "02.png", "03.png", "04.png", "05.mov"}));
    const FlowMeta meta = store.meta(summary.folderName);
    EXPECT_EQ(meta.name, "Settings") << "the target keeps its name";
    EXPECT_EQ(meta.width, 1290) << "the newest session's size wins";
    EXPECT_EQ(store.readIndex().flows.at(0).screenCount, 5);
}

TEST_F(SessionTest, AddingToAnUnreadableFlowThrowsAndEndsTheSession) {
    const auto summary = store.createEmptyFlow("Acme", "Broken", std::nullopt, Date{1});
    writeFile(store.flowURL(summary.folderName) / "meta.json", "{ not json");
    session.start(summary.folderName);
    ASSERT_TRUE(session.add(CaptureSource::manual));
    EXPECT_THROW(session.stop("", "", "", ""), LibraryError);
    EXPECT_FALSE(session.isRecording());
    EXPECT_EQ(readFile(store.flowURL(summary.folderName) / "meta.json"), "{ not json");
}

TEST_F(SessionTest, StartFailureLeavesNoSession) {
    FaultInjector faults(FaultInjector::Kind::creator, 1);
    FlowStore failing(dir.path(), faults.operations());
    SessionController broken(failing, [this] { return nextFrame(); });
    EXPECT_THROW(broken.start(), LibraryError);
    EXPECT_FALSE(broken.isRecording());
    EXPECT_FALSE(broken.add(CaptureSource::manual));
}

TEST_F(SessionTest, AFailedSaveLeavesTheCaptureWholeForTheNextOpening) {
    FaultInjector faults(FaultInjector::Kind::mover, 3);
    FlowStore failing(dir.path(), faults.operations());
    SessionController controller(failing, [this] { return nextFrame(); });
    controller.start();
    ASSERT_TRUE(controller.add(CaptureSource::manual));
    ASSERT_TRUE(controller.add(CaptureSource::manual));
    EXPECT_THROW(controller.stop("Acme", "Half", "", ""), LibraryError);
    EXPECT_FALSE(controller.isRecording());
    EXPECT_FALSE(fs::exists(dir.path() / "acme/uncategorized/half")) << "no half-made flow";
    EXPECT_EQ(failing.readIndex().flows.size(), 0u);
    EXPECT_EQ(capturedAfterOpening(dir.path()),
              (std::multiset<std::string>{pngBytes(width, height, "frame 1"),
                                          pngBytes(width, height, "frame 2")}));
}

// A full disk at the save, for a new flow and for screens added to one: nothing is listed
// twice or lost, and nothing unlisted is called consistent.
TEST_F(SessionTest, AFullDiskAtTheSaveLosesNoScreen) {
    for (const bool adding : {false, true}) {
        SCOPED_TRACE(adding ? "adding to a flow" : "a new flow");
        SmallDisk disk(4 << 20);
        if (!disk.mounted())
            GTEST_SKIP() << disk.skipReason();
        const fs::path root = disk / "Library";
        FlowStore small(root);
        std::optional<std::string> target;
        std::multiset<std::string> expected;
        if (adding) {
            writeFile(dir.path() / "first.png", pngBytes(width, height, "before"));
            target = small.createEmptyFlow("Acme", "Login", std::nullopt, Date{1}).folderName;
            small.addScreens(*target, {dir.path() / "first.png"}, Date{1});
            expected.insert(pngBytes(width, height, "before"));
        }
        SessionController controller(small, [this] { return nextFrame(); });
        controller.start(target);
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(controller.add(CaptureSource::manual));
            expected.insert(pngBytes(width, height, "frame " + std::to_string(frames)));
        }
        disk.fill(0);
        EXPECT_THROW(controller.stop("Acme", "Full", "", ""), LibraryError);
        // The user makes room, then opens the library.
        for (const auto& name : FileOps::list(disk.root()))
            if (name != "Library")
                fs::remove_all(disk.root() / name);
        EXPECT_EQ(capturedAfterOpening(root), expected);
    }
}

TEST_F(SessionTest, CancelRemovesTheStagedFiles) {
    session.start();
    ASSERT_TRUE(session.add(CaptureSource::manual));
    const auto staged = session.stagedThumbnails().front();
    ASSERT_TRUE(fs::exists(staged));
    session.cancel();
    EXPECT_FALSE(fs::exists(staged));
    EXPECT_FALSE(fs::exists(staged.parent_path()));
    EXPECT_FALSE(session.isRecording());
    EXPECT_FALSE(session.startedAt());
    EXPECT_EQ(store.readIndex().flows.size(), 0u);
}

} // namespace
