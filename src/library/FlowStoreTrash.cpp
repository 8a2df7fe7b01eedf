// The library's trash: deleted flows and screens, kept so that they can be put back.
#include "library/FlowStore.h"

#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/Slug.h"
#include "library/UndoLog.h"
#include "library/Uuid.h"

#include <algorithm>
#include <set>

namespace varnel {

namespace {

std::string parentPathOf(const std::string& folderName) {
    const auto slash = folderName.rfind('/');
    return slash == std::string::npos ? std::string() : folderName.substr(0, slash);
}

std::string leafOf(const std::string& folderName) {
    const auto slash = folderName.rfind('/');
    return slash == std::string::npos ? folderName : folderName.substr(slash + 1);
}

} // namespace

fs::path FlowStore::trashURL(std::string_view entryId) const {
    if (!LibraryLayout::isSafeFileName(entryId))
        throw UnsafeNameError(std::string(entryId), "it is not a trash entry of this library");
    return root_ / TrashEntry::kFolder / std::string(entryId);
}

// The entry's record goes first: a folder without it is never offered again.
void FlowStore::removeTrashFolder(const fs::path& folder) {
    if (FileOps::exists(folder / TrashEntry::kFile))
        ops_.folderRemover(folder / TrashEntry::kFile);
    if (FileOps::exists(folder))
        ops_.folderRemover(folder);
}

// Taken out before the change is written, so that a restored entry is never offered again;
// `undo` writes it back.
void FlowStore::dropTrashRecord(const fs::path& folder, const TrashEntry& entry, UndoLog& undo) {
    ops_.folderRemover(folder / TrashEntry::kFile);
    undo.add([this, folder, bytes = encodeLibraryJson(entry.toJson())] {
        ops_.indexWriter(folder / TrashEntry::kFile, bytes);
    });
}

// What a restore left in the entry's folder, without its record; kept when it can't go, as
// emptying the trash removes it.
void FlowStore::removeTrashLeftover(const fs::path& folder) noexcept {
    try {
        if (FileOps::exists(folder))
            ops_.folderRemover(folder);
    } catch (const std::exception&) {
    }
}

TrashEntry FlowStore::trashEntry(const std::string& entryId) const {
    const fs::path file = trashURL(entryId) / TrashEntry::kFile;
    const auto bytes = FileOps::readIfExists(file);
    if (!bytes)
        throw LibraryError("The trash no longer holds what was deleted (" + entryId + ").");
    TrashEntry entry = TrashEntry::fromJson(parseLibraryJson(*bytes));
    if (entry.id != entryId)
        throw DecodingError(file, "it belongs to another entry");
    return entry;
}

std::vector<TrashEntry> FlowStore::trashEntries() const {
    std::vector<TrashEntry> entries;
    const fs::path folder = root_ / TrashEntry::kFolder;
    if (!FileOps::isDirectory(folder))
        return entries;
    for (const auto& name : FileOps::list(folder)) {
        try {
            entries.push_back(trashEntry(name));
        } catch (const std::exception&) {
            // Half written or half emptied: nothing in it is offered.
        }
    }
    std::sort(entries.begin(), entries.end(),
              [](const TrashEntry& a, const TrashEntry& b) { return a.deletedAt > b.deletedAt; });
    return entries;
}

void FlowStore::purgeTrash(const std::string& entryId) {
    removeTrashFolder(trashURL(entryId));
}

std::size_t FlowStore::purgeTrashBefore(Date cutoff) {
    const fs::path folder = root_ / TrashEntry::kFolder;
    if (!FileOps::isDirectory(folder))
        return 0;
    std::size_t purged = 0;
    for (const auto& name : FileOps::list(folder)) {
        if (!LibraryLayout::isSafeFileName(name))
            continue;
        std::optional<TrashEntry> entry;
        try {
            entry = trashEntry(name);
        } catch (const std::exception&) {
        }
        // An entry being written has its record before any file: one without is a leftover.
        if (entry && entry->deletedAt >= cutoff)
            continue;
        removeTrashFolder(folder / name);
        purged += entry.has_value();
    }
    if (FileOps::list(folder).empty())
        ops_.folderRemover(folder);
    return purged;
}

std::string FlowStore::trashFlows(const std::vector<std::string>& folderNames, bool hidden) {
    auto snapshot = indexSnapshot();
    TrashEntry entry;
    entry.id = newUUIDString();
    entry.deletedAt = Date::now();
    entry.hidden = hidden;
    for (const auto& folderName : folderNames) {
        flowURL(folderName);
        const auto& flows = snapshot.index.flows;
        const auto listed = std::find_if(flows.begin(), flows.end(), [&](const FlowSummary& f) {
            return f.folderName == folderName;
        });
        if (listed == flows.end())
            throw FlowNotFoundError(folderName);
        if (std::any_of(entry.flows.begin(), entry.flows.end(),
                        [&](const auto& f) { return f.folderName == folderName; }))
            continue;
        entry.flows.push_back({folderName, std::to_string(entry.flows.size() + 1),
                               static_cast<std::size_t>(listed - flows.begin()), *listed});
    }
    if (entry.flows.empty())
        throw LibraryError("No flow to delete.");
    for (const auto& flow : entry.flows)
        snapshot.index.removeFolder(flow.folderName);

    std::vector<std::string> touched;
    for (const auto& flow : entry.flows)
        touched.push_back(flow.folderName);
    const fs::path trashDir = trashURL(entry.id);
    const fs::path intent = beginIntent(
        Json{{"operation", "trashFlows"}, {"flows", touched}, {"trashFlows", entry.id}});
    UndoLog undo;
    try {
        ops_.directoryCreator(trashDir, true);
        undo.add([this, trashDir] { removeTrashFolder(trashDir); });
        ops_.indexWriter(trashDir / TrashEntry::kFile, encodeLibraryJson(entry.toJson()));
        for (const auto& flow : entry.flows) {
            const fs::path folder = flowURL(flow.folderName);
            if (!FileOps::exists(folder))
                continue;
            ops_.folderMover(folder, trashDir / flow.slot);
            undo.add([this, folder, to = trashDir / flow.slot] { ops_.folderMover(to, folder); });
        }
        writeIndex(snapshot.index);
    } catch (const std::exception& e) {
        undo.undoOrThrow("delete " + entry.description(), trashDir.string(), e);
        dropIntent(intent);
        throw;
    }
    endIntent(intent);
    for (const auto& flow : entry.flows)
        pruneEmptyParents(flow.folderName);
    return entry.id;
}

std::vector<std::string> FlowStore::restoreFlows(const std::string& entryId) {
    const TrashEntry entry = trashEntry(entryId);
    if (!entry.holdsFlows())
        throw LibraryError("The trash entry " + entryId + " holds screens, not flows.");
    auto snapshot = indexSnapshot();
    const fs::path trashDir = trashURL(entryId);

    // Each flow goes back to its folder, or beside a flow that took that folder meanwhile.
    std::vector<std::string> targets;
    std::set<std::string> planned;
    for (const auto& flow : entry.flows) {
        if (snapshot.index.findId(flow.summary.id))
            throw LibraryError("The flow “" + flow.summary.name + "” is already in the library.");
        if (!FileOps::isDirectory(trashDir / flow.slot))
            throw LibraryError("The files of the flow “" + flow.summary.name +
                               "” are no longer in the trash.");
        std::string target = flow.folderName;
        if (FileOps::exists(flowURL(target)) || planned.contains(target)) {
            const std::string parent = parentPathOf(target);
            auto taken = std::set<std::string>();
            for (const auto& name : FileOps::list(root_ / parent))
                taken.insert(name);
            for (const auto& other : planned)
                if (parentPathOf(other) == parent)
                    taken.insert(leafOf(other));
            target = parent + "/" + Slug::uniqueFolderName(leafOf(target), taken);
        }
        planned.insert(target);
        targets.push_back(target);
    }

    Json moves = Json::array();
    for (std::size_t i = 0; i < targets.size(); ++i)
        moves.push_back(Json::array({entry.flows[i].slot, targets[i], entry.flows[i].summary.id}));
    const fs::path intent = beginIntent(
        Json{{"operation", "restoreFlows"},
             {"flows", targets},
             {"restoreFlows", {{"trash", entryId}, {"moves", moves}, {"entry", entry.toJson()}}}});
    UndoLog undo;
    try {
        std::vector<std::pair<std::size_t, FlowSummary>> summaries;
        for (std::size_t i = 0; i < targets.size(); ++i) {
            const fs::path folder = flowURL(targets[i]);
            const auto created = createParents(parentPathOf(targets[i]));
            undo.add([this, created] { removeCreatedParents(created); });
            ops_.folderMover(trashDir / entry.flows[i].slot, folder);
            undo.add([this, folder, from = trashDir / entry.flows[i].slot] {
                ops_.folderMover(folder, from);
            });
            summaries.emplace_back(entry.flows[i].position, meta(targets[i]).summary(targets[i]));
        }
        dropTrashRecord(trashDir, entry, undo);
        std::stable_sort(summaries.begin(), summaries.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        auto& flows = snapshot.index.flows;
        for (auto& [position, summary] : summaries)
            flows.insert(flows.begin() +
                             static_cast<std::ptrdiff_t>(std::min(position, flows.size())),
                         std::move(summary));
        writeIndex(snapshot.index);
    } catch (const std::exception& e) {
        undo.undoOrThrow("put back " + entry.description(), trashDir.string(), e);
        dropIntent(intent);
        throw;
    }
    removeTrashLeftover(trashDir);
    endIntent(intent);
    return targets;
}

} // namespace varnel
