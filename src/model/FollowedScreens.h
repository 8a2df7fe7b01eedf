#pragma once

#include "library/ScreenID.h"
#include "thumbnails/ThumbEdits.h"

#include <map>
#include <optional>
#include <vector>

namespace varnel {

// Screens as they were when some work began, followed while screens are renumbered, moved and
// deleted and while flows are renamed or moved, so that the work's results land on the screens
// it was done for, or nowhere.
class FollowedScreens {
public:
    explicit FollowedScreens(const std::vector<ScreenID>& screens);

    // Where the screen that was at `then` is now; none when it was deleted or wasn't followed.
    std::optional<ScreenID> now(const ScreenID& then) const;

    // A screen operation's outcome: removals first, then renames, as one mapping.
    void follow(const ThumbEdits& edits);
    // A flow that now lives under another folder name.
    void followFlow(const std::string& from, const std::string& to);

    // Where one screen is after a screen operation; none when it was removed.
    static std::optional<ScreenID> followed(const ScreenID& screen, const ThumbEdits& edits);

private:
    std::map<ScreenID, std::optional<ScreenID>> screens_; // where each was -> where it is
};

} // namespace varnel
