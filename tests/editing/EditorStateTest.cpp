// The editor's rules: history, geometry, snapping, zoom and pan, clipboard, edited state.
#include "editing/EditorState.h"
#include "editing/EditorGeometry.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <limits>

using namespace varnel;
namespace geo = varnel::EditorGeometry;

namespace {

constexpr ViewRect kImage{100, 0, 400, 800}; // the picture as shown: 400 x 800 view points

TEST(EditorHistoryTest, UndoWalksBackToTheLoadedStateAndNoFurther) {
    EditorState state;
    state.load({{"", RedactShape::Kind::rect, {0, 0, 0.5, 0.5}}}, {});
    EXPECT_FALSE(state.isEdited());
    for (int i = 0; i < 50; ++i)
        state.addShape(RedactShape::Kind::ellipse, {0.01 * i, 0.1, 0.1, 0.1});
    EXPECT_EQ(state.undoDepth(), 50u) << "no limit on the history";
    EXPECT_TRUE(state.isEdited());
    for (int i = 49; i >= 0; --i) {
        state.undo();
        EXPECT_EQ(state.shapes().size(), static_cast<std::size_t>(i + 1));
    }
    EXPECT_FALSE(state.canUndo());
    state.undo();
    EXPECT_EQ(state.shapes().size(), 1u) << "nothing before the loaded state";
    EXPECT_FALSE(state.isEdited());

    state.redo();
    state.redo();
    EXPECT_EQ(state.shapes().size(), 3u);
    state.addShape(RedactShape::Kind::rect, {0.5, 0.5, 0.1, 0.1});
    EXPECT_FALSE(state.canRedo()) << "a new change after undo ends redo";
    state.redo();
    EXPECT_EQ(state.shapes().size(), 4u);

    state.markSaved();
    EXPECT_FALSE(state.isEdited());
    state.undo();
    EXPECT_TRUE(state.isEdited()) << "undoing past a save is an edit again";
}

TEST(EditorHistoryTest, MovesStayInsideAndDeletesAreUndoable) {
    EditorState state;
    state.load({}, {});
    const std::string id = state.addShape(RedactShape::Kind::rect, {0.8, 0.8, 0.3, 0.1});
    EXPECT_DOUBLE_EQ(state.shapes()[0].rect.x, 0.7) << "a zone starts inside";
    state.moveSelection(0.5, -2);
    EXPECT_DOUBLE_EQ(state.shapes()[0].rect.x, 0.7);
    EXPECT_DOUBLE_EQ(state.shapes()[0].rect.y, 0.0);
    EXPECT_DOUBLE_EQ(state.shapes()[0].rect.width, 0.3) << "moving keeps the size";
    state.deleteSelection();
    EXPECT_TRUE(state.shapes().empty());
    state.undo();
    ASSERT_EQ(state.shapes().size(), 1u);
    EXPECT_EQ(state.shapes()[0].id, id);
}

TEST(EditorGeometryTest, RectanglesHandlesAndClamping) {
    const NormalizedRect r = geo::rectFromPoints({500, 200}, {300, -50}, kImage);
    EXPECT_DOUBLE_EQ(r.x, 0.5);
    EXPECT_DOUBLE_EQ(r.y, 0);
    EXPECT_DOUBLE_EQ(r.width, 0.5);
    EXPECT_DOUBLE_EQ(r.height, 0.25);

    const NormalizedRect zone{0.25, 0.25, 0.5, 0.5}; // view 200..400 x 200..600
    EXPECT_EQ(geo::handleAt(zone, {208, 205}, kImage), geo::Handle::topLeft);
    EXPECT_EQ(geo::handleAt(zone, {400, 410}, kImage), geo::Handle::right);
    EXPECT_FALSE(geo::handleAt(zone, {212, 200}, kImage)) << "12 points away";
    EXPECT_EQ(geo::handleAt(zone, {211, 200}, kImage), geo::Handle::topLeft) << "11 points";

    const NormalizedRect flipped = geo::resized(zone, geo::Handle::left, {0.9, 0});
    EXPECT_DOUBLE_EQ(flipped.x, 0.75);
    EXPECT_DOUBLE_EQ(flipped.width, 0.15);
    const NormalizedRect outside = geo::resized(zone, geo::Handle::bottomRight, {1.4, 1.2});
    EXPECT_DOUBLE_EQ(outside.maxX(), 1);
    EXPECT_DOUBLE_EQ(outside.maxY(), 1);
}

TEST(EditorGeometryTest, SnapsWithinSevenPointsToTheOtherZonesLines) {
    const std::vector<NormalizedRect> others = {{0.5, 0.5, 0.2, 0.1}}; // lines x .5 .6 .7
    // 6 points left of x = 0.5 (0.015 of 400 points) snaps; 8 points does not.
    const NormalizedRect near = geo::snappedMove({0.485, 0.1, 0.1, 0.1}, others, kImage);
    EXPECT_DOUBLE_EQ(near.x, 0.5);
    EXPECT_DOUBLE_EQ(near.y, 0.1) << "the other axis has nothing near";
    const NormalizedRect far = geo::snappedMove({0.48, 0.1, 0.1, 0.1}, others, kImage);
    EXPECT_DOUBLE_EQ(far.x, 0.48);
    // A centre line snaps too: a zone whose middle is 3.2 points off the other's middle (0.55)
    // while its edges are far from every line.
    const NormalizedRect centred = geo::snappedMove({0.1, 0.516, 0.2, 0.06}, others, kImage);
    EXPECT_DOUBLE_EQ(centred.y + centred.height / 2, 0.55);
    EXPECT_DOUBLE_EQ(geo::snappedLine(0.695, true, others, 400), 0.7);
    EXPECT_DOUBLE_EQ(geo::snappedLine(0.3, true, others, 400), 0.3);
}

TEST(EditorGeometryTest, ZoomAndPanLimits) {
    EXPECT_EQ(geo::clampedZoom(0.2), 1);
    EXPECT_EQ(geo::clampedZoom(9), 6);
    EXPECT_EQ(geo::clampedZoom(2.5), 2.5);
    // Magnified content larger than the view: no gap at either edge.
    const ViewPoint pan = geo::clampedPan({50, -5000}, {1200, 2400}, {600, 800});
    EXPECT_EQ(pan.x, 0);
    EXPECT_EQ(pan.y, -1600);
    // Smaller than the view: centred.
    const ViewPoint centred = geo::clampedPan({-300, 12}, {400, 800}, {600, 800});
    EXPECT_EQ(centred.x, 100);
    EXPECT_EQ(centred.y, 0);
}

TEST(EditorClipboardTest, CopiesPastesAndRepeatedPastesOffset) {
    EditorClipboard clipboard;
    EditorState state;
    state.load({}, {});
    EXPECT_FALSE(state.pasteZones(clipboard, "/lib/01.png")) << "nothing copied yet";
    clipboard.copyZones({}, "/lib/01.png");
    EXPECT_FALSE(clipboard.lastCopiedKind()) << "an empty copy changes nothing";

    const RedactShape zone{"Z", RedactShape::Kind::ellipse, {0.9, 0.1, 0.1, 0.1}};
    clipboard.copyZones({zone}, "/lib/./01.png");
    EXPECT_EQ(clipboard.lastCopiedKind(), EditorClipboard::ItemKind::zones);
    ASSERT_TRUE(state.pasteZones(clipboard, "/lib/02.png"));
    EXPECT_NE(state.shapes()[0].id, "Z") << "pasted copies are new zones";
    EXPECT_EQ(state.shapes()[0].rect, zone.rect) << "first paste elsewhere lands in place";
    ASSERT_TRUE(state.pasteZones(clipboard, "/lib/02.png"));
    EXPECT_DOUBLE_EQ(state.shapes()[1].rect.y, 0.1 + EditorState::kPasteOffset);
    EXPECT_DOUBLE_EQ(state.shapes()[1].rect.x, 0.9) << "clamped inside";
    EXPECT_EQ(state.undoDepth(), 2u) << "each paste is a change";

    EXPECT_FALSE(state.pastePatch(clipboard, true)) << "no patch copied";
    clipboard.copyPatch(cv::Mat(4, 4, CV_8UC4, cv::Scalar::all(9)), {0.1, 0.1, 0.2, 0.2});
    EXPECT_EQ(clipboard.lastCopiedKind(), EditorClipboard::ItemKind::patch);
    EXPECT_FALSE(state.pastePatch(clipboard, false)) << "patches only go onto stills";
    EXPECT_TRUE(state.pastePatch(clipboard, true));
    ASSERT_EQ(state.patches().size(), 1u);
    EXPECT_DOUBLE_EQ(state.patches()[0].rect.x, 0.12) << "beside the pixels it copies";
    EXPECT_EQ(state.patchSelection(), state.patches()[0].id);
    EXPECT_TRUE(state.selection().empty()) << "the pasted patch alone is selected";
}

TEST(EditorClipboardTest, PastesOnlyUsableZonesAndKnowsTheScreenThroughALink) {
    const auto base =
        std::filesystem::temp_directory_path() / ("varnel-clip-" + std::to_string(::getpid()));
    std::filesystem::create_directories(base / "real");
    std::filesystem::create_directory_symlink(base / "real", base / "link");
    std::ofstream(base / "real" / "01.png") << "x";
    EditorClipboard clipboard;
    EditorState state;
    state.load({}, {});
    const RedactShape zone{"Z", RedactShape::Kind::rect, {0.2, 0.2, 0.1, 0.1}};
    const double nan = std::numeric_limits<double>::quiet_NaN();
    clipboard.copyZones({{"N", RedactShape::Kind::rect, {nan, 0, 0.1, 0.1}}}, base / "real/01.png");
    EXPECT_FALSE(state.pasteZones(clipboard, base / "link/01.png")) << "nothing usable";
    EXPECT_EQ(state.undoDepth(), 0u);

    clipboard.copyZones({zone}, base / "real/01.png");
    ASSERT_TRUE(state.pasteZones(clipboard, base / "link/01.png"));
    EXPECT_DOUBLE_EQ(state.shapes()[0].rect.x, 0.2 + EditorState::kPasteOffset)
        << "the same screen, seen through a link: offset, not on top";
    std::filesystem::remove_all(base);
}

} // namespace
