#include "app/LibraryLock.h"

#include "library/Errors.h"
#include "library/FileOps.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace varnel {

std::optional<LibraryLock> LibraryLock::acquire(const std::filesystem::path& root) {
    const auto file = root / kFileName;
    const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0)
        throw FileError("open the lock of", root, std::error_code(errno, std::generic_category()));
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        ::close(fd);
        if (error == EWOULDBLOCK)
            return std::nullopt;
        throw FileError("lock", root, std::error_code(error, std::generic_category()));
    }
    return LibraryLock(fd);
}

std::optional<LibraryLock> takeLibrary(const std::filesystem::path& root,
                                       std::optional<std::string>& readOnlyReason) {
    readOnlyReason.reset();
    std::error_code ec;
    if (!std::filesystem::exists(root, ec))
        FileOps::createDirectory(root, true);
    if (!std::filesystem::is_directory(root, ec))
        throw FileError("open", root, std::make_error_code(std::errc::not_a_directory));
    auto unwritable = [&](int error) {
        readOnlyReason = "its folder can’t be written (" +
                         std::error_code(error, std::generic_category()).message() + ").";
    };
    if (::access(root.c_str(), W_OK) != 0) {
        unwritable(errno);
        return std::nullopt;
    }
    try {
        return LibraryLock::acquire(root);
    } catch (const FileError& e) {
        const int error = e.code().value();
        if (error != EACCES && error != EPERM && error != EROFS)
            throw;
        unwritable(error);
        return std::nullopt;
    }
}

LibraryLock::LibraryLock(LibraryLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

LibraryLock& LibraryLock::operator=(LibraryLock&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

LibraryLock::~LibraryLock() {
    if (fd_ >= 0)
        ::close(fd_);
}

} // namespace varnel
