#pragma once

#include <algorithm>
#include <cmath>
#include <optional>

namespace varnel {

// A rectangle in normalized image units (0..1 on each axis), origin at the top-left.
struct NormalizedRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }

    bool operator==(const NormalizedRect&) const = default;
};

// The part of a rectangle that lies on the picture; none when a value isn't a finite number
// or nothing of it is on the picture.
inline std::optional<NormalizedRect> clampedToPicture(const NormalizedRect& rect) {
    if (!std::isfinite(rect.x) || !std::isfinite(rect.y) || !std::isfinite(rect.width) ||
        !std::isfinite(rect.height) || !std::isfinite(rect.x + rect.width) ||
        !std::isfinite(rect.y + rect.height))
        return std::nullopt;
    // Each axis is recomputed only when it reaches off the picture, so values in range stay
    // exactly as they are.
    const auto axis = [](double origin, double size, double& outOrigin, double& outSize) {
        if (origin >= 0 && size > 0 && origin + size <= 1) {
            outOrigin = origin;
            outSize = size;
            return true;
        }
        const double low = std::clamp(std::min(origin, origin + size), 0.0, 1.0);
        const double high = std::clamp(std::max(origin, origin + size), 0.0, 1.0);
        outOrigin = low;
        outSize = high - low;
        return high > low;
    };
    NormalizedRect out;
    if (!axis(rect.x, rect.width, out.x, out.width) ||
        !axis(rect.y, rect.height, out.y, out.height))
        return std::nullopt;
    return out;
}

} // namespace varnel
