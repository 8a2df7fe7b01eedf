#include "figma/FigmaAPI.h"

#include "figma/FigmaAPIError.h"
#include "figma/HttpClient.h"

#include <cstdlib>
#include <stdexcept>

namespace varnel {

namespace {

std::string filePath(const std::string& key) {
    return "/v1/files/" + Http::percentEncode(key);
}

Json parse(const std::string& body) {
    return Json::parse(body);
}

// The ids of a request are sent as given: commas and colons stay readable, as Figma writes them.
constexpr const char* kIdCharacters = ",:";

} // namespace

FigmaAPI::FigmaAPI(std::string token, std::string baseURL)
    : token_(std::move(token)), baseURL_(std::move(baseURL)) {
    while (!baseURL_.empty() && baseURL_.back() == '/')
        baseURL_.pop_back();
    if (!Http::isAllowedURL(baseURL_))
        throw std::invalid_argument("The Figma API address must use https");
}

std::string FigmaAPI::configuredBaseURL() {
    const char* value = std::getenv(kBaseURLVariable);
    if (!value || !*value)
        return kBaseURL;
    if (!Http::isAllowedURL(value))
        throw std::invalid_argument(std::string(kBaseURLVariable) +
                                    " must be an https address, or http on this machine");
    return value;
}

std::string FigmaAPI::url(const std::string& path, const Query& query) const {
    std::string out = baseURL_ + path;
    char separator = '?';
    for (const auto& [name, value] : query) {
        out += separator;
        out += Http::percentEncode(name) + "=" + Http::percentEncode(value, kIdCharacters);
        separator = '&';
    }
    return out;
}

std::string FigmaAPI::run(const std::string& method, const std::string& url,
                          const std::string* jsonBody) const {
    Http::Request request;
    request.method = method;
    request.url = url;
    request.timeoutSeconds = kTimeoutSeconds;
    request.headers.emplace_back("X-Figma-Token", token_);
    request.cancel = stop_;
    if (stop_ && *stop_)
        throw Http::Cancelled();
    if (jsonBody) {
        request.headers.emplace_back("Content-Type", "application/json");
        request.body = *jsonBody;
    }
    const Http::Response response = Http::perform(request);
    if (response.status < 100)
        throw FigmaAPIError::invalidResponse();
    if (response.status < 200 || response.status > 299)
        throw FigmaAPIError(response.status, response.body);
    return response.body;
}

std::string FigmaAPI::postJson(const std::string& key, const OrderedJson& body) const {
    const std::string encoded = body.dump();
    const Json answer = parse(run("POST", url(filePath(key) + "/comments"), &encoded));
    if (!answer.is_object() || !answer.contains("id") || !answer["id"].is_string())
        throw CodingError("Figma's answer to a new comment has no id");
    return answer["id"].get<std::string>();
}

FigmaAccount FigmaAPI::me() {
    return FigmaAccount::fromJson(parse(run("GET", url("/v1/me"))));
}

FigmaNode FigmaAPI::file(const std::string& key, int depth) {
    const Json answer = parse(run(
        "GET", url(filePath(key), {{"depth", std::to_string(depth)}, {"plugin_data", "shared"}})));
    return FigmaNode::fromJson(answer.at("document"));
}

FigmaNode FigmaAPI::file(const std::string& key, const std::string& ids) {
    const Json answer =
        parse(run("GET", url(filePath(key), {{"ids", ids}, {"plugin_data", "shared"}})));
    return FigmaNode::fromJson(answer.at("document"));
}

std::optional<FigmaNode> FigmaAPI::nodes(const std::string& key, const std::string& id) {
    const Json answer =
        parse(run("GET", url(filePath(key) + "/nodes", {{"ids", id}, {"plugin_data", "shared"}})));
    const Json& nodes = answer.at("nodes");
    const auto entry = nodes.find(id);
    if (entry == nodes.end() || entry->is_null())
        return std::nullopt;
    const auto document = entry->find("document");
    if (document == entry->end() || document->is_null())
        return std::nullopt;
    return FigmaNode::fromJson(*document);
}

std::vector<FigmaCommentRef> FigmaAPI::comments(const std::string& key) {
    const Json answer = parse(run("GET", url(filePath(key) + "/comments")));
    const Json& list = answer.at("comments");
    if (!list.is_array())
        throw CodingError("Figma's comments are not a list");
    std::vector<FigmaCommentRef> refs;
    refs.reserve(list.size());
    for (const auto& entry : list)
        refs.push_back(FigmaCommentRef::fromJson(entry));
    return refs;
}

std::string FigmaAPI::postComment(const std::string& key, const std::string& message,
                                  const FigmaClientMeta& meta) {
    OrderedJson body = OrderedJson::object();
    body["message"] = message;
    body["client_meta"] = OrderedJson::parse(meta.toJson().dump());
    return postJson(key, body);
}

std::string FigmaAPI::postReply(const std::string& key, const std::string& message,
                                const std::string& commentId) {
    OrderedJson body = OrderedJson::object();
    body["message"] = message;
    body["comment_id"] = commentId;
    return postJson(key, body);
}

void FigmaAPI::deleteComment(const std::string& key, const std::string& commentId) {
    try {
        run("DELETE", url(filePath(key) + "/comments/" + Http::percentEncode(commentId)));
    } catch (const FigmaAPIError& error) {
        if (error.kind() == FigmaAPIError::Kind::status && error.status() == 404)
            return; // already gone: the state we wanted
        throw;
    }
}

} // namespace varnel
