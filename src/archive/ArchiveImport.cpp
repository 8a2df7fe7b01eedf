#include "archive/ArchiveImport.h"

#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/Uuid.h"
#include "media/PngSize.h"
#include "organization/CategorySuggestions.h"

#include <map>
#include <optional>
#include <set>

namespace varnel {

namespace {

// The flow's meta from the archive, when it is readable and names only safe files of its own.
std::optional<FlowMeta> payloadMeta(const AppArchive::Extracted& extracted,
                                    const FlowSummary& summary, std::string& why) {
    if (!LibraryLayout::isSafeFolderName(summary.folderName)) {
        why = "“" + summary.folderName + "” is not a safe folder name";
        return std::nullopt;
    }
    const fs::path folder = extracted.payloadDir / summary.folderName;
    std::error_code ec;
    if (!fs::is_directory(fs::symlink_status(folder, ec))) {
        why = "“" + summary.name + "” has no folder in the archive";
        return std::nullopt;
    }
    try {
        FlowMeta meta =
            FlowMeta::fromJson(parseLibraryJson(FileOps::read(folder / LibraryLayout::kMetaFile)));
        for (const auto& screen : meta.screens) {
            LibraryLayout::validateFileName(screen.filename);
            if (auto problem = oversizeProblem(folder / screen.filename))
                throw LibraryError(*problem);
            for (const auto& patch : screen.patches.value_or(std::vector<RedactPatch>{}))
                LibraryLayout::validateFileName(patch.file);
            // Saving or reverting the screen would remove the file such an entry names.
            for (const auto& refused : screen.refusedPatches)
                throw LibraryError("the screen “" + screen.filename + "” lists “" + refused +
                                   "” as its patch, which is not a patch file of its own");
        }
        return meta;
    } catch (const std::exception& e) {
        why = "“" + summary.name + "”: " + e.what();
        return std::nullopt;
    }
}

// Two flows of one archive with the same id: replacing would let the second overwrite the
// first in the library, so the archive is refused whole.
void requireDistinctIds(const AppArchive::Extracted& extracted) {
    std::map<std::string, const FlowSummary*> byId;
    std::string why;
    for (const auto& summary : extracted.manifest.flows) {
        const auto meta = payloadMeta(extracted, summary, why);
        if (!meta)
            continue;
        const auto [seen, inserted] = byId.emplace(meta->id, &summary);
        if (!inserted)
            throw ArchiveError(ArchiveError::Case::inconsistent, "duplicate flow id " + meta->id,
                               "Its flows “" + seen->second->name + "” (" +
                                   seen->second->folderName + ") and “" + summary.name + "” (" +
                                   summary.folderName + ") have the same id " + meta->id +
                                   ", so one would overwrite the other. Nothing was imported.");
    }
}

} // namespace

std::size_t countConflicts(const FlowStore& store, const AppArchive::Extracted& extracted) {
    requireDistinctIds(extracted);
    std::set<std::string> ids;
    for (const auto& s : store.readIndex().flows)
        ids.insert(s.id);
    std::size_t conflicts = 0;
    std::string why;
    for (const auto& summary : extracted.manifest.flows) {
        if (auto meta = payloadMeta(extracted, summary, why); meta && ids.contains(meta->id))
            ++conflicts;
    }
    return conflicts;
}

ImportResult importExtracted(FlowStore& store, const AppArchive::Extracted& extracted,
                             ImportConflictResolution resolution) {
    requireDistinctIds(extracted);
    const LibraryIndex index = store.readIndex();
    std::map<std::string, std::string> folderById;
    for (const auto& s : index.flows)
        folderById.emplace(s.id, s.folderName);

    ImportResult result;
    result.application = extracted.manifest.application;
    if (resolution == ImportConflictResolution::duplicate)
        result.application = AppArchive::uniqueApplicationName(
            extracted.manifest.application, CategorySuggestions::applications(index.flows));

    for (const auto& summary : extracted.manifest.flows) {
        std::string why;
        auto meta = payloadMeta(extracted, summary, why);
        if (!meta) {
            result.skipped.push_back(why);
            continue;
        }
        std::optional<std::string> replacing;
        if (resolution == ImportConflictResolution::replace) {
            if (auto it = folderById.find(meta->id); it != folderById.end())
                replacing = it->second;
        } else {
            meta->id = newUUIDString();
            meta->application = result.application;
        }
        try {
            const std::string folder =
                store.adopt(*meta, extracted.payloadDir / summary.folderName, replacing);
            folderById[meta->id] = folder;
            result.folders.push_back(folder);
        } catch (const std::exception& e) {
            result.skipped.push_back("“" + meta->name + "”: " + e.what());
        }
    }
    return result;
}

} // namespace varnel
