#pragma once

#include "text/OCRIndex.h"

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varnel {

// The recognized text of a whole library laid end to end in one buffer, so that a keystroke is
// one scan of it rather than a search per screen. Built once per change of the text index.
class TextSearchIndex {
public:
    // Screens whose text holds a query, as sorted positions in the index.
    using Hits = std::vector<std::uint32_t>;

    TextSearchIndex() = default;
    explicit TextSearchIndex(const std::map<std::string, FlowTextIndex>& ocrIndex);

    // Empty for an empty query; `query` is already folded (SearchFold), as the text is.
    Hits hits(std::string_view query) const;
    // The hits that are screens of one flow, as their file names.
    std::vector<std::string_view> filesIn(const Hits& hits, const std::string& folder) const;
    // Whether one of the flow's hits satisfies `accept` (given the file name).
    template <typename Accept>
    bool anyIn(const Hits& hits, const std::string& folder, Accept accept) const {
        const auto [first, last] = range(hits, folder);
        for (auto it = first; it != last; ++it)
            if (accept(std::string_view(screens_[*it].file)))
                return true;
        return false;
    }

private:
    std::pair<Hits::const_iterator, Hits::const_iterator> range(const Hits& hits,
                                                                const std::string& folder) const;
    // The hits among screens [first, last).
    void scan(std::string_view query, std::size_t anchor, std::uint32_t first, std::uint32_t last,
              Hits& found) const;

    struct Screen {
        std::size_t end; // where its text ends in the buffer
        std::string file;
    };
    std::string corpus_;
    std::vector<Screen> screens_;
    // Each flow's screens are one run of `screens_`.
    std::unordered_map<std::string, std::pair<std::uint32_t, std::uint32_t>> flows_;
    // How often each byte occurs: a query is looked for by its rarest byte.
    std::array<std::size_t, 256> frequency_{};
};

} // namespace varnel
