#pragma once

#include "library/NormalizedRect.h"
#include "library/ViewGeometry.h"

#include <optional>
#include <vector>

namespace varnel::EditorGeometry {

// How near (in view points) the pointer must come to grab a handle, and to snap a line.
constexpr double kHandleReach = 11;
constexpr double kSnapDistance = 7;

enum class Handle { topLeft, top, topRight, right, bottomRight, bottom, bottomLeft, left };

// A view point as a normalized image point (not clamped).
ViewPoint normalized(ViewPoint point, ViewRect image);
// The rectangle spanned by two view points, normalized and clamped to the image.
NormalizedRect rectFromPoints(ViewPoint a, ViewPoint b, ViewRect image);
// The handle of `rect` under the pointer, if any.
std::optional<Handle> handleAt(const NormalizedRect& rect, ViewPoint point, ViewRect image);
// The rectangle with one handle dragged to a normalized point; normalized and clamped.
NormalizedRect resized(const NormalizedRect& rect, Handle handle, ViewPoint to);
// The rectangle moved so that its origin stays within 0..(1 - size).
NormalizedRect clampedInside(NormalizedRect rect);

// Snaps a moved rectangle's left/centre/right and top/middle/bottom to the same lines of the
// other zones when one comes within kSnapDistance view points; each axis snaps on its own.
NormalizedRect snappedMove(const NormalizedRect& rect, const std::vector<NormalizedRect>& others,
                           ViewRect image);
// Snaps a dragged edge position (normalized, on the axis given) to the other zones' lines.
double snappedLine(double value, bool horizontalAxis, const std::vector<NormalizedRect>& others,
                   double imageExtent);

// Magnification is 1 to 6.
double clampedZoom(double zoom);
// The pan offset of an image of `content` size (already magnified) in a view of `view` size:
// never a gap at an edge; an image smaller than the view is centred.
ViewPoint clampedPan(ViewPoint pan, ViewPoint content, ViewPoint view);

} // namespace varnel::EditorGeometry
