#include "editing/EditorState.h"

#include "comments/ScreenComment.h"
#include "editing/EditorGeometry.h"
#include "library/Uuid.h"

#include <algorithm>

namespace varnel {

namespace {

std::string rectText(const NormalizedRect& r) {
    return shortestDecimal(r.x) + "," + shortestDecimal(r.y) + "," + shortestDecimal(r.width) +
           "," + shortestDecimal(r.height);
}

template <typename T> T* byId(std::vector<T>& items, const std::string& id) {
    auto it = std::find_if(items.begin(), items.end(), [&](const T& t) { return t.id == id; });
    return it == items.end() ? nullptr : &*it;
}

} // namespace

void EditorState::load(std::vector<RedactShape> shapes, std::vector<EditorPatch> patches) {
    for (auto& shape : shapes)
        if (shape.id.empty())
            shape.id = newUUIDString();
    for (auto& patch : patches)
        if (patch.id.empty())
            patch.id = newUUIDString();
    current_ = {std::move(shapes), std::move(patches)};
    undo_.clear();
    redo_.clear();
    selection_.clear();
    patchSelection_.reset();
    repeatedPastes_ = 0;
    lastPasteTarget_.clear();
    markSaved();
}

void EditorState::snapshot() {
    undo_.push_back(current_);
    redo_.clear();
}

void EditorState::undo() {
    if (undo_.empty())
        return;
    redo_.push_back(std::move(current_));
    current_ = std::move(undo_.back());
    undo_.pop_back();
}

void EditorState::redo() {
    if (redo_.empty())
        return;
    undo_.push_back(std::move(current_));
    current_ = std::move(redo_.back());
    redo_.pop_back();
}

std::string EditorState::addShape(RedactShape::Kind kind, const NormalizedRect& rect) {
    snapshot();
    RedactShape shape{newUUIDString(), kind, EditorGeometry::clampedInside(rect)};
    current_.shapes.push_back(shape);
    selection_ = {shape.id};
    return shape.id;
}

std::string EditorState::addPatch(cv::Mat image, const NormalizedRect& rect) {
    snapshot();
    EditorPatch patch{newUUIDString(), std::move(image), EditorGeometry::clampedInside(rect)};
    current_.patches.push_back(patch);
    patchSelection_ = patch.id;
    return patch.id;
}

void EditorState::setShapeRect(const std::string& id, const NormalizedRect& rect) {
    if (RedactShape* shape = byId(current_.shapes, id))
        shape->rect = rect;
}

void EditorState::setPatchRect(const std::string& id, const NormalizedRect& rect) {
    if (EditorPatch* patch = byId(current_.patches, id))
        patch->rect = rect;
}

void EditorState::moveSelection(double dx, double dy) {
    if (selection_.empty() && !patchSelection_)
        return;
    snapshot();
    const auto moved = [&](NormalizedRect r) {
        r.x += dx;
        r.y += dy;
        return EditorGeometry::clampedInside(r);
    };
    for (auto& shape : current_.shapes)
        if (selection_.contains(shape.id))
            shape.rect = moved(shape.rect);
    if (patchSelection_)
        if (EditorPatch* patch = byId(current_.patches, *patchSelection_))
            patch->rect = moved(patch->rect);
}

void EditorState::deleteSelection() {
    if (selection_.empty() && !patchSelection_)
        return;
    snapshot();
    std::erase_if(current_.shapes, [&](const RedactShape& s) { return selection_.contains(s.id); });
    if (patchSelection_)
        std::erase_if(current_.patches,
                      [&](const EditorPatch& p) { return p.id == *patchSelection_; });
    selection_.clear();
    patchSelection_.reset();
}

std::vector<RedactShape> EditorState::selectedShapes() const {
    std::vector<RedactShape> selected;
    for (const auto& shape : current_.shapes)
        if (selection_.contains(shape.id))
            selected.push_back(shape);
    return selected;
}

void EditorState::selectAll() {
    for (const auto& shape : current_.shapes)
        selection_.insert(shape.id);
}

void EditorState::restoreShapes(std::vector<RedactShape> shapes) {
    snapshot();
    selection_.clear();
    for (auto& shape : shapes)
        if (shape.id.empty())
            shape.id = newUUIDString();
    current_.shapes = std::move(shapes);
}

bool EditorState::pasteZones(const EditorClipboard& clipboard,
                             const std::filesystem::path& screen) {
    if (!clipboard.zones())
        return false;
    std::vector<RedactShape> usable;
    for (const auto& shape : clipboard.zones()->shapes)
        if (const auto onPicture = clampedToPicture(shape.rect))
            usable.push_back({shape.id, shape.kind, *onPicture});
    if (usable.empty())
        return false;
    // The clipboard holds the standardized location; a symbolic link in the library's path
    // must not make the first paste onto the same screen look like one onto another.
    const auto target = EditorClipboard::standardized(screen);
    const bool sameScreen = clipboard.zones()->sourceURL == target || lastPasteTarget_ == target;
    repeatedPastes_ = sameScreen ? repeatedPastes_ + 1 : 0;
    lastPasteTarget_ = target;
    const double offset = kPasteOffset * repeatedPastes_;
    snapshot();
    selection_.clear();
    for (RedactShape shape : usable) {
        shape.id = newUUIDString();
        shape.rect.x += offset;
        shape.rect.y += offset;
        shape.rect = EditorGeometry::clampedInside(shape.rect);
        selection_.insert(shape.id);
        current_.shapes.push_back(std::move(shape));
    }
    return true;
}

bool EditorState::pastePatch(const EditorClipboard& clipboard, bool screenIsStill) {
    if (!screenIsStill || !clipboard.patch())
        return false;
    const auto onPicture = clampedToPicture(clipboard.patch()->rect);
    if (!onPicture)
        return false;
    NormalizedRect rect = *onPicture;
    rect.x += kPasteOffset;
    rect.y += kPasteOffset;
    selection_.clear();
    addPatch(clipboard.patch()->image.clone(), rect);
    return true;
}

std::string EditorState::signature() const {
    std::string text;
    for (const auto& shape : current_.shapes)
        text += std::string(toString(shape.kind)) + ":" + rectText(shape.rect) + ";";
    text += "|";
    for (const auto& patch : current_.patches)
        text += rectText(patch.rect) + "@" + std::to_string(patch.image.cols) + "x" +
                std::to_string(patch.image.rows) + "#" +
                std::to_string(reinterpret_cast<std::uintptr_t>(patch.image.data)) + ";";
    return text;
}

} // namespace varnel
