#pragma once

namespace varnel {

// A point in view coordinates (origin top-left), or a normalized one where stated.
struct ViewPoint {
    double x = 0;
    double y = 0;

    bool operator==(const ViewPoint&) const = default;
};

// The picture's rectangle on screen in view coordinates, origin top-left.
struct ViewRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const ViewRect&) const = default;
};

} // namespace varnel
