#include "editing/EditorGeometry.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace varnel::EditorGeometry {

namespace {

double clamp01(double v) {
    return std::clamp(v, 0.0, 1.0);
}

std::array<double, 3> lines(const NormalizedRect& r, bool horizontalAxis) {
    return horizontalAxis ? std::array{r.minX(), r.x + r.width / 2, r.maxX()}
                          : std::array{r.minY(), r.y + r.height / 2, r.maxY()};
}

// The shift (normalized) that best aligns one of `own` lines with another zone's line.
double snapShift(const std::array<double, 3>& own, bool horizontalAxis,
                 const std::vector<NormalizedRect>& others, double tolerance) {
    double best = 0;
    double bestDistance = tolerance;
    for (const auto& other : others)
        for (double target : lines(other, horizontalAxis))
            for (double line : own)
                if (std::abs(target - line) <= bestDistance) {
                    bestDistance = std::abs(target - line);
                    best = target - line;
                }
    return best;
}

} // namespace

ViewPoint normalized(ViewPoint point, ViewRect image) {
    if (!(image.width > 0) || !(image.height > 0))
        return {0, 0};
    return {(point.x - image.x) / image.width, (point.y - image.y) / image.height};
}

NormalizedRect rectFromPoints(ViewPoint a, ViewPoint b, ViewRect image) {
    const ViewPoint p = normalized(a, image), q = normalized(b, image);
    const double x0 = clamp01(std::min(p.x, q.x)), x1 = clamp01(std::max(p.x, q.x));
    const double y0 = clamp01(std::min(p.y, q.y)), y1 = clamp01(std::max(p.y, q.y));
    return {x0, y0, x1 - x0, y1 - y0};
}

std::optional<Handle> handleAt(const NormalizedRect& rect, ViewPoint point, ViewRect image) {
    const double left = image.x + rect.minX() * image.width;
    const double right = image.x + rect.maxX() * image.width;
    const double top = image.y + rect.minY() * image.height;
    const double bottom = image.y + rect.maxY() * image.height;
    const double midX = (left + right) / 2, midY = (top + bottom) / 2;
    const std::array<std::pair<Handle, ViewPoint>, 8> handles = {{
        {Handle::topLeft, {left, top}},
        {Handle::top, {midX, top}},
        {Handle::topRight, {right, top}},
        {Handle::right, {right, midY}},
        {Handle::bottomRight, {right, bottom}},
        {Handle::bottom, {midX, bottom}},
        {Handle::bottomLeft, {left, bottom}},
        {Handle::left, {left, midY}},
    }};
    std::optional<Handle> nearest;
    double nearestDistance = kHandleReach;
    for (const auto& [handle, at] : handles) {
        const double distance = std::hypot(point.x - at.x, point.y - at.y);
        if (distance <= nearestDistance) {
            nearestDistance = distance;
            nearest = handle;
        }
    }
    return nearest;
}

NormalizedRect resized(const NormalizedRect& rect, Handle handle, ViewPoint to) {
    double x0 = rect.minX(), y0 = rect.minY(), x1 = rect.maxX(), y1 = rect.maxY();
    switch (handle) {
    case Handle::topLeft:
        x0 = to.x;
        y0 = to.y;
        break;
    case Handle::top:
        y0 = to.y;
        break;
    case Handle::topRight:
        x1 = to.x;
        y0 = to.y;
        break;
    case Handle::right:
        x1 = to.x;
        break;
    case Handle::bottomRight:
        x1 = to.x;
        y1 = to.y;
        break;
    case Handle::bottom:
        y1 = to.y;
        break;
    case Handle::bottomLeft:
        x0 = to.x;
        y1 = to.y;
        break;
    case Handle::left:
        x0 = to.x;
        break;
    }
    const double left = clamp01(std::min(x0, x1)), right = clamp01(std::max(x0, x1));
    const double top = clamp01(std::min(y0, y1)), bottom = clamp01(std::max(y0, y1));
    return {left, top, right - left, bottom - top};
}

NormalizedRect clampedInside(NormalizedRect rect) {
    rect.width = clamp01(rect.width);
    rect.height = clamp01(rect.height);
    rect.x = std::clamp(rect.x, 0.0, 1.0 - rect.width);
    rect.y = std::clamp(rect.y, 0.0, 1.0 - rect.height);
    return rect;
}

NormalizedRect snappedMove(const NormalizedRect& rect, const std::vector<NormalizedRect>& others,
                           ViewRect image) {
    NormalizedRect out = rect;
    if (image.width > 0)
        out.x += snapShift(lines(rect, true), true, others, kSnapDistance / image.width);
    if (image.height > 0)
        out.y += snapShift(lines(rect, false), false, others, kSnapDistance / image.height);
    return out;
}

double snappedLine(double value, bool horizontalAxis, const std::vector<NormalizedRect>& others,
                   double imageExtent) {
    if (!(imageExtent > 0))
        return value;
    return value +
           snapShift({value, value, value}, horizontalAxis, others, kSnapDistance / imageExtent);
}

double clampedZoom(double zoom) {
    return std::isfinite(zoom) ? std::clamp(zoom, 1.0, 6.0) : 1.0;
}

ViewPoint clampedPan(ViewPoint pan, ViewPoint content, ViewPoint view) {
    const auto axis = [](double offset, double contentSize, double viewSize) {
        if (contentSize <= viewSize)
            return (viewSize - contentSize) / 2;
        return std::clamp(offset, viewSize - contentSize, 0.0);
    };
    return {axis(pan.x, content.x, view.x), axis(pan.y, content.y, view.y)};
}

} // namespace varnel::EditorGeometry
