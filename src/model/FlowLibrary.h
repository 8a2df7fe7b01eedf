#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "archive/AppArchive.h"
#include "archive/ArchiveImport.h"
#include "comments/ScreenComment.h"
#include "editing/ScreenEdits.h"
#include "figma/FigmaPublishPersistence.h"
#include "library/FlowMeta.h"
#include "library/FlowStore.h"
#include "library/FlowSummary.h"
#include "model/ClipSaves.h"
#include "model/FollowedScreens.h"
#include "text/OCRIndex.h"
#include "text/SearchCache.h"
#include "text/TextSearchIndex.h"
#include "thumbnails/ThumbEdits.h"

#include <QObject>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>
#endif

namespace varnel {

// The observable library model of the main thread. It publishes what index.json holds; every
// change goes through the FlowStore and ends with a reload, also when the change failed, so
// that the model always shows what is on disk. Failed changes throw their store error.
class FlowLibrary : public QObject {
    Q_OBJECT

public:
    explicit FlowLibrary(FlowStore store, QObject* parent = nullptr);
    // Stops a clip save that is still running and waits for it.
    ~FlowLibrary() override;

    FlowStore& store() { return store_; }
    const std::filesystem::path& root() const { return store_.root(); }

    // Recovers what a crash left behind, then loads the index. Read-only, it only loads.
    void open();
    // Another program holds the library, or its folder can't be written: it is browsed without
    // a change (every change throws, the text pass reads only what is already recognized).
    void setReadOnly(std::optional<std::string> reason) { readOnly_ = std::move(reason); }
    const std::optional<std::string>& readOnlyReason() const { return readOnly_; }
    // Switches to the library at `root` and opens it.
    void setRoot(const std::filesystem::path& root);
    void reload();

    const std::vector<std::string>& applications() const { return applications_; }
    const std::vector<FlowSummary>& summaries() const { return summaries_; }
    const std::vector<std::string>& categoryOrder() const { return categoryOrder_; }
    // Why the index could not be read, if it could not.
    const std::optional<std::string>& loadError() const { return loadError_; }
    const RecoveryReport& recoveryReport() const { return recoveryReport_; }

    // The flow's meta, decoded once per reload; throws when it can't be read.
    const FlowMeta& meta(const std::string& folderName);

    FlowSummary createEmptyFlow(const std::string& application, const std::string& name,
                                const std::optional<std::string>& categoryL1, Date date);
    void deleteFlow(const std::string& folderName);
    std::string saveMeta(const std::string& folderName, const FlowMeta& meta);
    std::string renameFlow(const std::string& folderName, const std::string& newName);
    std::string moveFlow(const std::string& folderName,
                         const std::optional<std::string>& application,
                         const std::optional<std::string>& categoryL1);
    void moveCategory(const std::string& name, const std::optional<std::string>& before);
    void setCategoryOrder(const std::vector<std::string>& order);
    void renameCategory(const std::string& name, const std::string& newName);

    ThumbEdits deleteScreens(const std::string& folderName,
                             const std::vector<std::string>& filenames);

    // The trash. What the window deletes goes there, for undo and to be put back later.
    std::string trashFlows(const std::vector<std::string>& folderNames, bool hidden = false);
    std::vector<std::string> restoreFlows(const std::string& entry);
    // The flow goes with its screens when none would be left and it isn't kept when empty.
    struct TrashedScreens {
        std::string entry;
        bool flowWent = false;
    };
    TrashedScreens trashScreens(const std::string& folderName,
                                const std::vector<std::string>& filenames, bool hidden = false);
    FlowStore::RestoredScreens restoreScreens(const std::string& entry);
    std::vector<TrashEntry> trashEntries() const { return store_.trashEntries(); }
    void purgeTrash(const std::string& entry);
    // Empties the trash of what is listed (what undo keeps stays until it is dropped).
    void emptyTrash();
    ThumbEdits reorderScreens(const std::string& folderName, const std::vector<std::string>& order);
    // A source flow left empty goes; into the trash, hidden, when `emptiedFlow` asks for its
    // entry.
    ThumbEdits moveScreens(const std::string& sourceFolder,
                           const std::vector<std::string>& filenames,
                           const std::string& targetFolder, std::size_t insertionIndex,
                           std::optional<std::string>* emptiedFlow = nullptr);
    ThumbEdits duplicateScreens(const std::string& folderName,
                                const std::vector<std::string>& filenames);
    void renameScreen(const std::string& folderName, const std::string& filename,
                      const std::string& newName);
    std::vector<std::string> addScreens(const std::string& folderName,
                                        const std::vector<std::filesystem::path>& files);
    std::vector<std::string> appendScreens(const std::string& folderName,
                                           const std::vector<FlowStore::NewScreen>& screens,
                                           const FlowStore::AppendOptions& options);
    // Brings a flow put together in a folder of the library (an import's) in, in one change.
    std::string adoptFlow(const FlowMeta& meta, const std::filesystem::path& from);

    // Edits of one screen. Saves and reverts don't report their failures: they stop at the
    // failing step, reload what is on disk and return false; the next save repairs the screen.
    ScreenEditRecords edits(const std::string& folderName, const std::string& filename) const;
    std::filesystem::path editingSourceURL(const std::string& folderName,
                                           const std::string& filename) const;
    bool hasOriginal(const std::string& folderName, const std::string& filename) const;
    // False on failure, with the reason in `why`.
    bool saveEdits(const std::string& folderName, const std::string& filename,
                   const std::vector<RedactShape>& shapes, const RedactStyle& style,
                   const std::vector<PatchDraft>& drafts, std::string* why = nullptr);
    bool revertScreen(const std::string& folderName, const std::string& filename);
    // Re-encodes a clip with its zones on a worker thread; `progress` (0..1) and `done` (the
    // result) are called on this thread. With no zones the save is a revert. The new clip lands
    // on the screen the zones were drawn on, wherever renumbering or moving took it meanwhile,
    // and is dropped if it was deleted. A failure is kept as a clip save problem, zones and
    // all, until the clip is saved or the problem discarded.
    void saveVideoEdits(const std::string& folderName, const std::string& filename,
                        const std::vector<RedactShape>& shapes, const RedactStyle& style,
                        std::function<void(double)> progress, std::function<void(bool)> done);
    bool isSavingVideo() const { return !clipSaves_.empty(); }
    bool isSavingClip(const std::string& folderName, const std::string& filename) const {
        return clipSaves_.isSaving({folderName, filename});
    }
    const std::vector<ClipSaves::Problem>& clipSaveProblems() const {
        return clipSaves_.problems();
    }
    std::optional<ClipSaves::Problem> clipSaveProblem(const std::string& folderName,
                                                      const std::string& filename) const {
        return clipSaves_.problem({folderName, filename});
    }
    void discardClipSaveProblem(const std::string& folderName, const std::string& filename);

    // Comment pins of a still screen; a missing flow or screen has none.
    std::vector<ScreenComment> comments(const std::string& folderName,
                                        const std::string& filename) const;
    // False when the save failed, with the reason in `why`: the caller holds the only copy of
    // the pins, to show and save again.
    bool saveComments(const std::string& folderName, const std::string& filename,
                      const std::vector<ScreenComment>& pins, std::string* why = nullptr);

    // Export and inspection only read the library, through a store of their own, so they may
    // run on a worker thread while the main thread keeps the model.
    // Writes the application's archive; returns its number of flows (0: nothing was written).
    std::size_t
    exportApplication(const std::string& name, const std::filesystem::path& destination,
                      AppArchive::ExportContent content = AppArchive::ExportContent::everything,
                      const std::function<void(double)>& progress = {}) const;
    struct ArchiveInspection {
        AppArchive::Extracted extracted;
        std::size_t conflicts = 0;
    };
    // Unpacks an archive beside the library; the caller imports it or calls cleanup().
    ArchiveInspection inspectArchive(const std::filesystem::path& zipFile) const;
    // Imports an inspected archive, then removes its unpacked files, whatever the outcome.
    ImportResult importArchive(const AppArchive::Extracted& extracted,
                               ImportConflictResolution resolution);
    static std::string uniqueApplicationName(const std::string& base,
                                             const std::vector<std::string>& existing) {
        return AppArchive::uniqueApplicationName(base, existing);
    }
    // Deletes every flow of the application; returns how many went.
    std::size_t deleteApplication(const std::string& name);

    // Text recognized on the still screens, and how many stills and clips each flow has, by
    // flow folder; rebuilt by refresh passes.
    const std::map<std::string, FlowTextIndex>& ocrIndex() const { return ocrIndex_; }
    const std::map<std::string, MediaCounts>& mediaIndex() const { return mediaIndex_; }
    bool isIndexingText() const { return ocrIndexing_; }
    // The text index laid out for searching; each flow's result updates that flow only.
    const TextSearchIndex& textSearchIndex() const { return textSearch_; }
    // Brings every flow's "ocr.json" up to date on a worker thread, one flow and one screen at
    // a time, and updates the indexes. Requests during a pass lead to exactly one more pass.
    void refreshOCRIndex();
    // With this on, opening the library starts a pass over every flow, and a change starts one
    // over the flows it touched (none: no pass).
    void setAutomaticTextRecognition(bool on) { automaticText_ = on; }
    // Waits for the running pass (tests and the command line).
    void waitForTextRecognition();
    std::vector<TextLine> textLines(const std::string& folderName,
                                    const std::string& filename) const;
    void saveTextLines(const std::string& folderName, const std::string& filename,
                       const std::vector<TextLine>& lines);
    // How the recognizer is made, on the worker thread; Tesseract unless replaced (tests).
    using RecognizerFactory = std::function<OCRIndex::Recognizer()>;
    void setRecognizerFactory(RecognizerFactory factory) {
        recognizerFactory_ = std::move(factory);
    }

    // Figma. The export package lives in the flow's own folder.
    std::filesystem::path exportToFigmaInFlowFolder(const std::string& folderName);
    std::optional<std::filesystem::path> existingFigmaZip(const std::string& folderName);
    void removeFigmaZip(const std::string& folderName);
    // Before the flow takes `newName`: its package, named after the old name, goes.
    void removeStaleFigmaZip(const std::string& folderName, const std::string& newName);
    void setFigmaFileURL(const std::string& folderName, const std::optional<std::string>& url);
    // A publish's bookkeeping on this flow, for the thread that owns the library.
    FigmaPublishPersistence figmaPersistence(const std::string& folderName);
    // The folder of the flow with this id; throws when the library has none.
    std::string folderOfFlow(const std::string& flowId) const;
    void addFigmaReply(const std::string& folderName, const std::string& filename,
                       const std::string& rootId, const FigmaReply& reply);
    void removeFigmaThread(const std::string& folderName, const std::string& filename,
                           const std::string& rootId);

signals:
    // After every reload.
    void changed();
    // Before setRoot leaves this library, while its flows can still be written.
    void aboutToSwitchRoot();
    // The text or media counts of one flow changed.
    void ocrIndexChanged(const QString& folderName);
    // The whole text index was put in place at once (from the search cache, on opening).
    void ocrIndexReplaced();
    // `remaining` screens are still to be read.
    void ocrProgress(int remaining);
    // After a screen operation, for the thumbnail cache.
    void thumbnailsChanged(const varnel::ThumbEdits& edits);
    // A publish stored the threads it pulled from Figma.
    void figmaThreadsRefreshed(const QString& folderName);
    // A clip save failed or was dropped, or a problem was discarded.
    void clipSaveProblemsChanged();
    // Something to tell the user that no screen is left to show it on.
    void notice(const QString& text);

private:
    void screenFileChanged(const std::string& folderName, const std::string& filename);
    // The flow at `from` now lives at `to`: what follows its screens follows it.
    void flowRelocated(const std::string& from, const std::string& to);
    // Screens followed for work that runs elsewhere (a publish); dropped once the work ends.
    std::shared_ptr<FollowedScreens> followScreens(const std::vector<ScreenID>& screens);
    std::vector<std::weak_ptr<FollowedScreens>> followed_;
    template <typename F> auto mutate(F&& change) -> decltype(change());
    ThumbEdits screensChanged(ThumbEdits edits);

    FlowStore store_;
    std::vector<std::string> applications_;
    std::vector<FlowSummary> summaries_;
    std::vector<std::string> categoryOrder_;
    std::optional<std::string> loadError_;
    RecoveryReport recoveryReport_;
    std::optional<std::string> readOnly_;
    std::map<std::string, FlowMeta> metaCache_;
    QThreadPool videoPool_;
    std::shared_ptr<std::atomic<bool>> cancelVideo_ = std::make_shared<std::atomic<bool>>(false);
    ClipSaves clipSaves_;
    // What a clip save lands on: the flow by its id and the clip by its file, held open so that
    // its identity can't pass to a file made meanwhile.
    struct ClipIdentity {
        std::string flowId;
        int fd = -1;
    };
    std::map<std::uint64_t, ClipIdentity> clipIdentities_;
    std::optional<ScreenID> clipNow(std::uint64_t save);
    // Refuses a change that would remove a clip whose zones are being saved.
    void requireNoClipSave(const std::string& folderName,
                           const std::vector<std::string>& filenames = {}) const;
    bool finishClipSave(std::uint64_t save, const std::filesystem::path& output,
                        const std::vector<RedactShape>& shapes, const RedactStyle& style,
                        std::optional<std::string> failure);

    void startOCRPass();
    struct CachedText {
        std::map<std::string, FlowTextIndex> text;
        std::map<std::string, MediaCounts> media;
        TextSearchIndex search;
    };
    static CachedText cachedText(const std::map<std::string, OCRIndex::Derived>& cached);
    void adoptCachedText(CachedText loaded);
    void applyText(const std::string& folder, const OCRIndex::Derived& derived);
    void finishOCRPass(unsigned generation);
    // Flows whose text may have changed; a pass over them starts when automatic.
    void textChanged(const std::string& folder);
    void refreshChangedText();
    std::map<std::string, FlowTextIndex> ocrIndex_;
    std::map<std::string, MediaCounts> mediaIndex_;
    bool ocrIndexing_ = false;
    TextSearchIndex textSearch_;
    // What the next pass reads: every flow, or those touched since the last.
    bool textAllDirty_ = true;
    std::set<std::string> textDirty_;
    // Flows whose pictures changed (a blur, a revert) since the running pass began: what the
    // pass read of them may be of a picture that is gone.
    std::set<std::string> picturesChanged_;
    bool ocrRerunRequested_ = false;
    bool automaticText_ = false;
    unsigned ocrGeneration_ = 0;
    QThreadPool ocrPool_;
    std::shared_ptr<std::atomic<bool>> cancelOCR_ = std::make_shared<std::atomic<bool>>(false);
    RecognizerFactory recognizerFactory_;
};

// Every change ends with a reload, also when it throws.
template <typename F> auto FlowLibrary::mutate(F&& change) -> decltype(change()) {
    if (readOnly_)
        throw LibraryError("The library is open read-only: " + *readOnly_);
    struct ReloadAtExit {
        FlowLibrary* library;
        ~ReloadAtExit() { library->reload(); }
    } reloadAtExit{this};
    return change();
}

} // namespace varnel
