#pragma once

#include <string>

namespace varnel {

// The current picture of a capture source, encoded for a still screen.
struct CapturedFrame {
    std::string pngData;
    int width = 0;
    int height = 0;
    // Set when the still is not what the source was asked for (a phone whose screenshot failed
    // gives a frame of its live stream instead), saying so for the user.
    std::string note;
};

} // namespace varnel
