#pragma once

#include "editing/EditorClipboard.h"
#include "editing/RedactRecords.h"
#include "library/NormalizedRect.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace varnel {

// A clone patch while the editor holds it: pixels in memory.
struct EditorPatch {
    std::string id;
    cv::Mat image;
    NormalizedRect rect;
};

enum class EditorMode { select, rectangle, ellipse, patch, comment };

// What the editor holds of one screen: its zones and patches with undo and redo without limit,
// the selection, and whether anything changed since the last load or save.
class EditorState {
public:
    struct Edit {
        std::vector<RedactShape> shapes;
        std::vector<EditorPatch> patches;
    };

    // A fresh screen: no history, nothing selected, not edited.
    void load(std::vector<RedactShape> shapes, std::vector<EditorPatch> patches);

    const std::vector<RedactShape>& shapes() const { return current_.shapes; }
    const std::vector<EditorPatch>& patches() const { return current_.patches; }

    // Every change calls this first: the current state goes on the undo stack, redo is emptied.
    void snapshot();
    bool canUndo() const { return !undo_.empty(); }
    bool canRedo() const { return !redo_.empty(); }
    void undo();
    void redo();
    std::size_t undoDepth() const { return undo_.size(); }

    // Changes, each one undoable.
    std::string addShape(RedactShape::Kind kind, const NormalizedRect& rect);
    std::string addPatch(cv::Mat image, const NormalizedRect& rect);
    // Sets one zone's or patch's rectangle without a snapshot, for drags that took theirs at
    // their start.
    void setShapeRect(const std::string& id, const NormalizedRect& rect);
    void setPatchRect(const std::string& id, const NormalizedRect& rect);
    // Moves the selected zones and patch, each kept inside the picture.
    void moveSelection(double dx, double dy);
    // Puts back zones that weren't saved, as one change over the loaded state.
    void restoreShapes(std::vector<RedactShape> shapes);
    void deleteSelection();

    std::set<std::string>& selection() { return selection_; }
    const std::set<std::string>& selection() const { return selection_; }
    std::optional<std::string>& patchSelection() { return patchSelection_; }
    std::vector<RedactShape> selectedShapes() const;
    void selectAll();

    // Clipboard: pasted copies get new identities; each paste onto the screen it was copied
    // from (or again onto the same screen) is offset a little further, so copies don't hide
    // each other. False when there was nothing that fits.
    bool pasteZones(const EditorClipboard& clipboard, const std::filesystem::path& screen);
    bool pastePatch(const EditorClipboard& clipboard, bool screenIsStill);

    // Kind and rectangle of every zone, and rectangle and pixel size of every patch.
    std::string signature() const;
    bool isEdited() const { return signature() != baseline_; }
    void markSaved() { baseline_ = signature(); }

    static constexpr double kPasteOffset = 0.02;

private:
    Edit current_;
    std::vector<Edit> undo_;
    std::vector<Edit> redo_;
    std::set<std::string> selection_;
    std::optional<std::string> patchSelection_;
    std::string baseline_;
    int repeatedPastes_ = 0;
    std::filesystem::path lastPasteTarget_;
};

} // namespace varnel
