#include "capture/PngWriter.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace varnel::PngWriter {

namespace {

void putBigEndian(std::string& out, std::uint32_t value) {
    out.push_back(static_cast<char>(value >> 24));
    out.push_back(static_cast<char>(value >> 16));
    out.push_back(static_cast<char>(value >> 8));
    out.push_back(static_cast<char>(value));
}

void putChunk(std::string& out, const char type[4], const std::string& data) {
    putBigEndian(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    out.append(type, 4);
    out += data;
    const auto* bytes = reinterpret_cast<const Bytef*>(out.data() + start);
    putBigEndian(out,
                 static_cast<std::uint32_t>(crc32(0, bytes, static_cast<uInt>(4 + data.size()))));
}

// One slice of rows, filtered with "Sub" (what screenshots compress best with at this speed)
// and deflated as raw deflate. A slice that is not the last ends on a byte boundary with a
// sync flush, so the slices can be laid end to end.
struct Slice {
    std::string deflated;
    uLong adler = 1;
    std::size_t rawSize = 0;
};

Slice compressRows(const std::uint8_t* bgra, std::size_t stride, int width, int firstRow,
                   int endRow, bool last) {
    const std::size_t rowBytes = 1 + static_cast<std::size_t>(width) * 3;
    std::vector<std::uint8_t> raw(rowBytes * static_cast<std::size_t>(endRow - firstRow));
    for (int y = firstRow; y < endRow; ++y) {
        const std::uint8_t* in = bgra + static_cast<std::size_t>(y) * stride;
        std::uint8_t* out = raw.data() + rowBytes * static_cast<std::size_t>(y - firstRow);
        *out++ = 1; // Sub
        std::uint8_t r = 0, g = 0, b = 0;
        for (int x = 0; x < width; ++x, in += 4, out += 3) {
            out[0] = static_cast<std::uint8_t>(in[2] - r);
            out[1] = static_cast<std::uint8_t>(in[1] - g);
            out[2] = static_cast<std::uint8_t>(in[0] - b);
            r = in[2];
            g = in[1];
            b = in[0];
        }
    }

    Slice slice;
    slice.rawSize = raw.size();
    slice.adler = adler32(1, raw.data(), static_cast<uInt>(raw.size()));
    z_stream stream{};
    if (deflateInit2(&stream, 1, Z_DEFLATED, -15, 8, Z_RLE) != Z_OK)
        throw std::runtime_error("The PNG compressor could not start.");
    slice.deflated.resize(deflateBound(&stream, static_cast<uLong>(raw.size())) + 16);
    stream.next_in = raw.data();
    stream.avail_in = static_cast<uInt>(raw.size());
    stream.next_out = reinterpret_cast<Bytef*>(slice.deflated.data());
    stream.avail_out = static_cast<uInt>(slice.deflated.size());
    const int result = deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
    const bool complete = last ? result == Z_STREAM_END : (result == Z_OK && stream.avail_in == 0);
    slice.deflated.resize(stream.total_out);
    deflateEnd(&stream);
    if (!complete)
        throw std::runtime_error("The PNG compressor failed.");
    return slice;
}

} // namespace

std::string encode(const std::uint8_t* bgra, int width, int height, std::size_t stride) {
    if (width < 1 || height < 1 || stride < static_cast<std::size_t>(width) * 4)
        throw std::invalid_argument("A picture to encode needs a size and its rows.");

    // Slices of at least 64 rows, one per core: enough work each to pay for a thread.
    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    const int slices = std::clamp(height / 64, 1, std::min(cores, 8));
    const int rowsPerSlice = (height + slices - 1) / slices;
    std::vector<std::future<Slice>> pending;
    for (int i = 1; i < slices; ++i) {
        const int first = i * rowsPerSlice;
        const int end = std::min(height, first + rowsPerSlice);
        pending.push_back(std::async(std::launch::async, compressRows, bgra, stride, width, first,
                                     end, end == height));
    }
    std::vector<Slice> done;
    done.push_back(
        compressRows(bgra, stride, width, 0, std::min(height, rowsPerSlice), slices == 1));
    for (auto& future : pending)
        done.push_back(future.get());

    std::string header;
    putBigEndian(header, static_cast<std::uint32_t>(width));
    putBigEndian(header, static_cast<std::uint32_t>(height));
    header += std::string{8, 2, 0, 0, 0}; // 8-bit RGB, deflate, adaptive filters, no interlace

    std::string idat = "\x78\x01"; // zlib header: deflate, 32 KiB window, fastest
    uLong adler = 1;
    for (const auto& slice : done) {
        idat += slice.deflated;
        adler = adler32_combine(adler, slice.adler, static_cast<z_off_t>(slice.rawSize));
    }
    putBigEndian(idat, static_cast<std::uint32_t>(adler));

    std::string png = "\x89PNG\r\n\x1a\n";
    putChunk(png, "IHDR", header);
    putChunk(png, "IDAT", idat);
    putChunk(png, "IEND", {});
    return png;
}

} // namespace varnel::PngWriter
