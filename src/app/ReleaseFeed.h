#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// One version of Varnel as the release feed announces it.
struct Release {
    std::string version;
    // "YYYY-MM-DD", as published.
    std::string date;
    // Plain text, shown as it is.
    std::string notes;
    // Where to get it: an https page or file. Varnel only opens it, when the user asks.
    std::string url;
};

// The feed is not the document its format describes.
class ReleaseFeedError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The release feed: {"releases": [{"version", "date", "notes", "url"}, ...]}, in any order.
struct ReleaseFeed {
    std::vector<Release> releases;

    // Throws ReleaseFeedError, saying what is wrong, for anything but a feed.
    static ReleaseFeed parse(std::string_view json);
    // The release with the highest version; nothing for an empty feed.
    std::optional<Release> newest() const;
};

// Orders "MAJOR.MINOR.PATCH" versions, each part compared as a number; a missing part counts as
// 0, and a pre-release ("0.2.0-beta.1") comes before its release. Negative, 0 or positive.
int compareVersions(std::string_view a, std::string_view b);
// Whether `text` is a version compareVersions understands.
bool isVersion(std::string_view text);

} // namespace varnel
