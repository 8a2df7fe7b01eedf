#pragma once

#include "library/NormalizedRect.h"
#include "library/ScreenRef.h"
#include "text/TextLine.h"

#include <vector>

// What of a screen's recognized text lies under its blur zones and clone patches.
namespace varnel::HiddenText {

// Whether a line's box overlaps an area or only touches its edge or corner. A box without
// finite values can't be placed, so it counts as touching.
bool touches(const NormalizedRect& box, const NormalizedRect& area);

// The rectangles of the screen's zones and patches.
std::vector<NormalizedRect> coveredAreas(const ScreenRef& screen);

// The lines that touch none of the areas, in their order.
std::vector<TextLine> visibleLines(std::vector<TextLine> lines,
                                   const std::vector<NormalizedRect>& areas);

} // namespace varnel::HiddenText
