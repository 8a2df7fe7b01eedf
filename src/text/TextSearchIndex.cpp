#include "text/TextSearchIndex.h"

#include "text/SearchFold.h"

#include <algorithm>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <thread>

namespace varnel {

namespace {

// Below this a second thread costs more than it saves.
constexpr std::size_t kParallelSize = 4 << 20;

bool matchesAt(const char* start, std::string_view query) {
    return std::memcmp(start, query.data(), query.size()) == 0;
}

// The first place in [from, end) where `query` starts, or null. Sixteen places are tested at
// once for the query's first and last bytes, so only true candidates are compared in full; the
// rest goes by memchr on the query's rarest byte (`anchor`).
const char* nextMatch(const char* from, const char* end, std::string_view query,
                      std::size_t anchor) {
    const std::size_t size = query.size();
    if (static_cast<std::size_t>(end - from) < size)
        return nullptr;
    const char* last = end - size; // the last place a match can start
#if defined(__SSE2__)
    if (size > 1) {
        const __m128i first = _mm_set1_epi8(query.front());
        const __m128i final = _mm_set1_epi8(query.back());
        for (; from + 16 <= last + 1; from += 16) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + size - 1));
            auto mask = static_cast<unsigned>(_mm_movemask_epi8(
                _mm_and_si128(_mm_cmpeq_epi8(a, first), _mm_cmpeq_epi8(b, final))));
            while (mask) {
                const int bit = __builtin_ctz(mask);
                if (matchesAt(from + bit, query))
                    return from + bit;
                mask &= mask - 1;
            }
        }
    }
#endif
    while (from <= last) {
        const auto* at = static_cast<const char*>(
            std::memchr(from + anchor, query[anchor], static_cast<std::size_t>(last - from) + 1));
        if (!at)
            return nullptr;
        if (matchesAt(at - anchor, query))
            return at - anchor;
        from = at - anchor + 1;
    }
    return nullptr;
}

} // namespace

TextSearchIndex::TextSearchIndex(const std::map<std::string, FlowTextIndex>& ocrIndex) {
    flows_.reserve(ocrIndex.size());
    for (const auto& [folder, screens] : ocrIndex)
        setFlow(folder, screens);
}

void TextSearchIndex::setFlow(const std::string& folder, const FlowTextIndex& text) {
    Flow flow;
    std::size_t size = 0;
    for (const auto& [file, blob] : text)
        size += blob.size() + 1;
    flow.corpus.reserve(size);
    for (const auto& [file, blob] : text) {
        flow.corpus += SearchFold::fold(blob);
        flow.screens.push_back({flow.corpus.size(), file});
        // Text never holds a NUL, so no match runs from one screen into the next.
        flow.corpus += '\0';
    }
    count(flow, +1);
    if (const auto slot = slots_.find(folder); slot != slots_.end()) {
        count(flows_[slot->second], -1);
        flows_[slot->second] = std::move(flow);
        return;
    }
    std::uint32_t slot = 0;
    if (freeSlots_.empty()) {
        slot = static_cast<std::uint32_t>(flows_.size());
        flows_.push_back(std::move(flow));
    } else {
        slot = freeSlots_.back();
        freeSlots_.pop_back();
        flows_[slot] = std::move(flow);
    }
    slots_.emplace(folder, slot);
}

void TextSearchIndex::removeFlow(const std::string& folder) {
    const auto slot = slots_.find(folder);
    if (slot == slots_.end())
        return;
    count(flows_[slot->second], -1);
    flows_[slot->second] = {};
    freeSlots_.push_back(slot->second);
    slots_.erase(slot);
}

void TextSearchIndex::count(const Flow& flow, int sign) {
    for (const char c : flow.corpus)
        frequency_[static_cast<unsigned char>(c)] += static_cast<std::size_t>(sign);
    size_ += static_cast<std::size_t>(sign) * flow.corpus.size();
}

TextSearchIndex::Hits TextSearchIndex::hits(std::string_view query) const {
    Hits found;
    if (query.empty() || size_ == 0)
        return found;
    // memchr for the query's rarest byte runs far faster than any substring search, and most
    // of its stops are real matches.
    std::size_t anchor = 0;
    for (std::size_t i = 1; i < query.size(); ++i)
        if (frequency_[static_cast<unsigned char>(query[i])] <
            frequency_[static_cast<unsigned char>(query[anchor])])
            anchor = i;
    // The scan is bound by memory bandwidth: each core takes a share of the flows.
    const std::size_t total = flows_.size();
    const std::size_t parts =
        size_ < kParallelSize ? 1
                              : std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 8);
    std::vector<Hits> shares(parts);
    std::vector<std::thread> workers;
    for (std::size_t part = 1; part < parts; ++part)
        workers.emplace_back([&, part] {
            scan(query, anchor, total * part / parts, total * (part + 1) / parts, shares[part]);
        });
    scan(query, anchor, 0, total / parts, shares[0]);
    for (auto& worker : workers)
        worker.join();
    for (const auto& share : shares)
        found.insert(found.end(), share.begin(), share.end());
    return found;
}

TextSearchIndex::Hits TextSearchIndex::hits(std::string_view query,
                                            const std::string& folder) const {
    Hits found;
    const auto slot = slots_.find(folder);
    if (query.empty() || slot == slots_.end())
        return found;
    scan(query, 0, slot->second, slot->second + 1, found);
    return found;
}

void TextSearchIndex::scan(std::string_view query, std::size_t anchor, std::size_t first,
                           std::size_t last, Hits& found) const {
    for (std::size_t slot = first; slot < last; ++slot) {
        const Flow& flow = flows_[slot];
        const char* corpus = flow.corpus.data();
        const char* from = corpus;
        const char* end = corpus + flow.corpus.size();
        std::size_t screen = 0;
        while (const char* start = nextMatch(from, end, query, anchor)) {
            const auto offset = static_cast<std::size_t>(start - corpus);
            while (flow.screens[screen].end <= offset)
                ++screen;
            // A match must lie within one screen's text.
            if (offset + query.size() <= flow.screens[screen].end)
                found.push_back(std::uint64_t{slot} << 32 | screen);
            // One match is enough for a screen: go on after its text.
            from = corpus + flow.screens[screen].end + 1;
        }
    }
}

std::pair<TextSearchIndex::Hits::const_iterator, TextSearchIndex::Hits::const_iterator>
TextSearchIndex::range(const Hits& hits, const std::string& folder) const {
    const auto slot = slots_.find(folder);
    if (slot == slots_.end())
        return {hits.end(), hits.end()};
    const std::uint64_t first = std::uint64_t{slot->second} << 32;
    const auto from = std::lower_bound(hits.begin(), hits.end(), first);
    return {from, std::lower_bound(from, hits.end(), first + (std::uint64_t{1} << 32))};
}

std::vector<std::string_view> TextSearchIndex::filesIn(const Hits& hits,
                                                       const std::string& folder) const {
    std::vector<std::string_view> files;
    const auto [first, last] = range(hits, folder);
    for (auto it = first; it != last; ++it)
        files.push_back(fileOf(*it));
    return files;
}

} // namespace varnel
