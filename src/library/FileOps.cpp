#include "library/FileOps.h"

#include "library/Errors.h"
#include "library/Text.h"
#include "library/Uuid.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace varnel::FileOps {
namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

void writeAll(int fd, std::string_view bytes, const fs::path& file) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw FileError("write", file, lastError());
        }
        written += static_cast<std::size_t>(n);
    }
}

// Says so when a copy failed for want of space: file systems report that as ENOSPC, EDQUOT or,
// through some copy paths, as a bare I/O error.
std::optional<std::string> diskFull(const fs::path& from, const fs::path& to,
                                    std::error_code error) {
    std::error_code ec;
    const std::uintmax_t needed = fs::is_directory(from, ec) ? 0 : fs::file_size(from, ec);
    const auto space = fs::space(to.parent_path(), ec);
    const bool noSpace = error == std::errc::no_space_on_device || error.value() == EDQUOT ||
                         (!ec && needed > space.available);
    if (!noSpace)
        return std::nullopt;
    std::string reason = "the disk is full";
    if (!ec && needed > 0)
        reason += " (it needs " + Text::byteCount(needed) + ", and " +
                  Text::byteCount(space.available) + " are free)";
    return reason;
}

} // namespace

void syncFolder(const fs::path& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

std::optional<std::string> readIfExists(const fs::path& file) {
    std::error_code statError;
    if (fs::is_directory(file, statError))
        throw FileError("read", file, std::make_error_code(std::errc::is_a_directory));
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        const auto ec = lastError();
        std::error_code statError;
        if (!fs::exists(file, statError) && !statError)
            return std::nullopt;
        throw FileError("read", file, ec);
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        throw FileError("read", file, lastError());
    return bytes;
}

std::string read(const fs::path& file) {
    auto bytes = readIfExists(file);
    if (!bytes)
        throw FileError("read", file, std::make_error_code(std::errc::no_such_file_or_directory));
    return std::move(*bytes);
}

void writeAtomically(const fs::path& file, std::string_view bytes) {
    const fs::path temp =
        file.parent_path() / ("." + file.filename().string() + "." + newUUIDString() + ".tmp");
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw FileError("write", file, lastError());
    try {
        writeAll(fd, bytes, file);
        if (::fsync(fd) != 0)
            throw FileError("write", file, lastError());
    } catch (...) {
        ::close(fd);
        ::unlink(temp.c_str());
        throw;
    }
    ::close(fd);
    if (::rename(temp.c_str(), file.c_str()) != 0) {
        const auto ec = lastError();
        ::unlink(temp.c_str());
        throw FileError("write", file, ec);
    }
    syncFolder(file.parent_path());
}

void move(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return;
    const int error = errno;
    if (error == EINVAL || error == ENOSYS) {
        // The file system has no no-replace rename; check, then rename.
        if (FileOps::exists(to))
            throw FileError("move to", to, std::make_error_code(std::errc::file_exists));
        std::error_code ec;
        fs::rename(from, to, ec);
        if (ec)
            throw FileError("move", from, ec);
        return;
    }
    if (error == EXDEV) {
        FileOps::copy(from, to);
        FileOps::remove(from);
        return;
    }
    throw FileError("move", from, std::error_code(error, std::generic_category()));
}

void copy(const fs::path& from, const fs::path& to) {
    if (FileOps::exists(to))
        throw FileError("copy to", to, std::make_error_code(std::errc::file_exists));
    std::error_code ec;
    const auto status = fs::symlink_status(from, ec);
    if (ec)
        throw FileError("copy", from, ec);
    if (fs::is_directory(status))
        fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    else
        fs::copy_file(from, to, fs::copy_options::none, ec);
    if (ec) {
        std::error_code ignored;
        fs::remove_all(to, ignored);
        if (const auto full = diskFull(from, to, ec))
            throw FileError("copy", from, *full);
        throw FileError("copy", from, ec);
    }
}

void copyDurably(const fs::path& from, const fs::path& to) {
    const fs::path temp =
        to.parent_path() / ("." + to.filename().string() + "." + newUUIDString() + ".tmp");
    std::error_code ec;
    fs::copy_file(from, temp, fs::copy_options::none, ec);
    if (ec) {
        fs::remove(temp, ec);
        throw FileError("copy", from, ec);
    }
    const int fd = ::open(temp.c_str(), O_RDONLY | O_CLOEXEC);
    const bool flushed = fd >= 0 && ::fsync(fd) == 0;
    const auto error = lastError();
    if (fd >= 0)
        ::close(fd);
    try {
        if (!flushed)
            throw FileError("copy to", to, error);
        FileOps::move(temp, to);
    } catch (...) {
        ::unlink(temp.c_str());
        throw;
    }
    syncFolder(to.parent_path());
}

void linkOrCopy(const fs::path& from, const fs::path& to) {
    if (::link(from.c_str(), to.c_str()) == 0)
        return;
    const int error = errno;
    if (error == EEXIST || error == ENOENT || error == ENOSPC || error == EDQUOT)
        throw FileError("copy to", to, std::error_code(error, std::generic_category()));
    copyDurably(from, to);
}

void remove(const fs::path& path) {
    std::error_code ec;
    fs::remove_all(path, ec);
    if (ec)
        throw FileError("remove", path, ec);
}

void createDirectory(const fs::path& path, bool intermediates) {
    std::error_code ec;
    if (intermediates) {
        fs::create_directories(path, ec);
        if (!ec && !fs::is_directory(path, ec))
            ec = std::make_error_code(std::errc::not_a_directory);
    } else if (!fs::create_directory(path, ec) && !ec) {
        ec = std::make_error_code(std::errc::file_exists);
    }
    if (ec)
        throw FileError("create the folder", path, ec);
}

std::vector<std::string> list(const fs::path& folder) {
    std::error_code ec;
    std::vector<std::string> names;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
        names.push_back(it->path().filename().string());
    if (ec)
        throw FileError("list", folder, ec);
    std::sort(names.begin(), names.end());
    return names;
}

bool exists(const fs::path& path) {
    std::error_code ec;
    return fs::exists(fs::symlink_status(path, ec));
}

bool isDirectory(const fs::path& path) {
    std::error_code ec;
    return fs::is_directory(path, ec);
}

bool isInside(const fs::path& root, const fs::path& path) {
    std::error_code ec;
    const fs::path base = fs::weakly_canonical(root, ec);
    if (ec)
        return false;
    const fs::path resolved = fs::weakly_canonical(path, ec);
    if (ec)
        return false;
    auto b = base.begin();
    auto r = resolved.begin();
    for (; b != base.end(); ++b, ++r) {
        if (r == resolved.end() || *b != *r)
            return false;
    }
    return true;
}

} // namespace varnel::FileOps
