// Edit records and comment pins of a screen: one meta.json write each.
#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/LibraryLayout.h"

#include <set>

namespace varnel {

namespace {

ScreenRef& requireScreen(FlowMeta& m, std::string_view folderName, const std::string& filename) {
    LibraryLayout::validateFileName(filename);
    ScreenRef* screen = m.screen(filename);
    if (!screen)
        throw ScreenNotFoundError(std::string(folderName), filename);
    return *screen;
}

template <typename T> std::optional<std::vector<T>> nonEmpty(std::vector<T> items) {
    if (items.empty())
        return std::nullopt;
    return items;
}

} // namespace

void FlowStore::setEdits(std::string_view folderName, const std::string& filename,
                         std::vector<RedactShape> shapes, std::optional<RedactStyle> style,
                         std::vector<RedactPatch> patches) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    screen.redactions = nonEmpty(std::move(shapes));
    screen.redactStyle = style;
    screen.patches = nonEmpty(std::move(patches));
    writeMeta(folderName, m);
}

void FlowStore::setComments(std::string_view folderName, const std::string& filename,
                            std::optional<std::vector<ScreenComment>> pins) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    std::vector<ScreenComment> next = pins.value_or(std::vector<ScreenComment>{});
    std::set<std::string> kept;
    for (const auto& pin : next)
        if (pin.postedId)
            kept.insert(*pin.postedId);
    std::vector<std::string> gone;
    for (const auto& pin : screen.pins())
        if (pin.postedId && !kept.contains(*pin.postedId))
            gone.push_back(*pin.postedId);
    m.queuePendingDeletes(std::move(gone));
    screen.comments = nonEmpty(std::move(next));
    writeMeta(folderName, m);
    appendToIndex(m.summary(std::string(folderName)));
}

} // namespace varnel
