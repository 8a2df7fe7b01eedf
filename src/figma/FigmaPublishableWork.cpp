#include "figma/FigmaPublishableWork.h"

#include "comments/CommentThreadLogic.h"

namespace varnel::FigmaPublishableWork {

int count(const FlowMeta& meta) {
    int n = meta.figmaPendingDeletes ? static_cast<int>(meta.figmaPendingDeletes->size()) : 0;
    for (const auto& screen : meta.screens) {
        const auto threads = screen.figmaThreads.value_or(std::vector<FigmaThread>{});
        for (const auto& pin : screen.pins()) {
            if (!meta.isPostedToLinkedFile(pin)) {
                ++n;
                continue;
            }
            // A change that others' replies hold back is not sent.
            const FigmaThread* thread = CommentThreadLogic::thread(pin, threads);
            if (pin.isDirty() && !(thread && CommentThreadLogic::othersReplied(*thread)))
                ++n;
        }
    }
    return n;
}

} // namespace varnel::FigmaPublishableWork
