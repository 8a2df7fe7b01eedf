#include "figma/FigmaThreadAssembler.h"

#include <algorithm>
#include <optional>

namespace varnel::FigmaThreadAssembler {

namespace {

bool earlier(const FigmaCommentRef* a, const FigmaCommentRef* b) {
    if (a->createdAt.has_value() != b->createdAt.has_value())
        return a->createdAt.has_value();
    if (a->createdAt && *a->createdAt != *b->createdAt)
        return *a->createdAt < *b->createdAt;
    return a->id < b->id;
}

struct Place {
    std::string filename;
    double x = 0;
    double y = 0;
};

// The comment's canvas point: its anchor node's corner plus the offset. A page has no box, and a
// comment without an anchor is placed by its point of the canvas: both offsets are canvas
// coordinates already.
std::optional<Place> placeOf(const FigmaCommentRef& ref, const FigmaBoardGeometry& geometry) {
    if (!ref.offsetX || !ref.offsetY)
        return std::nullopt;
    double x = *ref.offsetX, y = *ref.offsetY;
    if (ref.nodeId && *ref.nodeId != geometry.pageId) {
        const auto node = geometry.nodeBoxes.find(*ref.nodeId);
        if (node == geometry.nodeBoxes.end())
            return std::nullopt;
        x += node->second.x;
        y += node->second.y;
    }
    for (const auto& [file, box] : geometry.screenBoxes) {
        if (box.width <= 0 || box.height <= 0 || !box.contains(x, y))
            continue;
        return Place{file, (x - box.x) / box.width, (y - box.y) / box.height};
    }
    return std::nullopt;
}

FigmaReply replyOf(const FigmaCommentRef& ref) {
    return {ref.id,
            ref.message,
            ref.authorHandle,
            ref.authorImgURL,
            ref.authorId.value_or(""),
            ref.createdAt.value_or(Date{})};
}

} // namespace

FigmaThreadAssembly assemble(const std::vector<FigmaCommentRef>& refs,
                             const FigmaBoardGeometry& geometry,
                             const std::set<std::string>& localPostedIds) {
    std::vector<const FigmaCommentRef*> sorted;
    sorted.reserve(refs.size());
    for (const auto& ref : refs)
        sorted.push_back(&ref);
    std::stable_sort(sorted.begin(), sorted.end(), earlier);

    FigmaThreadAssembly assembly;
    std::map<std::string, std::pair<std::string, std::size_t>> threadAt; // root id -> screen, index
    for (const FigmaCommentRef* ref : sorted) {
        if (ref->parentId)
            continue;
        auto place = placeOf(*ref, geometry);
        if (!place) {
            // A pin of this flow that can't be placed is this flow's own, not elsewhere.
            if (!localPostedIds.contains(ref->id))
                ++assembly.commentsElsewhere;
            continue;
        }
        FigmaThread thread;
        thread.rootId = ref->id;
        thread.x = place->x;
        thread.y = place->y;
        thread.text = ref->message;
        thread.authorHandle = ref->authorHandle;
        thread.authorImgURL = ref->authorImgURL;
        thread.authorId = ref->authorId.value_or("");
        thread.createdAt = ref->createdAt.value_or(Date{});
        thread.resolved = ref->resolvedAt.has_value();
        auto& list = assembly.threads[place->filename];
        threadAt[ref->id] = {place->filename, list.size()};
        list.push_back(std::move(thread));
    }
    for (const FigmaCommentRef* ref : sorted) {
        if (!ref->parentId)
            continue;
        const auto at = threadAt.find(*ref->parentId);
        if (at == threadAt.end())
            continue; // its thread lies elsewhere
        assembly.threads[at->second.first][at->second.second].replies.push_back(replyOf(*ref));
    }
    return assembly;
}

} // namespace varnel::FigmaThreadAssembler
