#pragma once

#include "library/FlowSummary.h"
#include "library/ScreenID.h"
#include "library/ScreenRef.h"
#include "text/MediaFilter.h"
#include "text/OCRIndex.h"
#include "text/TextSearchIndex.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// What the gallery's search box and media picker decide: which flows are shown, and which of
// their screens. Substring search over the names and the recognized text, both folded alike.
class LibrarySearch {
public:
    LibrarySearch(const TextSearchIndex& text, const std::map<std::string, MediaCounts>& mediaIndex)
        : text_(text), mediaIndex_(mediaIndex) {}

    // The query as typed, folded as the text is (case, accents, white space), and the text
    // searched, once per keystroke.
    void setQuery(std::string_view text);
    // The same with only one flow's text searched: enough to decide that flow alone.
    void setQuery(std::string_view text, const std::string& folder);
    const std::string& query() const { return query_; }
    void setMedia(MediaFilter media) { media_ = media; }
    MediaFilter media() const { return media_; }

    bool matches(const FlowSummary& flow) const;
    // The flow's screens whose text holds the query; empty for an empty query.
    std::set<std::string> screenHits(const FlowSummary& flow) const;

private:
    const TextSearchIndex& text_;
    const std::map<std::string, MediaCounts>& mediaIndex_;
    std::string query_;
    TextSearchIndex::Hits hits_;
    MediaFilter media_ = MediaFilter::all;
};

// A screen as the gallery shows it, with its position in the flow's full list.
struct VisibleScreen {
    std::size_t position = 0;
    ScreenRef screen;
};

namespace GalleryScreenFilter {

// The screens of a flow to show: the hits when there are some of the requested kind, else all,
// then narrowed to the media kind. Each keeps its position in the flow.
std::vector<VisibleScreen> visible(const std::vector<ScreenRef>& screens, const std::string& folder,
                                   const std::set<ScreenID>& searchHits, MediaFilter media);

// Where screens dropped before flow position `boundary` go in the flow's list
// of the screens not being dragged.
std::size_t insertionIndex(std::size_t boundary, const std::vector<VisibleScreen>& visible,
                           const std::set<std::string>& dragging);

} // namespace GalleryScreenFilter
} // namespace varnel
