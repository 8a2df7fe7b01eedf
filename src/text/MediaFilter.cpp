#include "text/MediaFilter.h"

#include "library/ScreenFiles.h"

namespace varnel {

std::string_view toString(MediaFilter filter) {
    switch (filter) {
    case MediaFilter::images:
        return "images";
    case MediaFilter::videos:
        return "videos";
    case MediaFilter::all:
        break;
    }
    return "all";
}

std::optional<MediaFilter> mediaFilter(std::string_view text) {
    if (text == "all")
        return MediaFilter::all;
    if (text == "images")
        return MediaFilter::images;
    if (text == "videos")
        return MediaFilter::videos;
    return std::nullopt;
}

bool fitsMedia(MediaFilter filter, std::string_view filename) {
    switch (filter) {
    case MediaFilter::images:
        return !ScreenFiles::isClip(filename);
    case MediaFilter::videos:
        return ScreenFiles::isClip(filename);
    case MediaFilter::all:
        break;
    }
    return true;
}

} // namespace varnel
