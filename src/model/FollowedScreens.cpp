#include "model/FollowedScreens.h"

#include <algorithm>

namespace varnel {

FollowedScreens::FollowedScreens(const std::vector<ScreenID>& screens) {
    for (const auto& screen : screens)
        screens_.emplace(screen, screen);
}

std::optional<ScreenID> FollowedScreens::now(const ScreenID& then) const {
    const auto found = screens_.find(then);
    return found == screens_.end() ? std::nullopt : found->second;
}

void FollowedScreens::follow(const ThumbEdits& edits) {
    for (auto& [then, now] : screens_)
        if (now)
            now = followed(*now, edits);
}

void FollowedScreens::followFlow(const std::string& from, const std::string& to) {
    for (auto& [then, now] : screens_)
        if (now && now->folder == from)
            now->folder = to;
}

std::optional<ScreenID> FollowedScreens::followed(const ScreenID& screen, const ThumbEdits& edits) {
    if (std::find(edits.removals.begin(), edits.removals.end(), screen) != edits.removals.end())
        return std::nullopt;
    for (const auto& [from, to] : edits.renames)
        if (from == screen)
            return to;
    return screen;
}

} // namespace varnel
