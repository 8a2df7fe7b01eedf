#pragma once

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

} // namespace varnel
