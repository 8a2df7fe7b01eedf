// Comment pins: their signature, where clicks and drags put them, how they are stored, and how
// they meet the threads pulled from Figma.
#include "comments/CommentEditing.h"
#include "comments/CommentThreadLogic.h"
#include "model/FlowLibrary.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

ScreenComment pin(const std::string& id, std::optional<std::string> postedId = std::nullopt) {
    ScreenComment c;
    c.id = id;
    c.x = 0.25;
    c.y = 0.5;
    c.text = "Fix this label";
    c.postedId = std::move(postedId);
    return c;
}

FigmaThread thread(const std::string& rootId, std::optional<double> x = 0.5,
                   std::optional<double> y = 0.5, bool resolved = false, int replies = 0) {
    FigmaThread t;
    t.rootId = rootId;
    t.x = x;
    t.y = y;
    t.resolved = resolved;
    t.replies.resize(static_cast<std::size_t>(replies));
    return t;
}

TEST(PinSignatureTest, ShortestRoundTripFormAndDirtiness) {
    ScreenComment c = pin("A");
    EXPECT_EQ(c.signature(), "0.25,0.5|Fix this label");
    c.x = 0.1;
    c.y = 1.0 / 3;
    EXPECT_EQ(c.signature(), "0.1,0.3333333333333333|Fix this label");
    c.x = 1;
    c.y = 0;
    EXPECT_EQ(c.signature(), "1,0|Fix this label");

    EXPECT_FALSE(c.isDirty()) << "never published, never dirty";
    c.postedId = "P";
    EXPECT_TRUE(c.isDirty()) << "no stored signature counts as different";
    c.postedSignature = c.signature();
    EXPECT_FALSE(c.isDirty());
    c.x = 0.5000000000000001;
    EXPECT_TRUE(c.isDirty()) << "a move by one unit in the last place shows";
}

TEST(PinPlacementTest, ClicksDragsAndSubmissions) {
    const ViewRect image{100, 50, 200, 400};
    const auto inside = CommentEditing::draftPosition({150, 150}, image);
    ASSERT_TRUE(inside);
    EXPECT_DOUBLE_EQ(inside->x, 0.25);
    EXPECT_DOUBLE_EQ(inside->y, 0.25);
    EXPECT_FALSE(CommentEditing::draftPosition({99, 150}, image)) << "left of the picture";
    EXPECT_FALSE(CommentEditing::draftPosition({150, 451}, image)) << "below it";
    EXPECT_FALSE(CommentEditing::draftPosition({100, 50}, {100, 50, 0, 400})) << "zero width";

    const ViewPoint moved = CommentEditing::movedPosition({0.9, 0.1}, {100, -100}, image);
    EXPECT_EQ(moved.x, 1.0) << "past the right edge stops at exactly 1";
    EXPECT_EQ(moved.y, 0.0);
    const ViewPoint small = CommentEditing::movedPosition({0.5, 0.5}, {20, 40}, image);
    EXPECT_DOUBLE_EQ(small.x, 0.6);
    EXPECT_DOUBLE_EQ(small.y, 0.6);

    const Date now{800000000};
    EXPECT_FALSE(CommentEditing::submit({}, std::nullopt, {0.1, 0.2}, " \n\t ", now))
        << "blank text saves nothing";
    const auto added = CommentEditing::submit({pin("A")}, std::nullopt, {0.1, 0.2}, "  Hi\n", now);
    ASSERT_TRUE(added);
    ASSERT_EQ(added->size(), 2u);
    const ScreenComment& fresh = added->back();
    EXPECT_EQ(fresh.text, "Hi");
    EXPECT_EQ(fresh.x, 0.1);
    EXPECT_EQ(fresh.createdAt, now);
    EXPECT_FALSE(fresh.postedId);
    EXPECT_EQ(fresh.id.size(), 36u);

    ScreenComment published = pin("B", "P9");
    published.createdAt = Date{5};
    const auto edited = CommentEditing::submit({published}, "B", {0.9, 0.9}, "New text", now);
    ASSERT_TRUE(edited);
    EXPECT_EQ(edited->at(0).text, "New text");
    EXPECT_EQ(edited->at(0).x, 0.25) << "editing keeps the position";
    EXPECT_EQ(edited->at(0).createdAt, Date{5});
    EXPECT_EQ(edited->at(0).postedId, "P9");
    EXPECT_TRUE(CommentEditing::remove(*edited, "B").empty());
}

TEST(CommentThreadLogicTest, PinsMeetTheirThreads) {
    const std::vector<FigmaThread> threads = {
        thread("P1", 0.1, 0.1, false, 2), // a published pin's thread with replies
        thread("R1"),                     // someone else's comment on this screen
        thread("R2", std::nullopt, 0.5),  // no position: not a pin
        thread("R3", 0.2, 0.2, true),     // resolved
        thread("P1"),                     // a second thread of the same root is never chosen
    };
    const ScreenComment local = pin("L");
    const ScreenComment published = pin("A", "P1");
    const ScreenComment orphan = pin("B", "GONE");

    EXPECT_EQ(CommentThreadLogic::thread(local, threads), nullptr);
    EXPECT_EQ(CommentThreadLogic::thread(published, threads), &threads[0]);
    EXPECT_EQ(CommentThreadLogic::thread(orphan, threads), nullptr);

    EXPECT_TRUE(CommentThreadLogic::isEditLocked(published, threads));
    EXPECT_FALSE(CommentThreadLogic::isEditLocked(local, threads));
    EXPECT_FALSE(CommentThreadLogic::isEditLocked(published, {thread("P1")})) << "no replies";
    EXPECT_FALSE(CommentThreadLogic::isEditLocked(published, {})) << "thread gone: editable";

    const auto remote = CommentThreadLogic::remotePins(threads, {"P1"}, false);
    ASSERT_EQ(remote.size(), 1u);
    EXPECT_EQ(remote[0]->rootId, "R1");
    const auto withResolved = CommentThreadLogic::remotePins(threads, {"P1"}, true);
    ASSERT_EQ(withResolved.size(), 2u);
    EXPECT_EQ(withResolved[1]->rootId, "R3");

    // Two local pins (one of them is P1's) plus R1; R2, R3 and P1's thread are not counted.
    EXPECT_EQ(CommentThreadLogic::pinCount({local, published}, threads), 3u);
    EXPECT_EQ(CommentThreadLogic::pinCount({}, {}), 0u);

    FigmaThread busy = thread("P1", 0.1, 0.1, false, 4);
    busy.authorHandle = "ana";
    busy.text = "Label cut off";
    const auto card = CommentThreadLogic::previewLines(busy, 2);
    ASSERT_EQ(card.size(), 4u);
    EXPECT_EQ(card[0], "ana: Label cut off");
    EXPECT_EQ(card[3], "2 more replies");
    EXPECT_EQ(CommentThreadLogic::previewLines(busy, 9).size(), 5u) << "all shown, no count";
    EXPECT_EQ(CommentThreadLogic::previewLines(thread("R1"), 2).size(), 1u);
}

class StoredPinsTest : public ::testing::Test {
protected:
    FlowMeta meta() const { return library.store.meta(SampleLibrary::signUp); }
    std::vector<std::string> pending() const {
        return meta().figmaPendingDeletes.value_or(std::vector<std::string>{});
    }

    TempDir dir;
    SampleLibrary library{dir / "library"};
};

// The sample's 01.png has PIN-1 (published as P1) and PIN-2 (local).
TEST_F(StoredPinsTest, RemovedPublishedPinsAreQueuedOnceForDeletionInFigma) {
    auto pins = meta().screen("01.png")->pins();
    ASSERT_EQ(pins.size(), 2u);
    library.store.setComments(SampleLibrary::signUp, "01.png",
                              CommentEditing::remove(pins, "PIN-2"));
    EXPECT_TRUE(pending().empty()) << "a local pin leaves nothing to delete";

    library.store.setComments(SampleLibrary::signUp, "01.png", std::vector<ScreenComment>{});
    EXPECT_EQ(pending(), std::vector<std::string>{"P1"});
    EXPECT_FALSE(meta().screen("01.png")->comments) << "an empty list removes the key";

    library.store.setComments(SampleLibrary::signUp, "01.png", pins);
    library.store.setComments(SampleLibrary::signUp, "01.png", std::nullopt);
    EXPECT_EQ(pending(), std::vector<std::string>{"P1"}) << "queued once";
}

TEST_F(StoredPinsTest, ReplacedPinsKeepTheirOrderAndNewIdsAreQueuedSorted) {
    std::vector<ScreenComment> pins = {pin("X", "Z9"), pin("Y", "A1"), pin("W")};
    library.store.setComments(SampleLibrary::signUp, "02.png", pins);
    EXPECT_EQ(meta().screen("02.png")->pins(), pins);
    library.store.setComments(SampleLibrary::signUp, "02.png", std::vector<ScreenComment>{pins[2]});
    EXPECT_EQ(pending(), (std::vector<std::string>{"A1", "Z9"}));
    EXPECT_THROW(library.store.setComments(SampleLibrary::signUp, "09.png", pins),
                 ScreenNotFoundError);
}

// The editor holds the only copy of pins whose save failed: the model must say so, and why.
TEST_F(StoredPinsTest, AFailedSaveIsReportedWithItsReasonAndChangesNothing) {
    FaultInjector faults;
    FlowLibrary model{FlowStore(dir / "library", faults.operations())};
    const auto before = model.comments(SampleLibrary::signUp, "01.png");
    auto pins = before;
    pins.push_back(pin("NEW"));

    faults.failNext(FaultInjector::Kind::writer);
    std::string why;
    EXPECT_FALSE(model.saveComments(SampleLibrary::signUp, "01.png", pins, &why));
    EXPECT_TRUE(faults.fired());
    EXPECT_NE(why.find("injected writer failure"), std::string::npos) << why;
    EXPECT_EQ(model.comments(SampleLibrary::signUp, "01.png"), before);

    why.clear();
    EXPECT_FALSE(model.saveComments(SampleLibrary::signUp, "09.png", pins, &why));
    EXPECT_FALSE(why.empty()) << "a screen that is gone";

    model.setReadOnly("another computer holds it");
    why.clear();
    EXPECT_FALSE(model.saveComments(SampleLibrary::signUp, "01.png", pins, &why));
    EXPECT_NE(why.find("another computer holds it"), std::string::npos) << why;
    EXPECT_EQ(model.comments(SampleLibrary::signUp, "01.png"), before);

    // Saved again once the library can be written: the same pins, nothing lost.
    model.setReadOnly(std::nullopt);
    EXPECT_TRUE(model.saveComments(SampleLibrary::signUp, "01.png", pins, &why));
    EXPECT_EQ(model.comments(SampleLibrary::signUp, "01.png"), pins);
}

} // namespace
