#pragma once

#include <optional>
#include <string_view>

namespace varnel {

// The gallery's media filter, stored as its string value.
enum class MediaFilter { all, images, videos };

std::string_view toString(MediaFilter filter);
std::optional<MediaFilter> mediaFilter(std::string_view text);

// Whether a screen file is of the kind the filter shows (clips are ".mov", in any case).
bool fitsMedia(MediaFilter filter, std::string_view filename);

} // namespace varnel
