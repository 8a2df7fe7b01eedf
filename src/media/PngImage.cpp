#include "media/PngImage.h"

#include "media/PngWriter.h"

#include <opencv2/imgproc.hpp>
#include <png.h>

#include <array>
#include <cstring>
#include <vector>

namespace varnel {

namespace {

constexpr std::string_view kSignature{"\x89PNG\r\n\x1a\n", 8};
constexpr std::size_t kIHDREnd = 8 + 4 + 4 + 13 + 4;

std::uint32_t bigEndian(const char* p) {
    const auto* b = reinterpret_cast<const unsigned char*>(p);
    return (std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) | (std::uint32_t(b[2]) << 8) |
           std::uint32_t(b[3]);
}

bool isColourChunk(std::string_view type) {
    static constexpr std::array<std::string_view, 8> kTypes{"iCCP", "sRGB", "gAMA", "cHRM",
                                                            "cICP", "mDCV", "cLLI", "cLLi"};
    for (auto known : kTypes)
        if (type == known)
            return true;
    return false;
}

// The colour chunks before the first IDAT, raw. The decoder checks the stream itself.
void collectColourChunks(std::string_view bytes, PngImage& image) {
    std::size_t at = kSignature.size();
    while (at + 12 <= bytes.size()) {
        const std::uint32_t length = bigEndian(bytes.data() + at);
        const std::string_view type = bytes.substr(at + 4, 4);
        if (length > bytes.size() - at - 12 || type == "IDAT")
            return;
        const std::string_view chunk = bytes.substr(at, length + 12);
        if (isColourChunk(type))
            image.colourChunks.append(chunk);
        else if (type == "sBIT")
            image.bitsChunk = chunk;
        at += length + 12;
    }
}

struct Reader {
    std::string_view bytes;
    std::size_t at = 0;
    char message[200] = {};
};

void readBytes(png_structp png, png_bytep out, png_size_t count) {
    auto* reader = static_cast<Reader*>(png_get_io_ptr(png));
    if (count > reader->bytes.size() - reader->at)
        png_error(png, "the file ends before the picture does");
    std::memcpy(out, reader->bytes.data() + reader->at, count);
    reader->at += count;
}

void failed(png_structp png, png_const_charp message) {
    auto* reader = static_cast<Reader*>(png_get_error_ptr(png));
    std::snprintf(reader->message, sizeof reader->message, "%s", message);
    png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

// Decodes into `pixels`. Whatever changes after setjmp lives in the caller's objects, so a
// jump back leaves nothing half-made here.
bool decodeInto(Reader& reader, cv::Mat& pixels, std::vector<png_bytep>& rows) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader, failed, ignoreWarning);
    if (!png)
        return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        return false;
    }
    png_set_read_fn(png, &reader, readBytes);
    png_set_crc_action(png, PNG_CRC_ERROR_QUIT, PNG_CRC_ERROR_QUIT);
    png_read_info(png, info);
    const int colourType = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);
    if (colourType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (colourType == PNG_COLOR_TYPE_GRAY && depth < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_tRNS_to_alpha(png);
    if (depth == 16)
        png_set_swap(png); // little-endian, as the CPU's 16-bit values
    png_set_bgr(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const int channels = png_get_channels(png, info);
    const int outDepth = png_get_bit_depth(png, info);
    const auto width = static_cast<int>(png_get_image_width(png, info));
    const auto height = static_cast<int>(png_get_image_height(png, info));
    pixels.create(height, width, CV_MAKETYPE(outDepth == 16 ? CV_16U : CV_8U, channels));
    rows.resize(static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y)
        rows[static_cast<std::size_t>(y)] = pixels.ptr<png_byte>(y);
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

void appendBytes(png_structp png, png_bytep data, png_size_t count) {
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<char*>(data), count);
}

void flushNothing(png_structp) {}

bool encodeWithLibpng(const cv::Mat& pixels, std::string& out, std::vector<png_bytep>& rows) {
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, ignoreWarning);
    if (!png)
        return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, info ? &info : nullptr);
        return false;
    }
    static constexpr int kTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA,
                                     PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA};
    png_set_write_fn(png, &out, appendBytes, flushNothing);
    png_set_compression_level(png, 2);
    png_set_IHDR(png, info, static_cast<png_uint_32>(pixels.cols),
                 static_cast<png_uint_32>(pixels.rows), pixels.depth() == CV_16U ? 16 : 8,
                 kTypes[pixels.channels() - 1], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (pixels.depth() == CV_16U)
        png_set_swap(png);
    png_set_bgr(png);
    for (int y = 0; y < pixels.rows; ++y)
        rows.push_back(const_cast<png_bytep>(pixels.ptr<png_byte>(y)));
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

bool isOpaque(const cv::Mat& bgra) {
    cv::Mat alpha;
    cv::extractChannel(bgra, alpha, 3);
    double lowest = 0;
    cv::minMaxLoc(alpha, &lowest);
    return lowest >= 255;
}

} // namespace

std::variant<PngImage, std::string> PngImage::decode(std::string_view bytes) {
    if (!bytes.starts_with(kSignature))
        return std::string("it is not a PNG file");
    PngImage image;
    Reader reader{bytes};
    std::vector<png_bytep> rows;
    if (!decodeInto(reader, image.pixels, rows))
        return std::string(reader.message[0] ? reader.message : "libpng could not start");
    collectColourChunks(bytes, image);
    return image;
}

std::string PngImage::encode() const {
    if (pixels.empty() || pixels.channels() > 4 ||
        (pixels.depth() != CV_8U && pixels.depth() != CV_16U))
        return {};
    std::string png;
    bool rgb = false; // written as 8-bit RGB whatever the channels in memory
    if (pixels.depth() == CV_8U && pixels.channels() == 4 && isOpaque(pixels)) {
        png = PngWriter::encode(pixels.data, pixels.cols, pixels.rows, pixels.step[0]);
        rgb = true;
    } else if (pixels.depth() == CV_8U && pixels.channels() == 3) {
        cv::Mat bgra;
        cv::cvtColor(pixels, bgra, cv::COLOR_BGR2BGRA);
        png = PngWriter::encode(bgra.data, bgra.cols, bgra.rows, bgra.step[0]);
        rgb = true;
    } else if (std::vector<png_bytep> rows; !encodeWithLibpng(pixels, png, rows)) {
        return {};
    }
    if (png.size() < kIHDREnd)
        return {};
    // The colour chunks go right after the header: before any palette and picture data.
    std::string chunks = colourChunks;
    const bool sameLayout = rgb ? pixels.channels() >= 3 && bitsChunk.size() == 15
                                : bitsChunk.size() == 12 + std::size_t(pixels.channels());
    if (sameLayout)
        chunks += bitsChunk;
    png.insert(kIHDREnd, chunks);
    return png;
}

} // namespace varnel
