// Headless capture from a camera that GStreamer's device monitor lists.
#include "cli/Cli.h"
#include "library/FlowStore.h"
#include "support/CliRun.h"
#include "support/MediaProbe.h"
#include "support/SmallDisk.h"
#include "support/TestCamera.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QImage>

#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <sstream>

using namespace varnel;
using namespace varnel::test;

namespace {

using Result = CliResult;

Result run(std::vector<std::string> args) {
    return runCli(std::move(args));
}

class CliCaptureTest : public ::testing::Test {
protected:
    CliCaptureTest() {
        TestCameras::connect({"varnel-test-cli", "Test Phone", 200, 400, 30,
                              "solid-color foreground-color=0xff336699"});
    }
    ~CliCaptureTest() override { TestCameras::disconnectAll(); }

    Result capture(std::vector<std::string> args) {
        args.insert(args.begin(), {"--library", dir.path().string(), "capture"});
        return run(args);
    }

    TempDir dir;
};

TEST_F(CliCaptureTest, SourcesListsCamerasByIdAndName) {
    const auto listed = run({"--library", dir.path().string(), "--json", "sources"});
    ASSERT_EQ(listed.code, 0) << listed.err;
    const auto json = nlohmann::json::parse(listed.out);
    bool found = false;
    for (const auto& source : json) {
        if (source["id"] == "varnel-test-cli") {
            found = true;
            EXPECT_EQ(source["name"], "Test Phone");
            EXPECT_EQ(source["isWindow"], false);
        }
    }
    EXPECT_TRUE(found) << listed.out;
    const auto plain = run({"--library", dir.path().string(), "sources"});
    EXPECT_NE(plain.out.find("varnel-test-cli\tTest Phone\n"), std::string::npos);
}

TEST_F(CliCaptureTest, CapturesStillsAndAClipIntoANewFlowThenAddsToIt) {
    const auto saved =
        capture({"--source", "varnel-test-cli", "--stills", "2", "--interval", "0", "--clip", "0.5",
                 "--app", "Acme", "--name", "Sign up", "--category", "Onboarding"});
    ASSERT_EQ(saved.code, 0) << saved.err;
    EXPECT_EQ(saved.out, "acme/onboarding/sign-up\n");
    FlowStore store(dir.path());
    FlowMeta meta = store.meta("acme/onboarding/sign-up");
    ASSERT_EQ(meta.screens.size(), 3u);
    EXPECT_EQ(meta.screens[0].filename, "01.png");
    EXPECT_EQ(meta.screens[2].filename, "03.mov");
    EXPECT_EQ(meta.deviceName, "Test Phone");
    EXPECT_EQ(meta.width, 200);
    EXPECT_EQ(meta.height, 400);
    const QImage still(QString::fromStdString((dir / "acme/onboarding/sign-up/02.png").string()));
    EXPECT_EQ(still.size(), QSize(200, 400));
    EXPECT_EQ(still.pixel(100, 200), qRgb(0x33, 0x66, 0x99));
    const auto clip = readClip(dir / "acme/onboarding/sign-up/03.mov");
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->width, 200);
    EXPECT_GE(clip->frames, 5);

    const auto added =
        capture({"--source", "varnel-test-cli", "--append", "acme/onboarding/sign-up"});
    ASSERT_EQ(added.code, 0) << added.err;
    EXPECT_EQ(added.out, "acme/onboarding/sign-up\n");
    meta = store.meta("acme/onboarding/sign-up");
    ASSERT_EQ(meta.screens.size(), 4u);
    EXPECT_EQ(meta.screens[3].filename, "04.png");
    EXPECT_EQ(store.readIndex().flows.at(0).screenCount, 4);
}

// A disk that fills up ends a long clip at once: the command says why and does not wait out
// the clip's length.
TEST_F(CliCaptureTest, AFullDiskEndsTheClipPromptlyWithTheReason) {
    SmallDisk disk(4 << 20);
    if (!disk.mounted())
        GTEST_SKIP() << disk.skipReason();
    FlowStore(disk / "Library").createEmptyFlow("Acme", "Home", std::nullopt, Date{1});
    TestCameras::connect({"varnel-test-noise", "Noisy Phone", 640, 480, 30, "snow"});
    disk.fill(256 << 10);
    const auto started = std::chrono::steady_clock::now();
    const auto result =
        run({"--library", (disk / "Library").string(), "capture", "--source", "varnel-test-noise",
             "--clip", "60", "--append", "acme/uncategorized/home"});
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_NE(result.code, 0);
    EXPECT_NE(result.err.find("The disk is full."), std::string::npos) << result.err;
    EXPECT_LT(took, std::chrono::seconds(60)) << "the command did not wait out the clip";
}

TEST_F(CliCaptureTest, RefusesWhatItCannotDo) {
    const auto unknown = capture({"--source", "no-such-camera", "--app", "A", "--name", "N"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_NE(unknown.err.find("There is no source “no-such-camera”"), std::string::npos);
    EXPECT_EQ(capture({"--source", "varnel-test-cli", "--name", "N"}).code, 2) << "no --app";
    EXPECT_EQ(
        capture({"--source", "varnel-test-cli", "--app", "A", "--name", "N", "--stills", "many"})
            .code,
        2);
    const auto missing = capture({"--source", "varnel-test-cli", "--append", "acme/x/y"});
    EXPECT_EQ(missing.code, 1) << "a flow to add to must exist";
    EXPECT_FALSE(fs::exists(dir / ".inprogress")) << "nothing staged for a refused capture";
}

} // namespace

int main(int argc, char** argv) {
    return runWithOwnSettings(argc, argv);
}
