#pragma once

#include <nlohmann/json.hpp>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace varnel::test {

// A Figma REST API on 127.0.0.1 for one file. It keeps the file's nodes and comments in memory,
// answers with the shapes of Figma's OpenAPI description (errors included), and records every
// request, with what was wrong with it, so that tests can check what the client sent.
class FakeFigma {
public:
    using Json = nlohmann::json;

    struct Screen {
        std::string file;
        double x, y, width, height;
    };
    struct Recorded {
        std::string method;
        std::string path;
        std::multimap<std::string, std::string> query;
        std::string rawQuery;
        std::string body;
        std::string token;
    };

    FakeFigma(std::string fileKey, std::string token);
    ~FakeFigma();
    FakeFigma(const FakeFigma&) = delete;
    FakeFigma& operator=(const FakeFigma&) = delete;

    std::string baseURL() const;
    const std::string& fileKey() const { return fileKey_; }
    // A file link as the user copies it from Figma; of the first file unless another is named.
    std::string fileLink(const std::string& nodeId = {}, const std::string& fileKey = {}) const;
    // Another file, empty, as a duplicate or a second import makes one. Node and comment ids are
    // unique across files.
    void addFile(const std::string& key);
    // Replaces a file's document with one in the shape GET /v1/files/:key?plugin_data=shared
    // returns, as a plugin left it.
    void setDocument(const Json& document, const std::string& fileKey = {});

    // A file: one page per call of addPage, boards on pages. Returns node ids.
    std::string addPage(const std::string& name, const std::string& fileKey = {});
    // A board as the import plugin lays it out: a root tagged with the flow, one frame per
    // screen tagged with its file, each frame holding a picture node.
    std::string addBoard(const std::string& pageId, const std::string& flowId,
                         const std::optional<std::string>& importedAt, double x, double y,
                         const std::vector<Screen>& screens);
    // The id of the frame that holds `file` on the board.
    std::string screenNode(const std::string& boardId, const std::string& file) const;
    void removeNode(const std::string& nodeId);

    // Comments made in Figma by someone else.
    std::string addForeignComment(const std::string& message, const std::string& nodeId, double x,
                                  double y, const std::string& createdAt);
    // One placed at a point of the canvas (Figma's Vector client_meta), in the first file.
    std::string addForeignCanvasComment(const std::string& message, double x, double y,
                                        const std::string& createdAt);
    std::string addForeignReply(const std::string& parentId, const std::string& message,
                                const std::string& createdAt);
    void deleteInFigma(const std::string& commentId);
    void reanchor(const std::string& commentId, const std::string& nodeId, double x, double y);
    void resolve(const std::string& commentId);
    std::vector<Json> comments(const std::string& fileKey = {}) const;
    std::optional<Json> comment(const std::string& id) const;

    // The next `count` requests whose method and path match answer with `status` instead.
    void failNext(const std::string& method, const std::string& pathSuffix, int status,
                  int count = 1);
    // The next request whose method and path match is answered with `status` and `body` as
    // given, for answers Figma should never send.
    void answerNext(const std::string& method, const std::string& pathSuffix, int status,
                    std::string body);
    // Every request is refused as a bad token, with 401 or 403.
    void rejectToken(int status) {
        std::lock_guard lock(mutex_);
        rejectStatus_ = status;
    }

    // The next request whose method and path match is carried out, then its answer is held back
    // until release() (or the server stops), as when a connection stalls after the server acted.
    void hangNext(const std::string& method, const std::string& pathSuffix);
    // Whether a request is being held back now.
    bool hanging() const;
    void release();

    std::vector<Recorded> requests() const;
    // Requests that broke the API's rules; empty when the client behaved.
    std::vector<std::string> violations() const;
    void clearLog();

    // What /redirect/<kRedirectTarget> leads to, for the HTTP client's redirect rules.
    static constexpr const char* kRedirectTarget = "feed.json";
    static constexpr const char* kRedirectBody = "{\"redirected\": true}";
    static constexpr const char* kUserId = "1001";
    static constexpr const char* kUserHandle = "Mina Kerr";
    static constexpr const char* kForeignId = "2002";
    static constexpr const char* kForeignHandle = "Ola Brandt";

private:
    struct Failure {
        std::string method;
        std::string pathSuffix;
        int status;
        int remaining;
    };

    struct Canned {
        std::string method;
        std::string pathSuffix;
        int status;
        std::string body;
    };

    struct File {
        std::string key;
        Json document;
        std::vector<Json> comments;
    };

    void route();
    File& file(const std::string& key);
    File* fileOfNode(const std::string& nodeId);
    File* fileOfComment(const std::string& commentId);
    bool admit(const httplib::Request& req, httplib::Response& res, const char* method);
    void violation(const std::string& what);
    void error(httplib::Response& res, int status, const std::string& message) const;
    bool checkQuery(const httplib::Request& req, const std::vector<std::string>& allowed,
                    const std::vector<std::string>& required);
    Json nodeJson(const Json& node, int depth, bool pluginData) const;
    Json userJson(bool self) const;
    Json newComment(File& file, const std::string& fileKey, const std::string& message,
                    const Json& meta, bool self, const std::string& createdAt,
                    const std::optional<std::string>& parent);
    std::string newNodeId();
    Json* findNode(Json& node, const std::string& id);
    const Json* findNode(const Json& node, const std::string& id) const;
    std::string now();

    std::string fileKey_;
    std::string token_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;

    mutable std::mutex mutex_;
    std::map<std::string, File> files_;
    std::condition_variable released_;
    std::optional<Failure> hang_;
    int hanging_ = 0;
    bool stopping_ = false;
    std::vector<Recorded> log_;
    std::vector<std::string> violations_;
    std::vector<Failure> failures_;
    std::vector<Canned> canned_;
    int rejectStatus_ = 0;
    int nextNode_ = 10;
    int nextComment_ = 500;
    int clock_ = 0;
};

} // namespace varnel::test
