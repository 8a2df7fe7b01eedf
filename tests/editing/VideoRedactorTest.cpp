// Zones on clips: a real clip made here is baked, decoded and compared frame by frame.
#include "editing/VideoRedactor.h"
#include "archive/AppArchive.h"
#include "editing/ImageRedactor.h"
#include "model/FlowLibrary.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>

#include <algorithm>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

constexpr int kWidth = 160;
constexpr int kHeight = 240;
constexpr int kFrames = 30;

std::vector<cv::Mat> frames(const fs::path& clip) {
    std::vector<cv::Mat> result;
    readClip(clip, [&](int, const unsigned char* bgrx, int stride) {
        cv::Mat frame(kHeight, kWidth, CV_8UC4, const_cast<unsigned char*>(bgrx),
                      static_cast<std::size_t>(stride));
        result.push_back(frame.clone());
    });
    return result;
}

double meanDifference(const cv::Mat& a, const cv::Mat& b) {
    cv::Mat diff;
    cv::absdiff(a, b, diff);
    const cv::Scalar mean = cv::mean(diff);
    return (mean[0] + mean[1] + mean[2]) / 3;
}

std::vector<std::string> bakeLeftovers(const fs::path& folder) {
    std::vector<std::string> found;
    for (const auto& name : FileOps::list(folder))
        if (name.starts_with(".bake-"))
            found.push_back(name);
    return found;
}

class VideoRedactorTest : public ::testing::Test {
protected:
    VideoRedactorTest() {
        folder = store().createEmptyFlow("Acme", "Clip", std::nullopt, Date{}).folderName;
        EXPECT_TRUE(writeTestClip(dir / "in.mov", kWidth, kHeight, kFrames, true));
        store().addScreens(folder, {dir / "in.mov"}, Date{});
        sourceBytes = readFile(clip());
    }
    FlowStore& store() { return library.store(); }
    fs::path clip() { return root / folder / "01.mov"; }

    TempDir dir;
    fs::path root = dir / "library";
    FlowLibrary library{FlowStore(root)};
    std::string folder;
    std::string sourceBytes;
    RedactStyle style = defaultStyle(RedactPreset::light);
    std::vector<RedactShape> topQuarter = {{"", RedactShape::Kind::rect, {0, 0, 1, 0.25}}};
};

TEST_F(VideoRedactorTest, EveryFrameIsFrostedInsideTheZonesAndUnchangedOutside) {
    const fs::path source = dir / "source.mov";
    FileOps::copy(clip(), source);
    std::vector<double> progress;
    ASSERT_TRUE(VideoRedactor::bake(topQuarter, clip(), source, style,
                                    [&](double done) { progress.push_back(done); }));
    EXPECT_TRUE(bakeLeftovers(clip().parent_path()).empty());
    EXPECT_EQ(soundTracks(clip()), 1) << "the sound is kept";
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back(), 1.0);

    const auto before = frames(source);
    const auto after = frames(clip());
    ASSERT_EQ(before.size(), static_cast<std::size_t>(kFrames));
    ASSERT_EQ(after.size(), before.size());
    const cv::Rect zone(0, 0, kWidth, kHeight / 4);
    const cv::Rect outside(0, kHeight / 4 + 2, kWidth, kHeight - kHeight / 4 - 2);
    for (std::size_t i = 0; i < before.size(); ++i) {
        cv::Mat expected = before[i].clone();
        ImageRedactor::applyToPixels(topQuarter, expected, style);
        EXPECT_GT(meanDifference(after[i](zone), before[i](zone)), 20) << "frame " << i;
        EXPECT_LT(meanDifference(after[i](zone), expected(zone)), 3) << "frame " << i;
        EXPECT_LT(meanDifference(after[i](outside), before[i](outside)), 2) << "frame " << i;
    }
}

TEST_F(VideoRedactorTest, AFailedBakeLeavesTheClipAsItWas) {
    const fs::path broken = dir / "broken.mov";
    writeFile(broken, "not a movie at all");
    EXPECT_FALSE(VideoRedactor::bake(topQuarter, clip(), broken, style));
    EXPECT_EQ(readFile(clip()), sourceBytes);
    EXPECT_TRUE(bakeLeftovers(clip().parent_path()).empty());

    const std::atomic<bool> cancelled = true;
    EXPECT_FALSE(VideoRedactor::bake(topQuarter, clip(), clip(), style, {}, &cancelled));
    EXPECT_EQ(readFile(clip()), sourceBytes);
    EXPECT_TRUE(bakeLeftovers(clip().parent_path()).empty());
}

TEST_F(VideoRedactorTest, TheLibraryRecordsZonesOnlyForABakedClip) {
    std::optional<bool> result;
    library.saveVideoEdits(folder, "01.mov", topQuarter, style, {},
                           [&](bool saved) { result = saved; });
    EXPECT_TRUE(library.isSavingVideo());
    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }, 60));
    EXPECT_TRUE(*result);
    EXPECT_FALSE(library.isSavingVideo());
    EXPECT_EQ(readFile(root / folder / "01.orig.mov"), sourceBytes);
    EXPECT_EQ(library.edits(folder, "01.mov").shapes.size(), 1u);

    // A second save bakes from the original copy; a broken original fails it and records
    // nothing new.
    writeFile(root / folder / "01.orig.mov", "damaged");
    const std::string baked = readFile(clip());
    result.reset();
    const std::vector<RedactShape> two = {topQuarter[0],
                                          {"", RedactShape::Kind::ellipse, {0, 0.5, 1, 0.5}}};
    library.saveVideoEdits(folder, "01.mov", two, style, {}, [&](bool saved) { result = saved; });
    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }, 60));
    EXPECT_FALSE(*result);
    EXPECT_EQ(readFile(clip()), baked);
    EXPECT_EQ(library.edits(folder, "01.mov").shapes.size(), 1u);
    // The failure is kept with its zones, for the main window to offer them again.
    const auto problem = library.clipSaveProblem(folder, "01.mov");
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->shapes.size(), 2u);
    EXPECT_FALSE(problem->reason.empty());
    library.discardClipSaveProblem(folder, "01.mov");
    EXPECT_TRUE(library.clipSaveProblems().empty());

    // No zones: a revert, nothing re-encoded.
    writeFile(root / folder / "01.orig.mov", sourceBytes);
    result.reset();
    library.saveVideoEdits(folder, "01.mov", {}, style, {}, [&](bool saved) { result = saved; });
    ASSERT_TRUE(result && *result) << "a revert answers at once";
    EXPECT_EQ(readFile(clip()), sourceBytes);
    EXPECT_FALSE(library.hasOriginal(folder, "01.mov"));
    EXPECT_TRUE(library.edits(folder, "01.mov").shapes.empty());
}

// When the new zones can't be recorded, the clip goes back to what its record describes: the
// earlier bake, not the untouched original, so the record never names zones the file lacks.
TEST_F(VideoRedactorTest, AnUnrecordedBakePutsThePreviousClipBack) {
    FaultInjector faults;
    FlowLibrary faulty{FlowStore(root, faults.operations())};
    const auto save = [&](const std::vector<RedactShape>& zones) {
        std::optional<bool> result;
        faulty.saveVideoEdits(folder, "01.mov", zones, style, {}, [&](bool ok) { result = ok; });
        EXPECT_TRUE(waitUntil([&] { return result.has_value(); }, 60));
        return result.value_or(false);
    };
    ASSERT_TRUE(save(topQuarter));
    const std::string baked = readFile(clip());

    faults.failNext(FaultInjector::Kind::writer);
    EXPECT_FALSE(save({{"", RedactShape::Kind::rect, {0, 0.75, 1, 0.25}}}));
    EXPECT_TRUE(faults.fired());
    EXPECT_EQ(readFile(clip()), baked);
    const auto recorded = faulty.edits(folder, "01.mov").shapes;
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0].rect, topQuarter[0].rect);
    const auto problem = faulty.clipSaveProblem(folder, "01.mov");
    ASSERT_TRUE(problem);
    EXPECT_FALSE(problem->clipChanged);
    for (const auto& name : FileOps::list(root))
        EXPECT_FALSE(name.starts_with(".previous-") || name.starts_with(".bake-")) << name;
}

TEST_F(VideoRedactorTest, ABakeLandsOnTheClipItWasMadeFromWhateverHappensMeanwhile) {
    ASSERT_TRUE(writeTestClip(dir / "other.mov", kWidth, kHeight, 10, true));
    store().addScreens(folder, {dir / "other.mov"}, Date{});
    library.reload();
    const std::string other = readFile(root / folder / "02.mov");
    std::vector<QString> notices;
    QObject::connect(&library, &FlowLibrary::notice,
                     [&](const QString& text) { notices.push_back(text); });

    std::optional<bool> result;
    library.saveVideoEdits(folder, "01.mov", topQuarter, style, {},
                           [&](bool saved) { result = saved; });
    EXPECT_FALSE(library.revertScreen(folder, "01.mov")) << "no revert under a running bake";
    library.reorderScreens(folder, {"02.mov", "01.mov"});
    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }, 60));
    EXPECT_TRUE(*result);
    EXPECT_EQ(readFile(root / folder / "01.mov"), other) << "the other clip is untouched";
    EXPECT_TRUE(library.edits(folder, "01.mov").shapes.empty());
    EXPECT_EQ(library.edits(folder, "02.mov").shapes.size(), 1u);
    EXPECT_EQ(readFile(root / folder / "02.orig.mov"), sourceBytes);
    EXPECT_EQ(frames(root / folder / "02.mov").size(), static_cast<std::size_t>(kFrames));
    EXPECT_EQ(soundTracks(root / folder / "02.mov"), 1);
    EXPECT_TRUE(bakeLeftovers(root).empty());

    // Deleting a clip, or its flow, while its zones are being saved is refused: the bake lands.
    result.reset();
    library.saveVideoEdits(folder, "02.mov", topQuarter, style, {},
                           [&](bool saved) { result = saved; });
    EXPECT_THROW(library.deleteScreens(folder, {"02.mov"}), LibraryError);
    EXPECT_THROW(library.deleteFlow(folder), LibraryError);
    EXPECT_THROW(library.deleteApplication("Acme"), LibraryError);
    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }, 60));
    EXPECT_TRUE(*result);
    EXPECT_EQ(readFile(root / folder / "01.mov"), other);
    EXPECT_TRUE(library.edits(folder, "01.mov").shapes.empty());
    EXPECT_TRUE(bakeLeftovers(root).empty());
    EXPECT_TRUE(library.clipSaveProblems().empty());
    EXPECT_NO_THROW(library.deleteScreens(folder, {"02.mov"})) << "once saved, it can go";
}

// A flow put in place of the one a bake was made from, under the same name (and, imported with
// Replace, the same id), never receives the bake.
TEST_F(VideoRedactorTest, ABakeNeverLandsOnAClipThatTookItsPlace) {
    std::vector<QString> notices;
    QObject::connect(&library, &FlowLibrary::notice,
                     [&](const QString& text) { notices.push_back(text); });
    const fs::path zip = dir / "Acme.varnel.zip";
    library.exportApplication("Acme", zip);
    std::optional<bool> result;
    library.saveVideoEdits(folder, "01.mov", topQuarter, style, {},
                           [&](bool saved) { result = saved; });
    const auto inspection = library.inspectArchive(zip);
    EXPECT_THROW(library.importArchive(inspection.extracted, ImportConflictResolution::replace),
                 LibraryError)
        << "replacing a flow whose clip is being saved is refused";

    // Whatever removes it all the same (another program, a path that doesn't ask): the flow
    // made in its place under the same name keeps its own clip as it is.
    const FlowMeta old = store().meta(folder);
    store().deleteFlow(folder);
    const std::string again =
        store().createEmptyFlow("Acme", "Clip", std::nullopt, Date{}).folderName;
    ASSERT_EQ(again, folder);
    ASSERT_TRUE(writeTestClip(dir / "new.mov", kWidth, kHeight, 10, true));
    store().addScreens(again, {dir / "new.mov"}, Date{});
    FlowMeta same = store().meta(again);
    same.id = old.id; // as Replace would bring it back
    store().writeMeta(again, same);
    store().appendToIndex(same.summary(again));
    library.reload();
    const std::string newClip = readFile(clip());

    ASSERT_TRUE(waitUntil([&] { return result.has_value(); }, 60));
    EXPECT_FALSE(*result);
    EXPECT_EQ(readFile(clip()), newClip) << "the clip that took its place is untouched";
    EXPECT_TRUE(library.edits(again, "01.mov").shapes.empty()) << "no zones recorded on it";
    EXPECT_FALSE(fs::exists(root / folder / "01.orig.mov"));
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].indexOf("replaced"), -1);
    EXPECT_TRUE(bakeLeftovers(root).empty());
}

// Every frame of `baked` is frosted inside `zone` (a fraction of the stored frame) and the
// same as `source`'s frame clear of it.
void expectFrostedOnlyIn(const cv::Rect2d& zone, const fs::path& source, const fs::path& baked) {
    const auto original = lumaPlanes(source);
    const auto frosted = lumaPlanes(baked);
    ASSERT_EQ(frosted.size(), original.size());
    ASSERT_FALSE(original.empty());
    const cv::Size size = original[0].size();
    const cv::Rect inside(cvRound(zone.x * size.width), cvRound(zone.y * size.height),
                          cvRound(zone.width * size.width), cvRound(zone.height * size.height));
    // Rows or columns well clear of the zone's edge, where the blur reaches.
    cv::Mat away(size, CV_8UC1, cv::Scalar(255));
    away(cv::Rect(inside.x - 8, inside.y - 8, inside.width + 16, inside.height + 16) &
         cv::Rect({}, size))
        .setTo(0);
    for (std::size_t i = 0; i < original.size(); ++i) {
        cv::Mat diff;
        cv::absdiff(original[i], frosted[i], diff);
        EXPECT_GT(cv::mean(diff(inside))[0], 15) << "frame " << i;
        EXPECT_LT(cv::mean(diff, away)[0], 2) << "frame " << i;
    }
}

} // namespace

// Phones record variable frame rates, rotation flags, untagged or tagged colour and 10-bit
// HEVC. A bake keeps all of it, frosts the zone where the displayed picture shows it, and
// changes nothing else.
TEST_F(VideoRedactorTest, ClipsAsDevicesRecordThemKeepWhatTheyAre) {
    struct Case {
        const char* name;
        ClipRecipe recipe;
        cv::Rect2d storedZone; // the display's top quarter, in the stored frame
    };
    const cv::Rect2d top(0, 0, 1, 0.25);
    const auto recipe = [](auto edit) {
        ClipRecipe made;
        edit(made);
        return made;
    };
    const std::vector<Case> cases = {
        {"untagged", {}, top},
        {"tagged BT.709 full range", recipe([](ClipRecipe& r) { r.colorimetry = "1:3:5:1"; }), top},
        {"variable frame rate", recipe([](ClipRecipe& r) {
             r.frames = 40;
             r.intervals = kPhoneIntervals;
         }),
         top},
        {"variable frame rate, with sound", recipe([](ClipRecipe& r) {
             r.frames = 360;
             r.intervals = {1.0 / 60, 1.0 / 60, 1.0 / 30, 1.0 / 20, 1.0 / 60, 1.0 / 30};
             r.sound = true;
         }),
         top},
        {"rotated a quarter turn, with sound", recipe([](ClipRecipe& r) {
             r.sound = true;
             r.orientation = "rotate-90";
         }),
         cv::Rect2d(0, 0, 0.25, 1)},
        {"rotated a half turn", recipe([](ClipRecipe& r) { r.orientation = "rotate-180"; }),
         cv::Rect2d(0, 0.75, 1, 0.25)},
        {"rotated three quarters", recipe([](ClipRecipe& r) { r.orientation = "rotate-270"; }),
         cv::Rect2d(0.75, 0, 0.25, 1)},
        {"10-bit HEVC", recipe([](ClipRecipe& r) { r.hevc10 = true; }), top},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const fs::path source = dir / "device.mov";
        const fs::path baked = dir / "baked.mov";
        ASSERT_TRUE(writeClip(source, c.recipe));
        std::string why;
        ASSERT_TRUE(VideoRedactor::bake(topQuarter, baked, source, style, {}, nullptr, &why))
            << why;

        const auto before = streamFacts(source);
        const auto after = streamFacts(baked);
        ASSERT_TRUE(before && after);
        EXPECT_EQ(after->codec, "video/x-h264");
        EXPECT_EQ(after->colorimetry, before->colorimetry);
        EXPECT_EQ(after->orientation, c.recipe.orientation);
        ASSERT_EQ(after->timestamps.size(), before->timestamps.size());
        for (std::size_t i = 0; i < before->timestamps.size(); ++i)
            EXPECT_NEAR(after->timestamps[i], before->timestamps[i], 1e6) << "frame " << i;
        EXPECT_EQ(soundTracks(baked), c.recipe.sound ? 1 : 0);

        expectFrostedOnlyIn(c.storedZone, source, baked);
    }
}

// Clips joined from two recordings sometimes keep the second one's times as they were, so
// that they start again partway through the first or from its very start. Players go by the
// order of the frames; so does the bake, and the clip keeps its length and every frame.
TEST_F(VideoRedactorTest, JoinedRecordingsWhoseTimesRepeatBakeInFrameOrder) {
    constexpr double kFrame = 1.0 / 30;
    for (const double restart : {0.0, 0.5}) {
        SCOPED_TRACE("the second recording restarts at " + std::to_string(restart) + " s");
        const fs::path source = dir / "joined.mov";
        const fs::path baked = dir / "baked.mov";
        ASSERT_TRUE(writeJoinedClip(source, kWidth, kHeight, kFrames, restart));
        const auto times = streamFacts(source);
        ASSERT_TRUE(times);
        ASSERT_NE(std::adjacent_find(times->timestamps.begin(), times->timestamps.end()),
                  times->timestamps.end())
            << "the joined clip repeats times";
        const auto before = readClip(source);
        ASSERT_TRUE(before);
        ASSERT_EQ(before->frames, 2 * kFrames);

        std::string why;
        ASSERT_TRUE(VideoRedactor::bake(topQuarter, baked, source, style, {}, nullptr, &why))
            << why;
        const auto after = readClip(baked);
        ASSERT_TRUE(after) << "the baked clip plays";
        EXPECT_EQ(after->frames, before->frames);
        EXPECT_NEAR(after->durationSeconds, before->durationSeconds, kFrame);
        const auto bakedTimes = streamFacts(baked);
        ASSERT_TRUE(bakedTimes);
        ASSERT_EQ(bakedTimes->timestamps.size(), times->timestamps.size());
        for (std::size_t i = 1; i < bakedTimes->timestamps.size(); ++i)
            EXPECT_NEAR(bakedTimes->timestamps[i] - bakedTimes->timestamps[i - 1], kFrame * 1e9,
                        1e6)
                << "frame " << i;
        expectFrostedOnlyIn(cv::Rect2d(0, 0, 1, 0.25), source, baked);
    }
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
