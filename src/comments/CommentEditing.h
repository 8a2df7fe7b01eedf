#pragma once

#include "comments/ScreenComment.h"
#include "library/Date.h"
#include "library/ViewGeometry.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel {

namespace CommentEditing {

// Where a click puts a new pin, normalized; none outside the picture or on an empty one.
std::optional<ViewPoint> draftPosition(ViewPoint click, ViewRect image);

// A dragged pin's position: where it started plus the drag, kept on the picture.
ViewPoint movedPosition(ViewPoint start, ViewPoint translation, ViewRect image);

// The pins after a draft's text is submitted: the edited pin gets the text, or a new pin is
// appended. None when the trimmed text is empty, so nothing is saved.
std::optional<std::vector<ScreenComment>> submit(std::vector<ScreenComment> pins,
                                                 const std::optional<std::string>& editingId,
                                                 ViewPoint position, const std::string& text,
                                                 Date now);

// The pins without the one of `id`.
std::vector<ScreenComment> remove(std::vector<ScreenComment> pins, const std::string& id);

} // namespace CommentEditing
} // namespace varnel
