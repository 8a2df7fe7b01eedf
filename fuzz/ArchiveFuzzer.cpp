// Feeds arbitrary bytes to the archive extractor and the manifest reader. Besides crashes and
// sanitizer reports, it aborts when an extraction leaves anything outside its folder or
// creates a link.
#include "archive/AppArchive.h"
#include "library/Uuid.h"
#include "archive/Zip.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace fs = std::filesystem;

namespace {

const fs::path& sandbox() {
    static const fs::path folder = [] {
        fs::path f = fs::temp_directory_path() / ("varnel-fuzz-" + varnel::newUUIDString());
        fs::create_directories(f);
        return f;
    }();
    return folder;
}

void requireContained(const fs::path& out) {
    for (const auto& entry : fs::directory_iterator(sandbox())) {
        if (entry.path() != out)
            std::abort(); // something was written beside the extraction folder
    }
    for (const auto& entry : fs::recursive_directory_iterator(out)) {
        if (entry.is_symlink())
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        varnel::AppArchive::Manifest::decode(bytes);
    } catch (const varnel::ArchiveError&) {
    }

    const fs::path out = sandbox() / "out";
    fs::create_directories(out);
    varnel::Zip::Limits limits;
    limits.maxTotalBytes = 64ull << 20;
    try {
        varnel::Zip::extractBuffer(bytes, out, limits);
    } catch (const varnel::Zip::ZipError&) {
    }
    requireContained(out);
    fs::remove_all(out);
    return 0;
}
