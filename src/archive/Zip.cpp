#include "archive/Zip.h"

#include <zip.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace varnel::Zip {

namespace {

struct ArchiveCloser {
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
using Archive = std::unique_ptr<zip_t, ArchiveCloser>;

std::string libzipError(zip_t* archive) {
    return zip_strerror(archive);
}

bool isSkipped(std::string_view name) {
    if (name.starts_with("__MACOSX/"))
        return true;
    if (name.ends_with('/'))
        name.remove_suffix(1);
    const auto slash = name.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? name : name.substr(slash + 1);
    return last.starts_with("._") || last == ".DS_Store";
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

void writeAll(int fd, const char* data, std::size_t size, const std::string& name) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            throw ZipError("couldn’t write " + name + ": " + std::strerror(errno));
        data += n;
        size -= static_cast<std::size_t>(n);
    }
}

struct Entry {
    zip_uint64_t index;
    std::string name;
    std::uint64_t size;
};

// Checks every entry before anything is written, so that a hostile archive leaves nothing.
std::vector<Entry> plan(zip_t* archive, const fs::path& destination, const Limits& limits) {
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count < 0 || static_cast<std::uint64_t>(count) > limits.maxEntries)
        throw ZipError("too many entries");
    std::vector<Entry> entries;
    std::set<std::string> names;
    std::uint64_t total = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(archive, index, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_NAME))
            throw ZipError("unreadable entry: " + libzipError(archive));
        const std::string name = stat.name;
        if (isSkipped(name))
            continue;
        if (!isSafeEntryName(name))
            throw ZipError("unsafe entry name “" + name + "”");
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        if (zip_file_get_external_attributes(archive, index, 0, &system, &attributes) == 0 &&
            system == ZIP_OPSYS_UNIX && ((attributes >> 16) & S_IFMT) == S_IFLNK)
            throw ZipError("link entry “" + name + "”");
        std::string key = name.ends_with('/') ? name.substr(0, name.size() - 1) : name;
        if (!names.insert(key).second)
            throw ZipError("duplicate entry “" + name + "”");
        const std::uint64_t size = (stat.valid & ZIP_STAT_SIZE) ? stat.size : 0;
        const std::uint64_t packed = (stat.valid & ZIP_STAT_COMP_SIZE) ? stat.comp_size : 0;
        if (size > limits.ratioFloor &&
            (packed == 0 ||
             static_cast<double>(size) / static_cast<double>(packed) > limits.maxRatio))
            throw ZipError("entry “" + name + "” expands too much");
        total += size;
        if (total > limits.maxTotalBytes)
            throw ZipError("the archive is larger than allowed");
        entries.push_back({index, name, size});
    }
    std::error_code ec;
    const auto space = fs::space(destination, ec);
    if (!ec && total > space.available)
        throw InsufficientSpaceError(total, space.available);
    return entries;
}

void extractEntry(zip_t* archive, const Entry& entry, const fs::path& destination) {
    const fs::path target = destination / fs::path(entry.name).relative_path();
    std::error_code ec;
    if (entry.name.ends_with('/')) {
        fs::create_directories(target, ec);
        if (ec)
            throw ZipError("couldn’t create " + target.string() + ": " + ec.message());
        return;
    }
    fs::create_directories(target.parent_path(), ec);
    if (ec)
        throw ZipError("couldn’t create " + target.parent_path().string() + ": " + ec.message());

    std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> in(zip_fopen_index(archive, entry.index, 0),
                                                         &zip_fclose);
    if (!in)
        throw ZipError("couldn’t read “" + entry.name + "”: " + libzipError(archive));
    FileDescriptor out(
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (out.get() < 0)
        throw ZipError("couldn’t create " + target.string() + ": " + std::strerror(errno));
    std::vector<char> buffer(1 << 20);
    std::uint64_t written = 0;
    while (true) {
        const zip_int64_t n = zip_fread(in.get(), buffer.data(), buffer.size());
        if (n < 0)
            throw ZipError("couldn’t read “" + entry.name +
                           "”: " + zip_error_strerror(zip_file_get_error(in.get())));
        if (n == 0)
            break;
        written += static_cast<std::uint64_t>(n);
        if (written > entry.size)
            throw ZipError("entry “" + entry.name + "” holds more than it declares");
        writeAll(out.get(), buffer.data(), static_cast<std::size_t>(n), target.string());
    }
}

void extractArchive(zip_t* archive, const fs::path& destination, const Limits& limits) {
    for (const Entry& entry : plan(archive, destination, limits))
        extractEntry(archive, entry, destination);
}

} // namespace

bool isSafeEntryName(std::string_view name) {
    if (name.empty() || name.front() == '/' || name.find('\\') != std::string_view::npos ||
        name.find('\0') != std::string_view::npos)
        return false;
    if (name.size() >= 2 && name[1] == ':')
        return false;
    std::string_view rest = name.ends_with('/') ? name.substr(0, name.size() - 1) : name;
    std::size_t start = 0;
    while (true) {
        const auto slash = rest.find('/', start);
        const auto segment = rest.substr(start, slash - start);
        if (segment.empty() || segment == "." || segment == "..")
            return false;
        if (slash == std::string_view::npos)
            return true;
        start = slash + 1;
    }
}

void extract(const fs::path& zipFile, const fs::path& destination, const Limits& limits) {
    int error = 0;
    Archive archive(zip_open(zipFile.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error));
    if (!archive) {
        zip_error_t details;
        zip_error_init_with_code(&details, error);
        std::string text = zip_error_strerror(&details);
        zip_error_fini(&details);
        throw ZipError("couldn’t open " + zipFile.string() + ": " + text);
    }
    extractArchive(archive.get(), destination, limits);
}

void extractBuffer(std::string_view bytes, const fs::path& destination, const Limits& limits) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
    if (!source) {
        zip_error_fini(&error);
        throw ZipError("couldn’t read the archive");
    }
    Archive archive(zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error));
    if (!archive) {
        zip_source_free(source);
        std::string text = zip_error_strerror(&error);
        zip_error_fini(&error);
        throw ZipError("couldn’t open the archive: " + text);
    }
    zip_error_fini(&error);
    extractArchive(archive.get(), destination, limits);
}

Writer::Writer(const fs::path& file) : file_(file) {
    int error = 0;
    archive_ = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!archive_)
        throw ZipError("couldn’t create " + file.string());
}

Writer::~Writer() {
    if (archive_)
        zip_discard(archive_);
}

void Writer::addDirectory(const std::string& name) {
    if (zip_dir_add(archive_, name.c_str(), ZIP_FL_ENC_UTF_8) < 0)
        throw ZipError("couldn’t add " + name + ": " + libzipError(archive_));
}

void Writer::addFile(const std::string& name, const fs::path& source, bool compress) {
    zip_source_t* data = zip_source_file(archive_, source.c_str(), 0, -1);
    if (!data)
        throw ZipError("couldn’t read " + source.string() + ": " + libzipError(archive_));
    const zip_int64_t index = zip_file_add(archive_, name.c_str(), data, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(data);
        throw ZipError("couldn’t add " + name + ": " + libzipError(archive_));
    }
    if (!compress)
        zip_set_file_compression(archive_, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
}

void Writer::addBytes(const std::string& name, std::string bytes, bool compress) {
    const std::string& kept = buffers_.emplace_back(std::move(bytes));
    zip_source_t* data = zip_source_buffer(archive_, kept.data(), kept.size(), 0);
    const zip_int64_t index =
        data ? zip_file_add(archive_, name.c_str(), data, ZIP_FL_ENC_UTF_8) : -1;
    if (index < 0) {
        if (data)
            zip_source_free(data);
        throw ZipError("couldn’t add " + name + ": " + libzipError(archive_));
    }
    if (!compress)
        zip_set_file_compression(archive_, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
}

void Writer::close(const std::function<void(double)>& progress) {
    if (progress) {
        zip_register_progress_callback_with_state(
            archive_, 0.01,
            [](zip_t*, double done, void* state) {
                (*static_cast<const std::function<void(double)>*>(state))(done);
            },
            nullptr, const_cast<std::function<void(double)>*>(&progress));
    }
    if (zip_close(archive_) != 0)
        throw ZipError("couldn’t write " + file_.string() + ": " + libzipError(archive_));
    archive_ = nullptr;
}

} // namespace varnel::Zip
