#pragma once

#include "library/NormalizedRect.h"
#include "library/ScreenRef.h"
#include "text/TextLine.h"

#include <vector>

namespace varnel::HiddenText {

// Whether a recognized line reaches into an area that hides part of the screen; touching
// counts, since a blur's edge still leaves a line's letters next to it readable.
bool touches(const NormalizedRect& box, const NormalizedRect& area);

// What a screen's zones and clone patches cover.
std::vector<NormalizedRect> coveredAreas(const ScreenRef& screen);

// The lines that nothing covers, in their order.
std::vector<TextLine> visibleLines(std::vector<TextLine> lines,
                                   const std::vector<NormalizedRect>& covered);

} // namespace varnel::HiddenText
