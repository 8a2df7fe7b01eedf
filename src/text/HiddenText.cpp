#include "text/HiddenText.h"

#include <algorithm>

namespace varnel::HiddenText {

bool touches(const NormalizedRect& box, const NormalizedRect& area) {
    return box.minX() <= area.maxX() && area.minX() <= box.maxX() && box.minY() <= area.maxY() &&
           area.minY() <= box.maxY();
}

std::vector<NormalizedRect> coveredAreas(const ScreenRef& screen) {
    std::vector<NormalizedRect> areas;
    for (const auto& zone : screen.redactions.value_or(std::vector<RedactShape>{}))
        areas.push_back(zone.rect);
    for (const auto& patch : screen.patches.value_or(std::vector<RedactPatch>{}))
        areas.push_back(patch.rect);
    return areas;
}

std::vector<TextLine> visibleLines(std::vector<TextLine> lines,
                                   const std::vector<NormalizedRect>& covered) {
    std::erase_if(lines, [&](const TextLine& line) {
        return std::any_of(covered.begin(), covered.end(),
                           [&](const NormalizedRect& area) { return touches(line.box, area); });
    });
    return lines;
}

} // namespace varnel::HiddenText
