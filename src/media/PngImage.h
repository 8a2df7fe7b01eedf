#pragma once

#include <opencv2/core.hpp>

#include <string>
#include <string_view>
#include <variant>

namespace varnel {

// A PNG picture as its file holds it: pixels at the file's own bit depth (8 or 16 bits) and
// channel count (grey, grey and alpha, BGR, BGRA; palettes and low bit depths are expanded),
// and the chunks that say how its colours are to be shown, byte for byte.
struct PngImage {
    cv::Mat pixels;
    // Raw chunks (length, type, data, CRC) of the colour description: iCCP, sRGB, gAMA, cHRM,
    // cICP, mDCV, cLLI; and sBIT, which only fits the same channel layout.
    std::string colourChunks;
    std::string bitsChunk;

    // The decoded file, or why it can't be decoded. A file cut short is an error, never a
    // picture with a missing part.
    static std::variant<PngImage, std::string> decode(std::string_view bytes);

    // The PNG file of these pixels carrying the same colour chunks; empty when encoding fails.
    // Opaque BGRA and BGR pictures are written as RGB, which keeps every pixel's value.
    std::string encode() const;
};

} // namespace varnel
