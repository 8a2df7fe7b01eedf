#pragma once

#include "library/FlowSummary.h"
#include "library/JsonCoding.h"

#include <string>
#include <string_view>
#include <vector>

namespace varnel {

struct CategoryNode {
    std::string name;
    bool operator==(const CategoryNode&) const = default;
};

// The content of index.json: every flow in the user's order, and the user's category order.
struct LibraryIndex {
    std::vector<FlowSummary> flows;
    std::vector<CategoryNode> categories;

    bool operator==(const LibraryIndex&) const = default;

    static LibraryIndex fromJson(const Json& json);
    Json toJson() const;

    const FlowSummary* findFolder(std::string_view folderName) const;
    const FlowSummary* findId(std::string_view id) const;
    // Replaces the summary of the same flow (by id) in place, else appends it.
    void upsert(const FlowSummary& summary);
    bool removeFolder(std::string_view folderName);
};

} // namespace varnel
