#pragma once

#include "library/FlowSummary.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel {

class FlowLibrary;

namespace CategorizeAny {

// The state and rules of the "Categorize flow" sheet, which moves any flow to another
// application or category.
class Sheet {
public:
    explicit Sheet(FlowLibrary& library);

    // Every flow, by application (exactly, "Sans application" for none), then by lower-cased name.
    std::vector<FlowSummary> flows() const;

    // Picks a flow and fills the fields with its current values (empty where absent).
    void prefill(const std::string& folderName);

    std::vector<std::string> applicationSuggestions() const;
    // The categories used in the application typed so far.
    std::vector<std::string> categorySuggestions() const;

    const std::optional<std::string>& selectedFolder() const { return folder_; }
    std::string application;
    std::string category;
    static constexpr const char* kCategoryPlaceholder = "e.g. Settings";

    // Saves the trimmed values (blank = none) through the library, which moves the folder when
    // the path depends on them. Returns the flow's folder name afterwards; throws when the flow
    // can't be read or saved, and the sheet then stays as it is.
    std::string save();

private:
    FlowLibrary& library_;
    std::optional<std::string> folder_;
};

} // namespace CategorizeAny
} // namespace varnel
