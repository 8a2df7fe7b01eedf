#pragma once

#include "figma/FigmaCommentAPI.h"

#include <string>
#include <utility>
#include <vector>

namespace varnel {

// Figma's REST API over HTTPS, built afresh from the stored token for each run. The token goes
// only into the "X-Figma-Token" header; it is never logged and never part of an error.
class FigmaAPI : public FigmaCommentAPI {
public:
    static constexpr const char* kBaseURL = "https://api.figma.com";
    // Names another API address (a proxy, a stand-in), https or this machine's loopback.
    static constexpr const char* kBaseURLVariable = "VARNEL_FIGMA_API";
    static constexpr long kTimeoutSeconds = 60;

    // Throws std::invalid_argument for a base URL that isn't https (plain http is let through
    // for this machine's loopback only, where the tests' server listens).
    explicit FigmaAPI(std::string token, std::string baseURL = kBaseURL);

    // The address to use: VARNEL_FIGMA_API when it is set, else Figma's own. Throws
    // std::invalid_argument when the variable names an address that isn't allowed.
    static std::string configuredBaseURL();

    FigmaAccount me() override;
    FigmaNode file(const std::string& key, int depth) override;
    FigmaNode file(const std::string& key, const std::string& ids) override;
    std::optional<FigmaNode> nodes(const std::string& key, const std::string& id) override;
    std::vector<FigmaCommentRef> comments(const std::string& key) override;
    std::string postComment(const std::string& key, const std::string& message,
                            const FigmaClientMeta& meta) override;
    std::string postReply(const std::string& key, const std::string& message,
                          const std::string& commentId) override;
    void deleteComment(const std::string& key, const std::string& commentId) override;
    void setStopFlag(std::shared_ptr<const std::atomic<bool>> flag) override {
        stop_ = std::move(flag);
    }

private:
    using Query = std::vector<std::pair<std::string, std::string>>;
    std::string url(const std::string& path, const Query& query = {}) const;
    std::string run(const std::string& method, const std::string& url,
                    const std::string* jsonBody = nullptr) const;
    // The bodies keep their keys in the order Figma documents them.
    using OrderedJson = nlohmann::ordered_json;
    std::string postJson(const std::string& key, const OrderedJson& body) const;

    std::string token_;
    std::string baseURL_;
    std::shared_ptr<const std::atomic<bool>> stop_;
};

} // namespace varnel
