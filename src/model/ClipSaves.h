#pragma once

#include "editing/RedactRecords.h"
#include "library/ScreenID.h"
#include "thumbnails/ThumbEdits.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// The clip saves that run on worker threads and those that failed. Each follows its screen
// while screens are renumbered, moved and deleted, so that a bake lands on the clip it was made
// from, or nowhere.
class ClipSaves {
public:
    // Zones that could not be baked, kept until the user saves them again or lets them go.
    struct Problem {
        ScreenID screen;
        std::vector<RedactShape> shapes;
        RedactStyle style;
        std::string reason;
        // The clip file has the new zones but the record doesn't say so (putting it back
        // failed); otherwise the clip is as it was.
        bool clipChanged = false;
    };

    std::uint64_t begin(const ScreenID& screen);
    // Where the save's screen is now; none when it was deleted (or the save is unknown).
    std::optional<ScreenID> screenOf(std::uint64_t save) const;
    void end(std::uint64_t save);
    bool isSaving(const ScreenID& screen) const;
    // Whether a running save's screen is in the flow (none: any flow).
    bool isSavingIn(const std::string& folder) const;
    bool empty() const { return running_.empty(); }
    // Forgets every save and problem; numbers given out are never given again.
    void clear() {
        running_.clear();
        problems_.clear();
    }

    // A screen operation's outcome: removals first, then renames, as one mapping.
    void follow(const ThumbEdits& edits);
    // A flow that now lives under another folder name.
    void followFlow(const std::string& from, const std::string& to);

    void addProblem(Problem problem);
    const std::vector<Problem>& problems() const { return problems_; }
    std::optional<Problem> problem(const ScreenID& screen) const;
    // False when there was none.
    bool discard(const ScreenID& screen);

private:
    // A screen per save; none once deleted.
    std::map<std::uint64_t, std::optional<ScreenID>> running_;
    std::uint64_t next_ = 1;
    std::vector<Problem> problems_;
};

} // namespace varnel
