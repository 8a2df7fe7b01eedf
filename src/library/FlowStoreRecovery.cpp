// Bringing flow folders into the library: adoption, and recovery of what a crash left behind.
#include "library/FlowStore.h"

#include "archive/AppArchive.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "media/PngSize.h"
#include "library/ScreenFiles.h"
#include "library/Slug.h"
#include "library/UndoLog.h"
#include "library/Uuid.h"

#include <algorithm>
#include <chrono>
#include <ctime>

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

std::vector<fs::path> visibleSubfolders(const fs::path& folder) {
    std::vector<fs::path> out;
    std::vector<std::string> names;
    try {
        names = FileOps::list(folder);
    } catch (const FileError&) {
        return out;
    }
    for (const auto& name : names) {
        if (!name.starts_with(".") && FileOps::isDirectory(folder / name) &&
            !isSymlink(folder / name))
            out.push_back(folder / name);
    }
    return out;
}

} // namespace

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

    const std::string parentPath = Slug::parentPath(meta.application, meta.categoryL1);
    UndoLog undo;
    std::string folderName = parentPath;
    std::optional<fs::path> quarantine;
    try {
        if (replacing && FileOps::exists(flowURL(*replacing))) {
            const fs::path old = flowURL(*replacing);
            quarantine = old.parent_path() /
                         (std::string(LibraryLayout::kQuarantinePrefix) + newUUIDString());
            ops_.folderMover(old, *quarantine);
            undo.add([this, old, q = *quarantine] { ops_.folderMover(q, old); });
        }
        const auto created = createParents(parentPath);
        undo.add([this, created] { removeCreatedParents(created); });
        std::set<std::string> entries;
        for (const auto& name : FileOps::list(root_ / parentPath))
            entries.insert(name);
        folderName = parentPath + "/" + Slug::uniqueFolderName(Slug::make(meta.name), entries);
        const fs::path flowDir = root_ / folderName;
        ops_.directoryCreator(flowDir, false);
        undo.add([this, flowDir] { removeOwnFolder(flowDir); });
        for (const auto& name : FileOps::list(from)) {
            if (name == LibraryLayout::kMetaFile || name == LibraryLayout::kRenumberFolder ||
                name.starts_with(LibraryLayout::kQuarantinePrefix) || isSymlink(from / name))
                continue;
            ops_.folderMover(from / name, flowDir / name);
            undo.add(
                [this, from, flowDir, name] { ops_.folderMover(flowDir / name, from / name); });
        }
        writeMeta(folderName, meta);
        undo.add([this, flowDir] { ops_.folderRemover(flowDir / LibraryLayout::kMetaFile); });
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
            ops_.folderRemover(*quarantine);
        } catch (const std::exception&) {
            // The replaced flow's old files stay aside; opening the library reports them.
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

RecoveryReport FlowStore::recover() {
    RecoveryReport report;
    const fs::path stagingRoot = root_ / LibraryLayout::kStagingFolder;
    for (const auto& staging : visibleSubfolders(stagingRoot)) {
        try {
            if (auto folder = recoverStagingFolder(staging))
                report.recoveredFlows.push_back(*folder);
        } catch (const std::exception& e) {
            report.problems.push_back("The capture left at " + staging.string() +
                                      " couldn’t be recovered: " + e.what());
        }
    }
    try {
        if (FileOps::isDirectory(stagingRoot) && FileOps::list(stagingRoot).empty())
            ops_.folderRemover(stagingRoot);
    } catch (const std::exception&) {
    }

    try {
        const Leftovers leftovers = scanLeftovers(readIndex());
        for (const auto& folderName : leftovers.owedRenumbering) {
            try {
                renumberScreens(folderName);
                report.finishedRenumbering.push_back(folderName);
            } catch (const std::exception& e) {
                report.problems.push_back(e.what());
            }
        }
        report.leftoverQuarantines = leftovers.quarantines;
    } catch (const std::exception& e) {
        report.problems.push_back(e.what());
    }
    removeLeftoverExtractions();
    return report;
}

// Unpacked archives left by an interrupted import are copies of a zip that still exists.
void FlowStore::removeLeftoverExtractions() {
    std::vector<std::string> names;
    try {
        names = FileOps::list(root_);
    } catch (const FileError&) {
        return;
    }
    const std::string prefix = "." + std::string(AppArchive::kExtractionPrefix);
    for (const auto& name : names) {
        if (!name.starts_with(prefix) || isSymlink(root_ / name))
            continue;
        try {
            ops_.folderRemover(root_ / name);
        } catch (const std::exception&) {
        }
    }
}

RecoveryReport FlowStore::inspectLeftovers() const {
    RecoveryReport report;
    const fs::path stagingRoot = root_ / LibraryLayout::kStagingFolder;
    for (const auto& staging : visibleSubfolders(stagingRoot))
        report.problems.push_back("A capture left at " + staging.string() +
                                  " waits to be recovered when Varnel opens the library.");
    try {
        const Leftovers leftovers = scanLeftovers(readIndex());
        for (const auto& folderName : leftovers.owedRenumbering)
            report.problems.push_back("The renumbering of “" + folderName + "” was interrupted.");
        report.leftoverQuarantines = leftovers.quarantines;
    } catch (const std::exception& e) {
        report.problems.push_back(e.what());
    }
    return report;
}

// Quarantines lie beside flow folders (deleted flows and screens); owed renumberings inside
// them. Application and category folders are few and are listed whole; each flow folder the
// index names costs one lookup, so that opening a large library stays quick.
FlowStore::Leftovers FlowStore::scanLeftovers(const LibraryIndex& index) const {
    Leftovers found;
    auto collect = [&](const fs::path& folder, const std::vector<std::string>& names) {
        for (const auto& name : names) {
            if (name.starts_with(LibraryLayout::kQuarantinePrefix))
                found.quarantines.push_back(folder / name);
        }
    };
    auto namesIn = [](const fs::path& folder) {
        try {
            return FileOps::list(folder);
        } catch (const FileError&) {
            return std::vector<std::string>{};
        }
    };
    collect(root_, namesIn(root_));
    for (const auto& application : visibleSubfolders(root_)) {
        collect(application, namesIn(application));
        for (const auto& category : visibleSubfolders(application))
            collect(category, namesIn(category));
    }
    for (const auto& summary : index.flows) {
        if (!LibraryLayout::isSafeFolderName(summary.folderName))
            continue;
        if (FileOps::exists(root_ / summary.folderName / LibraryLayout::kRenumberFolder))
            found.owedRenumbering.push_back(summary.folderName);
    }
    return found;
}

} // namespace varnel
