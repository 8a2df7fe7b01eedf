// `varnel-cli ocr` and `search` end to end, on screens drawn here and read by the real engine.
#include "library/FlowStore.h"
#include "support/CliRun.h"
#include "support/RenderedScreens.h"
#include "support/TestLibrary.h"

#include <QGuiApplication>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class CliTextTest : public ::testing::Test {
protected:
    CliTextTest() {
        FlowStore store(root);
        folder = store.createEmptyFlow("Acme", "Profile", std::nullopt, Date{}).folderName;
        using Language = RenderedScreen::Language;
        renderScreen(Language::english, false, 0).image.save(qpath(dir / "a.png"));
        renderScreen(Language::english, true, 1).image.save(qpath(dir / "b.png"));
        writeClip(dir / "c.mov", 64, 64);
        store.addScreens(folder, {dir / "a.png", dir / "b.png", dir / "c.mov"}, Date{});
    }
    static QString qpath(const fs::path& path) { return QString::fromStdString(path.string()); }
    CliResult cli(std::vector<std::string> args) { return runCli(std::move(args), root.string()); }

    TempDir dir;
    fs::path root = dir / "library";
    std::string folder;
};

} // namespace

TEST_F(CliTextTest, OcrReadsOnlyWhatChangedAndSearchFindsIt) {
    const auto first = cli({"ocr"});
    ASSERT_EQ(first.code, 0) << first.err;
    EXPECT_NE(first.err.find("2 screens to read"), std::string::npos) << first.err;
    EXPECT_EQ(first.out, folder + "\t2 of 2 stills with text\n");
    EXPECT_NE(cli({"ocr", folder}).err.find("0 screens to read"), std::string::npos);

    EXPECT_EQ(cli({"search", "PLACE ORDER"}).out, folder + "\tProfile\n  02.png\n")
        << "only the screen that holds the text";
    EXPECT_EQ(cli({"search", "profile"}).out, folder + "\tProfile\n  01.png\n  02.png\n  03.mov\n")
        << "found by its name: every screen";
    EXPECT_EQ(cli({"search", "profile", "--media", "videos"}).out,
              folder + "\tProfile\n  03.mov\n");
    EXPECT_EQ(cli({"search", "place order", "--media", "videos"}).out, "")
        << "its only hit is a still";

    const auto json = cli({"--json", "search", "sign out"});
    ASSERT_EQ(json.code, 0);
    const Json found = Json::parse(json.out);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]["screens"], Json::parse(R"(["01.png"])"));

    EXPECT_EQ(cli({"search", "x", "--media", "gifs"}).code, 2);
    EXPECT_EQ(cli({"search"}).code, 2);
    EXPECT_EQ(cli({"ocr", "a", "b"}).code, 2);
}

// One flow whose meta.json can't be read is reported; every other flow is still read.
TEST_F(CliTextTest, OcrGoesOnPastABrokenFlowAndFailsAtTheEnd) {
    FlowStore store(root);
    const std::string broken =
        store.createEmptyFlow("Acme", "Another", std::nullopt, Date{}).folderName;
    const std::string later =
        store.createEmptyFlow("Acme", "Later", std::nullopt, Date{}).folderName;
    store.addScreens(later, {dir / "a.png"}, Date{});
    writeFile(root / broken / "meta.json", "{ not json");

    const auto result = cli({"ocr"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("varnel-cli: " + broken + ": "), std::string::npos) << result.err;
    EXPECT_EQ(result.out,
              folder + "\t2 of 2 stills with text\n" + later + "\t1 of 1 still with text\n")
        << "the flows after the broken one are read";

    const auto json = cli({"--json", "ocr"});
    EXPECT_EQ(json.code, 1);
    const Json report = Json::parse(json.out);
    ASSERT_EQ(report.size(), 3u);
    EXPECT_EQ(report[1]["folder"], broken);
    EXPECT_TRUE(report[1].contains("error"));
    EXPECT_EQ(report[2]["screensWithText"], 1);
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // fonts for drawing the screens
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
