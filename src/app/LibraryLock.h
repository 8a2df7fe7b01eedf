#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace varnel {

// Keeps a second writer (another Varnel, or varnel-cli changing the library) away from a
// library while it is held. The lock is the kernel's, so it goes with the process, crash or not.
class LibraryLock {
public:
    static constexpr const char* kFileName = ".varnel.lock";

    // The lock of the library at `root`, or none when someone else holds it. Throws FileError
    // when the lock file can't be opened.
    static std::optional<LibraryLock> acquire(const std::filesystem::path& root);

    LibraryLock(LibraryLock&& other) noexcept;
    LibraryLock& operator=(LibraryLock&& other) noexcept;
    LibraryLock(const LibraryLock&) = delete;
    LibraryLock& operator=(const LibraryLock&) = delete;
    ~LibraryLock();

private:
    explicit LibraryLock(int fd) : fd_(fd) {}
    int fd_ = -1;
};

// The lock of the library at `root` (made when missing). None when another program holds it,
// and also when the folder can't be written, with `readOnlyReason` saying so. Throws when the
// library can't be reached at all.
std::optional<LibraryLock> takeLibrary(const std::filesystem::path& root,
                                       std::optional<std::string>& readOnlyReason);

} // namespace varnel
