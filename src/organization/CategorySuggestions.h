#pragma once

#include "library/FlowSummary.h"

#include <string>
#include <vector>

namespace varnel::CategorySuggestions {

// Non-empty strings, each once, in plain ascending order.
std::vector<std::string> distinctSorted(std::vector<std::string> values);

// The application names of the library, for the sidebar and the application field.
std::vector<std::string> applications(const std::vector<FlowSummary>& summaries);

// The categories used by flows of exactly this application.
std::vector<std::string> categories(const std::string& application,
                                    const std::vector<FlowSummary>& summaries);

} // namespace varnel::CategorySuggestions
