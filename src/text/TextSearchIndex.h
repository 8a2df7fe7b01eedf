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

// The recognized text of a whole library, each flow's laid end to end in one buffer of its own,
// so that a keystroke is one scan per flow rather than a search per screen, and a flow read
// again replaces its own buffer only.
class TextSearchIndex {
public:
    // Screens whose text holds a query, sorted: a flow's slot in the high half, the screen's
    // place in the flow in the low half.
    using Hits = std::vector<std::uint64_t>;

    TextSearchIndex() = default;
    explicit TextSearchIndex(const std::map<std::string, FlowTextIndex>& ocrIndex);

    // Adds a flow's text, or replaces what it had; only this flow's text is folded.
    void setFlow(const std::string& folder, const FlowTextIndex& text);
    void removeFlow(const std::string& folder);

    // Empty for an empty query; `query` is already folded (SearchFold), as the text is.
    Hits hits(std::string_view query) const;
    // The same for one flow's text only.
    Hits hits(std::string_view query, const std::string& folder) const;
    // The hits that are screens of one flow, as their file names.
    std::vector<std::string_view> filesIn(const Hits& hits, const std::string& folder) const;
    // Whether one of the flow's hits satisfies `accept` (given the file name).
    template <typename Accept>
    bool anyIn(const Hits& hits, const std::string& folder, Accept accept) const {
        const auto [first, last] = range(hits, folder);
        for (auto it = first; it != last; ++it)
            if (accept(std::string_view(fileOf(*it))))
                return true;
        return false;
    }

private:
    struct Screen {
        std::size_t end; // where its text ends in the flow's buffer
        std::string file;
    };
    struct Flow {
        std::string corpus;
        std::vector<Screen> screens;
    };

    std::pair<Hits::const_iterator, Hits::const_iterator> range(const Hits& hits,
                                                                const std::string& folder) const;
    const std::string& fileOf(std::uint64_t hit) const {
        return flows_[hit >> 32].screens[hit & 0xffffffffu].file;
    }
    void count(const Flow& flow, int sign);
    // The hits among the flows in slots [first, last).
    void scan(std::string_view query, std::size_t anchor, std::size_t first, std::size_t last,
              Hits& found) const;

    // Slots of removed flows are empty and taken again by the next flow added.
    std::vector<Flow> flows_;
    std::unordered_map<std::string, std::uint32_t> slots_;
    std::vector<std::uint32_t> freeSlots_;
    std::size_t size_ = 0;
    // How often each byte occurs: a query is looked for by its rarest byte.
    std::array<std::size_t, 256> frequency_{};
};

} // namespace varnel
