#pragma once

#include "library/FlowSummary.h"

#include <string>
#include <string_view>
#include <vector>

namespace varnel {

inline constexpr std::string_view kUncategorized = "Uncategorized";

// One band group of the gallery; identified by its name.
struct CategoryGroup {
    std::string name;
    std::vector<FlowSummary> flows;

    const std::string& id() const { return name; }
    bool operator==(const CategoryGroup& other) const { return name == other.name; }
};

namespace LibraryGrouping {

// Flows grouped by category in the given order of summaries; groups ordered by `order`
// (listed names first, by their first place in it), the rest by name, "Uncategorized" last.
std::vector<CategoryGroup> group(const std::vector<FlowSummary>& summaries,
                                 const std::vector<std::string>& order);

std::vector<std::string> applications(const std::vector<FlowSummary>& summaries);

} // namespace LibraryGrouping
} // namespace varnel
