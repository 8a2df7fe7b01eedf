#include "text/LibrarySearch.h"

#include "text/SearchFold.h"

#include <algorithm>

namespace varnel {

namespace {

bool contains(const std::string& text, const std::string& query) {
    return text.find(query) != std::string::npos;
}

} // namespace

void LibrarySearch::setQuery(std::string_view text) {
    query_ = SearchFold::fold(text);
    hits_ = text_.hits(query_);
}

void LibrarySearch::setQuery(std::string_view text, const std::string& folder) {
    query_ = SearchFold::fold(text);
    hits_ = text_.hits(query_, folder);
}

bool LibrarySearch::matches(const FlowSummary& flow) const {
    if (media_ != MediaFilter::all)
        if (const auto counts = mediaIndex_.find(flow.folderName); counts != mediaIndex_.end()) {
            if (media_ == MediaFilter::images && counts->second.images < 1)
                return false;
            if (media_ == MediaFilter::videos && counts->second.videos < 1)
                return false;
        }
    if (query_.empty())
        return true;
    if (contains(SearchFold::fold(flow.name), query_))
        return true;
    if (flow.categoryL1 && contains(SearchFold::fold(*flow.categoryL1), query_))
        return true;
    if (hits_.empty())
        return false;
    return text_.anyIn(hits_, flow.folderName,
                       [this](std::string_view file) { return fitsMedia(media_, file); });
}

std::set<std::string> LibrarySearch::screenHits(const FlowSummary& flow) const {
    const auto files = text_.filesIn(hits_, flow.folderName);
    return {files.begin(), files.end()};
}

namespace GalleryScreenFilter {

std::vector<VisibleScreen> visible(const std::vector<ScreenRef>& screens, const std::string& folder,
                                   const std::set<ScreenID>& searchHits, MediaFilter media) {
    std::vector<VisibleScreen> all;
    all.reserve(screens.size());
    for (std::size_t i = 0; i < screens.size(); ++i)
        all.push_back({i, screens[i]});

    std::vector<VisibleScreen> chosen;
    if (!searchHits.empty())
        for (const auto& shown : all)
            if (searchHits.contains({folder, shown.screen.filename}))
                chosen.push_back(shown);
    const bool anyOfKind = std::any_of(chosen.begin(), chosen.end(), [&](const VisibleScreen& s) {
        return fitsMedia(media, s.screen.filename);
    });
    if (chosen.empty() || !anyOfKind)
        chosen = std::move(all);
    std::erase_if(chosen,
                  [&](const VisibleScreen& s) { return !fitsMedia(media, s.screen.filename); });
    return chosen;
}

std::size_t insertionIndex(std::size_t boundary, const std::vector<VisibleScreen>& visible,
                           const std::set<std::string>& dragging) {
    std::size_t index = 0;
    for (const auto& shown : visible)
        if (shown.position < boundary && !dragging.contains(shown.screen.filename))
            ++index;
    return index;
}

} // namespace GalleryScreenFilter
} // namespace varnel
