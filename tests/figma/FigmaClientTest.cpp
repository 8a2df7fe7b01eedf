// The REST client against a Figma on 127.0.0.1: what it sends and how it reads every answer.
#include "figma/FigmaAPI.h"
#include "figma/FigmaAPIError.h"
#include "figma/FigmaSyncError.h"
#include "figma/HttpClient.h"
#include "support/FakeFigma.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

namespace varnel {
namespace {

using test::FakeFigma;

class FigmaClientTest : public ::testing::Test {
protected:
    FigmaClientTest() : figma("KEY1", "tok-123"), api("tok-123", figma.baseURL()) {
        page = figma.addPage("Flows");
        board = figma.addBoard(page, "FLOW", "2026-01-01T00:00:00Z", 100, 50,
                               {{"01.png", 0, 0, 390, 844}, {"02.png", 440, 0, 390, 844}});
    }
    ~FigmaClientTest() override { EXPECT_EQ(figma.violations(), std::vector<std::string>{}); }

    FigmaSyncError::Kind failure(const std::function<void()>& call) {
        try {
            call();
        } catch (...) {
            return FigmaSyncError::from(std::current_exception()).kind;
        }
        ADD_FAILURE() << "the call succeeded";
        return FigmaSyncError::Kind::badFileURL;
    }

    FakeFigma figma;
    FigmaAPI api;
    std::string page, board;
};

TEST_F(FigmaClientTest, ReadsTheAccountAndTheFile) {
    const FigmaAccount me = api.me();
    EXPECT_EQ(me.id, FakeFigma::kUserId);
    EXPECT_EQ(me.handle, FakeFigma::kUserHandle);
    EXPECT_EQ(me.email, "mina@example.com");
    EXPECT_EQ(me.imgUrl, figma.baseURL() + "/avatars/1001.png");

    const FigmaNode doc = api.file("KEY1", 2);
    EXPECT_EQ(doc.type, "DOCUMENT");
    ASSERT_TRUE(doc.children && doc.children->size() == 1);
    const FigmaNode& root = (*doc.children)[0].children->at(0);
    EXPECT_EQ(root.id, board);
    EXPECT_EQ(*root.pluginValue("varnel", "flowId"), "FLOW");
    EXPECT_EQ(root.absoluteBoundingBox, (FigmaBox{100, 50, 830, 844}));
    EXPECT_FALSE(root.children); // below the asked depth

    const auto sub = api.nodes("KEY1", board);
    ASSERT_TRUE(sub);
    ASSERT_EQ(sub->children->size(), 2u);
    EXPECT_EQ(*(*sub->children)[1].pluginValue("varnel", "file"), "02.png");
    EXPECT_EQ(api.nodes("KEY1", "77:77"), std::nullopt); // Figma's null entry

    const FigmaNode pruned = api.file("KEY1", board);
    EXPECT_EQ((*pruned.children)[0].children->at(0).children->size(), 2u);

    const auto log = figma.requests();
    ASSERT_EQ(log.size(), 5u);
    EXPECT_EQ(log[0].path, "/v1/me");
    EXPECT_EQ(log[0].rawQuery, "");
    EXPECT_EQ(log[1].path, "/v1/files/KEY1");
    EXPECT_EQ(log[1].rawQuery, "depth=2&plugin_data=shared");
    EXPECT_EQ(log[2].path, "/v1/files/KEY1/nodes");
    EXPECT_EQ(log[2].rawQuery, "ids=" + board + "&plugin_data=shared");
    EXPECT_EQ(log[4].rawQuery, "ids=" + board + "&plugin_data=shared");
    for (const auto& r : log)
        EXPECT_EQ(r.token, "tok-123");
}

TEST_F(FigmaClientTest, PostsRepliesAndDeletesComments) {
    const FigmaClientMeta meta{FigmaClientMeta::FrameOffset{board, 195.5, 422}};
    const std::string id = api.postComment("KEY1", "Tap target too small", meta);
    const std::string reply = api.postReply("KEY1", "Agreed", id);
    const auto log = figma.requests();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].method, "POST");
    EXPECT_EQ(log[0].path, "/v1/files/KEY1/comments");
    EXPECT_EQ(log[0].body, R"({"message":"Tap target too small","client_meta":{"node_id":")" +
                               board + R"(","node_offset":{"x":195.5,"y":422.0}}})");
    EXPECT_EQ(log[1].body, R"({"message":"Agreed","comment_id":")" + id + R"("})");

    const auto refs = api.comments("KEY1");
    ASSERT_EQ(refs.size(), 2u);
    EXPECT_EQ(refs[0].id, id);
    EXPECT_EQ(refs[0].nodeId, board);
    EXPECT_EQ(refs[0].offsetX, 195.5);
    EXPECT_EQ(refs[0].offsetY, 422);
    EXPECT_EQ(refs[0].message, "Tap target too small");
    EXPECT_EQ(refs[0].authorHandle, FakeFigma::kUserHandle);
    EXPECT_EQ(refs[0].authorId, FakeFigma::kUserId);
    EXPECT_TRUE(refs[0].createdAt);
    EXPECT_FALSE(refs[0].resolvedAt);
    EXPECT_EQ(refs[1].parentId, id);
    EXPECT_EQ(refs[1].nodeId, std::nullopt);

    api.deleteComment("KEY1", id);
    EXPECT_TRUE(figma.comments().empty()); // the reply went with its thread
    // Deleting what Figma no longer has is what we wanted.
    EXPECT_NO_THROW(api.deleteComment("KEY1", id));
    // Someone else's comment can't be deleted.
    const std::string foreign = figma.addForeignComment("Theirs", board, 1, 1, "");
    EXPECT_EQ(failure([&] { api.deleteComment("KEY1", foreign); }),
              FigmaSyncError::Kind::tokenRejected);
    EXPECT_EQ(figma.requests().back().method, "DELETE");
    EXPECT_EQ(figma.requests().back().path, "/v1/files/KEY1/comments/" + foreign);
}

TEST_F(FigmaClientTest, ErrorsKeepTheirStatusAndBody) {
    try {
        api.comments("OTHER");
        FAIL() << "no error";
    } catch (const FigmaAPIError& e) {
        EXPECT_EQ(e.kind(), FigmaAPIError::Kind::status);
        EXPECT_EQ(e.status(), 404);
        ASSERT_TRUE(e.body());
        EXPECT_NE(e.body()->find("\"err\""), std::string::npos);
    }
    using K = FigmaSyncError::Kind;
    EXPECT_EQ(failure([&] { api.comments("OTHER"); }), K::fileNotFound);
    figma.failNext("GET", "/comments", 429);
    EXPECT_EQ(failure([&] { api.comments("KEY1"); }), K::network);
    figma.failNext("POST", "/comments", 500);
    EXPECT_EQ(failure([&] { api.postReply("KEY1", "x", "1"); }), K::network);
    figma.failNext("GET", "/v1/me", 403);
    EXPECT_EQ(failure([&] { api.me(); }), K::tokenRejected);
    figma.rejectToken(401);
    EXPECT_EQ(failure([&] { api.file("KEY1", 2); }), K::tokenRejected);
    figma.rejectToken(0);
    EXPECT_NO_THROW(api.file("KEY1", 2));

    FigmaAPI wrongToken("nope", figma.baseURL());
    EXPECT_EQ(failure([&] { wrongToken.me(); }), K::tokenRejected);
}

TEST_F(FigmaClientTest, TransportFailuresAndRefusedAddresses) {
    // Port 1 is privileged and has nothing listening.
    FigmaAPI nobody("t", "http://127.0.0.1:1");
    EXPECT_THROW(nobody.me(), Http::TransportError);
    EXPECT_EQ(failure([&] { nobody.me(); }), FigmaSyncError::Kind::network);

    // The token never goes to another host in clear, nor through another scheme.
    EXPECT_THROW(FigmaAPI("t", "http://api.figma.com"), std::invalid_argument);
    EXPECT_THROW(FigmaAPI("t", "ftp://127.0.0.1"), std::invalid_argument);
    EXPECT_THROW(FigmaAPI("t", "http://10.0.0.1:8080"), std::invalid_argument);
    EXPECT_NO_THROW(FigmaAPI("t"));
    EXPECT_TRUE(Http::isAllowedURL("https://api.figma.com"));
    EXPECT_FALSE(Http::isAllowedURL("http://localhost.example.com"));
}

TEST_F(FigmaClientTest, CommentsWithoutPlacesOrDates) {
    figma.addForeignComment("somewhere", board, 3, 4, "2024-05-01T10:20:30Z");
    figma.addForeignComment("sometime", board, 3, 4, "not a date");
    const auto refs = api.comments("KEY1");
    ASSERT_EQ(refs.size(), 2u);
    EXPECT_EQ(refs[0].createdAt, parseFigmaDate("2024-05-01T10:20:30Z"));
    EXPECT_EQ(refs[1].createdAt, std::nullopt); // kept, with no date
    EXPECT_EQ(refs[1].authorHandle, FakeFigma::kForeignHandle);
}

// Redirects are followed only when a request asks, and only to https.
TEST_F(FigmaClientTest, RedirectsAreFollowedOnlyWhenAskedAndNeverToPlainHttp) {
    Http::Request request;
    request.url = figma.baseURL() + "/redirect/" + FakeFigma::kRedirectTarget;
    EXPECT_EQ(Http::perform(request).status, 302) << "not followed unless asked";
    request.maxRedirects = 5;
    const auto followed = Http::perform(request);
    EXPECT_EQ(followed.status, 200);
    EXPECT_EQ(followed.body, FakeFigma::kRedirectBody);
    request.url = figma.baseURL() + "/redirect-away/x.zip";
    EXPECT_THROW(Http::perform(request), Http::TransportError);
    EXPECT_EQ(figma.violations(), std::vector<std::string>{});
}

TEST_F(FigmaClientTest, CommentShapesFigmaSends) {
    // A top-level comment with "parent_id": "", a reply with "client_meta": null, and a comment
    // placed at a point of the canvas (a Vector).
    const std::string root = figma.addForeignComment("Root", board, 5, 6, "2026-01-01T00:00:00Z");
    figma.addForeignReply(root, "Reply", "2026-01-01T00:00:01Z");
    figma.addForeignCanvasComment("On the canvas", 120.5, 60.25, "2026-01-01T00:00:02Z");
    const auto raw = figma.comments();
    ASSERT_EQ(raw[0]["parent_id"], "");
    ASSERT_TRUE(raw[1]["client_meta"].is_null());

    const auto refs = api.comments("KEY1");
    ASSERT_EQ(refs.size(), 3u);
    EXPECT_EQ(refs[0].parentId, std::nullopt);
    EXPECT_EQ(refs[0].nodeId, board);
    EXPECT_EQ(refs[1].parentId, root);
    EXPECT_EQ(refs[1].nodeId, std::nullopt);
    EXPECT_EQ(refs[1].offsetX, std::nullopt);
    EXPECT_EQ(refs[2].nodeId, std::nullopt);
    EXPECT_EQ(refs[2].offsetX, 120.5);
    EXPECT_EQ(refs[2].offsetY, 60.25);
}

} // namespace
} // namespace varnel
