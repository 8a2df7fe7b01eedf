#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace varnel::MovieMatrix {

// A QuickTime track's display matrix as stored: a, b, u, c, d, v, x, y, w (a to d and x, y in
// 16.16 fixed point, u, v, w in 2.30). It is how players turn the stored frames (a phone held
// sideways records them turned).
using Matrix = std::array<std::int32_t, 9>;

inline constexpr Matrix kIdentity = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

// The matrix of the file's first video track; none when the file has no video track or its
// atoms can't be read.
std::optional<Matrix> ofVideoTrack(const std::filesystem::path& movie);

// Writes `matrix` into the file's first video track in place; false when there is none or the
// write failed.
bool setOnVideoTrack(const std::filesystem::path& movie, const Matrix& matrix);

} // namespace varnel::MovieMatrix
