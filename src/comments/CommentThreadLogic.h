#pragma once

#include "comments/ScreenComment.h"
#include "figma/FigmaThread.h"

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace varnel::CommentThreadLogic {

// The pulled thread whose root is the published pin; none for a local pin or a vanished thread.
const FigmaThread* thread(const ScreenComment& pin, const std::vector<FigmaThread>& threads);

// Someone other than the thread's author replied in it.
bool othersReplied(const FigmaThread& thread);

// Why a pin can't be edited or moved.
inline constexpr const char* kLocked = "Editing is locked because the thread has replies";

// A published pin whose thread has replies can no longer be edited or moved: a repost would
// drop the replies.
bool isEditLocked(const ScreenComment& pin, const std::vector<FigmaThread>& threads);

// Threads drawn as pins of their own: not a local pin's, placed, and unresolved unless asked.
std::vector<const FigmaThread*> remotePins(const std::vector<FigmaThread>& threads,
                                           const std::set<std::string>& localPostedIds,
                                           bool showResolved);

// Local pins plus unresolved remote pins.
std::size_t pinCount(const std::vector<ScreenComment>& pins,
                     const std::vector<FigmaThread>& threads);

// The lines of a pin's preview card: "handle: text" of the root and of the first `shownReplies`
// replies, then "<n> more replies" for the rest.
std::vector<std::string> previewLines(const FigmaThread& thread, std::size_t shownReplies);

} // namespace varnel::CommentThreadLogic
