#include "figma/FigmaCommentPublisher.h"

#include "figma/HttpClient.h"

namespace varnel {

FigmaCommentPublisher::Step FigmaCommentPublisher::perform(const std::string& fileKey,
                                                           const FigmaCommentOp& op,
                                                           PublishSummary& summary) {
    // The remote half: its failure is this operation's only.
    std::string postedId;
    try {
        if (const auto* del = std::get_if<FigmaCommentOp::Delete>(&op.value))
            api_.deleteComment(fileKey, del->commentId);
        else if (const auto* post = std::get_if<FigmaCommentOp::Post>(&op.value))
            postedId = api_.postComment(fileKey, post->message, post->meta);
    } catch (const Http::Cancelled&) {
        return Step::stop;
    } catch (const std::exception&) {
        return Step::failed;
    }
    // The local half: a success that isn't recorded must not be followed by another request.
    try {
        if (const auto* del = std::get_if<FigmaCommentOp::Delete>(&op.value)) {
            persistence_.clearPendingDelete(del->commentId);
            ++summary.deleted;
        } else if (const auto* post = std::get_if<FigmaCommentOp::Post>(&op.value)) {
            persistence_.markPosted(post->filename, post->commentId, postedId, post->signature,
                                    fileKey);
            ++summary.posted;
        } else if (const auto* adopt = std::get_if<FigmaCommentOp::Adopt>(&op.value)) {
            persistence_.markPosted(adopt->filename, adopt->commentId, adopt->figmaCommentId,
                                    adopt->signature, fileKey);
            ++summary.posted;
        } else if (const auto* keep = std::get_if<FigmaCommentOp::Keep>(&op.value)) {
            persistence_.clearPendingDelete(keep->commentId);
            ++summary.kept;
        } else {
            const auto& removal = std::get<FigmaCommentOp::RemoveLocal>(op.value);
            persistence_.removeLocalPin(removal.filename, removal.commentId);
            ++summary.removedLocally;
        }
    } catch (const std::exception&) {
        ++summary.failures;
        return Step::stop;
    }
    return Step::done;
}

PublishSummary FigmaCommentPublisher::publish(const std::string& fileKey,
                                              const FigmaCommentPlan& plan) {
    PublishSummary summary;
    summary.skipped = plan.skipped();
    summary.kept = static_cast<int>(plan.kept.size());
    for (const auto& op : plan.operations) {
        if (stop_ && *stop_) {
            summary.stopped = true;
            break;
        }
        const Step step = perform(fileKey, op, summary);
        if (step == Step::failed)
            ++summary.failures;
        if (step == Step::stop) {
            summary.stopped = true;
            break;
        }
    }
    return summary;
}

} // namespace varnel
