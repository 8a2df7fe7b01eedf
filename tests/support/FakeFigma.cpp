#include "support/FakeFigma.h"

#include <httplib.h>

#include <QBuffer>
#include <QColor>
#include <QImage>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <set>
#include <sstream>

namespace varnel::test {

namespace {

bool isPositiveInteger(const std::string& text) {
    return !text.empty() && text[0] != '0' &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isNumber(const FakeFigma::Json& json, const char* key) {
    return json.is_object() && json.contains(key) && json[key].is_number();
}

// A client_meta of Figma's oneOf: Vector, FrameOffset, Region or FrameOffsetRegion.
bool isClientMeta(const FakeFigma::Json& meta) {
    if (!meta.is_object())
        return false;
    if (meta.contains("node_id"))
        return meta["node_id"].is_string() && meta.contains("node_offset") &&
               isNumber(meta["node_offset"], "x") && isNumber(meta["node_offset"], "y");
    return isNumber(meta, "x") && isNumber(meta, "y");
}

} // namespace

FakeFigma::FakeFigma(std::string fileKey, std::string token)
    : fileKey_(std::move(fileKey)), token_(std::move(token)),
      server_(std::make_unique<httplib::Server>()) {
    addFile(fileKey_);
    route();
    server_->set_post_routing_handler([this](const httplib::Request&, httplib::Response& res) {
        if (!res.has_header("X-Fake-Hang"))
            return;
        // The request was carried out; its answer waits.
        std::unique_lock lock(mutex_);
        ++hanging_;
        released_.wait(lock, [this] { return !hang_ || stopping_; });
        --hanging_;
    });
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    while (!server_->is_running()) // so that stop() in the destructor always finds it running
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakeFigma::~FakeFigma() {
    release();
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    released_.notify_all();
    server_->stop();
    thread_.join();
}

std::string FakeFigma::baseURL() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

std::string FakeFigma::fileLink(const std::string& nodeId, const std::string& fileKey) const {
    std::string link =
        "https://www.figma.com/design/" + (fileKey.empty() ? fileKey_ : fileKey) + "/Flows";
    if (!nodeId.empty()) {
        std::string dashed = nodeId;
        std::replace(dashed.begin(), dashed.end(), ':', '-');
        link += "?node-id=" + dashed + "&t=abc";
    }
    return link;
}

std::string FakeFigma::newNodeId() {
    return "1:" + std::to_string(nextNode_++);
}

std::string FakeFigma::now() {
    char text[40];
    const int t = clock_++;
    std::snprintf(text, sizeof text, "2026-11-22T10:%02d:%02d.%03dZ", (t / 60) % 60, t % 60,
                  (t * 7) % 1000);
    return text;
}

FakeFigma::Json* FakeFigma::findNode(Json& node, const std::string& id) {
    if (node["id"] == id)
        return &node;
    if (node.contains("children"))
        for (auto& child : node["children"])
            if (Json* found = findNode(child, id))
                return found;
    return nullptr;
}

const FakeFigma::Json* FakeFigma::findNode(const Json& node, const std::string& id) const {
    return const_cast<FakeFigma*>(this)->findNode(const_cast<Json&>(node), id);
}

void FakeFigma::addFile(const std::string& key) {
    std::lock_guard lock(mutex_);
    files_[key].key = key;
    files_[key].document = {
        {"id", "0:0"}, {"name", "Document"}, {"type", "DOCUMENT"}, {"children", Json::array()}};
}

void FakeFigma::setDocument(const Json& document, const std::string& fileKey) {
    std::lock_guard lock(mutex_);
    file(fileKey).document = document;
}

FakeFigma::File& FakeFigma::file(const std::string& key) {
    const auto found = files_.find(key.empty() ? fileKey_ : key);
    if (found == files_.end())
        throw std::invalid_argument("no file " + key);
    return found->second;
}

FakeFigma::File* FakeFigma::fileOfNode(const std::string& nodeId) {
    for (auto& [key, f] : files_)
        if (findNode(f.document, nodeId))
            return &f;
    return nullptr;
}

FakeFigma::File* FakeFigma::fileOfComment(const std::string& commentId) {
    for (auto& [key, f] : files_)
        for (const auto& c : f.comments)
            if (c["id"] == commentId)
                return &f;
    return nullptr;
}

std::string FakeFigma::addPage(const std::string& name, const std::string& fileKey) {
    std::lock_guard lock(mutex_);
    const std::string id = "0:" + std::to_string(nextNode_++);
    file(fileKey).document["children"].push_back(
        {{"id", id}, {"name", name}, {"type", "CANVAS"}, {"children", Json::array()}});
    return id;
}

std::string FakeFigma::addBoard(const std::string& pageId, const std::string& flowId,
                                const std::optional<std::string>& importedAt, double x, double y,
                                const std::vector<Screen>& screens) {
    std::lock_guard lock(mutex_);
    File* owner = fileOfNode(pageId);
    Json* page = owner ? findNode(owner->document, pageId) : nullptr;
    if (!page)
        throw std::invalid_argument("no page " + pageId);
    double right = 0, bottom = 0;
    Json children = Json::array();
    for (const auto& s : screens) {
        const std::string frame = newNodeId();
        const Json box{{"x", x + s.x}, {"y", y + s.y}, {"width", s.width}, {"height", s.height}};
        children.push_back({{"id", frame},
                            {"name", s.file},
                            {"type", "FRAME"},
                            {"absoluteBoundingBox", box},
                            {"sharedPluginData", {{"varnel", {{"file", s.file}}}}},
                            {"children",
                             {{{"id", newNodeId()},
                               {"name", "picture"},
                               {"type", "RECTANGLE"},
                               {"absoluteBoundingBox", box}}}}});
        right = std::max(right, s.x + s.width);
        bottom = std::max(bottom, s.y + s.height);
    }
    Json tags{{"flowId", flowId}};
    if (importedAt)
        tags["importedAt"] = *importedAt;
    const std::string id = newNodeId();
    (*page)["children"].push_back(
        {{"id", id},
         {"name", "Board"},
         {"type", "SECTION"},
         {"absoluteBoundingBox", {{"x", x}, {"y", y}, {"width", right}, {"height", bottom}}},
         {"sharedPluginData", {{"varnel", tags}, {"other.plugin", {{"k", "v"}}}}},
         {"children", children}});
    return id;
}

std::string FakeFigma::screenNode(const std::string& boardId, const std::string& file) const {
    std::lock_guard lock(mutex_);
    File* owner = const_cast<FakeFigma*>(this)->fileOfNode(boardId);
    const Json* board = findNode(owner->document, boardId);
    for (const auto& child : board->at("children"))
        if (child["name"] == file)
            return child["id"];
    throw std::invalid_argument("no screen " + file);
}

void FakeFigma::removeNode(const std::string& nodeId) {
    std::lock_guard lock(mutex_);
    std::function<void(Json&)> prune = [&](Json& node) {
        if (!node.contains("children"))
            return;
        auto& list = node["children"];
        for (auto it = list.begin(); it != list.end();) {
            if ((*it)["id"] == nodeId) {
                it = list.erase(it);
            } else {
                prune(*it);
                ++it;
            }
        }
    };
    for (auto& [key, f] : files_)
        prune(f.document);
}

FakeFigma::Json FakeFigma::userJson(bool self) const {
    if (self)
        return {{"id", kUserId},
                {"handle", kUserHandle},
                {"img_url", baseURL() + "/avatars/" + kUserId + ".png"}};
    return {{"id", kForeignId},
            {"handle", kForeignHandle},
            {"img_url", baseURL() + "/avatars/" + kForeignId + ".png"}};
}

FakeFigma::Json FakeFigma::newComment(File& file, const std::string& fileKey,
                                      const std::string& message, const Json& meta, bool self,
                                      const std::string& createdAt,
                                      const std::optional<std::string>& parent) {
    const std::string id = std::to_string(nextComment_++);
    Json comment{
        {"id", id},
        {"file_key", fileKey},
        {"user", userJson(self)},
        {"created_at", createdAt.empty() ? now() : createdAt},
        {"resolved_at", nullptr},
        {"message", message},
        {"reactions", Json::array()},
        {"order_id", parent ? Json(nullptr) : Json(std::to_string(file.comments.size() + 1))}};
    // As Figma sends them: a top-level comment's parent is "", a reply has no place.
    comment["parent_id"] = parent.value_or("");
    comment["client_meta"] = parent ? Json(nullptr) : meta;
    file.comments.push_back(comment);
    return comment;
}

std::string FakeFigma::addForeignComment(const std::string& message, const std::string& nodeId,
                                         double x, double y, const std::string& createdAt) {
    std::lock_guard lock(mutex_);
    const Json meta{{"node_id", nodeId}, {"node_offset", {{"x", x}, {"y", y}}}};
    File* owner = fileOfNode(nodeId);
    if (!owner)
        throw std::invalid_argument("no node " + nodeId);
    return newComment(*owner, owner->key, message, meta, false, createdAt, std::nullopt)["id"];
}

std::string FakeFigma::addForeignCanvasComment(const std::string& message, double x, double y,
                                               const std::string& createdAt) {
    std::lock_guard lock(mutex_);
    return newComment(file(fileKey_), fileKey_, message, Json{{"x", x}, {"y", y}}, false, createdAt,
                      std::nullopt)["id"];
}

std::string FakeFigma::addForeignReply(const std::string& parentId, const std::string& message,
                                       const std::string& createdAt) {
    std::lock_guard lock(mutex_);
    File* owner = fileOfComment(parentId);
    if (!owner)
        throw std::invalid_argument("no comment " + parentId);
    return newComment(*owner, owner->key, message, Json::object(), false, createdAt,
                      parentId)["id"];
}

void FakeFigma::deleteInFigma(const std::string& commentId) {
    std::lock_guard lock(mutex_);
    for (auto& [key, f] : files_)
        std::erase_if(f.comments, [&](const Json& c) {
            return c["id"] == commentId || c.value("parent_id", "") == commentId;
        });
}

void FakeFigma::reanchor(const std::string& commentId, const std::string& nodeId, double x,
                         double y) {
    std::lock_guard lock(mutex_);
    for (auto& [key, f] : files_)
        for (auto& c : f.comments)
            if (c["id"] == commentId)
                c["client_meta"] = {{"node_id", nodeId}, {"node_offset", {{"x", x}, {"y", y}}}};
}

void FakeFigma::resolve(const std::string& commentId) {
    std::lock_guard lock(mutex_);
    for (auto& [key, f] : files_)
        for (auto& c : f.comments)
            if (c["id"] == commentId)
                c["resolved_at"] = "2026-11-22T11:00:00Z";
}

std::vector<FakeFigma::Json> FakeFigma::comments(const std::string& fileKey) const {
    std::lock_guard lock(mutex_);
    return const_cast<FakeFigma*>(this)->file(fileKey).comments;
}

std::optional<FakeFigma::Json> FakeFigma::comment(const std::string& id) const {
    std::lock_guard lock(mutex_);
    for (const auto& [key, f] : files_)
        for (const auto& c : f.comments)
            if (c["id"] == id)
                return c;
    return std::nullopt;
}

void FakeFigma::hangNext(const std::string& method, const std::string& pathSuffix) {
    std::lock_guard lock(mutex_);
    hang_ = Failure{method, pathSuffix, 0, 1};
}

bool FakeFigma::hanging() const {
    std::lock_guard lock(mutex_);
    return hanging_ > 0;
}

void FakeFigma::release() {
    {
        std::lock_guard lock(mutex_);
        hang_.reset();
    }
    released_.notify_all();
}

void FakeFigma::failNext(const std::string& method, const std::string& pathSuffix, int status,
                         int count) {
    std::lock_guard lock(mutex_);
    failures_.push_back({method, pathSuffix, status, count});
}

void FakeFigma::answerNext(const std::string& method, const std::string& pathSuffix, int status,
                           std::string body) {
    std::lock_guard lock(mutex_);
    canned_.push_back({method, pathSuffix, status, std::move(body)});
}

std::vector<FakeFigma::Recorded> FakeFigma::requests() const {
    std::lock_guard lock(mutex_);
    return log_;
}

std::vector<std::string> FakeFigma::violations() const {
    std::lock_guard lock(mutex_);
    return violations_;
}

void FakeFigma::clearLog() {
    std::lock_guard lock(mutex_);
    log_.clear();
}

void FakeFigma::violation(const std::string& what) {
    violations_.push_back(what);
}

void FakeFigma::error(httplib::Response& res, int status, const std::string& message) const {
    res.status = status;
    Json body;
    if (status == 401 || status == 400)
        body = {{"error", true}, {"status", status}, {"message", message}};
    else
        body = {{"status", status}, {"err", message}};
    res.set_content(body.dump(), "application/json");
}

// Logs the request, then answers for the token and for any failure a test asked for. The
// mutex is held by the caller.
bool FakeFigma::admit(const httplib::Request& req, httplib::Response& res, const char* method) {
    Recorded r{method, req.path, {}, {}, req.body, req.get_header_value("X-Figma-Token")};
    for (const auto& [k, v] : req.params)
        r.query.emplace(k, v);
    const auto q = req.target.find('?');
    r.rawQuery = q == std::string::npos ? "" : req.target.substr(q + 1);
    log_.push_back(r);
    if (req.has_header("Authorization") || req.params.count("token"))
        violation(req.path + ": the token travelled outside X-Figma-Token");
    if (rejectStatus_) {
        error(res, rejectStatus_, "Invalid token");
        return false;
    }
    if (r.token != token_) {
        error(res, 403, "Invalid token");
        return false;
    }
    if (hang_ && hang_->remaining > 0 && hang_->method == method &&
        req.path.ends_with(hang_->pathSuffix)) {
        --hang_->remaining;
        res.set_header("X-Fake-Hang", "1");
    }
    for (auto c = canned_.begin(); c != canned_.end(); ++c) {
        if (c->method == method && req.path.ends_with(c->pathSuffix)) {
            res.status = c->status;
            res.set_content(c->body, "application/json");
            canned_.erase(c);
            return false;
        }
    }
    for (auto& f : failures_) {
        if (f.remaining > 0 && f.method == method && req.path.ends_with(f.pathSuffix)) {
            --f.remaining;
            error(res, f.status, f.status == 429 ? "Rate limit exceeded" : "Failure");
            return false;
        }
    }
    return true;
}

bool FakeFigma::checkQuery(const httplib::Request& req, const std::vector<std::string>& allowed,
                           const std::vector<std::string>& required) {
    bool ok = true;
    for (const auto& [k, v] : req.params) {
        if (std::find(allowed.begin(), allowed.end(), k) == allowed.end()) {
            violation(req.path + ": unknown query item " + k);
            ok = false;
        }
        if (req.params.count(k) > 1) {
            violation(req.path + ": query item " + k + " repeated");
            ok = false;
        }
    }
    for (const auto& k : required)
        if (!req.has_param(k)) {
            violation(req.path + ": missing query item " + k);
            ok = false;
        }
    if (req.has_param("depth") && !isPositiveInteger(req.get_param_value("depth"))) {
        violation(req.path + ": depth is not a positive integer");
        ok = false;
    }
    return ok;
}

FakeFigma::Json FakeFigma::nodeJson(const Json& node, int depth, bool pluginData) const {
    Json out = node;
    out["visible"] = true;
    if (!pluginData)
        out.erase("sharedPluginData");
    if (node.contains("children")) {
        if (depth == 0) {
            out.erase("children");
        } else {
            out["children"] = Json::array();
            for (const auto& child : node["children"])
                out["children"].push_back(nodeJson(child, depth - 1, pluginData));
        }
    }
    return out;
}

void FakeFigma::route() {
    auto& s = *server_;
    const auto fileEnvelope = [this](Json document) {
        return Json{{"name", "Flows"},
                    {"role", "owner"},
                    {"lastModified", "2026-11-22T09:00:00Z"},
                    {"editorType", "figma"},
                    {"thumbnailUrl", baseURL() + "/thumb.png"},
                    {"version", "42"},
                    {"document", std::move(document)},
                    {"components", Json::object()},
                    {"componentSets", Json::object()},
                    {"schemaVersion", 0},
                    {"styles", Json::object()}};
    };
    // The file a request names; none, and a 404 answer, for a key no file has.
    const auto fileFor = [this](const httplib::Request& req, httplib::Response& res) -> File* {
        const auto found = files_.find(req.matches[1]);
        if (found != files_.end())
            return &found->second;
        error(res, 404, "Not found");
        return nullptr;
    };
    const auto badRequest = [this](httplib::Response& res) { error(res, 400, "Bad request"); };

    s.Get("/v1/me", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::lock_guard lock(mutex_);
        if (!admit(req, res, "GET"))
            return;
        if (!checkQuery(req, {}, {}))
            return badRequest(res);
        Json me = userJson(true);
        me["email"] = "mina@example.com";
        res.set_content(me.dump(), "application/json");
    });

    s.Get(R"(/v1/files/([^/]+))", [=, this](const httplib::Request& req, httplib::Response& res) {
        std::lock_guard lock(mutex_);
        File* f = admit(req, res, "GET") ? fileFor(req, res) : nullptr;
        if (!f)
            return;
        if (!checkQuery(req, {"depth", "ids", "plugin_data"}, {"plugin_data"}))
            return badRequest(res);
        if (req.has_param("depth") == req.has_param("ids")) {
            violation(req.path + ": the file asked for without a bound (depth or ids)");
            return badRequest(res);
        }
        const bool plugin = req.get_param_value("plugin_data") == "shared";
        if (req.has_param("depth")) {
            const int depth = std::stoi(req.get_param_value("depth"));
            res.set_content(fileEnvelope(nodeJson(f->document, depth, plugin)).dump(),
                            "application/json");
            return;
        }
        std::set<std::string> ids;
        std::stringstream list(req.get_param_value("ids"));
        for (std::string id; std::getline(list, id, ',');)
            ids.insert(id);
        // The chains down to each asked node with its whole subtree; pages always.
        std::function<std::optional<Json>(const Json&, int)> prune =
            [&](const Json& node, int level) -> std::optional<Json> {
            if (ids.contains(node["id"].get<std::string>()))
                return nodeJson(node, 1000, plugin);
            Json out = nodeJson(node, 0, plugin);
            Json kept = Json::array();
            if (node.contains("children"))
                for (const auto& child : node["children"])
                    if (auto pruned = prune(child, level + 1))
                        kept.push_back(*pruned);
            if (kept.empty() && level > 1)
                return std::nullopt;
            out["children"] = kept;
            return out;
        };
        res.set_content(fileEnvelope(*prune(f->document, 0)).dump(), "application/json");
    });

    s.Get(R"(/v1/files/([^/]+)/nodes)",
          [=, this](const httplib::Request& req, httplib::Response& res) {
              std::lock_guard lock(mutex_);
              File* f = admit(req, res, "GET") ? fileFor(req, res) : nullptr;
              if (!f)
                  return;
              if (!checkQuery(req, {"ids", "plugin_data", "depth"}, {"ids"}))
                  return badRequest(res);
              const bool plugin = req.get_param_value("plugin_data") == "shared";
              Json nodes = Json::object();
              std::stringstream list(req.get_param_value("ids"));
              for (std::string id; std::getline(list, id, ',');) {
                  const Json* node = findNode(f->document, id);
                  nodes[id] = node ? Json{{"document", nodeJson(*node, 1000, plugin)},
                                          {"components", Json::object()},
                                          {"componentSets", Json::object()},
                                          {"schemaVersion", 0},
                                          {"styles", Json::object()}}
                                   : Json(nullptr);
              }
              Json body = fileEnvelope(Json::object());
              body.erase("document");
              body["nodes"] = nodes;
              res.set_content(body.dump(), "application/json");
          });

    s.Get(R"(/v1/files/([^/]+)/comments)",
          [=, this](const httplib::Request& req, httplib::Response& res) {
              std::lock_guard lock(mutex_);
              File* f = admit(req, res, "GET") ? fileFor(req, res) : nullptr;
              if (!f)
                  return;
              if (!checkQuery(req, {"as_md"}, {}))
                  return badRequest(res);
              res.set_content(Json{{"comments", f->comments}}.dump(), "application/json");
          });

    s.Post(R"(/v1/files/([^/]+)/comments)", [=, this](const httplib::Request& req,
                                                      httplib::Response& res) {
        std::lock_guard lock(mutex_);
        File* f = admit(req, res, "POST") ? fileFor(req, res) : nullptr;
        if (!f)
            return;
        if (!checkQuery(req, {}, {}))
            return badRequest(res);
        if (req.get_header_value("Content-Type") != "application/json")
            violation("POST comments: Content-Type is not application/json");
        Json body = Json::parse(req.body, nullptr, false);
        if (!body.is_object() || !body.contains("message") || !body["message"].is_string()) {
            violation("POST comments: the body is not a comment");
            return badRequest(res);
        }
        if (req.body.rfind("{\"message\":", 0) != 0)
            violation("POST comments: \"message\" is not the body's first key");
        for (const auto& [k, v] : body.items())
            if (k != "message" && k != "comment_id" && k != "client_meta")
                violation("POST comments: unknown key " + k);
        if (body.contains("comment_id") == body.contains("client_meta"))
            violation("POST comments: neither a reply nor a placed comment");
        if (body.contains("comment_id")) {
            const std::string parent = body["comment_id"].is_string() ? body["comment_id"] : "";
            const auto root = std::find_if(f->comments.begin(), f->comments.end(),
                                           [&](const Json& c) { return c["id"] == parent; });
            if (root == f->comments.end())
                return error(res, 404, "Not found");
            if (!root->value("parent_id", "").empty())
                return badRequest(res);
            res.set_content(newComment(*f, f->key, body["message"], {}, true, {}, parent).dump(),
                            "application/json");
            return;
        }
        if (!isClientMeta(body["client_meta"])) {
            violation("POST comments: client_meta has none of Figma's shapes");
            return badRequest(res);
        }
        if (body["client_meta"].contains("node_id") &&
            !findNode(f->document, body["client_meta"]["node_id"]))
            return badRequest(res);
        res.set_content(
            newComment(*f, f->key, body["message"], body["client_meta"], true, {}, std::nullopt)
                .dump(),
            "application/json");
    });

    s.Delete(R"(/v1/files/([^/]+)/comments/([^/]+))", [=, this](const httplib::Request& req,
                                                                httplib::Response& res) {
        std::lock_guard lock(mutex_);
        File* f = admit(req, res, "DELETE") ? fileFor(req, res) : nullptr;
        if (!f)
            return;
        if (!checkQuery(req, {}, {}))
            return badRequest(res);
        const std::string id = req.matches[2];
        const auto found = std::find_if(f->comments.begin(), f->comments.end(),
                                        [&](const Json& c) { return c["id"] == id; });
        if (found == f->comments.end())
            return error(res, 404, "Not found");
        if ((*found)["user"]["id"] != kUserId)
            return error(res, 403, "Only the author may delete a comment");
        std::erase_if(f->comments, [&](const Json& c) {
            return c["id"] == id || c.value("parent_id", "") == id;
        });
        res.set_content(Json{{"status", 200}, {"error", false}}.dump(), "application/json");
    });

    s.Get(R"(/avatars/(\d+)\.png)", [](const httplib::Request& req, httplib::Response& res) {
        // A 2×2 PNG whose colour tells the two users apart.
        QImage image(2, 2, QImage::Format_RGB32);
        image.fill(req.matches[1] == kUserId ? QColor(13, 153, 255) : QColor(240, 80, 40));
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "PNG");
        res.set_content(bytes.toStdString(), "image/png");
    });

    // An avatar far larger than any avatar: noise, which no PNG compression shrinks.
    s.Get("/avatars/huge.png", [](const httplib::Request&, httplib::Response& res) {
        QImage image(1200, 1200, QImage::Format_RGB32);
        quint32 state = 1;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                image.setPixel(x, y, (state = state * 1664525u + 1013904223u) >> 8);
        QByteArray bytes;
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "PNG");
        res.set_content(bytes.toStdString(), "image/png");
    });

    // A download host that sends the client elsewhere: to its own files, or off this machine in
    // clear.
    s.Get(R"(/redirect/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
        res.status = 302;
        res.set_header("Location", baseURL() + "/downloads/" + req.matches[1].str());
    });
    s.Get(R"(/redirect-away/(.+))", [](const httplib::Request& req, httplib::Response& res) {
        res.status = 302;
        res.set_header("Location", "http://example.com/" + req.matches[1].str());
    });

    // Where the redirects lead.
    s.Get(R"(/downloads/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
        if (req.has_header("X-Figma-Token") || req.has_header("Authorization")) {
            std::lock_guard lock(mutex_);
            violation(req.path + ": a download carried credentials");
        }
        if (req.matches[1] == kRedirectTarget) {
            res.set_content(kRedirectBody, "application/json");
            return;
        }
        res.status = 404;
        res.set_content("missing", "text/plain");
    });

    s.set_error_handler([this](const httplib::Request& req, httplib::Response& res) {
        if (res.status == 404 && res.body.empty()) {
            std::lock_guard lock(mutex_);
            violation(req.method + " " + req.path + ": no such endpoint");
            error(res, 404, "Not found");
        }
    });
}

} // namespace varnel::test
