#include "library/LibraryIndex.h"

#include <algorithm>

namespace varnel {

LibraryIndex LibraryIndex::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "the library index");
    LibraryIndex index;
    index.flows = requireArray<FlowSummary>(json, "flows", &FlowSummary::fromJson);
    index.categories = requireArray<CategoryNode>(json, "categories", [](const Json& node) {
        requireObject(node, "a category");
        return CategoryNode{requireString(node, "name")};
    });
    return index;
}

Json LibraryIndex::toJson() const {
    return Json{{"flows", coding::writeArray(flows, [](auto& f) { return f.toJson(); })},
                {"categories", coding::writeArray(categories, [](auto& c) {
                     return Json{{"name", c.name}};
                 })}};
}

const FlowSummary* LibraryIndex::findFolder(std::string_view folderName) const {
    auto it = std::find_if(flows.begin(), flows.end(),
                           [&](const FlowSummary& s) { return s.folderName == folderName; });
    return it == flows.end() ? nullptr : &*it;
}

const FlowSummary* LibraryIndex::findId(std::string_view id) const {
    for (const auto& s : flows) {
        if (s.id == id)
            return &s;
    }
    return nullptr;
}

void LibraryIndex::upsert(const FlowSummary& summary) {
    auto it = std::find_if(flows.begin(), flows.end(),
                           [&](const FlowSummary& s) { return s.id == summary.id; });
    if (it != flows.end())
        *it = summary;
    else
        flows.push_back(summary);
}

bool LibraryIndex::removeFolder(std::string_view folderName) {
    const auto before = flows.size();
    std::erase_if(flows, [&](const FlowSummary& s) { return s.folderName == folderName; });
    return flows.size() != before;
}

} // namespace varnel
