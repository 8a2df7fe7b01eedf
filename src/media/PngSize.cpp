#include "media/PngSize.h"

#include <array>
#include <cstring>
#include <fstream>

namespace varnel {

std::optional<std::pair<int, int>> pngSize(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::array<unsigned char, 24> header{};
    if (!in.read(reinterpret_cast<char*>(header.data()), header.size()))
        return std::nullopt;
    static constexpr unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (std::memcmp(header.data(), kSignature, 8) != 0 || std::memcmp(&header[12], "IHDR", 4) != 0)
        return std::nullopt;
    auto bigEndian = [&](int at) {
        return (header[at] << 24) | (header[at + 1] << 16) | (header[at + 2] << 8) | header[at + 3];
    };
    const int width = bigEndian(16);
    const int height = bigEndian(20);
    if (width <= 0 || height <= 0)
        return std::nullopt;
    return std::pair{width, height};
}

} // namespace varnel
