#include "capture/VideoNodes.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
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

} // namespace varnel::VideoNodes
