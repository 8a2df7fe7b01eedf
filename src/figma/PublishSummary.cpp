#include "figma/PublishSummary.h"

#include <utility>

namespace varnel {

std::string PublishSummary::text() const {
    const std::pair<int, const char*> parts[] = {
        {posted, " posted"},
        {deleted, " deleted"},
        {removedLocally, " removed — deleted in Figma"},
        {skipped, " skipped — screen not on the board"},
        {kept, " kept as they are — others replied in Figma"},
        {failures, " failed — publish again to retry"},
        {commentsElsewhere, " comments elsewhere in the file"},
    };
    std::string out;
    for (const auto& [count, label] : parts) {
        if (count <= 0)
            continue;
        if (!out.empty())
            out += " · ";
        out += std::to_string(count) + label;
    }
    if (stopped)
        return out.empty() ? "Stopped — sync again to finish"
                           : out + " · stopped — sync again to finish";
    return out.empty() ? "Nothing to publish" : out;
}

} // namespace varnel
