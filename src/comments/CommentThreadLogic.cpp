#include "comments/CommentThreadLogic.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace varnel::CommentThreadLogic {

const FigmaThread* thread(const ScreenComment& pin, const std::vector<FigmaThread>& threads) {
    if (!pin.postedId)
        return nullptr;
    for (const auto& t : threads)
        if (t.rootId == *pin.postedId)
            return &t;
    return nullptr;
}

bool othersReplied(const FigmaThread& thread) {
    return std::any_of(thread.replies.begin(), thread.replies.end(),
                       [&](const FigmaReply& r) { return r.authorId != thread.authorId; });
}

bool isEditLocked(const ScreenComment& pin, const std::vector<FigmaThread>& threads) {
    const FigmaThread* t = thread(pin, threads);
    return t && !t->replies.empty();
}

std::vector<const FigmaThread*> remotePins(const std::vector<FigmaThread>& threads,
                                           const std::set<std::string>& localPostedIds,
                                           bool showResolved) {
    std::vector<const FigmaThread*> result;
    for (const auto& t : threads) {
        if (localPostedIds.contains(t.rootId) || !t.x || !t.y)
            continue;
        if (t.resolved && !showResolved)
            continue;
        result.push_back(&t);
    }
    return result;
}

std::size_t pinCount(const std::vector<ScreenComment>& pins,
                     const std::vector<FigmaThread>& threads) {
    std::set<std::string> posted;
    for (const auto& pin : pins)
        if (pin.postedId)
            posted.insert(*pin.postedId);
    const std::size_t remote = remotePins(threads, posted, false).size();
    if (pins.size() > std::numeric_limits<std::size_t>::max() - remote)
        std::abort();
    return pins.size() + remote;
}

std::vector<std::string> previewLines(const FigmaThread& thread, std::size_t shownReplies) {
    const auto line = [](const std::string& handle, const std::string& text) {
        return handle.empty() ? text : handle + ": " + text;
    };
    std::vector<std::string> lines{line(thread.authorHandle, thread.text)};
    const std::size_t shown = std::min(shownReplies, thread.replies.size());
    for (std::size_t i = 0; i < shown; ++i)
        lines.push_back(line(thread.replies[i].authorHandle, thread.replies[i].text));
    if (const std::size_t rest = thread.replies.size() - shown; rest > 0)
        lines.push_back(std::to_string(rest) + " more replies");
    return lines;
}

} // namespace varnel::CommentThreadLogic
