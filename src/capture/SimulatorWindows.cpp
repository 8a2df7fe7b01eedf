#include "capture/SimulatorWindows.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace varnel::SimulatorWindows {

namespace {

// WM_CLASS names of the Android Emulator (its Qt front end and bare QEMU), scrcpy and the
// AirPlay receivers that mirror an iPhone.
constexpr std::array<std::string_view, 7> kMirrorClasses = {
    "emulator", "qemu-system-x86_64", "qemu-system-aarch64", "scrcpy", "uxplay", "rpiplay",
    "airplay"};

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool isMirror(std::string_view name) {
    const std::string low = lowered(name);
    return std::find(kMirrorClasses.begin(), kMirrorClasses.end(), low) != kMirrorClasses.end();
}

} // namespace

bool isSimulatorApplication(const X11Window& window) {
    if (window.wmClass == "Simulator" || window.wmInstance == "Simulator")
        return true;
    return isMirror(window.wmClass) || isMirror(window.wmInstance);
}

std::string deviceID(std::uint32_t windowID) {
    return std::string(kWindowPrefix) + std::to_string(windowID);
}

std::vector<SimulatorWindow> select(const std::vector<X11Window>& windows) {
    std::vector<SimulatorWindow> out;
    for (const auto& window : windows) {
        if (!isSimulatorApplication(window) || window.title.empty())
            continue;
        if (window.title.find("Remote") != std::string::npos)
            continue;
        out.push_back(SimulatorWindow{
            DeviceInfo{deviceID(window.id), "Window — " + window.title, true}, window});
    }
    return out;
}

} // namespace varnel::SimulatorWindows
