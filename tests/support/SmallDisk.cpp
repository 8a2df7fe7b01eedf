#include "support/SmallDisk.h"

#include <sys/mount.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

namespace varnel::test {

SmallDisk::SmallDisk(std::uint64_t bytes) {
    const std::string options = "size=" + std::to_string(bytes);
    if (::mount("tmpfs", dir_.path().c_str(), "tmpfs", 0, options.c_str()) != 0) {
        skipReason_ =
            std::string("no small file system can be mounted here: ") + std::strerror(errno);
        return;
    }
    mounted_ = true;
}

SmallDisk::~SmallDisk() {
    if (mounted_)
        ::umount2(dir_.path().c_str(), MNT_DETACH);
}

std::uint64_t SmallDisk::freeBytes() const {
    struct statvfs info {};
    if (::statvfs(dir_.path().c_str(), &info) != 0)
        return 0;
    return static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
}

void SmallDisk::fill(std::uint64_t leave) {
    std::ofstream filler(dir_ / ".filler", std::ios::binary | std::ios::app);
    const std::vector<char> block(4096, 'x');
    while (freeBytes() > leave) {
        const std::uint64_t room = freeBytes() - leave;
        filler.write(block.data(),
                     static_cast<std::streamsize>(std::min<std::uint64_t>(room, block.size())));
        filler.flush();
        if (!filler)
            break;
    }
}

} // namespace varnel::test
