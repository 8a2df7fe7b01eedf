#include "text/HiddenText.h"

#include <algorithm>
#include <cmath>

namespace varnel::HiddenText {

namespace {

// Edges computed as origin + size differ in the last bits from the same edge stored directly;
// within this distance they still touch.
constexpr double kTolerance = 1e-9;

struct Span {
    double low;
    double high;
};

// Rectangles may come with a negative size; the span is the same either way.
Span span(double origin, double size) {
    return {std::min(origin, origin + size), std::max(origin, origin + size)};
}

bool finite(const NormalizedRect& r) {
    return std::isfinite(r.x) && std::isfinite(r.y) && std::isfinite(r.width) &&
           std::isfinite(r.height) && std::isfinite(r.x + r.width) && std::isfinite(r.y + r.height);
}

bool meet(Span a, Span b) {
    return a.low <= b.high + kTolerance && b.low <= a.high + kTolerance;
}

} // namespace

bool touches(const NormalizedRect& box, const NormalizedRect& area) {
    if (!finite(box))
        return true;
    if (!finite(area))
        return false;
    return meet(span(box.x, box.width), span(area.x, area.width)) &&
           meet(span(box.y, box.height), span(area.y, area.height));
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
                                   const std::vector<NormalizedRect>& areas) {
    std::erase_if(lines, [&](const TextLine& line) {
        return std::any_of(areas.begin(), areas.end(),
                           [&](const NormalizedRect& area) { return touches(line.box, area); });
    });
    return lines;
}

} // namespace varnel::HiddenText
