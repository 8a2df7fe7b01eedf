#include "figma/FigmaCommentPlanner.h"

#include <cmath>

namespace varnel::FigmaCommentPlanner {

namespace {

using Comment = FileState::Comment;

bool anchoredOnBoard(const std::optional<std::string>& node, const FigmaBoardGeometry& geometry) {
    return node && (*node == geometry.rootId || *node == geometry.pageId);
}

// Figma may round what it stores; a hundredth of a canvas unit is far below a pin's size.
bool near(const std::optional<double>& value, double wanted) {
    return value && std::abs(*value - wanted) < 0.01;
}

bool isPostOf(const Comment& comment, const std::string& message, const FigmaClientMeta& meta,
              const std::optional<std::string>& accountId) {
    const auto& offset = std::get<FigmaClientMeta::FrameOffset>(meta.value);
    return comment.message == message && comment.nodeId == offset.nodeId &&
           near(comment.offsetX, offset.x) && near(comment.offsetY, offset.y) &&
           (!accountId || comment.authorId == accountId);
}

// The pin's record names a comment of the linked file: a pin from before records kept the file
// counts as the linked file's.
bool postedHere(const ScreenComment& pin, const std::string& fileKey) {
    return pin.postedId && (!pin.postedFileKey || *pin.postedFileKey == fileKey);
}

} // namespace

FileState FileState::of(std::string fileKey, const std::vector<FigmaCommentRef>& refs,
                        std::optional<std::string> accountId) {
    FileState state;
    state.fileKey = std::move(fileKey);
    state.accountId = std::move(accountId);
    for (const auto& ref : refs)
        if (!ref.parentId)
            state.comments[ref.id] = {ref.nodeId,  ref.offsetX,  ref.offsetY,
                                      ref.message, ref.authorId, false};
    for (const auto& ref : refs) {
        if (!ref.parentId)
            continue;
        const auto root = state.comments.find(*ref.parentId);
        if (root != state.comments.end() && ref.authorId != root->second.authorId)
            root->second.othersReplied = true;
    }
    return state;
}

FigmaClientMeta anchor(const FigmaBoardGeometry& geometry, const FigmaBox& screen, double px,
                       double py) {
    const double x = screen.x + screen.width * px;
    const double y = screen.y + screen.height * py;
    return {FigmaClientMeta::FrameOffset{geometry.rootId, x - geometry.rootBox.x,
                                         y - geometry.rootBox.y}};
}

FigmaCommentPlan plan(const std::vector<Screen>& screens,
                      const std::vector<std::string>& pendingDeletes, const FileState& file,
                      const FigmaBoardGeometry& geometry) {
    FigmaCommentPlan result;
    std::vector<FigmaCommentOp> removals, posts, deletes;
    std::set<std::string> deleting;
    const auto queueDelete = [&](const std::string& id) {
        if (deleting.insert(id).second)
            deletes.push_back({FigmaCommentOp::Delete{id}});
    };
    // Comments that are some pin's already, or on their way out: never adopted.
    std::set<std::string> claimed(pendingDeletes.begin(), pendingDeletes.end());
    for (const auto& screen : screens)
        for (const auto& pin : screen.pins)
            if (postedHere(pin, file.fileKey))
                claimed.insert(*pin.postedId);
    const auto adoptable = [&](const std::string& message, const FigmaClientMeta& meta) {
        for (const auto& [id, comment] : file.comments)
            if (!claimed.contains(id) && isPostOf(comment, message, meta, file.accountId))
                return std::optional<std::string>(id);
        return std::optional<std::string>();
    };

    for (const auto& screen : screens) {
        for (const auto& pin : screen.pins) {
            std::optional<std::string> replaced;
            if (postedHere(pin, file.fileKey)) {
                const auto found = file.comments.find(*pin.postedId);
                if (found == file.comments.end()) {
                    removals.push_back({FigmaCommentOp::RemoveLocal{screen.filename, pin.id,
                                                                    "removed — deleted in Figma"}});
                    continue;
                }
                const bool unchanged =
                    pin.postedSignature && *pin.postedSignature == pin.signature();
                if (unchanged && anchoredOnBoard(found->second.nodeId, geometry))
                    continue;
                if (found->second.othersReplied) {
                    result.kept.push_back({screen.filename, pin.id, kOthersReplied});
                    continue;
                }
                replaced = *pin.postedId;
            }
            const auto box = geometry.screenBoxes.find(screen.filename);
            if (box == geometry.screenBoxes.end()) {
                result.skips.push_back({screen.filename, pin.id, kNotOnBoard});
                continue;
            }
            const FigmaClientMeta meta = anchor(geometry, box->second, pin.x, pin.y);
            if (const auto adopted = adoptable(pin.text, meta)) {
                claimed.insert(*adopted);
                posts.push_back(
                    {FigmaCommentOp::Adopt{screen.filename, pin.id, *adopted, pin.signature()}});
            } else {
                posts.push_back({FigmaCommentOp::Post{screen.filename, pin.id, pin.text,
                                                      pin.signature(), meta}});
            }
            if (replaced)
                queueDelete(*replaced);
        }
    }
    for (const auto& id : pendingDeletes) {
        const auto found = file.comments.find(id);
        if (found != file.comments.end() && found->second.othersReplied)
            deletes.push_back({FigmaCommentOp::Keep{id}});
        else
            queueDelete(id);
    }

    for (auto* group : {&removals, &posts, &deletes})
        for (auto& op : *group)
            result.operations.push_back(std::move(op));
    return result;
}

bool adopts(const FigmaCommentPlan& plan) {
    for (const auto& op : plan.operations)
        if (std::holds_alternative<FigmaCommentOp::Adopt>(op.value))
            return true;
    return false;
}

} // namespace varnel::FigmaCommentPlanner
