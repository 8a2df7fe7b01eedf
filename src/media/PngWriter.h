#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace varnel::PngWriter {

// Encodes a BGRA (or BGRx) picture as an opaque 8-bit RGB PNG. Rows are filtered and
// deflated in slices on several threads; the slices join into one zlib stream, so any PNG
// reader reads the file.
std::string encode(const std::uint8_t* bgra, int width, int height, std::size_t stride);

} // namespace varnel::PngWriter
