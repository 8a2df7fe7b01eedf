#include "capture/VideoNodes.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <system_error>

namespace varnel::VideoNodes {

namespace {

// "video12" → 12; -1 for any other name.
int nodeNumber(const std::string& name) {
    constexpr std::string_view prefix = "video";
    if (name.size() <= prefix.size() || !name.starts_with(prefix))
        return -1;
    const std::string digits = name.substr(prefix.size());
    if (!std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c); }))
        return -1;
    return digits.size() > 6 ? -1 : std::stoi(digits);
}

} // namespace

std::vector<std::filesystem::path> list(const std::filesystem::path& dev) {
    std::vector<std::pair<int, std::filesystem::path>> found;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dev, ec)) {
        const int number = nodeNumber(entry.path().filename().string());
        if (number >= 0)
            found.emplace_back(number, entry.path());
    }
    std::sort(found.begin(), found.end());
    std::vector<std::filesystem::path> nodes;
    for (auto& [number, path] : found)
        nodes.push_back(std::move(path));
    return nodes;
}

bool accessible(const std::filesystem::path& node) {
    return ::access(node.c_str(), R_OK | W_OK) == 0;
}

std::vector<std::filesystem::path>
unreadable(const std::filesystem::path& dev,
           const std::function<bool(const std::filesystem::path&)>& canOpen) {
    std::vector<std::filesystem::path> out;
    for (auto& node : list(dev)) {
        if (!canOpen(node))
            out.push_back(std::move(node));
    }
    return out;
}

std::optional<Capabilities> query(const std::filesystem::path& node) {
    const int fd = ::open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    v4l2_capability caps{};
    const bool answered = ::ioctl(fd, VIDIOC_QUERYCAP, &caps) == 0;
    ::close(fd);
    if (!answered)
        return std::nullopt;
    // A node of a multi-node device says what it does itself in device_caps.
    const std::uint32_t what =
        (caps.capabilities & V4L2_CAP_DEVICE_CAPS) ? caps.device_caps : caps.capabilities;
    Capabilities out;
    out.card = std::string(reinterpret_cast<const char*>(caps.card),
                           strnlen(reinterpret_cast<const char*>(caps.card), sizeof caps.card));
    out.capture = (what & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE)) != 0;
    return out;
}

std::vector<CaptureNode> captureNodes(const std::filesystem::path& dev, const Query& ask) {
    std::vector<CaptureNode> out;
    for (auto& node : list(dev)) {
        const auto caps = ask(node);
        if (caps && caps->capture)
            out.push_back({std::move(node), caps->card.empty() ? "Video device" : caps->card});
    }
    return out;
}

} // namespace varnel::VideoNodes
