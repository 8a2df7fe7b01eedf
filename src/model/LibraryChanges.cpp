#include "model/LibraryChanges.h"

#include "library/Errors.h"
#include "library/TrashEntry.h"
#include "model/FlowLibrary.h"

#include <algorithm>

namespace varnel::LibraryChanges {

namespace {

std::string counted(std::size_t n, const std::string& one, const std::string& many) {
    return n == 1 ? one : std::to_string(n) + " " + many;
}

const FlowSummary& summaryOf(const FlowLibrary& library, const std::string& folder) {
    for (const auto& summary : library.summaries())
        if (summary.folderName == folder)
            return summary;
    throw FlowNotFoundError(folder);
}

// Where a flow is now, found by its id.
std::string folderOf(const FlowLibrary& library, const std::string& id, const std::string& name) {
    for (const auto& summary : library.summaries())
        if (summary.id == id)
            return summary.folderName;
    throw LibraryError("The flow “" + name + "” is no longer in the library.");
}

std::vector<std::string> screensOf(FlowLibrary& library, const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& screen : library.meta(folder).screens)
        names.push_back(screen.filename);
    return names;
}

std::vector<std::string> namesAt(FlowLibrary& library, const std::string& folder,
                                 const std::vector<std::size_t>& positions,
                                 const std::string& flowName) {
    const auto names = screensOf(library, folder);
    std::vector<std::string> out;
    for (const auto position : positions) {
        if (position >= names.size())
            throw LibraryError("The flow “" + flowName + "” no longer has the screens it had.");
        out.push_back(names[position]);
    }
    return out;
}

std::vector<std::size_t> positionsOf(FlowLibrary& library, const std::string& folder,
                                     const std::vector<std::string>& files) {
    const auto names = screensOf(library, folder);
    std::vector<std::size_t> positions;
    for (const auto& file : files) {
        const auto at = std::find(names.begin(), names.end(), file);
        if (at == names.end())
            throw ScreenNotFoundError(folder, file);
        positions.push_back(static_cast<std::size_t>(at - names.begin()));
    }
    return positions;
}

std::vector<ScreenID> screenIDs(const std::string& folder, const std::vector<std::string>& files) {
    std::vector<ScreenID> ids;
    for (const auto& file : files)
        ids.push_back({folder, file});
    return ids;
}

// A flow's screens put in another order; positions survive the renumbering that follows.
class Reorder : public LibraryChange {
public:
    Reorder(const FlowSummary& flow, std::vector<std::size_t> permutation)
        : id_(flow.id), flow_(flow.name), permutation_(std::move(permutation)) {}
    std::string name() const override { return "Reorder Screens"; }
    void undo(FlowLibrary& library) override { apply(library, false); }
    void redo(FlowLibrary& library) override { apply(library, true); }

    void touch(FlowLibrary& library, const std::string& folder) {
        std::vector<std::size_t> moved;
        for (std::size_t i = 0; i < permutation_.size(); ++i)
            if (permutation_[i] != i)
                moved.push_back(i);
        touched_ = screenIDs(folder, namesAt(library, folder, moved, flow_));
    }

private:
    void apply(FlowLibrary& library, bool forward) {
        const std::string folder = folderOf(library, id_, flow_);
        const auto current = screensOf(library, folder);
        const std::size_t n = permutation_.size();
        if (current.size() < n)
            throw LibraryError("The flow “" + flow_ + "” no longer has the screens it had.");
        std::vector<std::string> order(current.size());
        for (std::size_t i = 0; i < n; ++i) {
            if (forward)
                order[i] = current[permutation_[i]];
            else
                order[permutation_[i]] = current[i];
        }
        std::copy(current.begin() + static_cast<std::ptrdiff_t>(n), current.end(),
                  order.begin() + static_cast<std::ptrdiff_t>(n));
        library.reorderScreens(folder, order);
        touch(library, folder);
    }

    std::string id_, flow_;
    std::vector<std::size_t> permutation_; // after[i] = before[permutation_[i]]
};

class Move : public LibraryChange {
public:
    Move(const FlowSummary& source, const FlowSummary& target, std::vector<std::size_t> from,
         std::size_t at)
        : sourceId_(source.id), sourceName_(source.name), targetId_(target.id),
          targetName_(target.name), from_(std::move(from)), at_(at) {}
    std::string name() const override {
        return "Move " + counted(from_.size(), "Screen", "Screens");
    }

    void redo(FlowLibrary& library) override {
        putBackEmptied(library, emptiedTarget_);
        const std::string source = folderOf(library, sourceId_, sourceName_);
        const std::string target = folderOf(library, targetId_, targetName_);
        library.moveScreens(source, namesAt(library, source, from_, sourceName_), target, at_,
                            &emptiedSource_);
        touchTarget(library);
    }

    void undo(FlowLibrary& library) override {
        putBackEmptied(library, emptiedSource_);
        const std::string source = folderOf(library, sourceId_, sourceName_);
        const std::string target = folderOf(library, targetId_, targetName_);
        std::vector<std::size_t> landed(from_.size());
        for (std::size_t j = 0; j < landed.size(); ++j)
            landed[j] = at_ + j;
        library.moveScreens(target, namesAt(library, target, landed, targetName_), source, 0,
                            &emptiedTarget_);
        // Back at the top of their flow, in the order they moved: each goes to its old place.
        const auto current = screensOf(library, source);
        std::vector<std::optional<std::string>> placed(current.size());
        for (std::size_t j = 0; j < from_.size(); ++j)
            placed[std::min(from_[j], current.size() - 1)] = current[j];
        std::vector<std::string> order;
        std::size_t next = from_.size();
        for (auto& slot : placed)
            order.push_back(slot ? *slot : current[next++]);
        if (order != current)
            library.reorderScreens(source, order);
        touched_ = screenIDs(source, namesAt(library, source, from_, sourceName_));
    }

    std::vector<std::string> heldTrash() const override {
        std::vector<std::string> held;
        for (const auto* entry : {&emptiedSource_, &emptiedTarget_})
            if (*entry)
                held.push_back(**entry);
        return held;
    }

    void touchTarget(FlowLibrary& library) {
        const std::string target = folderOf(library, targetId_, targetName_);
        std::vector<std::size_t> landed;
        for (std::size_t j = 0; j < from_.size(); ++j)
            landed.push_back(at_ + j);
        touched_ = screenIDs(target, namesAt(library, target, landed, targetName_));
    }
    std::optional<std::string> emptiedSource_, emptiedTarget_;

private:
    static void putBackEmptied(FlowLibrary& library, std::optional<std::string>& entry) {
        if (!entry)
            return;
        library.restoreFlows(*entry);
        entry.reset();
    }

    std::string sourceId_, sourceName_, targetId_, targetName_;
    std::vector<std::size_t> from_; // in the order they moved
    std::size_t at_;
};

class DeleteScreens : public LibraryChange {
public:
    DeleteScreens(const FlowSummary& flow, std::vector<std::size_t> positions)
        : id_(flow.id), flow_(flow.name), positions_(std::move(positions)) {
        std::sort(positions_.begin(), positions_.end());
    }
    std::string name() const override {
        return "Delete " + counted(positions_.size(), "Screen", "Screens");
    }
    void redo(FlowLibrary& library) override {
        const std::string folder = folderOf(library, id_, flow_);
        const auto trashed =
            library.trashScreens(folder, namesAt(library, folder, positions_, flow_));
        entry_ = trashed.entry;
        flowWent_ = trashed.flowWent;
        touched_.clear();
    }
    void undo(FlowLibrary& library) override {
        if (flowWent_) {
            const auto folders = library.restoreFlows(entry_);
            touchedFlow_ = folders.front();
            touched_ = screenIDs(folders.front(), screensOf(library, folders.front()));
            return;
        }
        const auto restored = library.restoreScreens(entry_);
        touched_ = screenIDs(restored.folderName, restored.filenames);
        positions_ = positionsOf(library, restored.folderName, restored.filenames);
        std::sort(positions_.begin(), positions_.end());
    }
    std::string entry_;
    bool flowWent_ = false;

private:
    std::string id_, flow_;
    std::vector<std::size_t> positions_;
};

class DeleteFlows : public LibraryChange {
public:
    DeleteFlows(std::string name, std::vector<std::pair<std::string, std::string>> flows)
        : name_(std::move(name)), flows_(std::move(flows)) {}
    std::string name() const override { return name_; }
    void redo(FlowLibrary& library) override {
        std::vector<std::string> folders;
        for (const auto& [id, name] : flows_)
            folders.push_back(folderOf(library, id, name));
        entry_ = library.trashFlows(folders);
        touched_.clear();
        touchedFlow_.reset();
    }
    void undo(FlowLibrary& library) override {
        const auto folders = library.restoreFlows(entry_);
        touchedFlow_ = folders.front();
        touched_.clear();
    }
    std::string entry_;

private:
    std::string name_;
    std::vector<std::pair<std::string, std::string>> flows_; // id, name
};

// What deletes, run the other way round: putting back from the trash.
class Inverse : public LibraryChange {
public:
    Inverse(std::string name, std::unique_ptr<LibraryChange> inner)
        : name_(std::move(name)), inner_(std::move(inner)) {}
    std::string name() const override { return name_; }
    void undo(FlowLibrary& library) override { run(library, false); }
    void redo(FlowLibrary& library) override { run(library, true); }

private:
    void run(FlowLibrary& library, bool forward) {
        if (forward)
            inner_->undo(library);
        else
            inner_->redo(library);
        touched_ = inner_->touched();
        touchedFlow_ = inner_->touchedFlow();
    }
    std::string name_;
    std::unique_ptr<LibraryChange> inner_;
};

class RenameScreen : public LibraryChange {
public:
    RenameScreen(const FlowSummary& flow, std::string file, std::string before, std::string after)
        : id_(flow.id), flow_(flow.name), file_(std::move(file)), before_(std::move(before)),
          after_(std::move(after)) {}
    std::string name() const override { return "Rename Screen"; }
    void undo(FlowLibrary& library) override { apply(library, before_); }
    void redo(FlowLibrary& library) override { apply(library, after_); }

private:
    void apply(FlowLibrary& library, const std::string& name) {
        const std::string folder = folderOf(library, id_, flow_);
        if (!library.meta(folder).screen(file_))
            throw LibraryError("The screen “" + file_ + "” is no longer in “" + flow_ + "”.");
        library.renameScreen(folder, file_, name);
        touched_ = {{folder, file_}};
    }
    std::string id_, flow_, file_, before_, after_;
};

class RenameFlow : public LibraryChange {
public:
    RenameFlow(std::string id, std::string before, std::string after)
        : id_(std::move(id)), before_(std::move(before)), after_(std::move(after)) {}
    std::string name() const override { return "Rename Flow"; }
    void undo(FlowLibrary& library) override {
        touchedFlow_ = library.renameFlow(folderOf(library, id_, after_), before_);
    }
    void redo(FlowLibrary& library) override {
        touchedFlow_ = library.renameFlow(folderOf(library, id_, before_), after_);
    }

private:
    std::string id_, before_, after_;
};

class Refile : public LibraryChange {
public:
    using Place = std::pair<std::optional<std::string>, std::optional<std::string>>;
    Refile(const FlowSummary& flow, Place before, Place after)
        : id_(flow.id), flow_(flow.name), before_(std::move(before)), after_(std::move(after)) {}
    std::string name() const override { return "Categorize Flow"; }
    void undo(FlowLibrary& library) override { apply(library, before_); }
    void redo(FlowLibrary& library) override { apply(library, after_); }

private:
    void apply(FlowLibrary& library, const Place& place) {
        const std::string folder = folderOf(library, id_, flow_);
        FlowMeta meta = library.meta(folder);
        meta.application = place.first;
        meta.categoryL1 = place.second;
        touchedFlow_ = library.saveMeta(folder, meta);
    }
    std::string id_, flow_;
    Place before_, after_;
};

class MoveCategory : public LibraryChange {
public:
    MoveCategory(std::vector<std::string> before, std::vector<std::string> after)
        : before_(std::move(before)), after_(std::move(after)) {}
    std::string name() const override { return "Move Category"; }
    void undo(FlowLibrary& library) override { library.setCategoryOrder(before_); }
    void redo(FlowLibrary& library) override { library.setCategoryOrder(after_); }

private:
    std::vector<std::string> before_, after_;
};

class RenameCategory : public LibraryChange {
public:
    RenameCategory(std::string before, std::string after)
        : before_(std::move(before)), after_(std::move(after)) {}
    std::string name() const override { return "Rename Category"; }
    void undo(FlowLibrary& library) override { library.renameCategory(after_, before_); }
    void redo(FlowLibrary& library) override { library.renameCategory(before_, after_); }

private:
    std::string before_, after_;
};

// Screens that came in (copies, duplicates, files): undoing sets them aside in the trash,
// unlisted, and redoing brings them back.
class AddedScreens : public LibraryChange {
public:
    AddedScreens(std::string name, const FlowSummary& flow, std::vector<std::size_t> positions)
        : name_(std::move(name)), id_(flow.id), flow_(flow.name), positions_(std::move(positions)) {
        std::sort(positions_.begin(), positions_.end());
    }
    std::string name() const override { return name_; }
    void undo(FlowLibrary& library) override {
        const std::string folder = folderOf(library, id_, flow_);
        const auto trashed =
            library.trashScreens(folder, namesAt(library, folder, positions_, flow_), true);
        entry_ = trashed.entry;
        flowWent_ = trashed.flowWent;
        touched_.clear();
        touchedFlow_ = flowWent_ ? std::nullopt : std::optional<std::string>(folder);
    }
    void redo(FlowLibrary& library) override {
        if (!entry_)
            return;
        if (flowWent_) {
            const auto folders = library.restoreFlows(*entry_);
            touched_ = screenIDs(folders.front(), screensOf(library, folders.front()));
        } else {
            const auto restored = library.restoreScreens(*entry_);
            touched_ = screenIDs(restored.folderName, restored.filenames);
        }
        entry_.reset();
    }
    std::vector<std::string> heldTrash() const override {
        return entry_ ? std::vector<std::string>{*entry_} : std::vector<std::string>{};
    }

private:
    std::string name_, id_, flow_;
    std::vector<std::size_t> positions_;
    std::optional<std::string> entry_;
    bool flowWent_ = false;
};

class CreatedFlow : public LibraryChange {
public:
    CreatedFlow(std::string name, const FlowSummary& flow)
        : name_(std::move(name)), id_(flow.id), flow_(flow.name),
          screens_(static_cast<std::size_t>(std::max<std::int64_t>(0, flow.screenCount))) {}
    std::string name() const override { return name_; }
    void undo(FlowLibrary& library) override {
        const std::string folder = folderOf(library, id_, flow_);
        // Screens that came in since are not this change's to take away.
        if (library.meta(folder).screens.size() > screens_)
            throw LibraryError("The flow “" + flow_ +
                               "” has more screens now; delete it if it should go.");
        entry_ = library.trashFlows({folder}, true);
        touchedFlow_.reset();
    }
    void redo(FlowLibrary& library) override {
        if (!entry_)
            return;
        touchedFlow_ = library.restoreFlows(*entry_).front();
        entry_.reset();
    }
    std::vector<std::string> heldTrash() const override {
        return entry_ ? std::vector<std::string>{*entry_} : std::vector<std::string>{};
    }

private:
    std::string name_, id_, flow_;
    std::size_t screens_; // what it came with
    std::optional<std::string> entry_;
};

class Together : public LibraryChange {
public:
    Together(std::string name, std::vector<Change> changes)
        : name_(std::move(name)), changes_(std::move(changes)) {}
    std::string name() const override { return name_; }
    void undo(FlowLibrary& library) override {
        for (auto it = changes_.rbegin(); it != changes_.rend(); ++it)
            (*it)->undo(library);
        collect();
    }
    void redo(FlowLibrary& library) override {
        for (auto& change : changes_)
            change->redo(library);
        collect();
    }
    std::vector<std::string> heldTrash() const override {
        std::vector<std::string> held;
        for (const auto& change : changes_) {
            const auto own = change->heldTrash();
            held.insert(held.end(), own.begin(), own.end());
        }
        return held;
    }

private:
    void collect() {
        touched_.clear();
        touchedFlow_.reset();
        for (const auto& change : changes_) {
            touched_.insert(touched_.end(), change->touched().begin(), change->touched().end());
            if (change->touchedFlow())
                touchedFlow_ = change->touchedFlow();
        }
    }
    std::string name_;
    std::vector<Change> changes_;
};

} // namespace

Change reorder(FlowLibrary& library, const std::string& folder,
               const std::vector<std::string>& order) {
    const FlowSummary flow = summaryOf(library, folder);
    const auto before = screensOf(library, folder);
    const auto permutation = positionsOf(library, folder, order);
    library.reorderScreens(folder, order);
    auto change = std::make_unique<Reorder>(flow, permutation);
    change->touch(library, folder);
    return change;
}

Change move(FlowLibrary& library, const std::string& source, const std::vector<std::string>& files,
            const std::string& target, std::size_t index) {
    const FlowSummary from = summaryOf(library, source);
    const FlowSummary to = summaryOf(library, target);
    auto positions = positionsOf(library, source, files);
    const std::size_t at = std::min(index, screensOf(library, target).size());
    auto change = std::make_unique<Move>(from, to, std::move(positions), at);
    library.moveScreens(source, files, target, index, &change->emptiedSource_);
    change->touchTarget(library);
    return change;
}

Change deleteScreens(FlowLibrary& library, const std::string& folder,
                     const std::vector<std::string>& files) {
    auto change = std::make_unique<DeleteScreens>(summaryOf(library, folder),
                                                  positionsOf(library, folder, files));
    const auto trashed = library.trashScreens(folder, files);
    change->entry_ = trashed.entry;
    change->flowWent_ = trashed.flowWent;
    return change;
}

Change deleteFlows(FlowLibrary& library, const std::vector<std::string>& folders,
                   const std::string& name) {
    std::vector<std::pair<std::string, std::string>> flows;
    for (const auto& folder : folders) {
        const FlowSummary& flow = summaryOf(library, folder);
        flows.emplace_back(flow.id, flow.name);
    }
    auto change = std::make_unique<DeleteFlows>(name, std::move(flows));
    change->entry_ = library.trashFlows(folders);
    return change;
}

Change renameScreen(FlowLibrary& library, const std::string& folder, const std::string& file,
                    const std::string& newName) {
    const ScreenRef* screen = library.meta(folder).screen(file);
    if (!screen)
        throw ScreenNotFoundError(folder, file);
    const std::string before = screen->name.value_or("");
    library.renameScreen(folder, file, newName);
    return std::make_unique<RenameScreen>(summaryOf(library, folder), file, before, newName);
}

Change renameFlow(FlowLibrary& library, const std::string& folder, const std::string& newName) {
    const FlowSummary flow = summaryOf(library, folder);
    const std::string now = library.renameFlow(folder, newName);
    auto change = std::make_unique<RenameFlow>(flow.id, flow.name, summaryOf(library, now).name);
    return change;
}

Change refile(FlowLibrary& library, const std::string& folder,
              const std::optional<std::string>& application,
              const std::optional<std::string>& category) {
    const FlowSummary flow = summaryOf(library, folder);
    FlowMeta meta = library.meta(folder);
    const Refile::Place before{meta.application, meta.categoryL1};
    meta.application = application;
    meta.categoryL1 = category;
    const std::string now = library.saveMeta(folder, meta);
    const FlowMeta& saved = library.meta(now);
    return std::make_unique<Refile>(flow, before,
                                    Refile::Place{saved.application, saved.categoryL1});
}

Change moveCategory(FlowLibrary& library, const std::string& category,
                    const std::optional<std::string>& before) {
    const auto was = library.categoryOrder();
    library.moveCategory(category, before);
    return std::make_unique<MoveCategory>(was, library.categoryOrder());
}

Change renameCategory(FlowLibrary& library, const std::string& category,
                      const std::string& newName) {
    library.renameCategory(category, newName);
    return std::make_unique<RenameCategory>(category, newName);
}

Change putBack(FlowLibrary& library, const TrashEntry& entry) {
    if (entry.holdsFlows()) {
        std::vector<std::pair<std::string, std::string>> flows;
        for (const auto& flow : entry.flows)
            flows.emplace_back(flow.summary.id, flow.summary.name);
        auto inner = std::make_unique<DeleteFlows>("", std::move(flows));
        inner->entry_ = entry.id;
        auto change = std::make_unique<Inverse>(
            "Put Back " + counted(entry.flows.size(), "Flow", "Flows"), std::move(inner));
        change->redo(library);
        return change;
    }
    FlowSummary flow;
    flow.id = entry.flowId;
    flow.name = entry.flowName;
    std::vector<std::size_t> positions;
    for (const auto& screen : entry.screens)
        positions.push_back(screen.position);
    auto inner = std::make_unique<DeleteScreens>(flow, positions);
    inner->entry_ = entry.id;
    auto change = std::make_unique<Inverse>(
        "Put Back " + counted(entry.screens.size(), "Screen", "Screens"), std::move(inner));
    change->redo(library);
    return change;
}

Change addedScreens(FlowLibrary& library, const std::string& folder,
                    const std::vector<std::string>& added, const std::string& name) {
    return std::make_unique<AddedScreens>(name, summaryOf(library, folder),
                                          positionsOf(library, folder, added));
}

Change refiled(FlowLibrary& library, const std::string& flowId,
               const std::optional<std::string>& application,
               const std::optional<std::string>& category) {
    for (const auto& flow : library.summaries())
        if (flow.id == flowId)
            return std::make_unique<Refile>(flow, Refile::Place{application, category},
                                            Refile::Place{flow.application, flow.categoryL1});
    throw LibraryError("The flow is no longer in the library.");
}

Change createdFlow(FlowLibrary& library, const std::string& folder, const std::string& name) {
    return std::make_unique<CreatedFlow>(name, summaryOf(library, folder));
}

std::vector<std::string> copiesMade(const ThumbEdits& edits) {
    std::vector<std::string> names;
    for (const auto& [original, copy] : edits.copies) {
        std::string now = copy.filename;
        for (const auto& [from, to] : edits.renames)
            if (from == copy)
                now = to.filename;
        names.push_back(now);
    }
    return names;
}

Change together(std::string name, std::vector<Change> changes) {
    return std::make_unique<Together>(std::move(name), std::move(changes));
}

} // namespace varnel::LibraryChanges
