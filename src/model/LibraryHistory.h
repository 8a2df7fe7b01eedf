#pragma once

#ifndef Q_MOC_RUN
#include "library/ScreenID.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QObject>

namespace varnel {

class FlowLibrary;

// A change of the library made in the window, that can be undone and made again. Flows are
// held by their ids, screens by their places, so that renaming and renumbering don't lose them.
class LibraryChange {
public:
    virtual ~LibraryChange() = default;
    // As the Edit menu names it: "Delete 3 Screens" for "Undo Delete 3 Screens".
    virtual std::string name() const = 0;
    // Each throws a LibraryError saying why when a later change made it impossible.
    virtual void undo(FlowLibrary& library) = 0;
    virtual void redo(FlowLibrary& library) = 0;
    // Trash entries that only this change keeps (what undoing an addition set aside); they go
    // when the change leaves the history.
    virtual std::vector<std::string> heldTrash() const { return {}; }
    // What to show selected after the last undo or redo.
    const std::vector<ScreenID>& touched() const { return touched_; }
    const std::optional<std::string>& touchedFlow() const { return touchedFlow_; }

protected:
    std::vector<ScreenID> touched_;
    std::optional<std::string> touchedFlow_;
};

// The window's undo history of library changes, newest last.
class LibraryHistory : public QObject {
    Q_OBJECT

public:
    explicit LibraryHistory(FlowLibrary& library, QObject* parent = nullptr);
    ~LibraryHistory() override;

    // Keeps a change that was just made; what could be redone is dropped.
    void record(std::unique_ptr<LibraryChange> change);

    bool canUndo() const { return !done_.empty(); }
    bool canRedo() const { return !undone_.empty(); }
    std::string undoName() const;
    std::string redoName() const;

    // Each returns the change it undid or redid, and throws the reason when it couldn't; a
    // change that can't be undone leaves the history with those made before it, as they
    // depend on it (and likewise for redo with those after it).
    const LibraryChange& undo();
    const LibraryChange& redo();
    // Forgets everything (another library, a change made outside the history that undo can't
    // go past).
    void clear();

signals:
    void changed();

private:
    void drop(std::vector<std::unique_ptr<LibraryChange>>& changes);

    FlowLibrary& library_;
    std::vector<std::unique_ptr<LibraryChange>> done_;
    std::vector<std::unique_ptr<LibraryChange>> undone_;
};

} // namespace varnel
