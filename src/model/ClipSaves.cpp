#include "model/ClipSaves.h"

#include "model/FollowedScreens.h"

#include <algorithm>

namespace varnel {

std::uint64_t ClipSaves::begin(const ScreenID& screen) {
    const std::uint64_t id = next_++;
    running_[id] = screen;
    return id;
}

std::optional<ScreenID> ClipSaves::screenOf(std::uint64_t save) const {
    const auto it = running_.find(save);
    return it == running_.end() ? std::nullopt : it->second;
}

void ClipSaves::end(std::uint64_t save) {
    running_.erase(save);
}

bool ClipSaves::isSaving(const ScreenID& screen) const {
    return std::any_of(running_.begin(), running_.end(),
                       [&](const auto& entry) { return entry.second == screen; });
}

bool ClipSaves::isSavingIn(const std::string& folder) const {
    return std::any_of(running_.begin(), running_.end(), [&](const auto& entry) {
        return entry.second && entry.second->folder == folder;
    });
}

void ClipSaves::follow(const ThumbEdits& edits) {
    for (auto& [id, screen] : running_)
        if (screen)
            screen = FollowedScreens::followed(*screen, edits);
    std::vector<Problem> kept;
    for (auto& problem : problems_) {
        if (auto now = FollowedScreens::followed(problem.screen, edits)) {
            problem.screen = *now;
            kept.push_back(std::move(problem));
        }
    }
    problems_ = std::move(kept);
}

void ClipSaves::followFlow(const std::string& from, const std::string& to) {
    for (auto& [id, screen] : running_)
        if (screen && screen->folder == from)
            screen->folder = to;
    for (auto& problem : problems_)
        if (problem.screen.folder == from)
            problem.screen.folder = to;
}

void ClipSaves::addProblem(Problem problem) {
    discard(problem.screen);
    problems_.push_back(std::move(problem));
}

std::optional<ClipSaves::Problem> ClipSaves::problem(const ScreenID& screen) const {
    for (const auto& problem : problems_)
        if (problem.screen == screen)
            return problem;
    return std::nullopt;
}

bool ClipSaves::discard(const ScreenID& screen) {
    return std::erase_if(problems_, [&](const Problem& p) { return p.screen == screen; }) > 0;
}

} // namespace varnel
