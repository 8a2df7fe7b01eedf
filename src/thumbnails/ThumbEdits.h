#pragma once

#include "library/ScreenID.h"

#include <utility>
#include <vector>

namespace varnel {

// What the thumbnail cache must do after a screen operation: first the removals, then the
// copies (named as before any rename), then the renames, taken as one simultaneous mapping.
struct ThumbEdits {
    std::vector<ScreenID> removals;
    std::vector<std::pair<ScreenID, ScreenID>> copies;
    std::vector<std::pair<ScreenID, ScreenID>> renames;

    bool empty() const { return removals.empty() && copies.empty() && renames.empty(); }

    // Adds a later rename step: renames already recorded follow it.
    void followRenames(const std::vector<std::pair<ScreenID, ScreenID>>& step);
    void merge(const ThumbEdits& other);
};

} // namespace varnel
