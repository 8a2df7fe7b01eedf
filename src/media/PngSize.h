#pragma once

#include <filesystem>
#include <optional>
#include <utility>

namespace varnel {

// Width and height from a PNG file's header, without decoding the image.
std::optional<std::pair<int, int>> pngSize(const std::filesystem::path& file);

} // namespace varnel
