#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace varnel {

// Keeps a second writer (another Varnel, or varnel-cli changing the library) away from a
// library while it is held. The lock is the kernel's, so it goes with the process, crash or not.
// The holder writes its program and process id into the lock file, so that those kept away
// can say who holds it.
class LibraryLock {
public:
    static constexpr const char* kFileName = ".varnel.lock";
    static constexpr std::string_view kWindowProgram = "varnel";
    static constexpr std::string_view kCommandLineProgram = "varnel-cli";

    struct Holder {
        std::string program;
        long pid = 0;
    };

    // The lock of the library at `root`, taken for `program`, or none when someone else holds
    // it. Throws FileError when the lock file can't be opened.
    static std::optional<LibraryLock> acquire(const std::filesystem::path& root,
                                              std::string_view program);

    // Who the lock file says holds the library; none when it doesn't say, or names a process
    // that is gone. Only meaningful while the lock is held.
    static std::optional<Holder> holder(const std::filesystem::path& root);

    LibraryLock(LibraryLock&& other) noexcept;
    LibraryLock& operator=(LibraryLock&& other) noexcept;
    LibraryLock(const LibraryLock&) = delete;
    LibraryLock& operator=(const LibraryLock&) = delete;
    ~LibraryLock();

private:
    explicit LibraryLock(int fd) : fd_(fd) {}
    int fd_ = -1;
};

// The window's lock of the library at `root` (made when missing). None when another program
// holds it, and also when the folder can't be written, with `readOnlyReason` saying so. Throws
// when the library can't be reached at all.
std::optional<LibraryLock> takeLibrary(const std::filesystem::path& root,
                                       std::optional<std::string>& readOnlyReason);

// Why a library held by someone else is only browsed, for the window: "varnel-cli (process
// 1234) is changing this library."
std::string heldReason(const std::filesystem::path& root);

// Why varnel-cli can't change the library at `root` that someone else holds.
std::string heldMessage(const std::filesystem::path& root);

// Why this user can't change the library at `root`, given the error of the attempt:
// "its folder belongs to another user (…)", "its folder is on a read-only disk.", …
std::string unwritableReason(const std::filesystem::path& root, int error);

// Whether an error means the library can't be written by this user, rather than that it is
// broken.
bool isUnwritableError(int error);

// varnel-cli's lock for a change: throws LibraryError saying who holds the library, or why
// this user can't change it.
LibraryLock lockForChange(const std::filesystem::path& root);

} // namespace varnel
