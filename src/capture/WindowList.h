#pragma once

#include "capture/SimulatorWindows.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel::WindowList {

// The viewable top-level windows of the X display (`display` or $DISPLAY): the window
// manager's _NET_CLIENT_LIST, or the root's mapped children when no window manager keeps one.
// None when the display can't be opened.
std::optional<std::vector<X11Window>> list(const std::string& display = {});

} // namespace varnel::WindowList
