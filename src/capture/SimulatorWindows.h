#pragma once

#include "capture/DeviceInfo.h"

#include <cstdint>
#include <string>
#include <vector>

namespace varnel {

// A top-level window of the X server as the window list reads it.
struct X11Window {
    std::uint32_t id = 0;
    std::string wmInstance; // first string of WM_CLASS
    std::string wmClass;    // second string of WM_CLASS
    std::string title;      // _NET_WM_NAME, else WM_NAME
    int width = 0;
    int height = 0;
};

// A window that may be captured, with the id and name the source list shows ("Window — " and
// its title: a mirroring tool's window is no simulator).
struct SimulatorWindow {
    DeviceInfo device;
    X11Window window;
};

namespace SimulatorWindows {

inline constexpr std::string_view kWindowPrefix = "window:";

// Whether the window belongs to a simulator, emulator or phone mirror.
bool isSimulatorApplication(const X11Window& window);

// The windows to offer, in the order given: simulator-like applications with a title that is
// not empty and does not contain "Remote".
std::vector<SimulatorWindow> select(const std::vector<X11Window>& windows);

std::string deviceID(std::uint32_t windowID);

} // namespace SimulatorWindows

} // namespace varnel
