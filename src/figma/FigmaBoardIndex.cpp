#include "figma/FigmaBoardIndex.h"

#include <functional>

namespace varnel::FigmaBoardIndex {

namespace {

const std::string& importedText(const FigmaNode& node) {
    static const std::string none;
    const std::string* value = node.pluginValue(kNamespace, "importedAt");
    return value ? *value : none;
}

// Depth first, parent before children. `page` is the canvas the walk is on.
void walk(const FigmaNode& node, const std::string& page,
          const std::function<void(const FigmaNode&, const std::string&)>& visit) {
    const std::string& here = node.type == "CANVAS" ? node.id : page;
    visit(node, here);
    if (node.children)
        for (const auto& child : *node.children)
            walk(child, here, visit);
}

} // namespace

std::optional<Root> findRoot(const FigmaNode& tree, const std::string& flowId) {
    std::optional<Root> best;
    walk(tree, {}, [&](const FigmaNode& node, const std::string& page) {
        const std::string* id = node.pluginValue(kNamespace, "flowId");
        if (!id || *id != flowId)
            return;
        if (!best || importedText(node) > importedText(*best->node))
            best = Root{&node, page};
    });
    return best;
}

std::optional<Date> importedAt(const FigmaNode& root) {
    const std::string* text = root.pluginValue(kNamespace, "importedAt");
    return text ? parseFigmaDate(*text) : std::nullopt;
}

FigmaBoardGeometry geometry(const FigmaNode& boardSubtree, const std::string& pageId) {
    FigmaBoardGeometry g;
    g.rootId = boardSubtree.id;
    g.pageId = pageId;
    g.rootBox = boardSubtree.absoluteBoundingBox.value_or(FigmaBox{});
    walk(boardSubtree, {}, [&](const FigmaNode& node, const std::string&) {
        if (!node.absoluteBoundingBox)
            return;
        g.nodeBoxes[node.id] = *node.absoluteBoundingBox;
        if (const std::string* file = node.pluginValue(kNamespace, "file"))
            g.screenBoxes[*file] = *node.absoluteBoundingBox;
    });
    return g;
}

} // namespace varnel::FigmaBoardIndex
