// `redact` and `revert` from the command line, on real pictures and a real clip.
#include "cli/CliEditing.h"
#include "cli/Cli.h"
#include "editing/ImageRedactor.h"
#include "support/CliRun.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>

#include <opencv2/imgcodecs.hpp>

#include <gtest/gtest.h>

#include <sstream>

using namespace varnel;
using namespace varnel::test;

namespace {

using Result = CliResult;

class CliEditingTest : public ::testing::Test {
protected:
    CliEditingTest() {
        folder = store.createEmptyFlow("Acme", "Sign up", std::nullopt, Date{}).folderName;
        cv::Mat picture(200, 100, CV_8UC3);
        cv::randu(picture, cv::Scalar::all(0), cv::Scalar::all(255));
        cv::imwrite((dir / "in.png").string(), picture);
        EXPECT_TRUE(writeTestClip(dir / "in.mov", 64, 96, 10, false));
        store.addScreens(folder, {dir / "in.png", dir / "in.mov"}, Date{});
        stillBytes = readFile(flowDir() / "01.png");
    }
    fs::path flowDir() const { return root / folder; }
    Result cli(std::vector<std::string> args) { return runCli(std::move(args), root.string()); }

    TempDir dir;
    fs::path root = dir / "Library";
    FlowStore store{root};
    std::string folder;
    std::string stillBytes;
};

TEST_F(CliEditingTest, RedactsAStillAndRevertsIt) {
    const Result redacted =
        cli({"redact", folder, "01.png", "--zone", "rect:0,0,1,0.25", "--preset", "dark"});
    ASSERT_EQ(redacted.code, cli::kSuccess) << redacted.err;
    EXPECT_EQ(readFile(flowDir() / "01.orig.png"), stillBytes);
    const cv::Mat before = ImageRedactor::load(flowDir() / "01.orig.png");
    const cv::Mat after = ImageRedactor::load(flowDir() / "01.png");
    EXPECT_EQ(cv::norm(after.rowRange(60, 200), before.rowRange(60, 200), cv::NORM_INF), 0);
    EXPECT_GT(cv::norm(after.rowRange(0, 40), before.rowRange(0, 40), cv::NORM_L1), 0);
    const auto entry = *store.meta(folder).screen("01.png");
    ASSERT_TRUE(entry.redactions);
    EXPECT_EQ(entry.redactions->at(0).rect, (NormalizedRect{0, 0, 1, 0.25}));
    EXPECT_EQ(entry.redactStyle, defaultStyle(RedactPreset::dark));

    ASSERT_EQ(cli({"revert", folder, "01.png"}).code, cli::kSuccess);
    EXPECT_EQ(readFile(flowDir() / "01.png"), stillBytes);
    EXPECT_FALSE(fs::exists(flowDir() / "01.orig.png"));
}

TEST_F(CliEditingTest, RedactsAClip) {
    const Result redacted =
        cli({"redact", folder, "02.mov", "--zone", "ellipse:0.25,0.25,0.5,0.5"});
    ASSERT_EQ(redacted.code, cli::kSuccess) << redacted.err;
    EXPECT_NE(redacted.err.find("Re-encoding the clip"), std::string::npos);
    EXPECT_TRUE(fs::exists(flowDir() / "02.orig.mov"));
    const auto clip = readClip(flowDir() / "02.mov");
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->frames, 10);
    EXPECT_EQ(store.meta(folder).screen("02.mov")->redactions->size(), 1u);
}

TEST_F(CliEditingTest, RefusesBadZonesAndUnknownScreens) {
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"redact", folder, "01.png"},
          {"redact", folder, "01.png", "--zone", "square:0,0,1,1"},
          {"redact", folder, "01.png", "--zone", "rect:0,0,1"},
          {"redact", folder, "01.png", "--zone", "rect:nan,0,0.5,0.5"},
          {"redact", folder, "01.png", "--zone", "rect:0,0,inf,0.5"},
          {"redact", folder, "01.png", "--zone", "rect:1.5,0,0.5,0.5"},
          {"redact", folder, "01.png", "--zone", "rect:0,0,0,1"},
          {"redact", folder, "01.png", "--zone", "rect:0,0,1,1", "--preset", "sepia"},
          {"revert", folder}})
        EXPECT_EQ(cli(bad).code, cli::kUsage) << bad.back();
    EXPECT_EQ(readFile(flowDir() / "01.png"), stillBytes) << "nothing written";

    const Result missing = cli({"redact", folder, "07.png", "--zone", "rect:0,0,1,1"});
    EXPECT_EQ(missing.code, cli::kFailed);
    EXPECT_NE(missing.err.find("07.png"), std::string::npos) << missing.err;
    EXPECT_EQ(cli::parseZone("ellipse:0.1,0.2,0.3,0.4").kind, RedactShape::Kind::ellipse);
    EXPECT_EQ(cli::parseZone("rect:0.5,0,0.75,1").rect, (NormalizedRect{0.5, 0, 0.5, 1}))
        << "finite values are clamped to the picture";
    EXPECT_EQ(readFile(flowDir() / "meta.json").find("null"), std::string::npos);

    // A picture cut short is never reported blurred.
    writeFile(flowDir() / "01.png", stillBytes.substr(0, stillBytes.size() / 2));
    const Result truncated = cli({"redact", folder, "01.png", "--zone", "rect:0,0,1,1"});
    EXPECT_EQ(truncated.code, cli::kFailed);
    EXPECT_NE(truncated.err.find("can’t be decoded"), std::string::npos) << truncated.err;
    EXPECT_EQ(readFile(flowDir() / "01.png"), stillBytes.substr(0, stillBytes.size() / 2));
    EXPECT_FALSE(store.meta(folder).screen("01.png")->redactions);
}

} // namespace

int main(int argc, char** argv) {
    return runWithOwnSettings(argc, argv);
}
