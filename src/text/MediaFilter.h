#pragma once

#include <optional>
#include <string_view>

namespace varnel {

// The gallery's media filter, stored as its string value.
enum class MediaFilter { all, images, videos };

std::string_view toString(MediaFilter filter);
std::optional<MediaFilter> mediaFilter(std::string_view text);

} // namespace varnel
