// The screen operations of FlowStore: renumbering and the changes to a flow's screen list.
#include "library/FlowStore.h"

#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Text.h"
#include "library/UndoLog.h"
#include "library/Uuid.h"
#include "media/PngSize.h"

#include <algorithm>
#include <map>
#include <set>

namespace varnel {

namespace {

constexpr std::string_view kJournal = "journal.json";

struct RenumberMove {
    std::string from;
    std::string to;
};

std::set<std::string> listedNames(const fs::path& folder) {
    const auto names = FileOps::list(folder);
    return {names.begin(), names.end()};
}

std::vector<std::string> filenames(const std::vector<ScreenRef>& screens) {
    std::vector<std::string> names;
    names.reserve(screens.size());
    for (const auto& s : screens)
        names.push_back(s.filename);
    return names;
}

// The requested names, each once, checked against the flow.
std::vector<std::string> requireScreens(const FlowMeta& meta, std::string_view folderName,
                                        const std::vector<std::string>& requested) {
    std::vector<std::string> names;
    for (const auto& name : requested) {
        LibraryLayout::validateFileName(name);
        if (!meta.screen(name))
            throw ScreenNotFoundError(std::string(folderName), name);
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    return names;
}

void requireDistinct(const FlowMeta& meta, std::string_view folderName) {
    std::set<std::string> seen;
    for (const auto& s : meta.screens) {
        LibraryLayout::validateFileName(s.filename);
        if (!seen.insert(s.filename).second)
            throw LibraryError("The flow “" + std::string(folderName) + "” lists the screen “" +
                               s.filename + "” twice.");
    }
}

// A pin copied or moved to another place is a new, unpublished pin there.
void unpublish(ScreenRef& ref, bool newIds) {
    if (ref.comments) {
        for (auto& pin : *ref.comments) {
            pin.postedId.reset();
            pin.postedSignature.reset();
            pin.postedFileKey.reset();
            if (newIds)
                pin.id = newUUIDString();
        }
    }
    ref.figmaThreads.reset();
}

// The linked file's comments of the screen's pins, which leave with it.
std::vector<std::string> postedIds(const FlowMeta& meta, const ScreenRef& ref) {
    std::vector<std::string> ids;
    for (const auto& pin : ref.pins()) {
        if (meta.isPostedToLinkedFile(pin))
            ids.push_back(*pin.postedId);
    }
    return ids;
}

// Plans a screen's files under a name not yet claimed where it goes: the picture, its original
// copy and its patches (which keep their UUIDs where they can). Returns the new name; the
// record's patches name their new files.
std::string relocate(ScreenRef& ref, std::set<std::string>& claimed,
                     std::vector<RenumberMove>& moves) {
    const std::string& name = ref.filename;
    const std::string newName = ScreenFiles::claimScreenName(claimed, ScreenFiles::extension(name));
    claimed.insert(ScreenFiles::originalFilename(newName));
    moves.push_back({name, newName});
    moves.push_back({ScreenFiles::originalFilename(name), ScreenFiles::originalFilename(newName)});
    if (!ref.patches)
        return newName;
    for (auto& patch : *ref.patches) {
        if (!LibraryLayout::isSafeFileName(patch.file))
            continue;
        std::string newPatch = ScreenFiles::patchRenamed(patch.file, newName);
        if (!claimed.insert(newPatch).second) {
            newPatch = ScreenFiles::newPatchName(newName);
            claimed.insert(newPatch);
        }
        moves.push_back({patch.file, newPatch});
        patch.file = newPatch;
    }
    return newName;
}

// A screen coming back keeps its pins' comments that its flow still queues for deletion; a
// pin whose comment is gone from Figma is posted anew.
void restorePublished(FlowMeta& meta, ScreenRef& ref) {
    if (!ref.comments)
        return;
    auto& queue = meta.figmaPendingDeletes;
    for (auto& pin : *ref.comments) {
        if (!meta.isPostedToLinkedFile(pin))
            continue;
        const auto queued = queue ? std::find(queue->begin(), queue->end(), *pin.postedId)
                                  : std::vector<std::string>::iterator();
        if (queue && queued != queue->end()) {
            queue->erase(queued);
            continue;
        }
        pin.postedId.reset();
        pin.postedSignature.reset();
        pin.postedFileKey.reset();
    }
    if (queue && queue->empty())
        queue.reset();
}

} // namespace

ThumbEdits FlowStore::renumberScreens(std::string_view folderName) {
    const fs::path flowDir = flowURL(folderName);
    indexSnapshot(); // an unreadable index fails the change before anything moves
    FlowMeta m = meta(folderName);
    requireDistinct(m, folderName);
    const fs::path work = flowDir / LibraryLayout::kRenumberFolder;
    const bool pending = FileOps::exists(work);
    if (pending)
        recoverRenumbering(folderName, m);

    const std::size_t count = m.screens.size();
    std::vector<std::string> after;
    std::vector<RenumberMove> moves;
    std::vector<std::pair<std::string, std::string>> renames;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string& old = m.screens[i].filename;
        after.push_back(ScreenFiles::renumberedName(i + 1, count, old));
        const std::string& now = after.back();
        if (old == now)
            continue;
        renames.emplace_back(old, now);
        if (FileOps::exists(flowDir / old))
            moves.push_back({old, now});
        const std::string oldOriginal = ScreenFiles::originalFilename(old);
        if (FileOps::exists(flowDir / oldOriginal))
            moves.push_back({oldOriginal, ScreenFiles::originalFilename(now)});
    }
    // Patch files follow their screen's number, also those an older version left behind.
    for (std::size_t i = 0; i < count; ++i) {
        if (!m.screens[i].patches)
            continue;
        for (auto& patch : *m.screens[i].patches) {
            if (ScreenFiles::isPatchOf(patch.file, after[i]))
                continue;
            const std::string renamed = ScreenFiles::patchRenamed(patch.file, after[i]);
            if (FileOps::exists(flowDir / patch.file))
                moves.push_back({patch.file, renamed});
            patch.file = renamed;
        }
    }

    std::set<std::string> sources;
    for (const auto& move : moves)
        sources.insert(move.from);
    for (const auto& move : moves) {
        if (!sources.contains(move.to) && FileOps::exists(flowDir / move.to))
            throw LibraryError("Couldn’t renumber the screens of “" + std::string(folderName) +
                               "”: the file “" + move.to + "” is in the way.");
    }

    for (std::size_t i = 0; i < count; ++i)
        m.screens[i].filename = after[i];
    m.screensRenumberedAt = Date::now();

    // Phase one moves the files into the work folder under their new names; the meta written
    // next is the commit point; phase two moves them back in. The journal lets an interrupted
    // run be finished or undone. A work folder that was already there marks a screen change
    // whose renumbering is still owed, and stays until that renumbering is done.
    const std::string action = "renumber the screens of “" + std::string(folderName) + "”";
    std::optional<fs::path> intent;
    if (!moves.empty())
        intent = beginIntent(Json{{"operation", "renumber"}, {"flows", {std::string(folderName)}}});
    UndoLog undo;
    try {
        if (!moves.empty()) {
            if (!pending) {
                ops_.directoryCreator(work, false);
                undo.add([this, work] { removeOwnFolder(work, kJournal); });
            }
            Json journal{{"after", after}, {"moves", Json::array()}};
            for (const auto& move : moves)
                journal["moves"].push_back(Json::array({move.from, move.to}));
            ops_.indexWriter(work / kJournal, encodeLibraryJson(journal));
            for (const auto& move : moves) {
                ops_.folderMover(flowDir / move.from, work / move.to);
                undo.add([this, flowDir, work, move] {
                    ops_.folderMover(work / move.to, flowDir / move.from);
                });
            }
        }
        writeMeta(folderName, m);
    } catch (const std::exception& e) {
        undo.undoOrThrow(action, flowDir.string(), e);
        if (intent)
            dropIntent(*intent);
        throw;
    }
    try {
        for (const auto& move : moves)
            ops_.folderMover(work / move.to, flowDir / move.to);
        if (FileOps::exists(work))
            removeOwnFolder(work, kJournal);
    } catch (const std::exception& e) {
        throw LibraryError(
            "The screens of “" + std::string(folderName) +
            "” were renumbered, but some of their files are still in " + work.string() +
            "; the next renumbering of the flow puts them in place. Error: " + e.what());
    }

    rewriteOCRKeys(flowDir, renames, m.screens);
    appendToIndex(m.summary(std::string(folderName)));
    if (intent)
        endIntent(*intent);

    ThumbEdits edits;
    for (const auto& [old, now] : renames)
        edits.renames.push_back({{std::string(folderName), old}, {std::string(folderName), now}});
    return edits;
}

void FlowStore::removeOwnFolder(const fs::path& folder, std::string_view allowed) {
    for (const auto& name : FileOps::list(folder)) {
        if (LibraryLayout::isWriteLeftover(name)) {
            ops_.folderRemover(folder / name); // a write of ours cut short: nothing of the user's
            continue;
        }
        if (name != allowed)
            throw LibraryError("The folder " + folder.string() + " still holds files.");
    }
    ops_.folderRemover(folder);
}

void FlowStore::markRenumberingOwed(std::string_view folderName, UndoLog& undo) {
    const fs::path work = flowURL(folderName) / LibraryLayout::kRenumberFolder;
    if (FileOps::exists(work))
        return;
    ops_.directoryCreator(work, false);
    undo.add([this, work] { removeOwnFolder(work, kJournal); });
    ops_.indexWriter(work / kJournal,
                     encodeLibraryJson(Json{{"after", Json::array()}, {"moves", Json::array()}}));
}

// Puts the files of an interrupted renumbering where the meta on disk expects them: under
// their new names when its meta was written, else back under their old ones.
void FlowStore::recoverRenumbering(std::string_view folderName, const FlowMeta& meta) {
    const fs::path flowDir = flowURL(folderName);
    const fs::path work = flowDir / LibraryLayout::kRenumberFolder;
    auto stuck = [&](const std::string& why) {
        return LibraryError("An earlier renumbering of “" + std::string(folderName) +
                            "” can’t be finished: " + why + " Its files are in " + work.string() +
                            ".");
    };

    std::optional<Json> journal;
    if (auto bytes = FileOps::readIfExists(work / kJournal)) {
        try {
            journal = parseLibraryJson(*bytes);
        } catch (const CodingError&) {
        }
    }
    if (journal && journal->contains("moves") && journal->contains("after")) {
        const bool committed = (*journal)["after"] == Json(filenames(meta.screens));
        for (const auto& move : (*journal)["moves"]) {
            const std::string from = move.at(0).get<std::string>();
            const std::string to = move.at(1).get<std::string>();
            LibraryLayout::validateFileName(from);
            LibraryLayout::validateFileName(to);
            const std::string target = committed ? to : from;
            if (!FileOps::exists(work / to))
                continue;
            if (FileOps::exists(flowDir / target))
                throw stuck("the file “" + target + "” is in the way.");
            ops_.folderMover(work / to, flowDir / target);
        }
    } else {
        for (const auto& name : FileOps::list(work)) {
            if (name == kJournal)
                continue;
            if (LibraryLayout::isWriteLeftover(name)) {
                ops_.folderRemover(work / name);
                continue;
            }
            if (FileOps::exists(flowDir / name))
                throw stuck("the file “" + name + "” is in the way.");
            ops_.folderMover(work / name, flowDir / name);
        }
    }
}

void FlowStore::rewriteOCRKeys(const fs::path& flowDir,
                               const std::vector<std::pair<std::string, std::string>>& renames,
                               const std::vector<ScreenRef>& screens) {
    const fs::path file = flowDir / LibraryLayout::kOCRFile;
    try {
        auto bytes = FileOps::readIfExists(file);
        if (!bytes || renames.empty())
            return;
        Json sidecar = parseLibraryJson(*bytes);
        if (!sidecar.is_object() || !sidecar.contains("screens") || !sidecar["screens"].is_object())
            return;
        const std::map<std::string, std::string> renamed(renames.begin(), renames.end());
        std::set<std::string> targets;
        for (const auto& [old, now] : renames)
            targets.insert(now);
        std::set<std::string> current;
        for (const auto& s : screens)
            current.insert(s.filename);

        Json entries = Json::object();
        for (auto it = sidecar["screens"].begin(); it != sidecar["screens"].end(); ++it) {
            if (auto r = renamed.find(it.key()); r != renamed.end())
                entries[r->second] = it.value();
            else if (current.contains(it.key()) && !targets.contains(it.key()))
                entries[it.key()] = it.value();
        }
        sidecar["screens"] = std::move(entries);
        ops_.indexWriter(file, encodeLibraryJson(sidecar));
    } catch (const std::exception&) {
        // Recognized text is derived: without a trustworthy file it is simply recognized again.
        try {
            ops_.folderRemover(file);
        } catch (const std::exception&) {
        }
    }
}

// Renumbers after a screen list was written; the summary is refreshed even when renumbering
// fails, so the index always matches the meta on disk.
ThumbEdits FlowStore::commitScreenList(std::string_view folderName, const FlowMeta& meta) {
    try {
        return renumberScreens(folderName);
    } catch (...) {
        try {
            appendToIndex(meta.summary(std::string(folderName)));
        } catch (const std::exception&) {
        }
        throw;
    }
}

ThumbEdits FlowStore::deleteScreen(std::string_view folderName, const std::string& filename) {
    return deleteScreens(folderName, {filename});
}

ThumbEdits FlowStore::deleteScreens(std::string_view folderName,
                                    const std::vector<std::string>& requested) {
    return removeScreens(folderName, requested, nullptr);
}

FlowStore::TrashedScreens FlowStore::trashScreens(std::string_view folderName,
                                                  const std::vector<std::string>& requested,
                                                  bool hidden) {
    TrashEntry entry;
    entry.id = newUUIDString();
    entry.deletedAt = Date::now();
    entry.hidden = hidden;
    ThumbEdits edits = removeScreens(folderName, requested, &entry);
    return {entry.id, std::move(edits)};
}

// Without `trash`, the files are removed; with it, they are kept in that trash entry.
ThumbEdits FlowStore::removeScreens(std::string_view folderName,
                                    const std::vector<std::string>& requested, TrashEntry* trash) {
    const fs::path flowDir = flowURL(folderName);
    indexSnapshot();
    FlowMeta m = meta(folderName);
    const auto names = requireScreens(m, folderName, requested);

    std::vector<std::string> files;
    std::vector<std::string> ids;
    for (const auto& name : names) {
        const ScreenRef& ref = *m.screen(name);
        files.push_back(name);
        files.push_back(ScreenFiles::originalFilename(name));
        for (const auto& patch : ref.patches.value_or(std::vector<RedactPatch>{})) {
            if (LibraryLayout::isSafeFileName(patch.file))
                files.push_back(patch.file);
        }
        const auto pinIds = postedIds(m, ref);
        ids.insert(ids.end(), pinIds.begin(), pinIds.end());
    }
    const std::vector<std::string> before = filenames(m.screens);
    if (trash) {
        trash->flowId = m.id;
        trash->folderName = std::string(folderName);
        trash->flowName = m.name;
        for (std::size_t i = 0; i < m.screens.size(); ++i)
            if (std::find(names.begin(), names.end(), m.screens[i].filename) != names.end())
                trash->screens.push_back({m.screens[i], i});
    }
    m.queuePendingDeletes(ids);
    std::erase_if(m.screens, [&](const ScreenRef& s) {
        return std::find(names.begin(), names.end(), s.filename) != names.end();
    });

    // Beside the flow, where deleted flows go too. The intent says which list of screens
    // means the deletion was written, so that a crash either puts the files back or ends it.
    // A trash entry is a quarantine that stays once the deletion is written.
    const fs::path quarantine =
        trash ? trashURL(trash->id)
              : flowDir.parent_path() /
                    (std::string(LibraryLayout::kQuarantinePrefix) + newUUIDString());
    const std::string folder(folderName);
    Json plan{{"folder", folder}, {"before", before}, {"after", filenames(m.screens)}};
    if (trash)
        plan["trash"] = trash->id;
    else
        plan["path"] = quarantine.filename().string();
    const fs::path intent = beginIntent(
        Json{{"operation", "deleteScreens"}, {"flows", {folder}}, {"quarantine", plan}});
    UndoLog undo;
    try {
        markRenumberingOwed(folderName, undo);
        if (trash) {
            ops_.directoryCreator(quarantine, true);
            undo.add([this, quarantine] { removeTrashFolder(quarantine); });
            ops_.indexWriter(quarantine / TrashEntry::kFile, encodeLibraryJson(trash->toJson()));
        } else {
            ops_.directoryCreator(quarantine, false);
            undo.add([this, quarantine] { removeOwnFolder(quarantine); });
        }
        for (const auto& file : files) {
            if (!FileOps::exists(flowDir / file) || FileOps::exists(quarantine / file))
                continue;
            ops_.folderMover(flowDir / file, quarantine / file);
            undo.add([this, flowDir, quarantine, file] {
                ops_.folderMover(quarantine / file, flowDir / file);
            });
        }
        writeMeta(folderName, m);
    } catch (const std::exception& e) {
        undo.undoOrThrow("delete screens of “" + folder + "”", flowDir.string(), e);
        dropIntent(intent);
        throw;
    }

    std::optional<std::string> cleanupError;
    try {
        if (!trash)
            removeQuarantine(quarantine);
    } catch (const std::exception& e) {
        cleanupError = e.what();
    }

    ThumbEdits edits;
    for (const auto& name : names)
        edits.removals.push_back({folder, name});
    edits.followRenames(commitScreenList(folderName, m).renames);
    if (cleanupError)
        throw LibraryError("The screens were deleted, but their files could not be fully removed "
                           "at " +
                           quarantine.string() + ". Cleanup error: " + *cleanupError);
    endIntent(intent);
    return edits;
}

void FlowStore::renameScreen(std::string_view folderName, const std::string& filename,
                             const std::string& newName) {
    LibraryLayout::validateFileName(filename);
    FlowMeta m = meta(folderName);
    ScreenRef* screen = m.screen(filename);
    if (!screen)
        throw ScreenNotFoundError(std::string(folderName), filename);
    screen->name = Text::nonBlank(newName);
    writeMeta(folderName, m);
}

ThumbEdits FlowStore::reorderScreens(std::string_view folderName,
                                     const std::vector<std::string>& order) {
    indexSnapshot();
    FlowMeta m = meta(folderName);
    const auto names = requireScreens(m, folderName, order);
    if (names.size() != order.size() || names.size() != m.screens.size())
        throw LibraryError("The new order of “" + std::string(folderName) +
                           "” must list each of its screens once.");
    std::vector<ScreenRef> screens;
    screens.reserve(names.size());
    for (const auto& name : names)
        screens.push_back(*m.screen(name));
    m.screens = std::move(screens);
    const fs::path intent =
        beginIntent(Json{{"operation", "reorderScreens"}, {"flows", {std::string(folderName)}}});
    UndoLog undo;
    try {
        markRenumberingOwed(folderName, undo);
        writeMeta(folderName, m);
    } catch (const std::exception& e) {
        undo.undoOrThrow("reorder the screens of “" + std::string(folderName) + "”",
                         flowURL(folderName).string(), e);
        dropIntent(intent);
        throw;
    }
    ThumbEdits edits = commitScreenList(folderName, m);
    endIntent(intent);
    return edits;
}

ThumbEdits FlowStore::moveScreens(std::string_view sourceFolder,
                                  const std::vector<std::string>& requested,
                                  std::string_view targetFolder, std::size_t insertionIndex) {
    const fs::path sourceDir = flowURL(sourceFolder);
    const fs::path targetDir = flowURL(targetFolder);
    indexSnapshot();
    FlowMeta source = meta(sourceFolder);
    const auto names = requireScreens(source, sourceFolder, requested);

    if (sourceFolder == targetFolder) {
        std::vector<std::string> order;
        for (const auto& s : source.screens) {
            if (std::find(names.begin(), names.end(), s.filename) == names.end())
                order.push_back(s.filename);
        }
        const auto at = std::min(insertionIndex, order.size());
        order.insert(order.begin() + static_cast<std::ptrdiff_t>(at), names.begin(), names.end());
        return reorderScreens(sourceFolder, order);
    }

    FlowMeta target = meta(targetFolder);
    const std::string targetBytes = encodeLibraryJson(target.toJson());
    const auto sourceBefore = filenames(source.screens);
    const auto targetBefore = filenames(target.screens);
    const std::string sourceName(sourceFolder);
    const std::string targetName(targetFolder);

    // The whole change is planned first: which file goes where, and both new metas.
    auto claimed = listedNames(targetDir);
    std::vector<RenumberMove> relocations;
    std::vector<ScreenRef> moved;
    std::vector<std::string> ids;
    ThumbEdits edits;
    for (const auto& name : names) {
        ScreenRef ref = *source.screen(name);
        const std::string newName = relocate(ref, claimed, relocations);
        const auto pinIds = postedIds(source, ref);
        ids.insert(ids.end(), pinIds.begin(), pinIds.end());
        unpublish(ref, false);
        ref.filename = newName;
        moved.push_back(std::move(ref));
        edits.renames.push_back({{sourceName, name}, {targetName, newName}});
    }
    std::erase_if(source.screens, [&](const ScreenRef& s) {
        return std::find(names.begin(), names.end(), s.filename) != names.end();
    });
    source.queuePendingDeletes(ids);
    const auto at = std::min(insertionIndex, target.screens.size());
    target.screens.insert(target.screens.begin() + static_cast<std::ptrdiff_t>(at), moved.begin(),
                          moved.end());
    if (target.width == 0 && target.height == 0) {
        target.width = source.width;
        target.height = source.height;
    }

    // Registered with its plan, so that a crash half-way is finished at the next opening rather
    // than leaving screens in neither flow's list.
    // Each move names its file's size too: a replay moves only the file it planned to move.
    Json moves = Json::array();
    for (const auto& r : relocations) {
        std::error_code error;
        const auto size = fs::file_size(sourceDir / r.from, error);
        moves.push_back(Json::array(
            {sourceName, r.from, targetName, r.to, error ? Json(nullptr) : Json(size)}));
    }
    const fs::path intent = beginIntent(
        Json{{"operation", "moveScreens"},
             {"flows", {sourceName, targetName}},
             {"transfer",
              {{"moves", moves},
               {"metas",
                {{targetName, {{"before", targetBefore}, {"meta", target.toJson()}}},
                 {sourceName, {{"before", sourceBefore}, {"meta", source.toJson()}}}}}}}});
    UndoLog undo;
    try {
        markRenumberingOwed(targetFolder, undo);
        markRenumberingOwed(sourceFolder, undo);
        for (const auto& r : relocations) {
            if (!FileOps::exists(sourceDir / r.from))
                continue;
            ops_.folderMover(sourceDir / r.from, targetDir / r.to);
            undo.add([this, sourceDir, targetDir, r] {
                ops_.folderMover(targetDir / r.to, sourceDir / r.from);
            });
        }
        writeMeta(targetFolder, target);
        undo.add([this, targetDir, targetBytes] {
            ops_.indexWriter(targetDir / LibraryLayout::kMetaFile, targetBytes);
        });
        writeMeta(sourceFolder, source);
    } catch (const std::exception& e) {
        undo.undoOrThrow("move screens from “" + sourceName + "” to “" + targetName + "”",
                         sourceDir.string() + " and " + targetDir.string(), e);
        dropIntent(intent);
        throw;
    }

    edits.followRenames(commitScreenList(targetFolder, target).renames);
    edits.followRenames(commitScreenList(sourceFolder, source).renames);
    endIntent(intent);
    return edits;
}

ThumbEdits FlowStore::duplicateScreens(std::string_view folderName,
                                       const std::vector<std::string>& requested) {
    const fs::path flowDir = flowURL(folderName);
    indexSnapshot();
    FlowMeta m = meta(folderName);
    const auto names = requireScreens(m, folderName, requested);
    const std::string folder(folderName);
    auto claimed = listedNames(flowDir);
    ThumbEdits edits;
    std::vector<RenumberMove> copies;
    for (const auto& name : names) {
        ScreenRef copy = *m.screen(name);
        const std::string newName =
            ScreenFiles::claimScreenName(claimed, ScreenFiles::extension(name));
        claimed.insert(ScreenFiles::originalFilename(newName));
        copies.push_back({name, newName});
        copies.push_back(
            {ScreenFiles::originalFilename(name), ScreenFiles::originalFilename(newName)});
        if (copy.patches) {
            for (auto& patch : *copy.patches) {
                if (!LibraryLayout::isSafeFileName(patch.file))
                    continue;
                const std::string newPatch = ScreenFiles::newPatchName(newName);
                copies.push_back({patch.file, newPatch});
                patch.file = newPatch;
            }
        }
        unpublish(copy, true);
        copy.filename = newName;
        // Each copy follows its original.
        auto at = std::find_if(m.screens.begin(), m.screens.end(),
                               [&](const ScreenRef& s) { return s.filename == name; });
        m.screens.insert(at + 1, std::move(copy));
        edits.copies.push_back({{folder, name}, {folder, newName}});
    }

    std::vector<std::string> created;
    for (const auto& c : copies)
        created.push_back(c.to);
    const fs::path intent = beginIntent(Json{
        {"operation", "duplicateScreens"}, {"flows", {folder}}, {"created", {{folder, created}}}});
    UndoLog undo;
    try {
        markRenumberingOwed(folderName, undo);
        for (const auto& c : copies) {
            if (!FileOps::exists(flowDir / c.from))
                continue;
            FileOps::copy(flowDir / c.from, flowDir / c.to);
            undo.add([this, flowDir, to = c.to] { ops_.folderRemover(flowDir / to); });
        }
        writeMeta(folderName, m);
    } catch (const std::exception& e) {
        undo.undoOrThrow("duplicate screens of “" + folder + "”", flowDir.string(), e);
        dropIntent(intent);
        throw;
    }
    edits.followRenames(commitScreenList(folderName, m).renames);
    endIntent(intent);
    return edits;
}

std::vector<std::string> FlowStore::addScreens(std::string_view folderName,
                                               const std::vector<fs::path>& files,
                                               Date capturedAt) {
    std::vector<NewScreen> screens;
    for (const auto& file : files) {
        std::string ext = file.extension().string();
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (ext != ".png" && ext != ".mov")
            throw LibraryError("Only PNG screens and MOV clips can be added, not “" +
                               file.filename().string() + "”.");
        if (!fs::is_regular_file(file))
            throw FileError("read", file,
                            std::make_error_code(std::errc::no_such_file_or_directory));
        if (auto problem = oversizeProblem(file))
            throw LibraryError(*problem);
        ScreenRef ref;
        ref.capturedAt = capturedAt;
        screens.push_back({file, std::move(ref)});
    }
    return appendScreens(folderName, screens, AppendOptions{});
}

std::vector<std::string> FlowStore::appendScreens(std::string_view folderName,
                                                  const std::vector<NewScreen>& screens,
                                                  const AppendOptions& options) {
    const fs::path flowDir = flowURL(folderName);
    indexSnapshot();
    FlowMeta m = meta(folderName);
    const std::string oldBytes = encodeLibraryJson(m.toJson());
    std::optional<std::string> consumed;
    if (options.consumedStaging) {
        consumed = stagingName(*options.consumedStaging);
        if (!consumed)
            throw UnsafeNameError(options.consumedStaging->string(),
                                  "it is not a capture folder of this library");
    }

    auto claimed = listedNames(flowDir);
    std::vector<std::string> added;
    for (const auto& screen : screens) {
        std::string ext = ScreenFiles::extension(screen.file.filename().string());
        std::transform(ext.begin(), ext.end(), ext.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        added.push_back(ScreenFiles::claimScreenName(claimed, ext.empty() ? "png" : ext));
    }
    const std::string folder(folderName);
    Json note{{"operation", "addScreens"}, {"flows", {folder}}, {"created", {{folder, added}}}};
    if (consumed)
        note["consumes"] = *consumed;
    const fs::path intent = beginIntent(note);
    UndoLog undo;
    try {
        for (std::size_t i = 0; i < screens.size(); ++i) {
            const std::string& name = added[i];
            // A capture's files stay in its folder until the flow lists them: linked where
            // the file system allows, so that a clip is not copied.
            if (options.link)
                FileOps::linkOrCopy(screens[i].file, flowDir / name);
            else
                FileOps::copy(screens[i].file, flowDir / name);
            undo.add([this, flowDir, name] { ops_.folderRemover(flowDir / name); });
            ScreenRef ref = screens[i].ref;
            ref.filename = name;
            m.screens.push_back(std::move(ref));
            if (!options.size && m.width == 0 && m.height == 0 && !ScreenFiles::isClip(name)) {
                if (auto size = pngSize(screens[i].file)) {
                    m.width = size->first;
                    m.height = size->second;
                }
            }
        }
        if (options.size) {
            m.width = options.size->first;
            m.height = options.size->second;
        }
        FileOps::syncFolder(flowDir);
        writeMeta(folderName, m);
        undo.add([this, flowDir, oldBytes] {
            ops_.indexWriter(flowDir / LibraryLayout::kMetaFile, oldBytes);
        });
        appendToIndex(m.summary(folder));
    } catch (const std::exception& e) {
        undo.undoOrThrow("add screens to “" + folder + "”", flowDir.string(), e);
        dropIntent(intent);
        throw;
    }
    if (consumed) {
        // Listed now: the capture's own copies go, before the note that would otherwise
        // recover them a second time.
        try {
            ops_.folderRemover(root_ / LibraryLayout::kStagingFolder / *consumed);
        } catch (const std::exception&) {
            // The note stays; opening the library removes them.
            return added;
        }
    }
    endIntent(intent);
    return added;
}

std::optional<std::string> FlowStore::stagingName(const fs::path& folder) const {
    const fs::path parent = folder.parent_path();
    const std::string name = folder.filename().string();
    if (parent != root_ / LibraryLayout::kStagingFolder || name.empty() || name.starts_with(".") ||
        !LibraryLayout::isSafeFileName(name))
        return std::nullopt;
    return name;
}

} // namespace varnel

namespace varnel {

FlowStore::RestoredScreens FlowStore::restoreScreens(const std::string& entryId) {
    const TrashEntry entry = trashEntry(entryId);
    if (entry.holdsFlows())
        throw LibraryError("The trash entry " + entryId + " holds flows, not screens.");
    const auto snapshot = indexSnapshot();
    const FlowSummary* flow = snapshot.index.findId(entry.flowId);
    if (!flow)
        throw LibraryError("The flow “" + entry.flowName +
                           "” these screens were deleted from is no longer in the library.");
    const std::string folder = flow->folderName;
    const fs::path flowDir = flowURL(folder);
    const fs::path trashDir = trashURL(entryId);
    FlowMeta m = meta(folder);
    const auto before = filenames(m.screens);

    auto screens = entry.screens;
    std::stable_sort(screens.begin(), screens.end(),
                     [](const auto& a, const auto& b) { return a.position < b.position; });
    auto claimed = listedNames(flowDir);
    std::vector<RenumberMove> moves;
    std::vector<std::string> restored;
    for (const auto& screen : screens) {
        ScreenRef ref = screen.ref;
        const std::string& name = ref.filename;
        if (!FileOps::exists(trashDir / name))
            throw LibraryError("The file of a deleted screen of “" + entry.flowName +
                               "” is no longer in the trash.");
        const std::string newName = relocate(ref, claimed, moves);
        // Their comments in Figma were queued for deletion with them: while still queued, they
        // stay; once deleted there, the pins are posted anew.
        restorePublished(m, ref);
        ref.filename = newName;
        restored.push_back(newName);
        const auto at = std::min(screen.position, m.screens.size());
        m.screens.insert(m.screens.begin() + static_cast<std::ptrdiff_t>(at), std::move(ref));
    }

    Json planned = Json::array();
    for (const auto& move : moves)
        planned.push_back(Json::array({move.from, move.to}));
    const fs::path intent = beginIntent(Json{{"operation", "restoreScreens"},
                                             {"flows", {folder}},
                                             {"restoreScreens",
                                              {{"folder", folder},
                                               {"trash", entryId},
                                               {"moves", planned},
                                               {"before", before},
                                               {"entry", entry.toJson()}}}});
    UndoLog undo;
    try {
        markRenumberingOwed(folder, undo);
        for (const auto& move : moves) {
            if (!FileOps::exists(trashDir / move.from))
                continue;
            ops_.folderMover(trashDir / move.from, flowDir / move.to);
            undo.add([this, trashDir, flowDir, move] {
                ops_.folderMover(flowDir / move.to, trashDir / move.from);
            });
        }
        dropTrashRecord(trashDir, entry, undo);
        writeMeta(folder, m);
    } catch (const std::exception& e) {
        undo.undoOrThrow("put back screens of “" + folder + "”", trashDir.string(), e);
        dropIntent(intent);
        throw;
    }
    RestoredScreens result{folder, {}, commitScreenList(folder, m)};
    for (const auto& name : restored) {
        std::string now = name;
        for (const auto& [from, to] : result.edits.renames)
            if (from.folder == folder && from.filename == name)
                now = to.filename;
        result.filenames.push_back(now);
    }
    removeTrashLeftover(trashDir);
    endIntent(intent);
    return result;
}

} // namespace varnel
