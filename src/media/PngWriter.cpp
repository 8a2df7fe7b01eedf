#include "media/PngWriter.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
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
    const std::size_t rawSize = rowBytes * static_cast<std::size_t>(endRow - firstRow);
    // Uninitialized on purpose: every byte is written below, and zeroing costs a pass.
    std::unique_ptr<std::uint8_t[]> raw(new std::uint8_t[rawSize]);
    for (int y = firstRow; y < endRow; ++y) {
        const std::uint8_t* in = bgra + static_cast<std::size_t>(y) * stride;
        std::uint8_t* out = raw.get() + rowBytes * static_cast<std::size_t>(y - firstRow);
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
    slice.rawSize = rawSize;
    slice.adler = adler32(1, raw.get(), static_cast<uInt>(rawSize));
    z_stream stream{};
    if (deflateInit2(&stream, 1, Z_DEFLATED, -15, 8, Z_RLE) != Z_OK)
        throw std::runtime_error("The PNG compressor could not start.");
    // Room for the worst case; pages that are never written are never touched.
    const std::size_t bound = deflateBound(&stream, static_cast<uLong>(rawSize)) + 16;
    std::unique_ptr<char[]> out(new char[bound]);
    stream.next_in = raw.get();
    stream.avail_in = static_cast<uInt>(rawSize);
    stream.next_out = reinterpret_cast<Bytef*>(out.get());
    stream.avail_out = static_cast<uInt>(bound);
    const int result = deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
    const bool complete = last ? result == Z_STREAM_END : (result == Z_OK && stream.avail_in == 0);
    slice.deflated.assign(out.get(), stream.total_out);
    deflateEnd(&stream);
    if (!complete)
        throw std::runtime_error("The PNG compressor failed.");
    return slice;
}

} // namespace

std::string encode(const std::uint8_t* bgra, int width, int height, std::size_t stride) {
    if (width < 1 || height < 1 || stride < static_cast<std::size_t>(width) * 4)
        throw std::invalid_argument("A picture to encode needs a size and its rows.");

    // More slices than cores, taken in turn by one thread per core, so that a slice of photo
    // and a slice of flat background even out. Each slice is at least 64 rows.
    const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    const int slices = std::clamp(height / 64, 1, 16);
    const int rowsPerSlice = (height + slices - 1) / slices;
    std::vector<Slice> done(static_cast<std::size_t>(slices));
    std::atomic<int> next{0};
    std::exception_ptr failure;
    std::mutex failureMutex;
    auto work = [&] {
        for (int i = next++; i < slices; i = next++) {
            const int first = i * rowsPerSlice;
            const int end = std::min(height, first + rowsPerSlice);
            try {
                done[static_cast<std::size_t>(i)] =
                    compressRows(bgra, stride, width, first, end, end == height);
            } catch (...) {
                std::lock_guard lock(failureMutex);
                failure = std::current_exception();
            }
        }
    };
    {
        std::vector<std::jthread> helpers;
        for (int i = 1; i < std::min(cores, slices); ++i)
            helpers.emplace_back(work);
        work();
    }
    if (failure)
        std::rethrow_exception(failure);

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
