#include "media/MovieMatrix.h"

#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varnel::MovieMatrix {

namespace {

std::uint64_t bigEndian(const unsigned char* bytes, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | bytes[i];
    return value;
}

struct Atom {
    std::string type;
    std::uint64_t start = 0; // of the atom's header
    std::uint64_t body = 0;  // where its contents begin
    std::uint64_t end = 0;
};

// The atoms directly inside [from, to) of `bytes`; stops at the first malformed one.
std::vector<Atom> atomsIn(const std::string& bytes, std::uint64_t from, std::uint64_t to) {
    std::vector<Atom> atoms;
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    while (from + 8 <= to) {
        Atom atom{bytes.substr(from + 4, 4), from, from + 8, 0};
        std::uint64_t size = bigEndian(data + from, 4);
        if (size == 1) {
            if (from + 16 > to)
                break;
            size = bigEndian(data + from + 8, 8);
            atom.body = from + 16;
        } else if (size == 0) {
            size = to - from;
        }
        if (size < atom.body - from || size > to - from)
            break;
        atom.end = from + size;
        atoms.push_back(atom);
        from = atom.end;
    }
    return atoms;
}

std::optional<Atom> child(const std::string& bytes, const Atom& parent, std::string_view type) {
    for (const auto& atom : atomsIn(bytes, parent.body, parent.end))
        if (atom.type == type)
            return atom;
    return std::nullopt;
}

// Top-level atoms are walked by their headers alone, so that a large media atom isn't read.
std::optional<std::pair<std::uint64_t, std::string>> readMovieAtom(std::ifstream& in) {
    std::uint64_t at = 0;
    unsigned char header[16];
    while (in.seekg(static_cast<std::streamoff>(at)) &&
           in.read(reinterpret_cast<char*>(header), 8)) {
        std::uint64_t size = bigEndian(header, 4);
        const std::string_view type(reinterpret_cast<const char*>(header) + 4, 4);
        if (size == 1) {
            if (!in.read(reinterpret_cast<char*>(header) + 8, 8))
                return std::nullopt;
            size = bigEndian(header + 8, 8);
        }
        if (type == "moov") {
            if (size < 8 || size > (64u << 20))
                return std::nullopt;
            std::string movie(size, '\0');
            if (!in.seekg(static_cast<std::streamoff>(at)) ||
                !in.read(movie.data(), static_cast<std::streamsize>(size)))
                return std::nullopt;
            return std::pair(at, std::move(movie));
        }
        if (size < 8)
            return std::nullopt;
        at += size;
    }
    return std::nullopt;
}

// Where the matrix of the first video track lies in the file.
std::optional<std::uint64_t> matrixOffset(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const auto movie = readMovieAtom(in);
    if (!movie)
        return std::nullopt;
    const auto& [moovAt, bytes] = *movie;
    const auto top = atomsIn(bytes, 0, bytes.size());
    if (top.empty())
        return std::nullopt;
    for (const auto& track : atomsIn(bytes, top[0].body, top[0].end)) {
        if (track.type != "trak")
            continue;
        const auto media = child(bytes, track, "mdia");
        const auto handler = media ? child(bytes, *media, "hdlr") : std::nullopt;
        const auto header = child(bytes, track, "tkhd");
        if (!handler || !header || handler->end - handler->body < 12 ||
            bytes.compare(handler->body + 8, 4, "vide") != 0)
            continue;
        // version and flags, then times, id and duration (wider in version 1), then reserved
        // words, layer, group and volume.
        const bool wide = bytes[header->body] == 1;
        const std::uint64_t matrix = header->body + 4 + (wide ? 32 : 20) + 8 + 8;
        if (matrix + 36 > header->end)
            return std::nullopt;
        return moovAt + matrix;
    }
    return std::nullopt;
}

} // namespace

std::optional<Matrix> ofVideoTrack(const std::filesystem::path& movie) {
    const auto offset = matrixOffset(movie);
    if (!offset)
        return std::nullopt;
    std::ifstream in(movie, std::ios::binary);
    unsigned char bytes[36];
    if (!in.seekg(static_cast<std::streamoff>(*offset)) ||
        !in.read(reinterpret_cast<char*>(bytes), 36))
        return std::nullopt;
    Matrix matrix{};
    for (int i = 0; i < 9; ++i)
        matrix[i] =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(bigEndian(bytes + 4 * i, 4)));
    return matrix;
}

bool setOnVideoTrack(const std::filesystem::path& movie, const Matrix& matrix) {
    const auto offset = matrixOffset(movie);
    if (!offset)
        return false;
    unsigned char bytes[36];
    for (int i = 0; i < 9; ++i) {
        const auto value = static_cast<std::uint32_t>(matrix[i]);
        for (int b = 0; b < 4; ++b)
            bytes[4 * i + b] = static_cast<unsigned char>(value >> (24 - 8 * b));
    }
    std::fstream out(movie, std::ios::binary | std::ios::in | std::ios::out);
    return out.seekp(static_cast<std::streamoff>(*offset)) &&
           out.write(reinterpret_cast<const char*>(bytes), 36) && out.flush();
}

} // namespace varnel::MovieMatrix
