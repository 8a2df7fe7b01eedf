#include "figma/FigmaPublishableWork.h"

namespace varnel::FigmaPublishableWork {

int count(const FlowMeta& meta) {
    int n = meta.figmaPendingDeletes ? static_cast<int>(meta.figmaPendingDeletes->size()) : 0;
    for (const auto& screen : meta.screens)
        for (const auto& pin : screen.pins())
            if (!pin.postedId || pin.isDirty())
                ++n;
    return n;
}

} // namespace varnel::FigmaPublishableWork
