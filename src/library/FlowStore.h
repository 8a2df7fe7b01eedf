#pragma once

#include "figma/FigmaPublishPersistence.h"
#include "library/Date.h"
#include "library/FlowMeta.h"
#include "library/FlowSummary.h"
#include "library/JsonCoding.h"
#include "library/LibraryIndex.h"
#include "library/TrashEntry.h"
#include "thumbnails/ThumbEdits.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

namespace fs = std::filesystem;

class UndoLog;

// Sets a screen's zones (on the picture), style and patches; empty lists become absent keys.
// Throws LibraryError for values that aren't usable.
void setScreenEdits(ScreenRef& screen, std::vector<RedactShape> shapes,
                    std::optional<RedactStyle> style, std::vector<RedactPatch> patches);
// A screen's edit keys as stored, to tell whether a record is the one a change planned.
Json editsJson(const ScreenRef& screen);

// The four file operations every change goes through; tests replace them to inject failures.
struct FileOperations {
    std::function<void(const fs::path& file, std::string_view bytes)> indexWriter;
    std::function<void(const fs::path& from, const fs::path& to)> folderMover;
    std::function<void(const fs::path& folder)> folderRemover;
    std::function<void(const fs::path& folder, bool intermediates)> directoryCreator;

    static FileOperations standard();
};

// index.json as read for a mutation, with the bytes it was read from (none when missing).
struct IndexSnapshot {
    LibraryIndex index;
    std::optional<std::string> bytes;
};

// What opening the library found left over from an interrupted run, and what it did.
struct RecoveryReport {
    std::vector<std::string> recoveredFlows;      // flows made from crash-left staging folders
    std::vector<fs::path> leftoverQuarantines;    // ".deleting-" folders it could not place
    std::vector<std::string> finishedRenumbering; // flows whose renumbering was completed
    std::vector<std::string> repairs;             // what else it repaired, naming the folder
    std::vector<std::string> problems;            // what could not be recovered, and why

    bool empty() const;
    // What was repaired, and what still waits for the user, each a sentence naming the folder.
    std::vector<std::string> repairedLines() const;
    std::vector<std::string> unresolvedLines() const;
};

// Performs every change to the library folder. Each multi-step change writes index.json last
// and either completes, is undone, or throws an error that names the folder holding the data.
class FlowStore {
public:
    explicit FlowStore(fs::path root, FileOperations operations = FileOperations::standard());

    const fs::path& root() const { return root_; }
    FileOperations& operations() { return ops_; }

    fs::path indexURL() const;
    // The flow folder of a validated folder name that stays inside the root.
    fs::path flowURL(std::string_view folderName) const;
    fs::path screenURL(std::string_view folderName, std::string_view filename) const;

    // Reading. A missing index is an empty library; an unreadable one throws DecodingError.
    IndexSnapshot indexSnapshot() const;
    LibraryIndex readIndex() const { return indexSnapshot().index; }
    FlowMeta meta(std::string_view folderName) const;
    bool hasMeta(std::string_view folderName) const;

    // Writes meta.json alone; callers that change a summary field refresh the index too.
    void writeMeta(std::string_view folderName, const FlowMeta& meta);
    // Inserts the summary, or replaces the one of the same flow id in place.
    void appendToIndex(const FlowSummary& summary);

    FlowSummary createEmptyFlow(const std::string& application, const std::string& name,
                                const std::optional<std::string>& categoryL1, Date date);
    void deleteFlow(std::string_view folderName);
    void pruneEmptyParents(std::string_view folderName);
    bool deleteFlowIfEmpty(std::string_view folderName);

    ThumbEdits renumberScreens(std::string_view folderName);
    ThumbEdits deleteScreen(std::string_view folderName, const std::string& filename);
    ThumbEdits deleteScreens(std::string_view folderName,
                             const std::vector<std::string>& filenames);
    ThumbEdits reorderScreens(std::string_view folderName, const std::vector<std::string>& order);
    ThumbEdits moveScreens(std::string_view sourceFolder, const std::vector<std::string>& filenames,
                           std::string_view targetFolder, std::size_t insertionIndex);
    ThumbEdits duplicateScreens(std::string_view folderName,
                                const std::vector<std::string>& filenames);
    // Gives a screen its display name (trimmed; blank removes it). Its file keeps its name.
    void renameScreen(std::string_view folderName, const std::string& filename,
                      const std::string& newName);

    // Replaces a screen's zones, the style they were baked with, and its patches, in one write.
    // Empty lists are stored as absent keys.
    void setEdits(std::string_view folderName, const std::string& filename,
                  std::vector<RedactShape> shapes, std::optional<RedactStyle> style,
                  std::vector<RedactPatch> patches);
    // A still's new picture with its zones and patches baked in, the patch images it records,
    // and its untouched picture when no original copy is kept yet.
    struct Bake {
        std::string picture;
        // A clip's new file (written beside the library), moved in instead of `picture`.
        std::optional<fs::path> pictureFile;
        std::optional<std::string> original;
        std::vector<RedactShape> zones;
        RedactStyle style;
        std::vector<std::pair<RedactPatch, std::string>> patches; // record and PNG bytes
    };
    // Replaces a screen's picture and records its edits through the journal: the record written
    // is the commit; before it, a failure or an interruption puts the picture as it was back.
    void bakeScreen(std::string_view folderName, const std::string& filename, const Bake& bake);
    // Clears a screen's zones, style and patches and puts its untouched original back in place
    // of the baked picture, through the journal: the record is written first, and an
    // interruption is finished when the library opens.
    void revertEdits(std::string_view folderName, const std::string& filename);
    // Replaces a screen's pins. Published pins that are gone are queued in
    // "figmaPendingDeletes", so that the next publish deletes them in Figma.
    void setComments(std::string_view folderName, const std::string& filename,
                     std::optional<std::vector<ScreenComment>> pins);

    // Figma bookkeeping of a publish, one meta.json write each. A pin reposted under a new id
    // queues its old comment for deletion; a pin deleted meanwhile queues the new one.
    // The pin remembers the file it was posted to.
    void markFigmaPosted(std::string_view folderName, const std::string& filename,
                         const std::string& pinId, const std::string& commentId,
                         const std::string& signature, const std::string& fileKey);
    void clearFigmaPendingDelete(std::string_view folderName, const std::string& commentId);
    // A comment posted for a pin that is gone, queued for deletion if it is the linked file's.
    void queueFigmaDelete(std::string_view folderName, const std::string& commentId,
                          const std::string& fileKey);
    // Removes a pin whose comment was deleted in Figma, without queueing anything.
    void removePinDeletedInFigma(std::string_view folderName, const std::string& filename,
                                 const std::string& pinId);
    // Stores the pulled threads of every screen (none where a screen has none) and the time;
    // with `only`, of those screens alone, the others keeping theirs.
    void saveFigmaThreads(std::string_view folderName,
                          const std::map<std::string, std::vector<FigmaThread>>& threads,
                          Date pulledAt,
                          const std::optional<std::set<std::string>>& only = std::nullopt);
    // Linking another file keeps the pins' posts as the old file's, so that they are posted again
    // in the new one, and drops the threads and deletes that belong to the old file.
    void setFigmaFileURL(std::string_view folderName, const std::optional<std::string>& url);
    // The four above as a publish's bookkeeping on one flow; threads are stamped with now.
    FigmaPublishPersistence figmaPersistence(const std::string& folderName);
    // A reply sent from the app, shown at once, before the next pull.
    void addFigmaReply(std::string_view folderName, const std::string& filename,
                       const std::string& rootId, const FigmaReply& reply);
    // A thread deleted from the app: it goes, and so does the local pin it was posted from.
    void removeFigmaThread(std::string_view folderName, const std::string& filename,
                           const std::string& rootId);

    // Brings a flow folder from elsewhere (an archive, a staging folder) into the library under
    // a folder name made from its meta; moves the files and returns the new folder name. With
    // `replacing`, that flow leaves the library in the same change (its folder goes first, so
    // the new one may take its name).
    std::string adopt(const FlowMeta& meta, const fs::path& from,
                      const std::optional<std::string>& replacing = std::nullopt);

    // Writes a changed meta and its summary; when the application, category or name no longer
    // match the folder, the folder moves. Returns the flow's folder name afterwards.
    std::string saveMeta(std::string_view folderName, const FlowMeta& meta);
    std::string renameFlow(std::string_view folderName, const std::string& newName);
    std::string moveFlow(std::string_view folderName, const std::optional<std::string>& application,
                         const std::optional<std::string>& categoryL1);
    // Gives every flow of a category the new category name (their folders move) and renames it
    // in the user's order. Flows already moved stay moved when a later one fails.
    void renameCategory(const std::string& name, const std::string& newName);
    // Moves a category before another in the user's order, or to the end.
    void moveCategory(const std::string& name, const std::optional<std::string>& before);
    // Puts back an order of categories as it was listed.
    void setCategoryOrder(const std::vector<std::string>& order);

    // Copies PNG or MOV files into a flow as new screens, numbered after the highest in use.
    std::vector<std::string> addScreens(std::string_view folderName,
                                        const std::vector<fs::path>& files, Date capturedAt);
    // A file to add as a screen, with its record (its file name is given by the store).
    struct NewScreen {
        fs::path file;
        ScreenRef ref;
    };
    struct AppendOptions {
        bool link = false; // link rather than copy (files inside the library)
        // The flow's size afterwards; else the first still's, for a flow that has none.
        std::optional<std::pair<int, int>> size;
        // A capture folder (".inprogress/ID") whose files these are: it goes once they are
        // listed, in the same change, so that a crash never lists them twice.
        std::optional<fs::path> consumedStaging;
    };
    // Adds screens after the flow's last, through the journal: after an interruption they are
    // either listed in the flow or still where they came from. Returns their file names.
    std::vector<std::string> appendScreens(std::string_view folderName,
                                           const std::vector<NewScreen>& screens,
                                           const AppendOptions& options);
    // The name of a capture folder of this library; none for any other folder.
    std::optional<std::string> stagingName(const fs::path& folder) const;

    // The trash: what is deleted into it can be put back until it is emptied. Each change goes
    // through the journal: after an interruption, the deletion or the restore is whole or undone.
    // Moves flows into one trash entry and drops them from the index; returns the entry's id.
    std::string trashFlows(const std::vector<std::string>& folderNames, bool hidden = false);
    // Puts an entry's flows back at their folders and places in the user's order (beside a flow
    // that took a folder meanwhile); returns their folder names.
    std::vector<std::string> restoreFlows(const std::string& entryId);
    struct TrashedScreens {
        std::string entry;
        ThumbEdits edits;
    };
    TrashedScreens trashScreens(std::string_view folderName,
                                const std::vector<std::string>& filenames, bool hidden = false);
    // Puts screens back at their places in their flow, wherever that flow moved since.
    struct RestoredScreens {
        std::string folderName;
        std::vector<std::string> filenames; // their names now, in the flow's order
        ThumbEdits edits;
    };
    RestoredScreens restoreScreens(const std::string& entryId);
    // Readable entries, newest first.
    std::vector<TrashEntry> trashEntries() const;
    TrashEntry trashEntry(const std::string& entryId) const;
    void purgeTrash(const std::string& entryId);
    // Removes entries deleted before `cutoff`, and folders of the trash without an entry;
    // returns how many entries went.
    std::size_t purgeTrashBefore(Date cutoff);

    // Repairs what interrupted changes left: each flow ends as its old or its new version,
    // complete and listed; set-aside data goes back or, once its change was written, goes;
    // crash-left captures become flows. Never writes over an unreadable index.
    RecoveryReport recover();
    // The same findings without changing anything.
    RecoveryReport inspectLeftovers() const;

private:
    void writeIndex(const LibraryIndex& index);
    std::vector<std::string> createParents(const std::string& parentPath);
    void removeCreatedParents(const std::vector<std::string>& created);
    void recoverRenumbering(std::string_view folderName, const FlowMeta& meta);
    // Removes a folder the store made, refusing while it holds anything but `allowed`.
    void removeOwnFolder(const fs::path& folder, std::string_view allowed = {});
    // Leaves a marker that makes the next renumbering, or the next opening of the library,
    // renumber the flow, in case the change that follows cannot.
    void markRenumberingOwed(std::string_view folderName, UndoLog& undo);
    // Registers a change under way (which flows it touches, what it set aside or planned) and
    // removes the registration once the change is complete (endIntent, which says so when it
    // can't) or undone (dropIntent, on the way out of a failure).
    fs::path beginIntent(const Json& intent);
    void endIntent(const fs::path& file);
    void dropIntent(const fs::path& file) noexcept;
    // Removes a set-aside folder so that it says what it held until the end: meta.json last.
    void removeQuarantine(const fs::path& quarantine);
    void rewriteOCRKeys(const fs::path& flowDir,
                        const std::vector<std::pair<std::string, std::string>>& renames,
                        const std::vector<ScreenRef>& screens);
    ThumbEdits commitScreenList(std::string_view folderName, const FlowMeta& meta);
    struct Survey {
        std::vector<std::string> flowFolders; // folders at flow depth, listed or not
        std::vector<fs::path> quarantines, assemblies, extractions, writeLeftovers, intents;
        std::vector<std::string> renumbering; // flows with a renumbering folder
    };
    Survey survey() const;
    struct Settle {
        std::vector<std::string> created; // files an interrupted change made in the flow
    };
    std::optional<std::string> recoverStagingFolder(const fs::path& staging);
    void replayIntent(const fs::path& file, std::map<std::string, Settle>& settle,
                      RecoveryReport& report);
    void rollForward(const Json& transfer);
    void settleScreenQuarantine(const Json& entry, RecoveryReport& report);
    fs::path trashURL(std::string_view entryId) const;
    ThumbEdits removeScreens(std::string_view folderName, const std::vector<std::string>& requested,
                             TrashEntry* trash);
    void removeTrashFolder(const fs::path& folder);
    void dropTrashRecord(const fs::path& folder, const TrashEntry& entry, UndoLog& undo);
    void removeTrashLeftover(const fs::path& folder) noexcept;
    void rewriteTrashRecord(const fs::path& folder, const Json& entry);
    void settleTrashedFlows(const Json& intent, RecoveryReport& report);
    void settleRestoredFlows(const Json& plan, RecoveryReport& report);
    void settleRestoredScreens(const Json& plan, RecoveryReport& report);
    void putBackOriginal(const std::string& folderName, const std::string& filename);
    void settleRevert(const Json& entry, RecoveryReport& report);
    void settleBake(const Json& entry, RecoveryReport& report);
    void removePatchesOf(const std::string& folderName, const std::string& filename);
    void putBackPicture(const fs::path& kept, const fs::path& picture);
    void settleConsumedCapture(const Json& intent, RecoveryReport& report);
    void recoverAssembly(const fs::path& assembly, RecoveryReport& report);
    fs::path sourceInLibrary(const fs::path& source) const;
    void adoptUnindexed(const std::vector<std::string>& flowFolders, RecoveryReport& report);
    void adoptUnindexed(const std::string& folderName, RecoveryReport& report);
    void recoverQuarantine(const fs::path& quarantine, RecoveryReport& report);
    void settleSummary(const std::string& folderName);
    void settleFlow(const std::string& folderName, const Settle& settle, RecoveryReport& report);

    // The last index read or written, with the identity of the file it matches, so that a
    // change does not decode an index that has not changed on disk since.
    struct FileStamp {
        std::uintmax_t device = 0, inode = 0, size = 0;
        std::int64_t modifiedNanoseconds = 0;
        bool operator==(const FileStamp&) const = default;
    };
    static std::optional<FileStamp> stamp(const fs::path& file);
    void remember(std::optional<FileStamp> before, IndexSnapshot snapshot) const;

    fs::path root_;
    FileOperations ops_;
    mutable std::optional<std::pair<FileStamp, IndexSnapshot>> indexCache_;
};

} // namespace varnel
