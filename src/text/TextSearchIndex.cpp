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
    std::size_t size = 0;
    for (const auto& [folder, screens] : ocrIndex)
        for (const auto& [file, blob] : screens)
            size += blob.size() + 1;
    corpus_.reserve(size);
    for (const auto& [folder, screens] : ocrIndex) {
        const auto first = static_cast<std::uint32_t>(screens_.size());
        for (const auto& [file, blob] : screens) {
            corpus_ += SearchFold::fold(blob);
            screens_.push_back({corpus_.size(), file});
            // Text never holds a NUL, so no match runs from one screen into the next.
            corpus_ += '\0';
        }
        flows_[folder] = {first, static_cast<std::uint32_t>(screens_.size())};
    }
    for (const char c : corpus_)
        ++frequency_[static_cast<unsigned char>(c)];
}

TextSearchIndex::Hits TextSearchIndex::hits(std::string_view query) const {
    Hits found;
    if (query.empty() || screens_.empty())
        return found;
    // memchr for the query's rarest byte runs far faster than any substring search, and most
    // of its stops are real matches.
    std::size_t anchor = 0;
    for (std::size_t i = 1; i < query.size(); ++i)
        if (frequency_[static_cast<unsigned char>(query[i])] <
            frequency_[static_cast<unsigned char>(query[anchor])])
            anchor = i;
    // The scan is bound by memory bandwidth: each core takes a share of the screens.
    const auto total = static_cast<std::uint32_t>(screens_.size());
    const std::uint32_t parts =
        corpus_.size() < kParallelSize
            ? 1
            : std::clamp<std::uint32_t>(std::thread::hardware_concurrency(), 1, 8);
    std::vector<Hits> shares(parts);
    std::vector<std::thread> workers;
    for (std::uint32_t part = 1; part < parts; ++part)
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

void TextSearchIndex::scan(std::string_view query, std::size_t anchor, std::uint32_t first,
                           std::uint32_t last, Hits& found) const {
    if (first >= last)
        return;
    const char* corpus = corpus_.data();
    const char* from = corpus + (first == 0 ? 0 : screens_[first - 1].end + 1);
    const char* end = corpus + screens_[last - 1].end;
    std::uint32_t screen = first;
    while (const char* start = nextMatch(from, end, query, anchor)) {
        const auto offset = static_cast<std::size_t>(start - corpus);
        while (screens_[screen].end <= offset)
            ++screen;
        // A match must lie within one screen's text.
        if (offset + query.size() <= screens_[screen].end)
            found.push_back(screen);
        // One match is enough for a screen: go on after its text.
        from = corpus + screens_[screen].end + 1;
    }
}

std::pair<TextSearchIndex::Hits::const_iterator, TextSearchIndex::Hits::const_iterator>
TextSearchIndex::range(const Hits& hits, const std::string& folder) const {
    const auto flow = flows_.find(folder);
    if (flow == flows_.end())
        return {hits.end(), hits.end()};
    const auto [first, last] = flow->second;
    const auto from = std::lower_bound(hits.begin(), hits.end(), first);
    return {from, std::lower_bound(from, hits.end(), last)};
}

std::vector<std::string_view> TextSearchIndex::filesIn(const Hits& hits,
                                                       const std::string& folder) const {
    std::vector<std::string_view> files;
    const auto [first, last] = range(hits, folder);
    for (auto it = first; it != last; ++it)
        files.push_back(screens_[*it].file);
    return files;
}

} // namespace varnel
