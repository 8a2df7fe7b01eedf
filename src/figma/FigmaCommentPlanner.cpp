#include "figma/FigmaCommentPlanner.h"

#include <set>

namespace varnel::FigmaCommentPlanner {

namespace {

bool anchoredOnBoard(const std::optional<std::string>& node, const FigmaBoardGeometry& geometry) {
    return node && (*node == geometry.rootId || *node == geometry.pageId);
}

} // namespace

FigmaClientMeta anchor(const FigmaBoardGeometry& geometry, const FigmaBox& screen, double px,
                       double py) {
    const double x = screen.x + screen.width * px;
    const double y = screen.y + screen.height * py;
    return {FigmaClientMeta::FrameOffset{geometry.rootId, x - geometry.rootBox.x,
                                         y - geometry.rootBox.y}};
}

FigmaCommentPlan plan(const std::vector<Screen>& screens,
                      const std::vector<std::string>& pendingDeletes, const Existing& existing,
                      const FigmaBoardGeometry& geometry) {
    FigmaCommentPlan result;
    std::vector<FigmaCommentOp> removals, posts, deletes;
    std::set<std::string> deleting;
    const auto queueDelete = [&](const std::string& id) {
        if (deleting.insert(id).second)
            deletes.push_back({FigmaCommentOp::Delete{id}});
    };

    for (const auto& screen : screens) {
        for (const auto& pin : screen.pins) {
            std::optional<std::string> replaced;
            if (pin.postedId) {
                const auto found = existing.find(*pin.postedId);
                if (found == existing.end()) {
                    removals.push_back({FigmaCommentOp::RemoveLocal{screen.filename, pin.id,
                                                                    "removed — deleted in Figma"}});
                    continue;
                }
                const bool unchanged =
                    pin.postedSignature && *pin.postedSignature == pin.signature();
                if (unchanged && anchoredOnBoard(found->second, geometry))
                    continue;
                replaced = *pin.postedId;
            }
            const auto box = geometry.screenBoxes.find(screen.filename);
            if (box == geometry.screenBoxes.end()) {
                result.skips.push_back({screen.filename, pin.id, "screen not on the board"});
                continue;
            }
            posts.push_back(
                {FigmaCommentOp::Post{screen.filename, pin.id, pin.text, pin.signature(),
                                      anchor(geometry, box->second, pin.x, pin.y)}});
            if (replaced)
                queueDelete(*replaced);
        }
    }
    for (const auto& id : pendingDeletes)
        queueDelete(id);

    for (auto* group : {&removals, &posts, &deletes})
        for (auto& op : *group)
            result.operations.push_back(std::move(op));
    return result;
}

} // namespace varnel::FigmaCommentPlanner
