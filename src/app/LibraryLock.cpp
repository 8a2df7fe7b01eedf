#include "app/LibraryLock.h"

#include "library/Errors.h"
#include "library/FileOps.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace varnel {

namespace {

// The record is one short line: "varnel-cli 1234".
constexpr std::size_t kRecordLimit = 256;

void record(int fd, std::string_view program) {
    const std::string line = std::string(program) + " " + std::to_string(::getpid()) + "\n";
    // Only a courtesy to those kept away: the lock holds whether or not it is written.
    if (::ftruncate(fd, 0) == 0) {
        [[maybe_unused]] const auto written = ::pwrite(fd, line.data(), line.size(), 0);
    }
}

std::optional<LibraryLock::Holder> parse(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.remove_suffix(1);
    const auto space = text.rfind(' ');
    if (space == std::string_view::npos || space == 0)
        return std::nullopt;
    LibraryLock::Holder holder{std::string(text.substr(0, space)), 0};
    const std::string_view digits = text.substr(space + 1);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), holder.pid);
    if (error != std::errc() || end != digits.data() + digits.size() || holder.pid <= 0)
        return std::nullopt;
    return holder;
}

bool isRunning(long pid) {
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

std::string userName(uid_t uid) {
    if (const passwd* entry = ::getpwuid(uid); entry && entry->pw_name)
        return entry->pw_name;
    return "user " + std::to_string(uid);
}

std::string process(const LibraryLock::Holder& holder) {
    return "(process " + std::to_string(holder.pid) + ")";
}

} // namespace

std::optional<LibraryLock> LibraryLock::acquire(const std::filesystem::path& root,
                                                std::string_view program) {
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
    record(fd, program);
    return LibraryLock(fd);
}

std::optional<LibraryLock::Holder> LibraryLock::holder(const std::filesystem::path& root) {
    const int fd = ::open((root / kFileName).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return std::nullopt;
    char buffer[kRecordLimit];
    const auto size = ::pread(fd, buffer, sizeof buffer, 0);
    ::close(fd);
    if (size <= 0 || static_cast<std::size_t>(size) == sizeof buffer)
        return std::nullopt;
    auto holder = parse(std::string_view(buffer, static_cast<std::size_t>(size)));
    // A record left by a holder that is gone says nothing about the present one.
    if (!holder || !isRunning(holder->pid))
        return std::nullopt;
    return holder;
}

bool isUnwritableError(int error) {
    return error == EACCES || error == EPERM || error == EROFS;
}

std::string unwritableReason(const std::filesystem::path& root, int error) {
    if (error == EROFS)
        return "its folder is on a read-only disk.";
    const uid_t me = ::geteuid();
    struct stat folder {};
    if (::stat(root.c_str(), &folder) == 0 && folder.st_uid != me)
        return "its folder belongs to another user (" + userName(folder.st_uid) +
               "), and this user (" + userName(me) + ") can’t write in it.";
    struct stat lock {};
    if (::access(root.c_str(), W_OK) == 0 &&
        ::lstat((root / LibraryLock::kFileName).c_str(), &lock) == 0 && lock.st_uid != me)
        return "its lock file (" + std::string(LibraryLock::kFileName) +
               ") belongs to another user (" + userName(lock.st_uid) + ").";
    return "this user (" + userName(me) + ") has no permission to write in its folder (" +
           std::error_code(error, std::generic_category()).message() + ").";
}

std::optional<LibraryLock> takeLibrary(const std::filesystem::path& root,
                                       std::optional<std::string>& readOnlyReason) {
    readOnlyReason.reset();
    std::error_code ec;
    if (!std::filesystem::exists(root, ec))
        FileOps::createDirectory(root, true);
    if (!std::filesystem::is_directory(root, ec))
        throw FileError("open", root, std::make_error_code(std::errc::not_a_directory));
    if (::access(root.c_str(), W_OK) != 0) {
        readOnlyReason = unwritableReason(root, errno);
        return std::nullopt;
    }
    try {
        return LibraryLock::acquire(root, LibraryLock::kWindowProgram);
    } catch (const FileError& e) {
        const int error = e.code().value();
        if (!isUnwritableError(error))
            throw;
        readOnlyReason = unwritableReason(root, error);
        return std::nullopt;
    }
}

std::string heldReason(const std::filesystem::path& root) {
    const auto holder = LibraryLock::holder(root);
    if (!holder)
        return "another program (such as varnel-cli) is changing this library.";
    if (holder->program == LibraryLock::kWindowProgram)
        return "another Varnel window " + process(*holder) + " has this library open.";
    return holder->program + " " + process(*holder) + " is changing this library.";
}

std::string heldMessage(const std::filesystem::path& root) {
    const std::string library = "The library at " + root.string();
    const auto holder = LibraryLock::holder(root);
    if (!holder)
        return library + " is in use by another program (Varnel, or another varnel-cli); try "
                         "again once it is done, or quit Varnel first.";
    if (holder->program == LibraryLock::kWindowProgram)
        return library + " is open in Varnel " + process(*holder) +
               "; make the change there, or quit Varnel first.";
    return library + " is being changed by another " + holder->program + " " + process(*holder) +
           "; try again once it is done.";
}

LibraryLock lockForChange(const std::filesystem::path& root) {
    auto refuse = [&](int error) {
        return LibraryError("The library at " + root.string() +
                            " can’t be changed: " + unwritableReason(root, error));
    };
    if (::access(root.c_str(), W_OK) != 0) {
        const int error = errno;
        if (isUnwritableError(error))
            throw refuse(error);
    }
    std::optional<LibraryLock> lock;
    try {
        lock = LibraryLock::acquire(root, LibraryLock::kCommandLineProgram);
    } catch (const FileError& e) {
        if (!isUnwritableError(e.code().value()))
            throw;
        throw refuse(e.code().value());
    }
    if (!lock)
        throw LibraryError(heldMessage(root));
    return std::move(*lock);
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
