#include "text/LibreTranslateEngine.h"

#include "figma/HttpClient.h"

#include <nlohmann/json.hpp>

namespace varnel {

using Json = nlohmann::json;

namespace {

std::string serverError(const Http::Response& response) {
    try {
        const Json body = Json::parse(response.body);
        if (body.is_object() && body.contains("error") && body["error"].is_string())
            return body["error"].get<std::string>();
    } catch (const Json::exception&) {
    }
    return "HTTP " + std::to_string(response.status);
}

} // namespace

LibreTranslateEngine::LibreTranslateEngine(std::string baseURL, std::string apiKey,
                                           long timeoutSeconds)
    : baseURL_(std::move(baseURL)), apiKey_(std::move(apiKey)), timeoutSeconds_(timeoutSeconds) {
    while (!baseURL_.empty() && baseURL_.back() == '/')
        baseURL_.pop_back();
}

std::string LibreTranslateEngine::post(const std::string& path, const std::string& body) const {
    Http::Request request;
    request.method = "POST";
    request.url = baseURL_ + path;
    request.headers = {{"Content-Type", "application/json"}};
    request.body = body;
    request.timeoutSeconds = timeoutSeconds_;
    request.maxBytes = 16u << 20;
    Http::Response response;
    try {
        response = Http::perform(request);
    } catch (const std::invalid_argument&) {
        throw TranslationError("The translation server's address must be https (or http on this "
                               "computer): " +
                               baseURL_);
    } catch (const Http::TransportError& error) {
        throw TranslationError("The translation server at " + baseURL_ +
                               " did not answer: " + error.what());
    }
    if (response.status != 200)
        throw TranslationError("The translation server refused: " + serverError(response));
    return response.body;
}

bool LibreTranslateEngine::translates(const std::string& from, const std::string& to) const {
    std::lock_guard lock(mutex_);
    if (!asked_) {
        asked_ = true;
        try {
            Http::Request request;
            request.url = baseURL_ + "/languages";
            request.timeoutSeconds = timeoutSeconds_;
            const auto response = Http::perform(request);
            for (const auto& language : Json::parse(response.body))
                for (const auto& target : language.value("targets", Json::array()))
                    targets_[language.value("code", "")].insert(target.get<std::string>());
        } catch (const std::exception&) {
            targets_.clear();
        }
    }
    if (targets_.empty())
        return true;
    const auto found = targets_.find(from);
    return found != targets_.end() && found->second.contains(to);
}

std::optional<std::string> LibreTranslateEngine::detect(const std::string& line) const {
    Json body{{"q", line}};
    if (!apiKey_.empty())
        body["api_key"] = apiKey_;
    try {
        const Json answer = Json::parse(post("/detect", body.dump()));
        if (answer.is_array() && !answer.empty() && answer[0].value("confidence", 0.0) >= 50)
            return answer[0].value("language", "");
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::vector<std::string> LibreTranslateEngine::translate(const std::vector<std::string>& lines,
                                                         const std::string& from,
                                                         const std::string& to) const {
    Json body{{"q", lines}, {"source", from}, {"target", to}, {"format", "text"}};
    if (!apiKey_.empty())
        body["api_key"] = apiKey_;
    Json answer;
    try {
        answer = Json::parse(post("/translate", body.dump()));
    } catch (const Json::exception&) {
        throw TranslationError("The translation server answered in a way Varnel does not "
                               "understand.");
    }
    const auto texts = answer.is_object() ? answer.find("translatedText") : answer.end();
    if (!answer.is_object() || texts == answer.end() || !texts->is_array() ||
        texts->size() != lines.size())
        throw TranslationError("The translation server answered in a way Varnel does not "
                               "understand.");
    std::vector<std::string> out;
    for (const auto& text : *texts) {
        if (!text.is_string())
            throw TranslationError("The translation server answered in a way Varnel does not "
                                   "understand.");
        out.push_back(text.get<std::string>());
    }
    return out;
}

} // namespace varnel
