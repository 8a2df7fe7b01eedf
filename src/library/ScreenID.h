#pragma once

#include <compare>
#include <functional>
#include <string>

namespace varnel {

// A screen's identity across the library: its flow's folder name and its file name.
struct ScreenID {
    std::string folder;
    std::string filename;

    auto operator<=>(const ScreenID&) const = default;
};

} // namespace varnel

template <> struct std::hash<varnel::ScreenID> {
    std::size_t operator()(const varnel::ScreenID& id) const noexcept {
        const std::size_t a = std::hash<std::string>{}(id.folder);
        const std::size_t b = std::hash<std::string>{}(id.filename);
        return a ^ (b + 0x9e3779b97f4a7c15ULL + (a << 6) + (a >> 2));
    }
};
