#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace varnel {

// Width and height from a PNG file's header, without decoding the image.
std::optional<std::pair<int, int>> pngSize(const std::filesystem::path& file);

// The largest screen Varnel takes. A PNG of a few kilobytes can claim any size, and decoding
// it then takes 4 bytes a pixel (and the text pass several times that).
inline constexpr std::int64_t kMaxScreenSide = 16384;
inline constexpr std::int64_t kMaxScreenPixels = 100'000'000;

// Why a screen of this size is refused ("… is 20000 × 20000 pixels; …"), or none.
std::optional<std::string> oversizeProblem(const std::string& name, std::int64_t width,
                                           std::int64_t height);
// For a PNG file, whose header is read; none for other files and for PNGs within the cap.
std::optional<std::string> oversizeProblem(const std::filesystem::path& file);

} // namespace varnel
