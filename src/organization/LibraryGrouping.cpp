#include "organization/LibraryGrouping.h"

#include "organization/CategorySuggestions.h"

#include <algorithm>
#include <map>

namespace varnel::LibraryGrouping {

std::vector<CategoryGroup> group(const std::vector<FlowSummary>& summaries,
                                 const std::vector<std::string>& order) {
    std::vector<CategoryGroup> groups;
    std::map<std::string, std::size_t> bucketOf;
    for (const auto& summary : summaries) {
        const std::string key =
            summary.categoryL1 ? *summary.categoryL1 : std::string(kUncategorized);
        auto [it, added] = bucketOf.emplace(key, groups.size());
        if (added)
            groups.push_back({key, {}});
        groups[it->second].flows.push_back(summary);
    }

    std::map<std::string, std::size_t> rank;
    for (std::size_t i = 0; i < order.size(); ++i)
        rank.emplace(order[i], i); // a name listed twice keeps its first place
    const bool ranked = !rank.empty();
    std::stable_sort(groups.begin(), groups.end(),
                     [&](const CategoryGroup& a, const CategoryGroup& b) {
                         const bool aLast = a.name == kUncategorized;
                         const bool bLast = b.name == kUncategorized;
                         if (aLast != bLast)
                             return bLast;
                         if (ranked) {
                             const auto ra = rank.find(a.name);
                             const auto rb = rank.find(b.name);
                             if (ra != rank.end() && rb != rank.end())
                                 return ra->second < rb->second;
                             if (ra != rank.end() || rb != rank.end())
                                 return ra != rank.end();
                         }
                         return a.name < b.name;
                     });
    return groups;
}

std::vector<std::string> applications(const std::vector<FlowSummary>& summaries) {
    return CategorySuggestions::applications(summaries);
}

} // namespace varnel::LibraryGrouping
