#pragma once

#include "support/TestLibrary.h"

#include <cstdint>
#include <string>

namespace varnel::test {

// A small file system of its own (tmpfs) that a test can fill, to meet a full disk for real.
// Mounting needs the right to mount (root in CI); `skipReason` says why when it can't.
class SmallDisk {
public:
    explicit SmallDisk(std::uint64_t bytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool mounted() const { return mounted_; }
    const std::string& skipReason() const { return skipReason_; }
    const fs::path& root() const { return dir_.path(); }
    fs::path operator/(const std::string& name) const { return dir_ / name; }

    // Fills the disk with a file of its own until only `leave` bytes are free.
    void fill(std::uint64_t leave = 0);
    std::uint64_t freeBytes() const;

private:
    TempDir dir_;
    bool mounted_ = false;
    std::string skipReason_;
};

} // namespace varnel::test
