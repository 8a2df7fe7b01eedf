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

std::optional<std::string> oversizeProblem(const std::string& name, std::int64_t width,
                                           std::int64_t height) {
    if (width <= kMaxScreenSide && height <= kMaxScreenSide && width * height <= kMaxScreenPixels)
        return std::nullopt;
    return "“" + name + "” is " + std::to_string(width) + " × " + std::to_string(height) +
           " pixels; Varnel takes screens of up to " + std::to_string(kMaxScreenSide) +
           " pixels a side and " + std::to_string(kMaxScreenPixels / 1'000'000) + " megapixels.";
}

std::optional<std::string> oversizeProblem(const std::filesystem::path& file) {
    const auto size = pngSize(file);
    if (!size)
        return std::nullopt;
    return oversizeProblem(file.filename().string(), size->first, size->second);
}

} // namespace varnel
