// Rules of the Figma side that need no server: links, board lookup, planning, assembly, the
// summary line and the export package.
#include "archive/Zip.h"
#include "editing/RedactRecords.h"
#include "figma/FigmaAPIError.h"
#include "figma/FigmaBoardIndex.h"
#include "figma/FigmaCommentPlanner.h"
#include "figma/FigmaExport.h"
#include "figma/FigmaFileLink.h"
#include "figma/FigmaPublishableWork.h"
#include "figma/FigmaSyncError.h"
#include "figma/FigmaThreadAssembler.h"
#include "figma/HttpClient.h"
#include "figma/PublishSummary.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace varnel {
namespace {

using namespace std::string_literals;
using Op = FigmaCommentOp;

TEST(FigmaFileLinkTest, KeysNodeIdsAndCanonicalLinks) {
    EXPECT_EQ(FigmaFileLink::key("https://www.figma.com/file/ABC/Title"), "ABC");
    EXPECT_EQ(FigmaFileLink::key("https://figma.com/design/ABC/Title?node-id=1-2"), "ABC");
    EXPECT_EQ(FigmaFileLink::key("https://WWW.Figma.com/design/ABC"), "ABC");
    EXPECT_EQ(FigmaFileLink::nodeId("https://figma.com/design/ABC/Title?node-id=1-2"), "1:2");
    EXPECT_EQ(FigmaFileLink::nodeId("https://figma.com/design/ABC/T?node-id=12%3A34"), "12:34");
    EXPECT_EQ(FigmaFileLink::nodeId("https://figma.com/design/ABC/T?node-id="), std::nullopt);
    EXPECT_EQ(FigmaFileLink::nodeId("https://figma.com/design/ABC/T"), std::nullopt);

    for (const char* bad :
         {"https://example.com/file/ABC/Title", "https://www.figma.com/proto/ABC",
          "https://www.figma.com/file", "not a link", "", "https://figma.com.evil.com/file/ABC",
          "https://evilfigma.com/file/ABC"})
        EXPECT_EQ(FigmaFileLink::key(bad), std::nullopt) << bad;

    EXPECT_EQ(FigmaFileLink::canonicalURL("https://figma.com/file/ABC/Title?t=x"),
              "https://www.figma.com/design/ABC");
    EXPECT_EQ(FigmaFileLink::canonicalURL("https://figma.com/design/ABC/Title?node-id=1-2&t=x"),
              "https://www.figma.com/design/ABC?node-id=1:2");
    EXPECT_EQ(FigmaFileLink::canonicalURL("https://example.com/design/ABC"), std::nullopt);
}

FigmaNode node(const std::string& id, const std::string& type, std::optional<FigmaBox> box = {},
               FigmaNode::PluginData tags = {}, std::vector<FigmaNode> children = {}) {
    FigmaNode n;
    n.id = id;
    n.type = type;
    n.absoluteBoundingBox = box;
    if (!tags.empty())
        n.sharedPluginData = std::move(tags);
    if (!children.empty())
        n.children = std::move(children);
    return n;
}

FigmaNode::PluginData board(const std::string& flow, const std::optional<std::string>& at) {
    FigmaNode::PluginData tags{{"varnel", {{"flowId", flow}}}};
    if (at)
        tags["varnel"]["importedAt"] = *at;
    return tags;
}

TEST(FigmaBoardIndexTest, FindsTheLatestImportOfTheFlow) {
    const FigmaNode doc =
        node("0:0", "DOCUMENT", {}, {},
             {node("0:1", "CANVAS", {}, {},
                   {node("1:1", "SECTION", {}, board("F", "2026-01-01T10:00:00Z")),
                    node("1:2", "SECTION", {}, board("G", "2027-01-01T10:00:00Z"))}),
              node("0:2", "CANVAS", {}, {},
                   {node("1:3", "FRAME", {}, {},
                         {node("1:4", "SECTION", {}, board("F", "2026-03-01T10:00:00Z"))}),
                    node("1:5", "SECTION", {}, board("F", "2026-03-01T10:00:00Z")),
                    node("1:6", "SECTION", {}, board("F", std::nullopt))})});
    const auto root = FigmaBoardIndex::findRoot(doc, "F");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->node->id, "1:4"); // latest; equal texts keep the first in walk order
    EXPECT_EQ(root->pageId, "0:2");
    EXPECT_FALSE(FigmaBoardIndex::findRoot(doc, "H"));
    EXPECT_EQ(FigmaBoardIndex::importedAt(*root->node), parseFigmaDate("2026-03-01T10:00:00Z"));

    // A board without "importedAt" loses to any dated one, but is found when alone.
    const FigmaNode undated = node(
        "0:0", "DOCUMENT", {}, {},
        {node("0:1", "CANVAS", {}, {}, {node("1:1", "SECTION", {}, board("F", std::nullopt))})});
    EXPECT_EQ(FigmaBoardIndex::findRoot(undated, "F")->node->id, "1:1");
    EXPECT_EQ(FigmaBoardIndex::importedAt(*FigmaBoardIndex::findRoot(undated, "F")->node),
              std::nullopt);
}

FigmaNode::PluginData fileTag(const std::string& file) {
    return {{"varnel", {{"file", file}}}};
}

TEST(FigmaBoardIndexTest, GeometryOfABoard) {
    const FigmaNode subtree = node(
        "1:1", "SECTION", FigmaBox{10, 20, 1000, 900}, board("F", std::nullopt),
        {node("1:2", "FRAME", FigmaBox{10, 20, 390, 844}, fileTag("01.png"),
              {node("1:3", "RECTANGLE", FigmaBox{10, 20, 390, 844})}),
         node("1:4", "FRAME", FigmaBox{500, 20, 390, 844}, fileTag("02.png")), node("1:5", "TEXT"),
         node("1:6", "FRAME", FigmaBox{900, 20, 390, 844}, fileTag("02.png"))});
    const FigmaBoardGeometry g = FigmaBoardIndex::geometry(subtree, "0:1");
    EXPECT_EQ(g.rootId, "1:1");
    EXPECT_EQ(g.pageId, "0:1");
    EXPECT_EQ(g.rootBox, (FigmaBox{10, 20, 1000, 900}));
    EXPECT_EQ(g.screenBoxes.size(), 2u);
    EXPECT_EQ(g.screenBoxes.at("02.png").x, 900); // the later node of a name wins
    EXPECT_EQ(g.nodeBoxes.size(), 5u);            // the text has no box
    EXPECT_TRUE(g.nodeBoxes.contains("1:3"));
}

FigmaBoardGeometry testBoard() {
    FigmaBoardGeometry g;
    g.rootId = "1:1";
    g.pageId = "0:1";
    g.rootBox = {0, 0, 1000, 900};
    g.screenBoxes = {{"01.png", {100, 200, 390, 844}}, {"02.png", {500, 200, 390, 844}}};
    g.nodeBoxes = {
        {"1:1", g.rootBox}, {"1:2", {100, 200, 390, 844}}, {"1:3", {500, 200, 390, 844}}};
    return g;
}

ScreenComment pin(const std::string& id, double x, double y, const std::string& text,
                  std::optional<std::string> posted = {}, bool signedNow = true) {
    ScreenComment p;
    p.id = id;
    p.x = x;
    p.y = y;
    p.text = text;
    p.postedId = posted;
    if (posted && signedNow)
        p.postedSignature = p.signature();
    return p;
}

using FileState = FigmaCommentPlanner::FileState;

// The linked file "KEY" with top-level comments anchored as given.
FileState fileWith(const std::map<std::string, std::optional<std::string>>& anchors) {
    FileState file;
    file.fileKey = "KEY";
    for (const auto& [id, node] : anchors)
        file.comments[id].nodeId = node;
    return file;
}

std::vector<std::string> steps(const FigmaCommentPlan& plan) {
    std::vector<std::string> out;
    for (const auto& op : plan.operations) {
        if (const auto* d = std::get_if<Op::Delete>(&op.value))
            out.push_back("delete " + d->commentId);
        else if (const auto* p = std::get_if<Op::Post>(&op.value))
            out.push_back("post " + p->filename + " " + p->commentId);
        else if (const auto* a = std::get_if<Op::Adopt>(&op.value))
            out.push_back("adopt " + a->figmaCommentId + " for " + a->commentId);
        else if (const auto* k = std::get_if<Op::Keep>(&op.value))
            out.push_back("keep " + k->commentId);
        else
            out.push_back("remove " + std::get<Op::RemoveLocal>(op.value).commentId);
    }
    return out;
}

TEST(FigmaCommentPlannerTest, PostsAnchoredOnTheBoardRoot) {
    const auto plan = FigmaCommentPlanner::plan({{"01.png", {pin("a", 0.5, 0.5, "Hi")}}}, {},
                                                fileWith({}), testBoard());
    ASSERT_EQ(plan.operations.size(), 1u);
    const auto& post = std::get<Op::Post>(plan.operations[0].value);
    EXPECT_EQ(post.filename, "01.png");
    EXPECT_EQ(post.commentId, "a");
    EXPECT_EQ(post.message, "Hi");
    EXPECT_EQ(post.signature, "0.5,0.5|Hi");
    EXPECT_EQ(post.meta, (FigmaClientMeta{FigmaClientMeta::FrameOffset{"1:1", 295, 622}}));

    // A root box away from the origin shifts the offset.
    auto shifted = testBoard();
    shifted.rootBox = {50, 100, 1000, 900};
    const auto moved = FigmaCommentPlanner::plan({{"01.png", {pin("a", 0.5, 0.5, "Hi")}}}, {},
                                                 fileWith({}), shifted);
    EXPECT_EQ(std::get<Op::Post>(moved.operations[0].value).meta,
              (FigmaClientMeta{FigmaClientMeta::FrameOffset{"1:1", 245, 522}}));
}

TEST(FigmaCommentPlannerTest, EveryCaseOfAPin) {
    const FileState existing = fileWith({{"c-kept", "1:1"},
                                         {"c-page", "0:1"},
                                         {"c-edited", "1:1"},
                                         {"c-elsewhere", "9:9"},
                                         {"c-unsigned", "1:1"},
                                         {"c-nonode", std::nullopt}});
    ScreenComment edited = pin("e", 0.1, 0.1, "old", "c-edited");
    edited.text = "new";
    const std::vector<FigmaCommentPlanner::Screen> screens{
        {"01.png",
         {pin("k", 0.1, 0.2, "kept", "c-kept"), pin("p", 0.1, 0.2, "on page", "c-page"), edited,
          pin("g", 0.3, 0.3, "gone", "c-gone"), pin("r", 0.3, 0.3, "moved away", "c-elsewhere"),
          pin("u", 0.3, 0.3, "unsigned", "c-unsigned", false),
          pin("n", 0.3, 0.3, "no anchor", "c-nonode"), pin("new", 0.9, 0.9, "fresh")}},
        {"03.png", {pin("s", 0.5, 0.5, "off board"), pin("s2", 0.5, 0.5, "off", "c-kept2")}},
        {"02.png", {pin("z", 0.2, 0.2, "second screen")}}};
    const auto plan =
        FigmaCommentPlanner::plan(screens, {"c-pending", "c-edited"}, existing, testBoard());

    // c-kept2 is gone from Figma, so its pin is removed even though its screen left the board.
    const std::vector<std::string> expected{
        "remove g",        "remove s2",          "post 01.png e",     "post 01.png r",
        "post 01.png u",   "post 01.png n",      "post 01.png new",   "post 02.png z",
        "delete c-edited", "delete c-elsewhere", "delete c-unsigned", "delete c-nonode",
        "delete c-pending"};
    EXPECT_EQ(steps(plan), expected);
    ASSERT_EQ(plan.skipped(), 1);
    EXPECT_EQ(plan.skips[0], (FigmaCommentPlan::Skip{"03.png", "s", "screen not on the board"}));
    EXPECT_EQ(std::get<Op::RemoveLocal>(plan.operations[0].value).reason,
              "removed — deleted in Figma");
}

TEST(FigmaCommentPlannerTest, NothingToDo) {
    const auto plan = FigmaCommentPlanner::plan({{"01.png", {}}}, {}, fileWith({}), testBoard());
    EXPECT_TRUE(plan.operations.empty());
    EXPECT_EQ(plan.skipped(), 0);
}

FigmaCommentRef comment(const std::string& id, const std::string& author,
                        std::optional<std::string> parent = {}) {
    FigmaCommentRef r;
    r.id = id;
    r.nodeId = parent ? std::nullopt : std::optional<std::string>("1:1");
    r.offsetX = r.offsetY = 0;
    r.message = "m";
    r.authorId = author;
    r.parentId = std::move(parent);
    return r;
}

TEST(FigmaCommentPlannerTest, NeverDeletesAThreadOthersRepliedIn) {
    // t-others has a colleague's reply; t-own only its author's own.
    const auto file =
        FileState::of("KEY", {comment("t-others", "me"), comment("r1", "me", "t-others"),
                              comment("r2", "them", "t-others"), comment("t-own", "me"),
                              comment("r3", "me", "t-own"), comment("t-gone", "me"),
                              comment("r4", "them", "t-gone")});
    EXPECT_TRUE(file.comments.at("t-others").othersReplied);
    EXPECT_FALSE(file.comments.at("t-own").othersReplied);
    EXPECT_EQ(file.comments.size(), 3u); // replies are no top-level comments

    ScreenComment moved = pin("a", 0.1, 0.1, "text", "t-others");
    moved.x = 0.3;
    ScreenComment edited = pin("b", 0.1, 0.1, "text", "t-own");
    edited.text = "changed";
    const auto plan = FigmaCommentPlanner::plan({{"01.png", {moved, edited}}},
                                                {"t-gone", "t-missing"}, file, testBoard());
    EXPECT_EQ(steps(plan), (std::vector<std::string>{"post 01.png b", "delete t-own", "keep t-gone",
                                                     "delete t-missing"}));
    ASSERT_EQ(plan.kept.size(), 1u);
    EXPECT_EQ(plan.kept[0], (FigmaCommentPlan::Skip{"01.png", "a", "others replied in Figma"}));
}

TEST(FigmaCommentPlannerTest, APinBelongsToTheFileItWasPostedTo) {
    ScreenComment elsewhere = pin("a", 0.1, 0.1, "from A", "c-in-A");
    elsewhere.postedFileKey = "A";
    ScreenComment here = pin("b", 0.2, 0.2, "in KEY", "c-here");
    here.postedFileKey = "KEY";
    ScreenComment gone = pin("c", 0.3, 0.3, "deleted in KEY", "c-gone");
    gone.postedFileKey = "KEY";
    ScreenComment older = pin("d", 0.4, 0.4, "recorded before keys", "c-old");
    const auto plan = FigmaCommentPlanner::plan({{"01.png", {elsewhere, here, gone, older}}}, {},
                                                fileWith({{"c-here", "1:1"}}), testBoard());
    // Only the pins of this file whose comments are gone count as deleted in Figma.
    EXPECT_EQ(steps(plan), (std::vector<std::string>{"remove c", "remove d", "post 01.png a"}));
}

TEST(FigmaCommentPlannerTest, AdoptsAPostThatWasNeverRecorded) {
    // A run posted "a" and "moved"'s new place, then stopped before recording them.
    const auto board = testBoard();
    const auto anchorOf = [&](double x, double y) {
        return std::get<FigmaClientMeta::FrameOffset>(
            FigmaCommentPlanner::anchor(board, board.screenBoxes.at("01.png"), x, y).value);
    };
    const auto placed = [&](const std::string& id, const std::string& message, double x, double y,
                            const std::string& author) {
        FigmaCommentRef r = comment(id, author);
        const auto at = anchorOf(x, y);
        r.offsetX = at.x + 0.001; // as Figma may round it
        r.offsetY = at.y;
        r.message = message;
        return r;
    };
    ScreenComment moved = pin("moved", 0.1, 0.1, "Move me", "c-old");
    moved.x = 0.6;
    const std::vector<FigmaCommentRef> refs{placed("c-a", "Twice?", 0.5, 0.5, "me"),
                                            placed("c-twin", "Twice?", 0.5, 0.5, "me"),
                                            placed("c-old", "Move me", 0.1, 0.1, "me"),
                                            placed("c-new", "Move me", 0.6, 0.1, "me"),
                                            placed("c-theirs", "Same words", 0.7, 0.7, "them"),
                                            placed("c-claimed", "Mine", 0.2, 0.2, "me")};
    const std::vector<FigmaCommentPlanner::Screen> screens{
        {"01.png",
         {pin("a", 0.5, 0.5, "Twice?"), pin("a2", 0.5, 0.5, "Twice?"),
          pin("a3", 0.5, 0.5, "Twice?"), moved, pin("t", 0.7, 0.7, "Same words"),
          pin("mine", 0.2, 0.2, "Mine", "c-claimed"), pin("m2", 0.2, 0.2, "Mine")}}};

    const auto plan =
        FigmaCommentPlanner::plan(screens, {}, FileState::of("KEY", refs, "me"), board);
    // Each comment is adopted once; a colleague's comment and one that is a pin's already never.
    EXPECT_EQ(steps(plan),
              (std::vector<std::string>{"adopt c-a for a", "adopt c-twin for a2", "post 01.png a3",
                                        "adopt c-new for moved", "post 01.png t", "post 01.png m2",
                                        "delete c-old"}));
    EXPECT_TRUE(FigmaCommentPlanner::adopts(plan));
    // Without knowing the account, the place and words alone decide.
    const auto unknown = FigmaCommentPlanner::plan(screens, {}, FileState::of("KEY", refs), board);
    EXPECT_EQ(steps(unknown)[4], "adopt c-theirs for t");
}

FigmaCommentRef ref(const std::string& id, std::optional<std::string> nodeId, double x, double y,
                    const std::string& created, std::optional<std::string> parent = {}) {
    FigmaCommentRef r;
    r.id = id;
    r.nodeId = std::move(nodeId);
    if (r.nodeId) {
        r.offsetX = x;
        r.offsetY = y;
    }
    r.message = "m" + id;
    r.parentId = std::move(parent);
    r.authorHandle = "h" + id;
    r.authorId = "u" + id;
    r.createdAt = parseFigmaDate(created);
    return r;
}

TEST(FigmaThreadAssemblerTest, PlacesThreadsAndReplies) {
    const auto g = testBoard();
    std::vector<FigmaCommentRef> refs{
        ref("r2", {}, 0, 0, "2026-01-01T10:00:05Z", "t1"),
        ref("t2", "1:1", 295, 622, "2026-01-01T10:00:03Z"),    // root offset, screen 1 centre
        ref("t1", "1:1", 100, 200, "2026-01-01T10:00:01Z"),    // screen 1's corner
        ref("t3", "1:3", 195, 422, "2026-01-01T10:00:02Z"),    // screen 2's own node
        ref("far", "1:1", 5000, 5000, "2026-01-01T10:00:00Z"), // on no screen
        ref("canvas", {}, 0, 0, "2026-01-01T10:00:00Z"),       // no anchor node
        ref("mine-far", "1:1", 5000, 5000, "2026-01-01T10:00:00Z"),
        ref("page", "0:1", 695, 622, "2026-01-01T10:00:04Z"), // page: canvas coordinates
        ref("r1", {}, 0, 0, "2026-01-01T10:00:04.5Z", "t1"),
        ref("orphan", {}, 0, 0, "2026-01-01T10:00:04Z", "far")};
    refs[2].resolvedAt = parseFigmaDate("2026-01-02T00:00:00Z");
    const auto a = FigmaThreadAssembler::assemble(refs, g, {"t2", "mine-far"});

    EXPECT_EQ(a.commentsElsewhere, 2); // far and canvas; mine-far is this flow's own pin
    ASSERT_EQ(a.threads.size(), 2u);
    const auto& first = a.threads.at("01.png");
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[0].rootId, "t1");
    EXPECT_EQ(first[0].x, 0.0);
    EXPECT_EQ(first[0].y, 0.0);
    EXPECT_TRUE(first[0].resolved);
    ASSERT_EQ(first[0].replies.size(), 2u);
    EXPECT_EQ(first[0].replies[0].id, "r1"); // oldest first, whatever the file's order
    EXPECT_EQ(first[0].replies[1].id, "r2");
    EXPECT_EQ(first[0].replies[1].authorHandle, "hr2");
    EXPECT_EQ(first[1].rootId, "t2"); // a local pin's thread is kept for its replies
    EXPECT_DOUBLE_EQ(*first[1].x, 0.5);
    EXPECT_DOUBLE_EQ(*first[1].y, 0.5);
    const auto& second = a.threads.at("02.png");
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[0].rootId, "t3");
    EXPECT_DOUBLE_EQ(*second[0].x, 0.5);
    EXPECT_EQ(second[1].rootId, "page");
    EXPECT_DOUBLE_EQ(*second[1].x, 0.5);
    EXPECT_EQ(second[1].authorId, "upage");
}

TEST(PublishSummaryTest, Text) {
    EXPECT_EQ(PublishSummary{}.text(), "Nothing to publish");
    EXPECT_EQ((PublishSummary{.posted = 2, .failures = 1}.text()),
              "2 posted · 1 failed — publish again to retry");
    EXPECT_EQ((PublishSummary{1, 2, 3, 4, 5, 6, 7, true}.text()),
              "1 posted · 2 deleted · 3 removed — deleted in Figma · 5 skipped — screen not on "
              "the board · 7 kept as they are — others replied in Figma · 6 failed — publish "
              "again to retry · 4 comments elsewhere in the file · stopped — sync again to finish");
    EXPECT_EQ(PublishSummary{.stopped = true}.text(), "Stopped — sync again to finish");
}

TEST(FigmaSyncErrorTest, MapsWhatTheClientThrew) {
    const auto map = [](auto error) {
        return FigmaSyncError::from(std::make_exception_ptr(error)).kind;
    };
    using K = FigmaSyncError::Kind;
    EXPECT_EQ(map(FigmaAPIError(401, "{}")), K::tokenRejected);
    EXPECT_EQ(map(FigmaAPIError(403, "{}")), K::tokenRejected);
    EXPECT_EQ(map(FigmaAPIError(404, "{}")), K::fileNotFound);
    EXPECT_EQ(map(FigmaAPIError(429, "{}")), K::network);
    EXPECT_EQ(map(FigmaAPIError(500, "{}")), K::network);
    EXPECT_EQ(map(FigmaAPIError::invalidResponse()), K::network);
    EXPECT_EQ(map(Http::TransportError("refused")), K::network);
    EXPECT_EQ(map(CodingError("no id")), K::network);
    EXPECT_EQ((FigmaSyncError{K::tokenRejected, ""}.message()),
              "Figma refused the token — check Settings → Figma");
    EXPECT_EQ((FigmaSyncError{K::screensChanged, ""}.message()),
              "Screens changed since import — re-import the flow, then publish");
    // A body that isn't UTF-8 is dropped, not passed on.
    EXPECT_EQ(FigmaAPIError(500, "\xff\xfe").body(), std::nullopt);
    EXPECT_EQ(FigmaAPIError(500, "é").body(), "é");
}

TEST(FigmaDateTest, FractionalAndWholeSeconds) {
    const auto whole = parseFigmaDate("2024-05-01T10:20:30Z");
    const auto fraction = parseFigmaDate("2024-05-01T10:20:30.123Z");
    ASSERT_TRUE(whole && fraction);
    EXPECT_DOUBLE_EQ(whole->unixSeconds(), 1714558830);
    EXPECT_NEAR(fraction->unixSeconds() - whole->unixSeconds(), 0.123, 1e-6);
    EXPECT_DOUBLE_EQ(parseFigmaDate("2024-05-01T12:20:30+02:00")->unixSeconds(), 1714558830);
    for (const char* bad :
         {"yesterday", "2024-05-01", "2024-05-01T10:20:30", "2024-13-01T10:20:30Z",
          "2024-05-01T10:20:30.Z", "2024-05-01T10:20:30Zjunk", ""})
        EXPECT_EQ(parseFigmaDate(bad), std::nullopt) << bad;
}

TEST(FigmaPublishableWorkTest, CountsWhatAPublishWouldSend) {
    FlowMeta meta;
    meta.screens.resize(2);
    ScreenComment moved = pin("m", 0.1, 0.1, "t", "c1");
    moved.x = 0.2;
    meta.screens[0].comments = {pin("a", 0.1, 0.1, "new"), pin("b", 0.1, 0.1, "same", "c2"), moved};
    meta.screens[1].comments = {pin("c", 0.5, 0.5, "unsigned", "c3", false)};
    EXPECT_EQ(FigmaPublishableWork::count(meta), 3);
    meta.figmaPendingDeletes = {{"c9", "c8"}};
    EXPECT_EQ(FigmaPublishableWork::count(meta), 5);
    EXPECT_EQ(FigmaPublishableWork::count(FlowMeta{}), 0);
}

TEST(FigmaExportTest, PackageHoldsTheManifestAndTheStills) {
    test::TempDir dir;
    FlowMeta meta;
    meta.id = "F1";
    meta.name = "Sign up/Log in";
    meta.application = "Acme";
    meta.categoryL1 = "Onboarding";
    meta.width = 1179;
    meta.height = 2556;
    meta.screens.resize(3);
    meta.screens[0].filename = "01.png";
    meta.screens[0].name = "Welcome";
    meta.screens[1].filename = "02.mov";
    meta.screens[2].filename = "03.png";
    meta.screens[2].name = "";
    test::writeFile(dir / "01.png", test::pngBytes(4, 8, "one"));
    test::writeFile(dir / "02.mov", "clip");
    test::writeFile(dir / "03.png", test::pngBytes(4, 8, "three"));
    // A blurred screen's untouched copy, its patch and the recognized text stay home.
    meta.screens[0].redactions =
        std::vector<RedactShape>{{"", RedactShape::Kind::rect, {0, 0, 1, 0.5}}};
    test::writeFile(dir / "01.orig.png", test::pngBytes(4, 8, "one, unblurred"));
    test::writeFile(dir / "01.patch-AAAAAAAA-0000-4000-8000-000000000001.png", "patch");
    test::writeFile(dir / "ocr.json", R"({"screens": {"01.png": {"mtime": 1, "text": "secret"}}})");

    EXPECT_EQ(FigmaExport::packageName(meta), "Sign up-Log in.figflow.zip");
    FlowMeta unnamed;
    EXPECT_EQ(FigmaExport::packageName(unnamed), "flow.figflow.zip");

    const auto zip = dir / "out.figflow.zip";
    test::writeFile(zip, "an older package");
    FigmaExport::exportPackage(meta, dir.path(), zip);
    test::TempDir unpacked;
    Zip::extract(zip, unpacked.path());
    EXPECT_EQ(test::readFile(unpacked / "01.png"), test::readFile(dir / "01.png"));
    EXPECT_EQ(test::readFile(unpacked / "03.png"), test::readFile(dir / "03.png"));
    EXPECT_FALSE(std::filesystem::exists(unpacked / "02.mov"));
    std::vector<std::string> packed;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(unpacked.path()))
        packed.push_back(entry.path().filename().string());
    std::sort(packed.begin(), packed.end());
    EXPECT_EQ(packed, (std::vector<std::string>{"01.png", "03.png", "flow.json"}))
        << "no untouched copy, patch or recognized text";
    const std::string manifest = test::readFile(unpacked / "flow.json");
    EXPECT_EQ(manifest, R"({
  "application": "Acme",
  "category": "Onboarding",
  "flowId": "F1",
  "height": 2556,
  "screens": [
    {
      "caption": "Welcome",
      "file": "01.png"
    },
    {
      "file": "03.png"
    }
  ],
  "title": "Sign up/Log in",
  "version": 2,
  "width": 1179
}
)");

    // Only clips: an empty list, and no category key for an empty category.
    meta.screens = {meta.screens[1]};
    meta.categoryL1 = "";
    const Json onlyClips = FigmaExport::manifest(meta);
    EXPECT_EQ(onlyClips["screens"], Json::array());
    EXPECT_FALSE(onlyClips.contains("category"));

    // A missing screen file fails before anything is written, keeping the old package.
    meta.screens[0].filename = "09.png";
    meta.screens[0].name.reset();
    const std::string before = test::readFile(zip);
    EXPECT_THROW(FigmaExport::exportPackage(meta, dir.path(), zip), LibraryError);
    EXPECT_EQ(test::readFile(zip), before);
    meta.screens[0].filename = "../01.png";
    EXPECT_THROW(FigmaExport::exportPackage(meta, dir.path(), zip), LibraryError);
    EXPECT_EQ(test::readFile(zip), before);
}

} // namespace
} // namespace varnel
