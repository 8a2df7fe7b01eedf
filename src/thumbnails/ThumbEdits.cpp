#include "thumbnails/ThumbEdits.h"

#include <algorithm>
#include <unordered_map>

namespace varnel {

void ThumbEdits::followRenames(const std::vector<std::pair<ScreenID, ScreenID>>& step) {
    std::unordered_map<ScreenID, ScreenID> next(step.begin(), step.end());
    for (auto& [from, to] : renames) {
        auto it = next.find(to);
        if (it == next.end())
            continue;
        to = it->second;
        next.erase(it);
    }
    for (const auto& rename : step) {
        if (next.contains(rename.first))
            renames.push_back(rename);
    }
    std::erase_if(renames, [](const auto& r) { return r.first == r.second; });
}

void ThumbEdits::merge(const ThumbEdits& other) {
    removals.insert(removals.end(), other.removals.begin(), other.removals.end());
    copies.insert(copies.end(), other.copies.begin(), other.copies.end());
    followRenames(other.renames);
}

} // namespace varnel
