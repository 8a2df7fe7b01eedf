#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// The video device nodes (/dev/videoN) of this machine. GStreamer lists only the cameras it
// can open, so one that this user may not read is simply missing from its list: these say so.
namespace VideoNodes {

// Every "videoN" node in `dev`, by number.
std::vector<std::filesystem::path> list(const std::filesystem::path& dev = "/dev");

// Whether this process may open the node for reading and writing.
bool accessible(const std::filesystem::path& node);

// The nodes that this user may not open.
std::vector<std::filesystem::path>
unreadable(const std::filesystem::path& dev = "/dev",
           const std::function<bool(const std::filesystem::path&)>& canOpen = accessible);

// What a node says of itself when asked (VIDIOC_QUERYCAP).
struct Capabilities {
    std::string card;     // the device's name, such as a loopback's card label
    bool capture = false; // it delivers pictures (loopback nodes also take them)
};
using Query = std::function<std::optional<Capabilities>(const std::filesystem::path&)>;

// Asks the node; none when it can't be opened or is no video device.
std::optional<Capabilities> query(const std::filesystem::path& node);

struct CaptureNode {
    std::filesystem::path node;
    std::string card;
};

// Every node that delivers pictures, loopback devices that also take them included (GStreamer's
// own list leaves those out).
std::vector<CaptureNode> captureNodes(const std::filesystem::path& dev = "/dev",
                                      const Query& ask = query);

} // namespace VideoNodes

} // namespace varnel
