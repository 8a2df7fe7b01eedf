#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

struct zip;

namespace varnel::Zip {

namespace fs = std::filesystem;

// Why a zip could not be written or read; the text is for logs, not for users.
class ZipError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The archive would not fit on the destination's disk; nothing was written.
class InsufficientSpaceError : public ZipError {
public:
    InsufficientSpaceError(std::uint64_t needed, std::uint64_t available)
        : ZipError("not enough disk space"), needed(needed), available(available) {}
    std::uint64_t needed;
    std::uint64_t available;
};

// What an archive may claim before it is refused as hostile.
struct Limits {
    std::uint64_t maxTotalBytes = 256ull << 30; // all entries together, uncompressed
    std::uint64_t maxEntries = 500000;
    std::uint64_t ratioFloor = 1ull << 20; // entries smaller than this may compress any amount
    double maxRatio = 200;                 // uncompressed : compressed, for larger entries
};

// Extracts an untrusted zip below `destination`, which must exist. Refused with ZipError:
// absolute names, "..", empty or backslashed segments, links, duplicate names, more data than
// declared, more than the limits or than the disk can take. macOS resource forks
// ("__MACOSX/", "._*") and ".DS_Store" files are skipped.
void extract(const fs::path& zipFile, const fs::path& destination, const Limits& limits = {});
void extractBuffer(std::string_view bytes, const fs::path& destination, const Limits& limits = {});

// Whether an entry name is one the extractor would write (and where, relative to the
// destination); false for names it refuses or skips.
bool isSafeEntryName(std::string_view name);

// Writes a zip file. Entries are read from their sources when the writer is closed.
class Writer {
public:
    explicit Writer(const fs::path& file);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void addDirectory(const std::string& name);
    // Media that is already compressed is better stored as it is.
    void addFile(const std::string& name, const fs::path& source, bool compress);
    void addBytes(const std::string& name, std::string bytes, bool compress);
    // Writes the archive; `progress`, when given, hears 0..1 along the way.
    void close(const std::function<void(double)>& progress = {});

private:
    zip* archive_ = nullptr;
    std::deque<std::string> buffers_;
    fs::path file_;
};

} // namespace varnel::Zip
