#pragma once

#include "figma/FigmaThread.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace varnel {

// How a publish records each success at once, so that a rerun redoes only what failed. The
// publisher never touches the library itself.
struct FigmaPublishPersistence {
    using Threads = std::map<std::string, std::vector<FigmaThread>>; // by screen file name

    // filename, local pin id, Figma comment id, signature, the key of the file posted to
    std::function<void(const std::string&, const std::string&, const std::string&,
                       const std::string&, const std::string&)>
        markPosted;
    std::function<void(const std::string&)> clearPendingDelete;
    // filename, local pin id
    std::function<void(const std::string&, const std::string&)> removeLocalPin;
    std::function<void(const Threads&)> saveThreads;
};

} // namespace varnel
