// Bringing flow folders into the library, and repairing what an interrupted change left behind.
#include "library/FlowStore.h"

#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Slug.h"
#include "library/UndoLog.h"
#include "library/Utf8.h"
#include "library/Uuid.h"
#include "media/PngSize.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <set>

namespace varnel {

namespace {

constexpr std::string_view kRecoveredApplication = "Recovered captures";

bool isSymlink(const fs::path& path) {
    std::error_code ec;
    return fs::is_symlink(fs::symlink_status(path, ec));
}

std::optional<Date> modificationDate(const fs::path& file) {
    std::error_code ec;
    const auto time = fs::last_write_time(file, ec);
    if (ec)
        return std::nullopt;
    const auto system = std::chrono::file_clock::to_sys(time);
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(system.time_since_epoch()).count();
    return Date::fromUnixSeconds(static_cast<double>(micros) / 1e6);
}

// The entries of a folder with their kind as the listing gives it, without a stat each, so
// that surveying a large library stays quick.
struct Entry {
    std::string name;
    bool directory = false;
};

std::vector<Entry> entriesOf(const fs::path& folder) {
    std::vector<Entry> out;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code typeError;
        const bool link = it->is_symlink(typeError);
        out.push_back({it->path().filename().string(), !link && it->is_directory(typeError)});
    }
    std::sort(out.begin(), out.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return out;
}

std::vector<fs::path> visibleSubfolders(const fs::path& folder) {
    std::vector<fs::path> out;
    for (const auto& entry : entriesOf(folder)) {
        if (entry.directory && !entry.name.starts_with("."))
            out.push_back(folder / entry.name);
    }
    return out;
}

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : entriesOf(folder))
        names.insert(entry.name);
    return names;
}

void addLeftoversIn(const fs::path& folder, std::vector<fs::path>& leftovers) {
    for (const auto& entry : entriesOf(folder))
        if (!entry.directory && LibraryLayout::isWriteLeftover(entry.name))
            leftovers.push_back(folder / entry.name);
}

std::optional<FlowMeta> readableMeta(const fs::path& folder) {
    try {
        auto bytes = FileOps::readIfExists(folder / LibraryLayout::kMetaFile);
        if (!bytes)
            return std::nullopt;
        return FlowMeta::fromJson(parseLibraryJson(*bytes));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// A path as text, with each byte that isn't part of UTF-8 text shown as "?".
std::string printable(const std::string& path) {
    std::string out;
    for (std::size_t i = 0; i < path.size();) {
        const std::size_t start = i;
        if (Utf8::next(path, i))
            out.append(path, start, i - start);
        else
            out += '?';
    }
    return out;
}

std::vector<std::string> filenamesOf(const FlowMeta& meta) {
    std::vector<std::string> names;
    for (const auto& screen : meta.screens)
        names.push_back(screen.filename);
    return names;
}

std::vector<std::string> stringsAt(const Json& json, const char* key) {
    std::vector<std::string> out;
    if (!json.contains(key) || !json[key].is_array())
        return out;
    for (const auto& item : json[key])
        if (item.is_string())
            out.push_back(item.get<std::string>());
    return out;
}

} // namespace

bool RecoveryReport::empty() const {
    return recoveredFlows.empty() && leftoverQuarantines.empty() && finishedRenumbering.empty() &&
           repairs.empty() && problems.empty();
}

std::vector<std::string> RecoveryReport::repairedLines() const {
    std::vector<std::string> lines;
    for (const auto& folder : recoveredFlows)
        lines.push_back("Recovered an interrupted capture as “" + folder + "”.");
    for (const auto& folder : finishedRenumbering)
        lines.push_back("Finished renumbering the screens of “" + folder + "”.");
    lines.insert(lines.end(), repairs.begin(), repairs.end());
    return lines;
}

std::vector<std::string> RecoveryReport::unresolvedLines() const {
    std::vector<std::string> lines = problems;
    for (const auto& quarantine : leftoverQuarantines)
        lines.push_back("Data of an interrupted deletion remains at " + quarantine.string() + ".");
    return lines;
}

std::string FlowStore::adopt(const FlowMeta& meta, const fs::path& from,
                             const std::optional<std::string>& replacing) {
    if (meta.id.empty())
        throw LibraryError("The flow “" + meta.name + "” has no identifier.");
    for (const auto& screen : meta.screens) {
        LibraryLayout::validateFileName(screen.filename);
        if (!FileOps::exists(from / screen.filename))
            throw LibraryError("The flow “" + meta.name + "” is missing its screen “" +
                               screen.filename + "”.");
        for (const auto& patch : screen.patches.value_or(std::vector<RedactPatch>{}))
            LibraryLayout::validateFileName(patch.file);
    }
    auto snapshot = indexSnapshot();
    for (const auto& summary : snapshot.index.flows) {
        if (summary.id == meta.id && summary.folderName != replacing)
            throw LibraryError("The library already has the flow “" + summary.name + "” at “" +
                               summary.folderName + "”.");
    }

    // The flow is put together in a hidden folder beside its place and appears under its name
    // in one rename; the index write that follows is the commit. Until the meta is in place
    // the assembly names its source, so that a crash gives the files back.
    const std::string parentPath = Slug::parentPath(meta.application, meta.categoryL1);
    UndoLog undo;
    std::string folderName = parentPath;
    std::optional<fs::path> quarantine;
    try {
        const auto created = createParents(parentPath);
        undo.add([this, created] { removeCreatedParents(created); });
        const fs::path parent = root_ / parentPath;
        const fs::path assembly =
            parent / (std::string(LibraryLayout::kAssemblyPrefix) + newUUIDString());
        ops_.directoryCreator(assembly, false);
        undo.add([this, assembly] { removeOwnFolder(assembly, LibraryLayout::kAssemblySource); });
        // Inside the library the source is named from its root, so that the files find their
        // way back after the library folder was moved or renamed.
        const fs::path source =
            FileOps::isInside(root_, from)
                ? fs::relative(fs::weakly_canonical(from), fs::weakly_canonical(root_))
                : from;
        ops_.indexWriter(assembly / LibraryLayout::kAssemblySource,
                         encodeLibraryJson(Json{{"source", source.generic_string()}}));
        for (const auto& name : FileOps::list(from)) {
            if (name == LibraryLayout::kMetaFile || name == LibraryLayout::kRenumberFolder ||
                name == LibraryLayout::kAssemblySource ||
                name.starts_with(LibraryLayout::kQuarantinePrefix) || isSymlink(from / name))
                continue;
            ops_.folderMover(from / name, assembly / name);
            undo.add(
                [this, from, assembly, name] { ops_.folderMover(assembly / name, from / name); });
        }
        ops_.indexWriter(assembly / LibraryLayout::kMetaFile, encodeLibraryJson(meta.toJson()));
        undo.add([this, assembly] { ops_.folderRemover(assembly / LibraryLayout::kMetaFile); });
        ops_.folderRemover(assembly / LibraryLayout::kAssemblySource);

        if (replacing && FileOps::exists(flowURL(*replacing))) {
            const fs::path old = flowURL(*replacing);
            quarantine = old.parent_path() /
                         (std::string(LibraryLayout::kQuarantinePrefix) + newUUIDString());
            ops_.folderMover(old, *quarantine);
            undo.add([this, old, q = *quarantine] { ops_.folderMover(q, old); });
        }
        std::set<std::string> entries;
        for (const auto& name : FileOps::list(parent))
            entries.insert(name);
        folderName = parentPath + "/" + Slug::uniqueFolderName(Slug::make(meta.name), entries);
        const fs::path flowDir = root_ / folderName;
        ops_.folderMover(assembly, flowDir);
        undo.add([this, assembly, flowDir] { ops_.folderMover(flowDir, assembly); });
        if (replacing)
            snapshot.index.removeFolder(*replacing);
        snapshot.index.upsert(meta.summary(folderName));
        writeIndex(snapshot.index);
    } catch (const std::exception& e) {
        undo.undoOrThrow("add the flow “" + meta.name + "” to the library",
                         from.string() + " and " + (root_ / folderName).string(), e);
        throw;
    }
    if (quarantine) {
        try {
            removeQuarantine(*quarantine);
        } catch (const std::exception&) {
            // The replaced flow's old files stay aside; opening the library removes them.
        }
        pruneEmptyParents(*replacing);
    }
    return folderName;
}

std::optional<std::string> FlowStore::recoverStagingFolder(const fs::path& staging) {
    const auto names = FileOps::list(staging);
    std::vector<std::pair<long long, std::string>> screens;
    for (const auto& name : names) {
        if (auto number = ScreenFiles::screenNumber(name))
            screens.emplace_back(*number, name);
    }
    if (screens.empty()) {
        if (!names.empty())
            throw LibraryError("it holds no screens but other files.");
        ops_.folderRemover(staging);
        return std::nullopt;
    }
    std::sort(screens.begin(), screens.end());
    // Close the gaps of dropped screens inside the staging folder first, so that the flow is
    // numbered 1 to N the moment it is adopted. Numbers only shrink, so no name is taken.
    for (std::size_t i = 0; i < screens.size(); ++i) {
        auto& [number, name] = screens[i];
        const std::string numbered = ScreenFiles::renumberedName(i + 1, screens.size(), name);
        if (numbered == name)
            continue;
        ops_.folderMover(staging / name, staging / numbered);
        name = numbered;
    }

    FlowMeta meta;
    meta.id = newUUIDString();
    meta.application = std::string(kRecoveredApplication);
    meta.date = Date::now();
    for (const auto& [number, name] : screens) {
        ScreenRef ref;
        ref.filename = name;
        ref.capturedAt = modificationDate(staging / name).value_or(Date::now());
        meta.date = std::min(meta.date, ref.capturedAt);
        if (auto size = pngSize(staging / name)) {
            meta.width = size->first;
            meta.height = size->second;
        }
        meta.screens.push_back(std::move(ref));
    }
    meta.name = "Capture of " + localTimestamp(meta.date);

    const std::string folderName = adopt(meta, staging);
    if (FileOps::list(staging).empty())
        ops_.folderRemover(staging);
    return folderName;
}

// Application and category folders are few and listed whole; flow folders are named by the
// listing of their category and not opened, so that a library of thousands of flows is
// surveyed in a few milliseconds.
FlowStore::Survey FlowStore::survey() const {
    Survey found;
    auto hidden = [&](const fs::path& folder, const Entry& entry, bool atRoot) {
        const fs::path path = folder / entry.name;
        if (entry.directory && entry.name.starts_with(LibraryLayout::kQuarantinePrefix))
            found.quarantines.push_back(path);
        else if (entry.directory && entry.name.starts_with(LibraryLayout::kAssemblyPrefix))
            found.assemblies.push_back(path);
        else if (atRoot && entry.directory &&
                 entry.name.starts_with(LibraryLayout::kExtractionPrefix))
            found.extractions.push_back(path);
        else if (!entry.directory && LibraryLayout::isWriteLeftover(entry.name))
            found.writeLeftovers.push_back(path);
    };
    for (const auto& application : entriesOf(root_)) {
        if (application.name.starts_with(".")) {
            hidden(root_, application, true);
            continue;
        }
        if (!application.directory)
            continue;
        const fs::path appDir = root_ / application.name;
        for (const auto& category : entriesOf(appDir)) {
            if (category.name.starts_with(".")) {
                hidden(appDir, category, false);
                continue;
            }
            if (!category.directory)
                continue;
            const fs::path categoryDir = appDir / category.name;
            for (const auto& flow : entriesOf(categoryDir)) {
                if (flow.name.starts_with(".")) {
                    hidden(categoryDir, flow, false);
                } else if (flow.directory) {
                    found.flowFolders.push_back(application.name + "/" + category.name + "/" +
                                                flow.name);
                    // One listing a flow: cut-short writes are found wherever a change left
                    // them, by the repairs and the check alike.
                    const fs::path flowDir = categoryDir / flow.name;
                    for (const auto& entry : entriesOf(flowDir)) {
                        if (!entry.directory && LibraryLayout::isWriteLeftover(entry.name))
                            found.writeLeftovers.push_back(flowDir / entry.name);
                        else if (entry.directory && entry.name == LibraryLayout::kRenumberFolder) {
                            addLeftoversIn(flowDir / entry.name, found.writeLeftovers);
                            found.renumbering.push_back(found.flowFolders.back());
                        }
                    }
                }
            }
        }
    }
    for (const auto& staging : visibleSubfolders(root_ / LibraryLayout::kStagingFolder))
        addLeftoversIn(staging, found.writeLeftovers);
    for (const auto& assembly : found.assemblies)
        addLeftoversIn(assembly, found.writeLeftovers);
    for (const auto& entry : entriesOf(root_ / LibraryLayout::kJournalFolder)) {
        const fs::path path = root_ / LibraryLayout::kJournalFolder / entry.name;
        if (LibraryLayout::isWriteLeftover(entry.name))
            found.writeLeftovers.push_back(path);
        else if (!entry.directory && entry.name.ends_with(".json"))
            found.intents.push_back(path);
    }
    return found;
}

fs::path FlowStore::beginIntent(const Json& intent) {
    const fs::path folder = root_ / LibraryLayout::kJournalFolder;
    if (!FileOps::isDirectory(folder))
        ops_.directoryCreator(folder, true);
    const fs::path file = folder / (newUUIDString() + ".json");
    ops_.indexWriter(file, encodeLibraryJson(intent));
    return file;
}

void FlowStore::endIntent(const fs::path& file) {
    try {
        ops_.folderRemover(file);
    } catch (const std::exception& e) {
        throw LibraryError("The change was made, but its note at " + file.string() +
                           " couldn’t be removed; Varnel clears it when it next opens the "
                           "library. Error: " +
                           e.what());
    }
}

void FlowStore::dropIntent(const fs::path& file) noexcept {
    try {
        ops_.folderRemover(file);
    } catch (const std::exception&) {
        // Found again at the next opening, it only settles its flows once more.
    }
}

void FlowStore::removeQuarantine(const fs::path& quarantine) {
    for (const auto& name : FileOps::list(quarantine)) {
        if (name != LibraryLayout::kMetaFile)
            ops_.folderRemover(quarantine / name);
    }
    if (FileOps::exists(quarantine / LibraryLayout::kMetaFile))
        ops_.folderRemover(quarantine / LibraryLayout::kMetaFile);
    ops_.folderRemover(quarantine);
}

// Finishes a change whose files and metas were planned in its intent. Its files all move before
// the first meta is written: once one is, the moves are done and the flows may have been
// renumbered since, reusing the moved files' names, so only the metas not yet written are. A
// replay stopped anywhere and run again ends the same.
void FlowStore::rollForward(const Json& transfer) {
    const Json& moves = transfer.at("moves");
    const Json& metas = transfer.at("metas");
    bool written = false;
    for (const auto& [folderName, plan] : metas.items()) {
        LibraryLayout::validateFolderName(folderName);
        const auto current = readableMeta(flowURL(folderName));
        written |= !current || filenamesOf(*current) != stringsAt(plan, "before");
    }
    for (const auto& move : written ? Json::array() : moves) {
        const auto part = [&](std::size_t i) { return move.at(i).get<std::string>(); };
        LibraryLayout::validateFolderName(part(0));
        LibraryLayout::validateFileName(part(1));
        LibraryLayout::validateFolderName(part(2));
        LibraryLayout::validateFileName(part(3));
        const fs::path from = flowURL(part(0)) / part(1);
        const fs::path to = flowURL(part(2)) / part(3);
        if (!FileOps::exists(from) || FileOps::exists(to))
            continue;
        std::error_code error;
        if (move.size() > 4 && move.at(4).is_number_unsigned() &&
            fs::file_size(from, error) != move.at(4).get<std::uintmax_t>())
            continue; // not the file the change planned to move
        ops_.folderMover(from, to);
    }
    for (const auto& [folderName, plan] : metas.items()) {
        const auto current = readableMeta(flowURL(folderName));
        if (current && filenamesOf(*current) == stringsAt(plan, "before"))
            writeMeta(folderName, FlowMeta::fromJson(plan.at("meta")));
    }
}

void FlowStore::replayIntent(const fs::path& file, std::map<std::string, Settle>& settle,
                             RecoveryReport& report) {
    const Json intent = parseLibraryJson(FileOps::read(file));
    for (const auto& folderName : stringsAt(intent, "flows")) {
        LibraryLayout::validateFolderName(folderName);
        settle[folderName];
    }
    if (intent.contains("created")) {
        for (const auto& [folderName, names] : intent["created"].items()) {
            LibraryLayout::validateFolderName(folderName);
            for (const auto& name : names) {
                LibraryLayout::validateFileName(name.get<std::string>());
                settle[folderName].created.push_back(name.get<std::string>());
            }
        }
    }
    if (intent.contains("transfer")) {
        rollForward(intent["transfer"]);
        report.repairs.push_back("Finished moving screens between “" +
                                 stringsAt(intent, "flows").front() + "” and “" +
                                 stringsAt(intent, "flows").back() + "”.");
    }
    if (intent.contains("quarantine"))
        settleScreenQuarantine(intent["quarantine"], report);
    if (intent.contains("revert"))
        settleRevert(intent["revert"], report);
    if (intent.contains("consumes"))
        settleConsumedCapture(intent, report);
    if (intent.contains("bake"))
        settleBake(intent["bake"], report);
    if (intent.contains("trashFlows"))
        settleTrashedFlows(intent, report);
    if (intent.contains("restoreFlows"))
        settleRestoredFlows(intent["restoreFlows"], report);
    if (intent.contains("restoreScreens"))
        settleRestoredScreens(intent["restoreScreens"], report);
}

// Flows moved into the trash are deleted once the index no longer lists them; before that,
// they go back to their folders.
void FlowStore::settleTrashedFlows(const Json& intent, RecoveryReport& report) {
    const fs::path trashDir = trashURL(intent.at("trashFlows").get<std::string>());
    if (!FileOps::exists(trashDir))
        return;
    std::optional<TrashEntry> entry;
    try {
        entry = trashEntry(trashDir.filename().string());
    } catch (const std::exception&) {
        // Cut short before its record was written: no flow had moved yet.
        removeOwnFolder(trashDir);
        return;
    }
    const LibraryIndex index = readIndex();
    const bool written = std::none_of(entry->flows.begin(), entry->flows.end(), [&](const auto& f) {
        return index.findId(f.summary.id) != nullptr;
    });
    if (written)
        return;
    for (const auto& flow : entry->flows) {
        const fs::path folder = flowURL(flow.folderName);
        if (!FileOps::exists(trashDir / flow.slot) || FileOps::exists(folder))
            continue;
        createParents(fs::path(flow.folderName).parent_path().generic_string());
        ops_.folderMover(trashDir / flow.slot, folder);
    }
    removeOwnFolder(trashDir, TrashEntry::kFile);
    report.repairs.push_back("Put back " + entry->description() +
                             ", whose deletion was interrupted.");
}

void FlowStore::rewriteTrashRecord(const fs::path& folder, const Json& entry) {
    if (FileOps::exists(folder / TrashEntry::kFile))
        return;
    // Checked as any entry read from disk before it is offered again.
    TrashEntry::fromJson(entry);
    ops_.indexWriter(folder / TrashEntry::kFile, encodeLibraryJson(entry));
}

// Flows taken out of the trash are back once the index lists them; before that, they return
// to the trash.
void FlowStore::settleRestoredFlows(const Json& plan, RecoveryReport& report) {
    const fs::path trashDir = trashURL(plan.at("trash").get<std::string>());
    const LibraryIndex index = readIndex();
    bool written = false;
    for (const auto& move : plan.at("moves"))
        written |= index.findId(move.at(2).get<std::string>()) != nullptr;
    if (written) {
        removeTrashLeftover(trashDir);
        return;
    }
    if (!FileOps::isDirectory(trashDir))
        return;
    rewriteTrashRecord(trashDir, plan.at("entry"));
    for (const auto& move : plan.at("moves")) {
        const std::string slot = move.at(0).get<std::string>();
        LibraryLayout::validateFileName(slot);
        const fs::path folder = flowURL(move.at(1).get<std::string>());
        if (FileOps::exists(folder) && !FileOps::exists(trashDir / slot)) {
            ops_.folderMover(folder, trashDir / slot);
            pruneEmptyParents(move.at(1).get<std::string>());
            report.repairs.push_back("Left the flow at “" + move.at(1).get<std::string>() +
                                     "” in the trash: taking it out was interrupted.");
        }
    }
}

// Screens taken out of the trash are back once their flow's list changed; before that, their
// files return to the trash.
void FlowStore::settleRestoredScreens(const Json& plan, RecoveryReport& report) {
    const std::string folderName = plan.at("folder").get<std::string>();
    const fs::path trashDir = trashURL(plan.at("trash").get<std::string>());
    const fs::path flowDir = flowURL(folderName);
    const auto current = readableMeta(flowDir);
    if (!current)
        return;
    if (filenamesOf(*current) != stringsAt(plan, "before")) {
        removeTrashLeftover(trashDir);
        return;
    }
    if (!FileOps::isDirectory(trashDir))
        return;
    rewriteTrashRecord(trashDir, plan.at("entry"));
    for (const auto& move : plan.at("moves")) {
        const std::string from = move.at(0).get<std::string>();
        const std::string to = move.at(1).get<std::string>();
        LibraryLayout::validateFileName(from);
        LibraryLayout::validateFileName(to);
        if (FileOps::exists(flowDir / to) && !FileOps::exists(trashDir / from))
            ops_.folderMover(flowDir / to, trashDir / from);
    }
    report.repairs.push_back("Left deleted screens of “" + folderName +
                             "” in the trash: putting them back was interrupted.");
}

// A still's bake is done once its record is the planned one; before that, the picture as it
// was goes back, with the original copy the bake made for it.
void FlowStore::settleBake(const Json& entry, RecoveryReport& report) {
    const std::string folderName = entry.at("folder").get<std::string>();
    const std::string filename = entry.at("screen").get<std::string>();
    const std::string previous = entry.at("previous").get<std::string>();
    LibraryLayout::validateFolderName(folderName);
    LibraryLayout::validateFileName(filename);
    if (!previous.starts_with("." + filename + ".before-") ||
        previous.find('/') != std::string::npos)
        throw UnsafeNameError(previous, "it is not a picture kept by a blur");
    const auto current = readableMeta(flowURL(folderName));
    const ScreenRef* screen = current ? current->screen(filename) : nullptr;
    if (!screen)
        return;
    const fs::path flowDir = flowURL(folderName);
    if (editsJson(*screen) == entry.at("record")) {
        if (FileOps::exists(flowDir / previous))
            ops_.folderRemover(flowDir / previous);
        removePatchesOf(folderName, filename);
        return;
    }
    if (FileOps::exists(flowDir / previous))
        putBackPicture(flowDir / previous, flowDir / filename);
    const std::string original = ScreenFiles::originalFilename(filename);
    if (entry.value("makesOriginal", false) && !screen->redactions && !screen->patches &&
        FileOps::exists(flowDir / original))
        ops_.folderRemover(flowDir / original);
    report.repairs.push_back("Put back the screen “" + filename + "” of “" + folderName +
                             "” as it was before a blur that was interrupted.");
}

// Screens added from a capture folder: once the flow lists them all, the capture's own copies
// go; before that the flow's new files go (settling) and the capture is recovered on its own.
void FlowStore::settleConsumedCapture(const Json& intent, RecoveryReport& report) {
    const fs::path staging =
        root_ / LibraryLayout::kStagingFolder / intent.at("consumes").get<std::string>();
    if (!stagingName(staging) || !FileOps::isDirectory(staging))
        return;
    const Json& created = intent.at("created");
    for (const auto& [folderName, names] : created.items()) {
        const auto current = readableMeta(flowURL(folderName));
        if (!current)
            return;
        const auto referenced = current->referencedFiles();
        for (const auto& name : names)
            if (!referenced.contains(name.get<std::string>()))
                return;
    }
    ops_.folderRemover(staging);
    report.repairs.push_back("Finished adding captured screens to “" +
                             stringsAt(intent, "flows").front() + "”.");
}

// A revert whose record was written has its original put back; one cut short before that left
// the baked picture under its zones, as the record says.
void FlowStore::settleRevert(const Json& entry, RecoveryReport& report) {
    const std::string folderName = entry.at(0).get<std::string>();
    const std::string filename = entry.at(1).get<std::string>();
    LibraryLayout::validateFolderName(folderName);
    LibraryLayout::validateFileName(filename);
    const auto current = readableMeta(flowURL(folderName));
    if (!current)
        return;
    const ScreenRef* screen = current->screen(filename);
    if (!screen || screen->redactions || screen->patches)
        return;
    removePatchesOf(folderName, filename);
    if (!FileOps::exists(flowURL(folderName) / ScreenFiles::originalFilename(filename)))
        return;
    putBackOriginal(folderName, filename);
    report.repairs.push_back("Finished reverting the screen “" + filename + "” of “" + folderName +
                             "”.");
}

// Screens being deleted wait beside their flow; the flow's meta tells whether the deletion
// was written: with the screens still listed they go back, without them they go.
void FlowStore::settleScreenQuarantine(const Json& entry, RecoveryReport& report) {
    const std::string folderName = entry.at("folder").get<std::string>();
    LibraryLayout::validateFolderName(folderName);
    const fs::path flowDir = flowURL(folderName);
    // Screens deleted into the trash were set aside in their entry, which stays.
    const bool trash = entry.contains("trash");
    fs::path quarantine;
    if (trash) {
        quarantine = trashURL(entry.at("trash").get<std::string>());
    } else {
        const std::string leaf = entry.at("path").get<std::string>();
        if (!leaf.starts_with(LibraryLayout::kQuarantinePrefix) ||
            leaf.find('/') != std::string::npos)
            throw UnsafeNameError(leaf, "it is not a quarantine of this library");
        quarantine = flowDir.parent_path() / leaf;
    }
    if (!FileOps::exists(quarantine))
        return;
    const auto meta = readableMeta(flowDir);
    const auto listed = meta ? filenamesOf(*meta) : std::vector<std::string>{};
    // Once written, the deletion's flow may be renumbered before the note goes: kept either way.
    if (trash && meta && listed != stringsAt(entry, "before"))
        return;
    if (meta && listed == stringsAt(entry, "before")) {
        for (const auto& name : FileOps::list(quarantine)) {
            if ((trash && name == TrashEntry::kFile) || LibraryLayout::isWriteLeftover(name))
                continue;
            LibraryLayout::validateFileName(name);
            if (!FileOps::exists(flowDir / name))
                ops_.folderMover(quarantine / name, flowDir / name);
        }
        removeOwnFolder(quarantine, trash ? TrashEntry::kFile : std::string_view());
        report.repairs.push_back("Put back the screens of “" + folderName +
                                 "” whose deletion was interrupted.");
    } else if (meta && listed == stringsAt(entry, "after")) {
        removeQuarantine(quarantine);
        report.repairs.push_back("Removed the deleted screens of “" + folderName +
                                 "” that an interrupted deletion left at " + quarantine.string() +
                                 ".");
    } else {
        report.leftoverQuarantines.push_back(quarantine);
    }
}

// Where an assembly's files came from, in this library: a relative source is named from the
// root; an absolute one written before the library moved is found again by its own folders.
fs::path FlowStore::sourceInLibrary(const fs::path& source) const {
    if (source.is_relative())
        return root_ / source;
    if (FileOps::isDirectory(source))
        return source;
    fs::path tail;
    bool found = false;
    for (const auto& part : source) {
        const std::string name = part.string();
        if (!found && (name == LibraryLayout::kStagingFolder ||
                       name.starts_with(LibraryLayout::kExtractionPrefix)))
            found = true;
        if (found)
            tail /= part;
    }
    return found ? root_ / tail : source;
}

// A flow put together for the library but not yet in place: with its meta written it is
// complete and is brought in; before that its files go back where they came from.
void FlowStore::recoverAssembly(const fs::path& assembly, RecoveryReport& report) {
    if (!FileOps::exists(assembly))
        return;
    if (auto meta = readableMeta(assembly)) {
        if (FileOps::exists(assembly / LibraryLayout::kAssemblySource))
            ops_.folderRemover(assembly / LibraryLayout::kAssemblySource);
        std::optional<std::string> replacing;
        const LibraryIndex index = readIndex();
        if (const FlowSummary* indexed = index.findId(meta->id))
            replacing = indexed->folderName;
        const std::string folderName = adopt(*meta, assembly, replacing);
        removeOwnFolder(assembly, LibraryLayout::kMetaFile);
        report.repairs.push_back("Finished adding the flow “" + meta->name + "” at “" + folderName +
                                 "”.");
        return;
    }
    const auto names = FileOps::list(assembly);
    std::optional<fs::path> source;
    if (auto bytes = FileOps::readIfExists(assembly / LibraryLayout::kAssemblySource)) {
        const Json marker = parseLibraryJson(*bytes);
        source = sourceInLibrary(fs::path(marker.at("source").get<std::string>()));
    }
    const bool onlyMarker =
        names.empty() || (names.size() == 1 && names[0] == LibraryLayout::kAssemblySource);
    // Files only ever go back to a folder of this library (an unpacked archive, a capture).
    if (!onlyMarker &&
        (!source || !FileOps::isDirectory(*source) || !FileOps::isInside(root_, *source))) {
        report.problems.push_back("Files of a flow that was being added remain at " +
                                  assembly.string() + ".");
        return;
    }
    for (const auto& name : names) {
        if (name != LibraryLayout::kAssemblySource && !FileOps::exists(*source / name))
            ops_.folderMover(assembly / name, *source / name);
    }
    removeOwnFolder(assembly, LibraryLayout::kAssemblySource);
    if (!onlyMarker)
        report.repairs.push_back("Undid an interrupted addition of a flow; its files are back at " +
                                 source->string() + ".");
}

// A flow folder the index does not list is a change whose index write never happened: a flow
// being made, moved or imported. A complete one is listed (in place of its entry when the
// entry's folder is gone), an empty one removed, and anything else reported.
void FlowStore::adoptUnindexed(const std::vector<std::string>& flowFolders,
                               RecoveryReport& report) {
    std::set<std::string> listedFolders;
    for (const auto& summary : readIndex().flows)
        listedFolders.insert(summary.folderName);
    for (const auto& folderName : flowFolders) {
        if (listedFolders.contains(folderName) || !LibraryLayout::isSafeFolderName(folderName))
            continue;
        const fs::path folder = root_ / folderName;
        if (!Utf8::isValid(folderName)) {
            // Library files hold names as text: such a folder can't be listed, but the ones
            // after it still are.
            report.problems.push_back("The folder " + printable(folder.string()) +
                                      " has a name that isn’t text the library can keep; rename "
                                      "it to add it to the library.");
            continue;
        }
        try {
            adoptUnindexed(folderName, report);
        } catch (const std::exception& e) {
            report.problems.push_back("The folder " + folder.string() +
                                      " couldn’t be added to the library: " + e.what());
        }
    }
}

void FlowStore::adoptUnindexed(const std::string& folderName, RecoveryReport& report) {
    const fs::path folder = root_ / folderName;
    if (!FileOps::isDirectory(folder))
        return; // gone since the survey: an earlier repair placed it
    const auto meta = readableMeta(folder);
    if (!meta) {
        if (FileOps::list(folder).empty()) {
            ops_.folderRemover(folder);
            pruneEmptyParents(folderName);
        } else {
            report.problems.push_back("The folder " + folder.string() +
                                      " holds files but no flow the library can read.");
        }
        return;
    }
    const LibraryIndex index = readIndex();
    if (const FlowSummary* listed = index.findId(meta->id);
        listed && readableMeta(root_ / listed->folderName)) {
        report.problems.push_back("The folder " + folder.string() + " holds a copy of “" +
                                  listed->folderName + "”, which the library lists instead.");
        return;
    }
    appendToIndex(meta->summary(folderName));
    report.repairs.push_back("Listed the flow “" + meta->name + "” at “" + folderName +
                             "”, whose change was interrupted.");
}

// A whole flow set aside: its deletion (or replacement) either reached the index or it did
// not. Still listed without a readable folder, it is put back; otherwise it goes.
void FlowStore::recoverQuarantine(const fs::path& quarantine, RecoveryReport& report) {
    if (!FileOps::exists(quarantine))
        return;
    const auto meta = readableMeta(quarantine);
    if (!meta) {
        if (FileOps::list(quarantine).empty())
            ops_.folderRemover(quarantine);
        else
            report.leftoverQuarantines.push_back(quarantine);
        return;
    }
    const LibraryIndex index = readIndex();
    const FlowSummary* listed = index.findId(meta->id);
    if (!listed || readableMeta(root_ / listed->folderName)) {
        removeQuarantine(quarantine);
        if (listed)
            settleSummary(listed->folderName);
        report.repairs.push_back("Removed the old files of “" + meta->name +
                                 "” that an interrupted change left at " + quarantine.string() +
                                 ".");
        return;
    }
    const std::string folderName = listed->folderName;
    const fs::path folder = flowURL(folderName);
    if (FileOps::exists(folder)) {
        // New files without their meta: kept beside, under a name of their own.
        const fs::path aside = folder.parent_path() /
                               Slug::uniqueFolderName(folder.filename().string() + "-incomplete",
                                                      namesIn(folder.parent_path()));
        ops_.folderMover(folder, aside);
        report.problems.push_back("Incomplete files of “" + meta->name + "” were kept at " +
                                  aside.string() + ".");
    }
    createParents(fs::path(folderName).parent_path().generic_string());
    ops_.folderMover(quarantine, folder);
    settleSummary(folderName);
    report.repairs.push_back("Put back the flow “" + meta->name + "” at “" + folderName +
                             "”, whose deletion was interrupted.");
}

void FlowStore::settleSummary(const std::string& folderName) {
    const auto meta = readableMeta(flowURL(folderName));
    if (!meta)
        return;
    const FlowSummary summary = meta->summary(folderName);
    const LibraryIndex index = readIndex();
    const FlowSummary* listed = index.findFolder(folderName);
    if (!listed || *listed != summary)
        appendToIndex(summary);
}

// Brings a flow an interrupted change touched back to its invariants: files of the change that
// its meta does not list are removed, its screens are numbered 1 to N, its summary matches.
void FlowStore::settleFlow(const std::string& folderName, const Settle& settle,
                           RecoveryReport& report) {
    const fs::path folder = flowURL(folderName);
    if (!FileOps::isDirectory(folder))
        return;
    const FlowMeta m = meta(folderName);
    const auto referenced = m.referencedFiles();
    for (const auto& name : settle.created) {
        if (!referenced.contains(name) && FileOps::exists(folder / name))
            ops_.folderRemover(folder / name);
    }
    for (const auto& name : FileOps::list(folder)) {
        if (LibraryLayout::isWriteLeftover(name))
            ops_.folderRemover(folder / name);
    }
    // Also when the change was cut short before it marked its renumbering as owed.
    const bool owed = FileOps::exists(folder / LibraryLayout::kRenumberFolder);
    if (!renumberScreens(folderName).renames.empty() || owed)
        report.finishedRenumbering.push_back(folderName);
}

RecoveryReport FlowStore::recover() {
    RecoveryReport report;
    try {
        readIndex();
    } catch (const std::exception& e) {
        // An index that can't be read is never written over: nothing is repaired.
        report.problems.push_back(e.what());
        return report;
    }
    const Survey found = survey();
    auto attempt = [&](const std::string& what, const std::function<void()>& repair) {
        try {
            repair();
            return true;
        } catch (const std::exception& e) {
            report.problems.push_back(what + e.what());
            return false;
        }
    };

    // Cut-short writes hold nothing that was ever in place, and would stand in the way of the
    // repairs below (a capture or assembly holding one looks like it holds data).
    for (const auto& leftover : found.writeLeftovers)
        attempt("", [&] {
            ops_.folderRemover(leftover);
            if (leftover.extension() == ".mov")
                report.repairs.push_back("Removed a clip that an interrupted save left at " +
                                         leftover.string() + ".");
        });

    std::map<std::string, Settle> settle;
    // A renumbering folder, with or without a note, is an owed or cut-short renumbering.
    for (const auto& folderName : found.renumbering)
        settle[folderName];
    // Each intent goes once every flow it names is settled.
    std::vector<std::pair<fs::path, std::vector<std::string>>> replayed;
    for (const auto& intent : found.intents) {
        std::map<std::string, Settle> touched;
        if (attempt("An interrupted change (" + intent.string() + ") couldn’t be finished: ",
                    [&] { replayIntent(intent, touched, report); })) {
            replayed.emplace_back(intent, std::vector<std::string>{});
            for (auto& [folderName, work] : touched) {
                replayed.back().second.push_back(folderName);
                auto& merged = settle[folderName].created;
                merged.insert(merged.end(), work.created.begin(), work.created.end());
            }
        }
    }
    for (const auto& assembly : found.assemblies)
        attempt("A flow being added at " + assembly.string() + " couldn’t be recovered: ",
                [&] { recoverAssembly(assembly, report); });
    attempt("", [&] { adoptUnindexed(found.flowFolders, report); });
    for (const auto& quarantine : found.quarantines)
        attempt("The deletion left at " + quarantine.string() + " couldn’t be settled: ",
                [&] { recoverQuarantine(quarantine, report); });

    const fs::path stagingRoot = root_ / LibraryLayout::kStagingFolder;
    for (const auto& staging : visibleSubfolders(stagingRoot)) {
        attempt("The capture left at " + staging.string() + " couldn’t be recovered: ", [&] {
            if (auto folder = recoverStagingFolder(staging))
                report.recoveredFlows.push_back(*folder);
        });
    }
    attempt("", [&] {
        if (FileOps::isDirectory(stagingRoot) && FileOps::list(stagingRoot).empty())
            ops_.folderRemover(stagingRoot);
    });

    std::set<std::string> unsettled;
    for (const auto& entry : settle) {
        if (!attempt("", [&] { settleFlow(entry.first, entry.second, report); }))
            unsettled.insert(entry.first);
    }
    // Unpacked archives are copies of a zip that still exists.
    for (const auto& extraction : found.extractions)
        attempt("", [&] { ops_.folderRemover(extraction); });
    for (const auto& [intent, flows] : replayed) {
        if (std::none_of(flows.begin(), flows.end(),
                         [&](const std::string& f) { return unsettled.contains(f); }))
            dropIntent(intent);
    }
    attempt("", [&] {
        const fs::path journal = root_ / LibraryLayout::kJournalFolder;
        if (FileOps::isDirectory(journal) && FileOps::list(journal).empty())
            ops_.folderRemover(journal);
    });
    return report;
}

RecoveryReport FlowStore::inspectLeftovers() const {
    RecoveryReport report;
    const Survey found = survey();
    const fs::path stagingRoot = root_ / LibraryLayout::kStagingFolder;
    for (const auto& staging : visibleSubfolders(stagingRoot))
        report.problems.push_back("A capture left at " + staging.string() +
                                  " waits to be recovered when Varnel opens the library.");
    for (const auto& intent : found.intents)
        report.problems.push_back("An interrupted change waits to be finished: " + intent.string());
    for (const auto& assembly : found.assemblies)
        report.problems.push_back("A flow being added was interrupted at " + assembly.string());
    for (const auto& extraction : found.extractions)
        report.problems.push_back("An unpacked archive remains at " + extraction.string());
    for (const auto& leftover : found.writeLeftovers)
        report.problems.push_back("An interrupted write left " + leftover.string());
    report.leftoverQuarantines = found.quarantines;
    try {
        for (const auto& summary : readIndex().flows) {
            if (!LibraryLayout::isSafeFolderName(summary.folderName))
                continue;
            const fs::path folder = root_ / summary.folderName;
            if (FileOps::exists(folder / LibraryLayout::kRenumberFolder))
                report.problems.push_back("The renumbering of “" + summary.folderName +
                                          "” was interrupted; its files are in " +
                                          (folder / LibraryLayout::kRenumberFolder).string() + ".");
        }
    } catch (const std::exception& e) {
        report.problems.push_back(e.what());
    }
    return report;
}

} // namespace varnel
