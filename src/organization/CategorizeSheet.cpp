#include "organization/CategorizeSheet.h"

#include "archive/AppArchive.h"
#include "library/Errors.h"
#include "library/Text.h"
#include "model/FlowLibrary.h"
#include "organization/CategorySuggestions.h"

#include <QString>

#include <algorithm>

namespace varnel::CategorizeAny {

namespace {

std::string lowered(const std::string& text) {
    return QString::fromStdString(text).toLower().toStdString();
}

} // namespace

Sheet::Sheet(FlowLibrary& library) : library_(library) {}

std::vector<FlowSummary> Sheet::flows() const {
    struct Keyed {
        std::string application;
        std::string name;
        const FlowSummary* flow;
    };
    std::vector<Keyed> keyed;
    for (const auto& s : library_.summaries())
        keyed.push_back({s.application.value_or(std::string(AppArchive::kSansApplication)),
                         lowered(s.name), &s});
    std::stable_sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
        if (a.application != b.application)
            return a.application < b.application;
        return a.name < b.name;
    });
    std::vector<FlowSummary> out;
    out.reserve(keyed.size());
    for (const auto& k : keyed)
        out.push_back(*k.flow);
    return out;
}

void Sheet::prefill(const std::string& folderName) {
    const auto& summaries = library_.summaries();
    auto it = std::find_if(summaries.begin(), summaries.end(),
                           [&](const FlowSummary& s) { return s.folderName == folderName; });
    if (it == summaries.end())
        throw FlowNotFoundError(folderName);
    folder_ = folderName;
    application = it->application.value_or("");
    category = it->categoryL1.value_or("");
}

std::vector<std::string> Sheet::applicationSuggestions() const {
    return CategorySuggestions::applications(library_.summaries());
}

std::vector<std::string> Sheet::categorySuggestions() const {
    return CategorySuggestions::categories(application, library_.summaries());
}

std::string Sheet::save() {
    if (!folder_)
        throw LibraryError("Pick a flow first.");
    FlowMeta meta = library_.meta(*folder_);
    meta.application = Text::nonBlank(application);
    meta.categoryL1 = Text::nonBlank(category);
    folder_ = library_.saveMeta(*folder_, meta);
    return *folder_;
}

} // namespace varnel::CategorizeAny
