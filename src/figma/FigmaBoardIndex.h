#pragma once

#include "figma/FigmaRecords.h"

#include <map>
#include <optional>
#include <string>

namespace varnel {

// What the comment code needs to know of a flow's board in Figma.
struct FigmaBoardGeometry {
    std::string rootId;
    std::string pageId;
    FigmaBox rootBox;
    std::map<std::string, FigmaBox> screenBoxes; // by screen file name
    std::map<std::string, FigmaBox> nodeBoxes;   // by node id, for every boxed node of the board

    bool operator==(const FigmaBoardGeometry&) const = default;
};

// Finds a flow's board by the tags the import plugin writes: namespace "varnel", "flowId" and
// "importedAt" on the board's root, "file" on each screen.
namespace FigmaBoardIndex {

inline constexpr const char* kNamespace = "varnel";

struct Root {
    const FigmaNode* node = nullptr;
    std::string pageId; // the page (canvas) that holds it; empty when the tree has no page
};

// The board of the flow; of several imports the one with the latest "importedAt" text.
std::optional<Root> findRoot(const FigmaNode& tree, const std::string& flowId);
std::optional<Date> importedAt(const FigmaNode& root);
FigmaBoardGeometry geometry(const FigmaNode& boardSubtree, const std::string& pageId);

} // namespace FigmaBoardIndex

} // namespace varnel
