// The editor's clip player on a real clip made here: frames arrive, zones are frosted into them
// (also while paused), seeking and the end of the clip behave.
#include "editing/ClipPlayer.h"
#include "media/PosterFrame.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <opencv2/core.hpp>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

constexpr int kWidth = 160;
constexpr int kHeight = 240;
constexpr int kFrames = 45; // 1.5 s

// Runs the event loop until `signal` of `player` fires; false after a generous limit.
template <typename Signal> bool waitFor(ClipPlayer& player, Signal signal) {
    QEventLoop loop;
    bool fired = false;
    QObject::connect(&player, signal, &loop, [&] {
        fired = true;
        loop.quit();
    });
    QTimer::singleShot(30'000, &loop, &QEventLoop::quit);
    loop.exec();
    return fired;
}

double meanDifference(const cv::Mat& a, const cv::Mat& b) {
    cv::Mat diff;
    cv::absdiff(a, b, diff);
    const cv::Scalar mean = cv::mean(diff);
    return (mean[0] + mean[1] + mean[2]) / 3;
}

class ClipPlayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(writeTestClip(clipDir() / "clip.mov", kWidth, kHeight, kFrames, true));
    }
    static const fs::path& clipDir() {
        static TempDir dir;
        return dir.path();
    }
    static fs::path clip() { return clipDir() / "clip.mov"; }

    const RedactShape zone{"z", RedactShape::Kind::rect, {0, 0, 1, 0.5}};
    const RedactStyle style{0, 0, 0, 0.5, 4};
    ClipPlayer player;
};

} // namespace

TEST_F(ClipPlayerTest, OpensPausedOnTheFirstFrame) {
    ASSERT_TRUE(player.open(clip())) << player.error().toStdString();
    EXPECT_FALSE(player.isPlaying());
    const cv::Mat frame = player.rawFrame();
    ASSERT_FALSE(frame.empty());
    EXPECT_EQ(frame.cols, kWidth);
    EXPECT_EQ(frame.rows, kHeight);
    EXPECT_EQ(frame.type(), CV_8UC4);
    EXPECT_NEAR(player.duration(), 1.5, 0.1);
    EXPECT_EQ(meanDifference(player.frame(), frame), 0) << "no zones: the clip as it is";
}

TEST_F(ClipPlayerTest, FrostsTheZonesIntoThePausedFrameAtOnce) {
    ASSERT_TRUE(player.open(clip()));
    const cv::Mat raw = player.rawFrame().clone();
    player.setZones({zone}, style);
    const cv::Mat shown = player.frame();
    const cv::Rect top(0, 0, kWidth, kHeight / 2 - 4);
    const cv::Rect bottom(0, kHeight / 2 + 4, kWidth, kHeight / 2 - 4);
    EXPECT_GT(meanDifference(shown(top), raw(top)), 10) << "the zone is frosted";
    EXPECT_EQ(meanDifference(shown(bottom), raw(bottom)), 0) << "outside is untouched";

    cv::Mat expected = raw.clone();
    VideoRedactor::Filter filter({zone}, style);
    ASSERT_TRUE(filter(expected));
    EXPECT_EQ(meanDifference(shown, expected), 0) << "the same frost as the bake";

    player.setZones({}, style);
    EXPECT_EQ(meanDifference(player.frame(), raw), 0) << "zones removed: unfiltered again";
}

TEST_F(ClipPlayerTest, SeeksWhilePausedAndPlaysToTheEnd) {
    ASSERT_TRUE(player.open(clip()));
    const cv::Mat first = player.rawFrame().clone();
    player.seek(1.0);
    EXPECT_NEAR(player.position(), 1.0, 0.05);
    EXPECT_GT(meanDifference(player.rawFrame(), first), 1) << "the pattern moved";

    player.setZones({zone}, style);
    int frames = 0;
    QObject::connect(&player, &ClipPlayer::frameChanged, [&] { ++frames; });
    player.play();
    EXPECT_TRUE(player.isPlaying());
    ASSERT_TRUE(waitFor(player, &ClipPlayer::finished));
    EXPECT_FALSE(player.isPlaying());
    EXPECT_GT(frames, 3);
    const cv::Mat last = player.frame();
    const cv::Mat raw = player.rawFrame();
    EXPECT_GT(meanDifference(last(cv::Rect(0, 0, kWidth, 100)), raw(cv::Rect(0, 0, kWidth, 100))),
              10)
        << "frames that arrive while playing are frosted too";

    player.play(); // from the end, plays again from the start
    EXPECT_TRUE(player.isPlaying());
    EXPECT_LT(player.position(), 0.5);
}

// A phone held sideways stores its frames turned and says so in the file; the player and the
// poster show the picture turned upright, as every player does, so zones land where they are drawn.
TEST_F(ClipPlayerTest, ShowsAClipRecordedSidewaysUpright) {
    TempDir dir;
    ClipRecipe recipe;
    recipe.width = kWidth;
    recipe.height = kHeight;
    recipe.frames = 5;
    ASSERT_TRUE(writeClip(dir / "upright.mov", recipe));
    recipe.orientation = "rotate-90";
    ASSERT_TRUE(writeClip(dir / "sideways.mov", recipe));

    ASSERT_TRUE(player.open(dir / "upright.mov"));
    cv::Mat expected;
    cv::rotate(player.rawFrame(), expected, cv::ROTATE_90_CLOCKWISE);
    ASSERT_TRUE(player.open(dir / "sideways.mov"));
    const cv::Mat shown = player.rawFrame();
    ASSERT_EQ(shown.size(), expected.size());
    EXPECT_LT(meanDifference(shown, expected), 1);

    const QImage poster = PosterFrame::grab(dir / "sideways.mov");
    EXPECT_EQ(poster.width(), kHeight);
    EXPECT_EQ(poster.height(), kWidth);
}

TEST_F(ClipPlayerTest, RefusesWhatIsNotAClip) {
    TempDir dir;
    writeFile(dir / "not.mov", "no video here");
    EXPECT_FALSE(player.open(dir / "not.mov"));
    EXPECT_FALSE(player.error().isEmpty());
    EXPECT_FALSE(player.isOpen());
    EXPECT_FALSE(player.open(dir / "missing.mov"));
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
