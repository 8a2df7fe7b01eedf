#pragma once

#include <string>

namespace varnel {

// The current picture of a capture source, encoded for a still screen.
struct CapturedFrame {
    std::string pngData;
    int width = 0;
    int height = 0;
};

} // namespace varnel
