#include "model/LibraryHistory.h"

#include "model/FlowLibrary.h"

namespace varnel {

LibraryHistory::LibraryHistory(FlowLibrary& library, QObject* parent)
    : QObject(parent), library_(library) {}

LibraryHistory::~LibraryHistory() {
    // The library may already be gone with the window; what is held is emptied at the next
    // opening after its time.
    done_.clear();
    undone_.clear();
}

void LibraryHistory::record(std::unique_ptr<LibraryChange> change) {
    drop(undone_);
    done_.push_back(std::move(change));
    emit changed();
}

std::string LibraryHistory::undoName() const {
    return done_.empty() ? std::string() : done_.back()->name();
}

std::string LibraryHistory::redoName() const {
    return undone_.empty() ? std::string() : undone_.back()->name();
}

const LibraryChange& LibraryHistory::undo() {
    if (done_.empty())
        throw LibraryError("There is nothing to undo.");
    try {
        done_.back()->undo(library_);
    } catch (...) {
        drop(done_);
        emit changed();
        throw;
    }
    undone_.push_back(std::move(done_.back()));
    done_.pop_back();
    emit changed();
    return *undone_.back();
}

const LibraryChange& LibraryHistory::redo() {
    if (undone_.empty())
        throw LibraryError("There is nothing to redo.");
    try {
        undone_.back()->redo(library_);
    } catch (...) {
        drop(undone_);
        emit changed();
        throw;
    }
    done_.push_back(std::move(undone_.back()));
    undone_.pop_back();
    emit changed();
    return *done_.back();
}

void LibraryHistory::clear() {
    drop(done_);
    drop(undone_);
    emit changed();
}

void LibraryHistory::drop(std::vector<std::unique_ptr<LibraryChange>>& changes) {
    for (const auto& change : changes) {
        for (const auto& entry : change->heldTrash()) {
            try {
                library_.purgeTrash(entry);
            } catch (const std::exception& e) {
                qWarning("A change's trash entry couldn’t be removed: %s", e.what());
            }
        }
    }
    changes.clear();
}

} // namespace varnel
