#include "figma/FigmaCommentPublisher.h"

namespace varnel {

PublishSummary FigmaCommentPublisher::publish(const std::string& fileKey,
                                              const FigmaCommentPlan& plan) {
    PublishSummary summary;
    summary.skipped = plan.skipped();
    for (const auto& op : plan.operations) {
        try {
            if (const auto* del = std::get_if<FigmaCommentOp::Delete>(&op.value)) {
                api_.deleteComment(fileKey, del->commentId);
                persistence_.clearPendingDelete(del->commentId);
                ++summary.deleted;
            } else if (const auto* post = std::get_if<FigmaCommentOp::Post>(&op.value)) {
                const std::string id = api_.postComment(fileKey, post->message, post->meta);
                persistence_.markPosted(post->filename, post->commentId, id, post->signature);
                ++summary.posted;
            } else {
                const auto& removal = std::get<FigmaCommentOp::RemoveLocal>(op.value);
                persistence_.removeLocalPin(removal.filename, removal.commentId);
                ++summary.removedLocally;
            }
        } catch (const std::exception&) {
            ++summary.failures;
        }
    }
    return summary;
}

} // namespace varnel
