#include "library/FlowStore.h"

#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/IndexCoding.h"
#include "library/LibraryLayout.h"
#include "library/Slug.h"
#include "library/StoreErrors.h"
#include "library/Text.h"
#include "library/UndoLog.h"
#include "library/Uuid.h"

#include <algorithm>
#include <set>

#include <sys/stat.h>

namespace varnel {

namespace {

std::string parentOf(std::string_view folderName) {
    const auto slash = folderName.rfind('/');
    return slash == std::string_view::npos ? std::string()
                                           : std::string(folderName.substr(0, slash));
}

std::string leafOf(std::string_view folderName) {
    const auto slash = folderName.rfind('/');
    return std::string(slash == std::string_view::npos ? folderName : folderName.substr(slash + 1));
}

// Whether a flow folder's last segment is what the flow's name makes of it (allowing the
// "-2", "-3" … that made it unique).
bool leafFitsName(const std::string& leaf, const std::string& base) {
    if (leaf == base)
        return true;
    if (!leaf.starts_with(base + "-") || leaf.size() == base.size() + 1)
        return false;
    const auto digits = std::string_view(leaf).substr(base.size() + 1);
    return std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::set<std::string> entrySet(const fs::path& folder) {
    std::vector<std::string> names;
    try {
        names = FileOps::list(folder);
    } catch (const FileError&) {
        // An unlistable folder counts as empty; creating the flow folder then reports the error.
    }
    return {names.begin(), names.end()};
}

} // namespace

FileOperations FileOperations::standard() {
    return {&FileOps::writeAtomically, &FileOps::move, &FileOps::remove, &FileOps::createDirectory};
}

FlowStore::FlowStore(fs::path root, FileOperations operations)
    : root_(std::move(root)), ops_(std::move(operations)) {}

fs::path FlowStore::indexURL() const {
    return root_ / LibraryLayout::kIndexFile;
}

fs::path FlowStore::flowURL(std::string_view folderName) const {
    LibraryLayout::validateFolderName(folderName);
    fs::path url = root_ / fs::path(std::string(folderName));
    if (FileOps::exists(url) && !FileOps::isInside(root_, url))
        throw UnsafeNameError(std::string(folderName), "it leads outside the library folder");
    return url;
}

fs::path FlowStore::screenURL(std::string_view folderName, std::string_view filename) const {
    LibraryLayout::validateFileName(filename);
    return flowURL(folderName) / std::string(filename);
}

std::optional<FlowStore::FileStamp> FlowStore::stamp(const fs::path& file) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0)
        return std::nullopt;
    return FileStamp{
        static_cast<std::uintmax_t>(info.st_dev), static_cast<std::uintmax_t>(info.st_ino),
        static_cast<std::uintmax_t>(info.st_size),
        static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

// Keeps `snapshot` as the content of the index file when the file is still the one that was
// stamped before it was read or written.
void FlowStore::remember(std::optional<FileStamp> before, IndexSnapshot snapshot) const {
    const auto after = stamp(indexURL());
    if (before && after && *before == *after)
        indexCache_.emplace(*after, std::move(snapshot));
    else
        indexCache_.reset();
}

IndexSnapshot FlowStore::indexSnapshot() const {
    const auto before = stamp(indexURL());
    if (before && indexCache_ && indexCache_->first == *before)
        return indexCache_->second;
    auto bytes = FileOps::readIfExists(indexURL());
    if (!bytes) {
        indexCache_.reset();
        return {};
    }
    IndexSnapshot snapshot;
    try {
        snapshot.index = IndexCoding::decode(*bytes);
    } catch (const CodingError& e) {
        indexCache_.reset();
        throw DecodingError(indexURL(), e.what());
    }
    snapshot.bytes = std::move(bytes);
    remember(before, snapshot);
    return snapshot;
}

FlowMeta FlowStore::meta(std::string_view folderName) const {
    const fs::path file = flowURL(folderName) / LibraryLayout::kMetaFile;
    auto bytes = FileOps::readIfExists(file);
    if (!bytes)
        throw FlowNotFoundError(std::string(folderName));
    try {
        return FlowMeta::fromJson(parseLibraryJson(*bytes));
    } catch (const CodingError& e) {
        throw DecodingError(file, e.what());
    }
}

bool FlowStore::hasMeta(std::string_view folderName) const {
    return FileOps::exists(flowURL(folderName) / LibraryLayout::kMetaFile);
}

void FlowStore::writeMeta(std::string_view folderName, const FlowMeta& meta) {
    ops_.indexWriter(flowURL(folderName) / LibraryLayout::kMetaFile,
                     encodeLibraryJson(meta.toJson()));
}

void FlowStore::writeIndex(const LibraryIndex& index) {
    if (!FileOps::isDirectory(root_))
        ops_.directoryCreator(root_, true);
    std::string bytes;
    try {
        bytes = IndexCoding::encode(index);
    } catch (const CodingError& e) {
        throw LibraryError(std::string("The library index can’t be written: ") + e.what() + ".");
    }
    const auto previous = stamp(indexURL());
    indexCache_.reset();
    ops_.indexWriter(indexURL(), bytes);
    const auto written = stamp(indexURL());
    if (written && written != previous)
        remember(written, {index, std::move(bytes)});
}

void FlowStore::appendToIndex(const FlowSummary& summary) {
    auto snapshot = indexSnapshot();
    snapshot.index.upsert(summary);
    writeIndex(snapshot.index);
}

// Creates root / parentPath with its intermediates and returns the folders it made, deepest
// first, so that a rollback can remove exactly those.
std::vector<std::string> FlowStore::createParents(const std::string& parentPath) {
    std::vector<std::string> missing;
    for (std::string path = parentPath; !path.empty(); path = parentOf(path)) {
        if (FileOps::isDirectory(root_ / path))
            break;
        missing.push_back(path);
    }
    try {
        ops_.directoryCreator(root_ / parentPath, true);
    } catch (...) {
        removeCreatedParents(missing);
        throw;
    }
    return missing;
}

void FlowStore::removeCreatedParents(const std::vector<std::string>& created) {
    for (const auto& path : created) {
        const fs::path folder = root_ / path;
        try {
            if (FileOps::exists(folder) && FileOps::list(folder).empty())
                ops_.folderRemover(folder);
        } catch (const std::exception&) {
            return; // an empty folder left behind loses nothing
        }
    }
}

FlowSummary FlowStore::createEmptyFlow(const std::string& application, const std::string& name,
                                       const std::optional<std::string>& categoryL1, Date date) {
    for (const auto* text : {&application, &name, categoryL1 ? &*categoryL1 : &name})
        Text::requireUtf8(*text);
    const std::string app = Text::trimmed(application);
    const std::string flowName = Text::trimmed(name);
    if (app.empty())
        throw EmptyFlowCreationError(EmptyFlowCreationError::Case::missingApplication);
    if (flowName.empty())
        throw EmptyFlowCreationError(EmptyFlowCreationError::Case::missingName);
    const auto category = Text::nonBlank(categoryL1);

    const std::string parentPath = Slug::parentPath(app, category);
    const auto created = createParents(parentPath);
    const fs::path parent = root_ / parentPath;
    const std::string leaf = Slug::uniqueFolderName(Slug::make(flowName), entrySet(parent));
    const std::string folderName = parentPath + "/" + leaf;
    const fs::path folder = parent / leaf;
    try {
        ops_.directoryCreator(folder, false);
    } catch (...) {
        removeCreatedParents(created);
        throw;
    }

    FlowMeta meta;
    meta.id = newUUIDString();
    meta.application = app;
    meta.name = flowName;
    meta.categoryL1 = category;
    meta.date = date;
    meta.preservesWhenEmpty = true;
    const FlowSummary summary = meta.summary(folderName);
    try {
        writeMeta(folderName, meta);
        appendToIndex(summary);
    } catch (const std::exception& persistence) {
        try {
            ops_.folderRemover(folder);
            removeCreatedParents(created);
        } catch (const std::exception& cleanup) {
            throw EmptyFlowRollbackError(persistence.what(), cleanup.what(), folder);
        }
        if (FileOps::exists(folder))
            throw EmptyFlowFolderStillExistsError(folder);
        throw;
    }
    return summary;
}

void FlowStore::deleteFlow(std::string_view folderName) {
    const fs::path folder = flowURL(folderName);
    auto snapshot = indexSnapshot();
    snapshot.index.removeFolder(folderName);

    std::optional<fs::path> quarantine;
    if (FileOps::exists(folder)) {
        quarantine = folder.parent_path() /
                     (std::string(LibraryLayout::kQuarantinePrefix) + newUUIDString());
        ops_.folderMover(folder, *quarantine);
    }
    try {
        writeIndex(snapshot.index);
    } catch (const std::exception& indexError) {
        if (!quarantine)
            throw;
        try {
            ops_.folderMover(*quarantine, folder);
        } catch (const std::exception& moveError) {
            throw FlowDeletionRollbackError(folder, *quarantine, indexError.what(),
                                            moveError.what());
        }
        throw;
    }
    if (quarantine) {
        try {
            removeQuarantine(*quarantine);
        } catch (const std::exception& cleanupError) {
            throw FlowDeletionCleanupError(*quarantine, cleanupError.what());
        }
    }
    pruneEmptyParents(folderName);
}

void FlowStore::pruneEmptyParents(std::string_view folderName) {
    for (std::string path = parentOf(folderName); !path.empty(); path = parentOf(path)) {
        const fs::path folder = root_ / path;
        try {
            if (!FileOps::list(folder).empty())
                return;
            ops_.folderRemover(folder);
        } catch (const std::exception&) {
            return;
        }
    }
}

bool FlowStore::deleteFlowIfEmpty(std::string_view folderName) {
    const FlowMeta m = meta(folderName);
    if (!m.screens.empty() || m.preserves())
        return false;
    deleteFlow(folderName);
    return true;
}

std::string FlowStore::saveMeta(std::string_view folderName, const FlowMeta& newMeta) {
    const fs::path oldFolder = flowURL(folderName);
    for (const auto& text :
         {newMeta.application.value_or(""), newMeta.name, newMeta.categoryL1.value_or("")})
        Text::requireUtf8(text);
    const FlowMeta oldMeta = meta(folderName);
    if (oldMeta.id != newMeta.id)
        throw LibraryError("The flow at “" + std::string(folderName) +
                           "” can’t be saved with another identifier.");
    auto snapshot = indexSnapshot();

    const std::string parentPath = Slug::parentPath(newMeta.application, newMeta.categoryL1);
    const std::string nameSlug = Slug::make(newMeta.name);
    std::string newFolderName(folderName);
    UndoLog undo;
    try {
        // Only a changed name moves a folder: one named before names could hold every
        // script ("Café" in "caf") stays where it is.
        const std::string oldParent = parentOf(folderName);
        const bool parentStays =
            parentPath == oldParent ||
            (!oldParent.empty() && oldMeta.application == newMeta.application &&
             oldMeta.categoryL1 == newMeta.categoryL1);
        const bool leafStays =
            leafFitsName(leafOf(folderName), nameSlug) || oldMeta.name == newMeta.name;
        if (!parentStays || !leafStays) {
            const std::string parent = parentStays ? oldParent : parentPath;
            const auto created = createParents(parent);
            undo.add([this, created] { removeCreatedParents(created); });
            const std::string leaf = Slug::uniqueFolderName(nameSlug, entrySet(root_ / parent));
            newFolderName = parent + "/" + leaf;
            ops_.folderMover(oldFolder, root_ / newFolderName);
            undo.add([this, oldFolder, newFolderName] {
                ops_.folderMover(root_ / newFolderName, oldFolder);
            });
        }
        const std::string oldBytes = encodeLibraryJson(oldMeta.toJson());
        writeMeta(newFolderName, newMeta);
        undo.add([this, newFolderName, oldBytes] {
            ops_.indexWriter(flowURL(newFolderName) / LibraryLayout::kMetaFile, oldBytes);
        });

        auto& flows = snapshot.index.flows;
        auto it = std::find_if(flows.begin(), flows.end(),
                               [&](const FlowSummary& s) { return s.folderName == folderName; });
        if (it != flows.end())
            *it = newMeta.summary(newFolderName);
        else
            snapshot.index.upsert(newMeta.summary(newFolderName));
        writeIndex(snapshot.index);
    } catch (const std::exception& e) {
        undo.undoOrThrow("save the flow “" + newMeta.name + "”", (root_ / newFolderName).string(),
                         e);
        throw;
    }
    if (newFolderName != folderName)
        pruneEmptyParents(folderName);
    return newFolderName;
}

std::string FlowStore::renameFlow(std::string_view folderName, const std::string& newName) {
    const std::string name = Text::trimmed(newName);
    if (name.empty())
        throw EmptyFlowCreationError(EmptyFlowCreationError::Case::missingName);
    FlowMeta m = meta(folderName);
    m.name = name;
    return saveMeta(folderName, m);
}

std::string FlowStore::moveFlow(std::string_view folderName,
                                const std::optional<std::string>& application,
                                const std::optional<std::string>& categoryL1) {
    FlowMeta m = meta(folderName);
    m.application = Text::nonBlank(application);
    m.categoryL1 = Text::nonBlank(categoryL1);
    return saveMeta(folderName, m);
}

void FlowStore::renameCategory(const std::string& name, const std::string& newName) {
    const std::string renamed = Text::trimmed(newName);
    if (renamed.empty())
        throw LibraryError("A category needs a name.");
    for (const auto& summary : indexSnapshot().index.flows) {
        if (summary.categoryL1 != name)
            continue;
        FlowMeta m = meta(summary.folderName);
        m.categoryL1 = renamed;
        saveMeta(summary.folderName, m);
    }
    auto snapshot = indexSnapshot();
    auto& categories = snapshot.index.categories;
    const bool listed = std::any_of(categories.begin(), categories.end(),
                                    [&](const CategoryNode& c) { return c.name == renamed; });
    for (auto it = categories.begin(); it != categories.end();) {
        if (it->name != name) {
            ++it;
        } else if (listed) {
            it = categories.erase(it);
        } else {
            it->name = renamed;
            ++it;
        }
    }
    writeIndex(snapshot.index);
}

void FlowStore::moveCategory(const std::string& name, const std::optional<std::string>& before) {
    auto snapshot = indexSnapshot();
    // The order the user sees: listed categories first, then the others alphabetically.
    std::vector<std::string> order;
    std::set<std::string> seen;
    for (const auto& node : snapshot.index.categories) {
        if (seen.insert(node.name).second)
            order.push_back(node.name);
    }
    std::set<std::string> unlisted;
    for (const auto& flow : snapshot.index.flows) {
        if (flow.categoryL1 && !flow.categoryL1->empty() && !seen.contains(*flow.categoryL1))
            unlisted.insert(*flow.categoryL1);
    }
    order.insert(order.end(), unlisted.begin(), unlisted.end());

    if (before && *before == name)
        return;
    std::erase(order, name);
    auto position = before ? std::find(order.begin(), order.end(), *before) : order.end();
    order.insert(position, name);

    snapshot.index.categories.clear();
    for (auto& category : order)
        snapshot.index.categories.push_back({std::move(category)});
    writeIndex(snapshot.index);
}

void FlowStore::setCategoryOrder(const std::vector<std::string>& order) {
    auto snapshot = indexSnapshot();
    snapshot.index.categories.clear();
    for (const auto& category : order)
        snapshot.index.categories.push_back({category});
    writeIndex(snapshot.index);
}

} // namespace varnel
