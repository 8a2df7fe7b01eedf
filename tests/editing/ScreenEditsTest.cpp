// Saving and reverting a screen's zones and patches: the baked file, its untouched original,
// the patch files and the records, on real pictures in a real library folder.
#include "editing/ScreenEdits.h"
#include "editing/ImagePatcher.h"
#include "editing/ImageRedactor.h"
#include "support/TestLibrary.h"

#include <opencv2/imgcodecs.hpp>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

RedactShape zone(double x, double y, double w, double h) {
    return {"", RedactShape::Kind::rect, {x, y, w, h}};
}

cv::Mat stripes(int width, int height) {
    cv::Mat image(height, width, CV_8UC4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.at<cv::Vec4b>(y, x) =
                ((x / 3 + y / 5) % 2) ? cv::Vec4b(10, 60, 220, 255) : cv::Vec4b(240, 230, 20, 255);
    return image;
}

class ScreenEditsTest : public ::testing::Test {
protected:
    ScreenEditsTest() {
        folder = store.createEmptyFlow("Acme", "Sign up", std::nullopt, Date{}).folderName;
        cv::imwrite((dir / "in.png").string(), stripes(120, 200));
        store.addScreens(folder, {dir / "in.png"}, Date{});
        originalBytes = readFile(screen());
    }
    fs::path flowDir() const { return root / folder; }
    fs::path screen() const { return flowDir() / "01.png"; }
    fs::path original() const { return flowDir() / "01.orig.png"; }
    std::vector<std::string> patchFiles() const {
        std::vector<std::string> found;
        for (const auto& name : FileOps::list(flowDir()))
            if (name.find(".patch-") != std::string::npos)
                found.push_back(name);
        return found;
    }
    // What zones alone make of the untouched picture.
    cv::Mat expectedWith(const std::vector<RedactShape>& shapes) {
        cv::Mat pixels = ImageRedactor::load(original());
        ImageRedactor::applyToPixels(shapes, pixels, style);
        return pixels;
    }

    TempDir dir;
    fs::path root = dir / "library";
    FlowStore store{root};
    std::string folder;
    std::string originalBytes;
    RedactStyle style = defaultStyle(RedactPreset::dark);
};

TEST_F(ScreenEditsTest, AnUntouchedScreenHasNoEditsAndIsItsOwnSource) {
    const auto records = ScreenEdits::edits(store, folder, "01.png");
    EXPECT_TRUE(records.shapes.empty());
    EXPECT_FALSE(records.style);
    EXPECT_TRUE(records.patches.empty());
    EXPECT_FALSE(ScreenEdits::hasOriginal(store, folder, "01.png"));
    EXPECT_EQ(ScreenEdits::editingSource(store, folder, "01.png"), screen());
    EXPECT_TRUE(ScreenEdits::edits(store, "no/such/flow", "01.png").shapes.empty());
    EXPECT_TRUE(ScreenEdits::edits(store, folder, "09.png").shapes.empty());
}

TEST_F(ScreenEditsTest, EverySaveBakesFromTheUntouchedOriginal) {
    ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 1, 0.5)}, style, {});
    EXPECT_EQ(readFile(original()), originalBytes) << "the original is kept byte for byte";
    EXPECT_EQ(ScreenEdits::editingSource(store, folder, "01.png"), original());
    EXPECT_NE(readFile(screen()), originalBytes);

    // The second save's zone only covers the bottom: a bake from the baked file would still
    // show the first zone at the top.
    const std::vector<RedactShape> second = {zone(0, 0.5, 1, 0.5)};
    ScreenEdits::save(store, folder, "01.png", second, style, {});
    EXPECT_EQ(cv::norm(ImageRedactor::load(screen()), expectedWith(second), cv::NORM_INF), 0);
    EXPECT_EQ(readFile(original()), originalBytes);

    const auto records = ScreenEdits::edits(store, folder, "01.png");
    ASSERT_EQ(records.shapes.size(), 1u);
    EXPECT_EQ(records.shapes[0].rect, second[0].rect);
    EXPECT_EQ(records.style, style);
}

TEST_F(ScreenEditsTest, SavingNothingRestoresTheOriginalBytes) {
    ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 1, 1)}, style, {});
    ScreenEdits::save(store, folder, "01.png", {}, style, {});
    EXPECT_EQ(readFile(screen()), originalBytes);
    EXPECT_TRUE(ScreenEdits::edits(store, folder, "01.png").shapes.empty());
    EXPECT_TRUE(ScreenEdits::hasOriginal(store, folder, "01.png"));
}

TEST_F(ScreenEditsTest, PatchesAreDrawnBeforeZonesAndLiveAsLongAsTheirRecord) {
    // A flat patch over the top-left quarter: afterwards those pixels are the patch's colour.
    const PatchDraft flat{cv::Mat(10, 10, CV_8UC4, cv::Scalar(0, 200, 0, 255)), {0, 0, 0.5, 0.5}};
    ScreenEdits::save(store, folder, "01.png", {}, style, {flat});
    ASSERT_EQ(patchFiles().size(), 1u);
    EXPECT_TRUE(patchFiles()[0].starts_with("01.patch-"));
    EXPECT_TRUE(patchFiles()[0].ends_with(".png"));
    cv::Mat now = ImageRedactor::load(screen());
    EXPECT_EQ(now.at<cv::Vec4b>(50, 30), cv::Vec4b(0, 200, 0, 255));
    EXPECT_NE(now.at<cv::Vec4b>(150, 90), cv::Vec4b(0, 200, 0, 255)) << "outside the patch";

    // A zone over the flat patch blurs the patched pixels: the middle stays the patch's green,
    // darkened by the tint, not a blur of the stripes.
    const std::string oldPatch = patchFiles()[0];
    style.blur = 2;
    ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 0.5, 0.5)}, style, {flat});
    now = ImageRedactor::load(screen());
    const cv::Vec4b centre = now.at<cv::Vec4b>(50, 30);
    EXPECT_NEAR(centre[1], 200 * 0.65, 3);
    EXPECT_LE(centre[2], 3);
    const auto names = patchFiles();
    ASSERT_EQ(names.size(), 1u) << "every draft gets a new file; the old one goes";
    EXPECT_NE(names[0], oldPatch);
    EXPECT_EQ(ScreenEdits::edits(store, folder, "01.png").patches.at(0).file, names[0]);

    ScreenEdits::save(store, folder, "01.png", {}, style, {});
    EXPECT_TRUE(patchFiles().empty()) << "a dropped patch loses its file";
}

TEST_F(ScreenEditsTest, RevertPutsTheOriginalBackAndForgetsEverything) {
    const PatchDraft flat{cv::Mat(4, 4, CV_8UC4, cv::Scalar(0, 0, 0, 255)), {0.2, 0.2, 0.1, 0.1}};
    ScreenEdits::save(store, folder, "01.png", {zone(0, 0, 1, 1)}, style, {flat});
    ScreenEdits::revert(store, folder, "01.png");
    EXPECT_EQ(readFile(screen()), originalBytes);
    EXPECT_FALSE(FileOps::exists(original()));
    EXPECT_TRUE(patchFiles().empty());
    const auto records = ScreenEdits::edits(store, folder, "01.png");
    EXPECT_TRUE(records.shapes.empty());
    EXPECT_FALSE(records.style);
    const FlowMeta meta = store.meta(folder);
    const ScreenRef* entry = meta.screen("01.png");
    EXPECT_FALSE(entry->redactions || entry->patches || entry->redactStyle)
        << "no empty keys left in meta.json";
}

TEST_F(ScreenEditsTest, PatchNamesFromMetaNeverReachOutsideTheFlow) {
    writeFile(root / "precious.png", "keep me");
    FlowMeta meta = store.meta(folder);
    meta.screens[0].patches = std::vector<RedactPatch>{{"", "../../precious.png", {0, 0, 1, 1}}};
    store.writeMeta(folder, meta);
    ScreenEdits::revert(store, folder, "01.png");
    EXPECT_EQ(readFile(root / "precious.png"), "keep me");
}

TEST(ImagePatcherTest, CutAndLaidDown) {
    const cv::Mat picture = stripes(100, 200);
    const auto patch = ImagePatcher::crop(picture, {0.105, 0.1, 0.2, 0.25});
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->size(), cv::Size(21, 50)) << "widened outward to whole pixels";
    EXPECT_EQ(patch->at<cv::Vec4b>(0, 0), picture.at<cv::Vec4b>(20, 10));
    EXPECT_FALSE(ImagePatcher::crop(picture, {0.1, 0.1, 0.004, 0.5})) << "under a pixel wide";
    EXPECT_FALSE(ImagePatcher::crop(picture, {0.9, 0.1, 0.5, 0.5})) << "off the picture";

    TempDir dir;
    const fs::path file = dir / "01.png";
    cv::imwrite(file.string(), picture);
    // The top band's pixels laid over the bottom band: a patch lands where its rect says, with
    // the top-left origin.
    const cv::Mat red(5, 5, CV_8UC4, cv::Scalar(0, 0, 255, 255));
    ASSERT_TRUE(ImagePatcher::apply(red, {0, 0.75, 1, 0.25}, file, std::nullopt));
    const cv::Mat now = ImageRedactor::load(file);
    EXPECT_EQ(now.at<cv::Vec4b>(180, 50), cv::Vec4b(0, 0, 255, 255));
    EXPECT_EQ(now.at<cv::Vec4b>(20, 50), picture.at<cv::Vec4b>(20, 50));
    EXPECT_FALSE(ImagePatcher::apply(red, {0, 0, 1, 1}, dir / "missing.png", std::nullopt));
}

} // namespace
