#pragma once

#include "figma/FigmaRecords.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// Every request the Figma side of the app makes. Calls block until Figma answers, so they run
// off the main thread; they throw FigmaAPIError for an answer other than success,
// Http::TransportError when no answer came, and CodingError or a JSON error for an answer
// that isn't the expected JSON.
class FigmaCommentAPI {
public:
    virtual ~FigmaCommentAPI() = default;

    virtual FigmaAccount me() = 0;
    // The document to `depth` levels, or pruned to the subtrees of `ids` (comma-separated).
    virtual FigmaNode file(const std::string& key, int depth) = 0;
    virtual FigmaNode file(const std::string& key, const std::string& ids) = 0;
    // The subtree of one node; none when Figma has no such node.
    virtual std::optional<FigmaNode> nodes(const std::string& key, const std::string& id) = 0;
    virtual std::vector<FigmaCommentRef> comments(const std::string& key) = 0;
    // Both return the new comment's id.
    virtual std::string postComment(const std::string& key, const std::string& message,
                                    const FigmaClientMeta& meta) = 0;
    virtual std::string postReply(const std::string& key, const std::string& message,
                                  const std::string& commentId) = 0;
    // A comment Figma no longer has counts as deleted.
    virtual void deleteComment(const std::string& key, const std::string& commentId) = 0;

    // Once the flag is set, the request in flight is aborted (Http::Cancelled) and so is every
    // later one.
    virtual void setStopFlag(std::shared_ptr<const std::atomic<bool>> flag) { (void)flag; }
};

} // namespace varnel
