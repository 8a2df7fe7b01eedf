#include "organization/CategorySuggestions.h"

#include <algorithm>

namespace varnel::CategorySuggestions {

std::vector<std::string> distinctSorted(std::vector<std::string> values) {
    std::erase_if(values, [](const std::string& v) { return v.empty(); });
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    return values;
}

std::vector<std::string> applications(const std::vector<FlowSummary>& summaries) {
    std::vector<std::string> names;
    for (const auto& s : summaries) {
        if (s.application)
            names.push_back(*s.application);
    }
    return distinctSorted(std::move(names));
}

std::vector<std::string> categories(const std::string& application,
                                    const std::vector<FlowSummary>& summaries) {
    std::vector<std::string> names;
    for (const auto& s : summaries) {
        if (s.application == application && s.categoryL1)
            names.push_back(*s.categoryL1);
    }
    return distinctSorted(std::move(names));
}

} // namespace varnel::CategorySuggestions
