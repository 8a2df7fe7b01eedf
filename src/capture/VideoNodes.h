#pragma once

#include <filesystem>
#include <functional>
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

} // namespace VideoNodes

} // namespace varnel
