#include "model/FlowLibrary.h"

#include "editing/VideoRedactor.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"
#include "organization/CategorySuggestions.h"

#include <QDebug>
#include <QPointer>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace varnel {

FlowLibrary::FlowLibrary(FlowStore store, QObject* parent)
    : QObject(parent), store_(std::move(store)) {
    reload();
}

FlowLibrary::~FlowLibrary() {
    cancelVideo_->store(true);
    cancelOCR_->store(true);
    videoPool_.waitForDone();
    ocrPool_.waitForDone();
    for (const auto& [save, identity] : clipIdentities_)
        ::close(identity.fd);
}

void FlowLibrary::open() {
    recoveryReport_ = readOnly_ ? RecoveryReport{} : store_.recover();
    if (!readOnly_) {
        try {
            store_.purgeTrashBefore(Date{Date::now().seconds - TrashEntry::kKeptSeconds});
            // What undo set aside belonged to a history that ended with the last run.
            for (const auto& entry : store_.trashEntries())
                if (entry.hidden)
                    store_.purgeTrash(entry.id);
        } catch (const std::exception& e) {
            qWarning("The trash couldn’t be emptied of old items: %s", e.what());
        }
    }
    for (const auto& problem : recoveryReport_.problems)
        qWarning("%s", problem.c_str());
    reload();
}

void FlowLibrary::setRoot(const std::filesystem::path& root) {
    emit aboutToSwitchRoot();
    // A pass over the old library is stopped and its results dropped.
    cancelOCR_->store(true);
    ++ocrGeneration_;
    ocrIndexing_ = ocrRerunRequested_ = false;
    ocrIndex_.clear();
    mediaIndex_.clear();
    textSearch_ = {};
    textAllDirty_ = true;
    textDirty_.clear();
    // Saves still running belong to the old library; they end without a trace in this one.
    clipSaves_.clear();
    for (const auto& [save, identity] : clipIdentities_)
        ::close(identity.fd);
    clipIdentities_.clear();
    followed_.clear();
    store_ = FlowStore(root);
    open();
    emit clipSaveProblemsChanged();
}

void FlowLibrary::reload() {
    metaCache_.clear();
    try {
        LibraryIndex index = store_.readIndex();
        loadError_.reset();
        // A flow whose entry changed (screens added or gone, renamed, moved) is read again.
        std::map<std::string_view, const FlowSummary*> before;
        for (const auto& summary : summaries_)
            before.emplace(summary.folderName, &summary);
        for (const auto& summary : index.flows) {
            const auto old = before.find(summary.folderName);
            if (old == before.end() || !(*old->second == summary))
                textDirty_.insert(summary.folderName);
            if (old != before.end())
                before.erase(old);
        }
        // Flows gone (deleted, renamed, moved) leave the text index at once.
        for (const auto& [folder, summary] : before) {
            const std::string name(folder);
            ocrIndex_.erase(name);
            mediaIndex_.erase(name);
            textSearch_.removeFlow(name);
        }
        summaries_ = std::move(index.flows);
        categoryOrder_.clear();
        categoryOrder_.reserve(index.categories.size());
        for (auto& category : index.categories)
            categoryOrder_.push_back(std::move(category.name));
    } catch (const std::exception& e) {
        // Keep showing nothing rather than a guess; mutations fail with the same error.
        loadError_ = e.what();
        summaries_.clear();
        categoryOrder_.clear();
    }
    applications_ = CategorySuggestions::applications(summaries_);
    emit changed();
    if (automaticText_)
        refreshChangedText();
}

const FlowMeta& FlowLibrary::meta(const std::string& folderName) {
    auto it = metaCache_.find(folderName);
    if (it == metaCache_.end())
        it = metaCache_.emplace(folderName, store_.meta(folderName)).first;
    return it->second;
}

ThumbEdits FlowLibrary::screensChanged(ThumbEdits edits) {
    if (edits.empty())
        return edits;
    const std::size_t problems = clipSaves_.problems().size();
    // Screens renumbered or moved without a change of count: their text moved with them.
    for (const auto& screen : edits.removals)
        textDirty_.insert(screen.folder);
    for (const auto& [from, to] : edits.renames) {
        textDirty_.insert(from.folder);
        textDirty_.insert(to.folder);
    }
    for (const auto& [from, to] : edits.copies)
        textDirty_.insert(to.folder);
    if (automaticText_)
        refreshChangedText();
    clipSaves_.follow(edits);
    std::erase_if(followed_, [&](const std::weak_ptr<FollowedScreens>& weak) {
        const auto screens = weak.lock();
        if (screens)
            screens->follow(edits);
        return !screens;
    });
    emit thumbnailsChanged(edits);
    if (clipSaves_.problems().size() != problems)
        emit clipSaveProblemsChanged();
    return edits;
}

FlowSummary FlowLibrary::createEmptyFlow(const std::string& application, const std::string& name,
                                         const std::optional<std::string>& categoryL1, Date date) {
    return mutate([&] { return store_.createEmptyFlow(application, name, categoryL1, date); });
}

void FlowLibrary::requireNoClipSave(const std::string& folderName,
                                    const std::vector<std::string>& filenames) const {
    const bool saving =
        filenames.empty()
            ? clipSaves_.isSavingIn(folderName)
            : std::any_of(filenames.begin(), filenames.end(), [&](const std::string& file) {
                  return clipSaves_.isSaving({folderName, file});
              });
    if (saving)
        throw LibraryError("The zones of a clip in “" + folderName +
                           "” are being saved; try again when the save is done.");
}

void FlowLibrary::deleteFlow(const std::string& folderName) {
    try {
        requireNoClipSave(folderName);
        mutate([&] { store_.deleteFlow(folderName); });
    } catch (const std::exception& e) {
        qWarning("Flow deletion failed for %s: %s", folderName.c_str(), e.what());
        throw;
    }
}

std::string FlowLibrary::saveMeta(const std::string& folderName, const FlowMeta& meta) {
    removeStaleFigmaZip(folderName, meta.name);
    std::string now = mutate([&] { return store_.saveMeta(folderName, meta); });
    flowRelocated(folderName, now);
    return now;
}

std::string FlowLibrary::renameFlow(const std::string& folderName, const std::string& newName) {
    removeStaleFigmaZip(folderName, newName);
    std::string now = mutate([&] { return store_.renameFlow(folderName, newName); });
    flowRelocated(folderName, now);
    return now;
}

void FlowLibrary::renameScreen(const std::string& folderName, const std::string& filename,
                               const std::string& newName) {
    mutate([&] { store_.renameScreen(folderName, filename, newName); });
}

std::string FlowLibrary::moveFlow(const std::string& folderName,
                                  const std::optional<std::string>& application,
                                  const std::optional<std::string>& categoryL1) {
    std::string now = mutate([&] { return store_.moveFlow(folderName, application, categoryL1); });
    flowRelocated(folderName, now);
    return now;
}

void FlowLibrary::flowRelocated(const std::string& from, const std::string& to) {
    clipSaves_.followFlow(from, to);
    std::erase_if(followed_, [&](const std::weak_ptr<FollowedScreens>& weak) {
        const auto screens = weak.lock();
        if (screens)
            screens->followFlow(from, to);
        return !screens;
    });
}

std::shared_ptr<FollowedScreens> FlowLibrary::followScreens(const std::vector<ScreenID>& screens) {
    auto followed = std::make_shared<FollowedScreens>(screens);
    followed_.push_back(followed);
    return followed;
}

void FlowLibrary::moveCategory(const std::string& name, const std::optional<std::string>& before) {
    mutate([&] { store_.moveCategory(name, before); });
}

void FlowLibrary::setCategoryOrder(const std::vector<std::string>& order) {
    mutate([&] { store_.setCategoryOrder(order); });
}

void FlowLibrary::renameCategory(const std::string& name, const std::string& newName) {
    // Each of the category's flows takes a new folder name, also when a later one fails.
    const std::vector<FlowSummary> before = summaries_;
    const auto followFlows = [&] {
        for (const auto& flow : before)
            for (const auto& now : summaries_)
                if (now.id == flow.id && now.folderName != flow.folderName)
                    flowRelocated(flow.folderName, now.folderName);
    };
    try {
        mutate([&] { store_.renameCategory(name, newName); });
    } catch (...) {
        followFlows();
        throw;
    }
    followFlows();
}

std::size_t FlowLibrary::exportApplication(const std::string& name,
                                           const std::filesystem::path& destination,
                                           AppArchive::ExportContent content,
                                           const std::function<void(double)>& progress) const {
    // A store of its own: this runs on a worker thread while the main thread keeps using store_.
    const FlowStore reader(root());
    return AppArchive::exportApplication(name, reader, reader.readIndex(), destination, content,
                                         progress);
}

FlowLibrary::ArchiveInspection
FlowLibrary::inspectArchive(const std::filesystem::path& zipFile) const {
    // Unpacking inside the library root keeps the later adoption a matter of renames.
    FileOps::createDirectory(root(), true);
    ArchiveInspection inspection{AppArchive::extract(zipFile, root(), true), 0};
    try {
        inspection.conflicts = countConflicts(FlowStore(root()), inspection.extracted);
    } catch (...) {
        inspection.extracted.cleanup();
        throw;
    }
    return inspection;
}

ImportResult FlowLibrary::importArchive(const AppArchive::Extracted& extracted,
                                        ImportConflictResolution resolution) {
    struct CleanupAtExit {
        const AppArchive::Extracted& extracted;
        ~CleanupAtExit() { extracted.cleanup(); }
    } cleanup{extracted};
    if (resolution == ImportConflictResolution::replace) {
        const LibraryIndex index = store_.readIndex();
        for (const auto& flow : extracted.manifest.flows)
            if (const FlowSummary* replaced = index.findId(flow.id))
                requireNoClipSave(replaced->folderName);
    }
    return mutate([&] { return importExtracted(store_, extracted, resolution); });
}

std::size_t FlowLibrary::deleteApplication(const std::string& name) {
    for (const auto& flow : AppArchive::flowsOf(store_.readIndex(), name))
        requireNoClipSave(flow.folderName);
    return mutate([&] {
        std::size_t deleted = 0;
        for (const auto& flow : AppArchive::flowsOf(store_.readIndex(), name)) {
            deleteFlow(flow.folderName);
            ++deleted;
        }
        return deleted;
    });
}

ThumbEdits FlowLibrary::deleteScreens(const std::string& folderName,
                                      const std::vector<std::string>& filenames) {
    requireNoClipSave(folderName, filenames);
    return screensChanged(mutate([&] {
        ThumbEdits edits = store_.deleteScreens(folderName, filenames);
        store_.deleteFlowIfEmpty(folderName);
        return edits;
    }));
}

ThumbEdits FlowLibrary::reorderScreens(const std::string& folderName,
                                       const std::vector<std::string>& order) {
    return screensChanged(mutate([&] { return store_.reorderScreens(folderName, order); }));
}

ThumbEdits FlowLibrary::moveScreens(const std::string& sourceFolder,
                                    const std::vector<std::string>& filenames,
                                    const std::string& targetFolder, std::size_t insertionIndex,
                                    std::optional<std::string>* emptiedFlow) {
    return screensChanged(mutate([&] {
        ThumbEdits edits =
            store_.moveScreens(sourceFolder, filenames, targetFolder, insertionIndex);
        if (sourceFolder == targetFolder)
            return edits;
        if (!emptiedFlow) {
            store_.deleteFlowIfEmpty(sourceFolder);
        } else if (const FlowMeta left = store_.meta(sourceFolder);
                   left.screens.empty() && !left.preserves()) {
            *emptiedFlow = store_.trashFlows({sourceFolder}, true);
        }
        return edits;
    }));
}

std::string FlowLibrary::trashFlows(const std::vector<std::string>& folderNames, bool hidden) {
    for (const auto& folder : folderNames)
        requireNoClipSave(folder);
    return mutate([&] { return store_.trashFlows(folderNames, hidden); });
}

std::vector<std::string> FlowLibrary::restoreFlows(const std::string& entry) {
    return mutate([&] { return store_.restoreFlows(entry); });
}

FlowLibrary::TrashedScreens FlowLibrary::trashScreens(const std::string& folderName,
                                                      const std::vector<std::string>& filenames,
                                                      bool hidden) {
    requireNoClipSave(folderName, filenames);
    const FlowMeta& flow = meta(folderName);
    std::set<std::string> all;
    for (const auto& screen : flow.screens)
        all.insert(screen.filename);
    const bool whole = !flow.preserves() && std::all_of(all.begin(), all.end(), [&](auto& name) {
        return std::find(filenames.begin(), filenames.end(), name) != filenames.end();
    });
    if (whole)
        return {trashFlows({folderName}, hidden), true};
    TrashedScreens trashed;
    screensChanged(mutate([&] {
        auto result = store_.trashScreens(folderName, filenames, hidden);
        trashed.entry = result.entry;
        return result.edits;
    }));
    return trashed;
}

FlowStore::RestoredScreens FlowLibrary::restoreScreens(const std::string& entry) {
    FlowStore::RestoredScreens restored;
    screensChanged(mutate([&] {
        restored = store_.restoreScreens(entry);
        return restored.edits;
    }));
    return restored;
}

void FlowLibrary::purgeTrash(const std::string& entry) {
    mutate([&] { store_.purgeTrash(entry); });
}

void FlowLibrary::emptyTrash() {
    mutate([&] {
        for (const auto& entry : store_.trashEntries())
            if (!entry.hidden)
                store_.purgeTrash(entry.id);
    });
}

ThumbEdits FlowLibrary::duplicateScreens(const std::string& folderName,
                                         const std::vector<std::string>& filenames) {
    return screensChanged(mutate([&] { return store_.duplicateScreens(folderName, filenames); }));
}

std::vector<std::string> FlowLibrary::addScreens(const std::string& folderName,
                                                 const std::vector<std::filesystem::path>& files) {
    return mutate([&] { return store_.addScreens(folderName, files, Date::now()); });
}

std::vector<std::string>
FlowLibrary::appendScreens(const std::string& folderName,
                           const std::vector<FlowStore::NewScreen>& screens,
                           const FlowStore::AppendOptions& options) {
    return mutate([&] { return store_.appendScreens(folderName, screens, options); });
}

std::string FlowLibrary::adoptFlow(const FlowMeta& meta, const std::filesystem::path& from) {
    return mutate([&] { return store_.adopt(meta, from); });
}

void FlowLibrary::screenFileChanged(const std::string& folderName, const std::string& filename) {
    picturesChanged_.insert(folderName);
    // Its text waits to be read again from the new picture; until then search doesn't find it.
    if (auto flow = ocrIndex_.find(folderName);
        flow != ocrIndex_.end() && flow->second.erase(filename) > 0) {
        textSearch_.setFlow(folderName, flow->second);
        emit ocrIndexChanged(QString::fromStdString(folderName));
    }
    textChanged(folderName);
    ThumbEdits edits;
    edits.removals.push_back({folderName, filename});
    emit thumbnailsChanged(edits);
}

ScreenEditRecords FlowLibrary::edits(const std::string& folderName,
                                     const std::string& filename) const {
    return ScreenEdits::edits(store_, folderName, filename);
}

std::filesystem::path FlowLibrary::editingSourceURL(const std::string& folderName,
                                                    const std::string& filename) const {
    return ScreenEdits::editingSource(store_, folderName, filename);
}

bool FlowLibrary::hasOriginal(const std::string& folderName, const std::string& filename) const {
    return ScreenEdits::hasOriginal(store_, folderName, filename);
}

bool FlowLibrary::saveEdits(const std::string& folderName, const std::string& filename,
                            const std::vector<RedactShape>& shapes, const RedactStyle& style,
                            const std::vector<PatchDraft>& drafts, std::string* why) {
    bool saved = true;
    try {
        mutate([&] { ScreenEdits::save(store_, folderName, filename, shapes, style, drafts); });
    } catch (const std::exception& e) {
        qWarning("Saving the edits of %s/%s stopped: %s", folderName.c_str(), filename.c_str(),
                 e.what());
        if (why)
            *why = e.what();
        saved = false;
    }
    screenFileChanged(folderName, filename);
    return saved;
}

bool FlowLibrary::revertScreen(const std::string& folderName, const std::string& filename) {
    if (isSavingClip(folderName, filename)) {
        // The bake would land on the reverted clip and leave it without its original.
        qWarning("Not reverting %s/%s while its zones are being saved", folderName.c_str(),
                 filename.c_str());
        return false;
    }
    bool reverted = true;
    try {
        mutate([&] { ScreenEdits::revert(store_, folderName, filename); });
        if (clipSaves_.discard({folderName, filename}))
            emit clipSaveProblemsChanged();
    } catch (const std::exception& e) {
        qWarning("Reverting %s/%s stopped: %s", folderName.c_str(), filename.c_str(), e.what());
        reverted = false;
    }
    screenFileChanged(folderName, filename);
    return reverted;
}

void FlowLibrary::discardClipSaveProblem(const std::string& folderName,
                                         const std::string& filename) {
    if (clipSaves_.discard({folderName, filename}))
        emit clipSaveProblemsChanged();
}

void FlowLibrary::saveVideoEdits(const std::string& folderName, const std::string& filename,
                                 const std::vector<RedactShape>& shapes, const RedactStyle& style,
                                 std::function<void(double)> progress,
                                 std::function<void(bool)> done) {
    if (shapes.empty()) {
        const bool reverted = revertScreen(folderName, filename);
        if (done)
            done(reverted);
        return;
    }
    std::filesystem::path source;
    std::vector<RedactShape> zones;
    try {
        if (readOnly_)
            throw LibraryError("The library is open read-only: " + *readOnly_);
        if (isSavingClip(folderName, filename))
            throw LibraryError("The clip’s zones are already being saved.");
        zones = zonesOnPicture(shapes);
        requireFinite(style);
        source = ScreenEdits::prepareClip(store_, folderName, filename);
    } catch (const std::exception& e) {
        qWarning("Can't save the clip %s/%s: %s", folderName.c_str(), filename.c_str(), e.what());
        clipSaves_.addProblem({{folderName, filename}, shapes, style, e.what()});
        emit clipSaveProblemsChanged();
        if (done)
            done(false);
        return;
    }
    // The original is opened now: renumbering may give its name to another clip's original
    // before the worker gets to it.
    const int sourceFd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (sourceFd < 0) {
        clipSaves_.addProblem(
            {{folderName, filename}, shapes, style, "The clip’s original copy can’t be read."});
        emit clipSaveProblemsChanged();
        if (done)
            done(false);
        return;
    }
    source = "/proc/self/fd/" + std::to_string(sourceFd);
    std::string flowId;
    int clipFd = -1;
    try {
        flowId = store_.meta(folderName).id;
        clipFd = ::open(store_.screenURL(folderName, filename).c_str(), O_RDONLY | O_CLOEXEC);
    } catch (const std::exception&) {
    }
    if (clipFd < 0) {
        ::close(sourceFd);
        clipSaves_.addProblem({{folderName, filename}, shapes, style, "The clip can’t be read."});
        emit clipSaveProblemsChanged();
        if (done)
            done(false);
        return;
    }
    // Written at the library's root, so that renaming or moving the flow meanwhile can't take
    // the half-made file with it.
    const std::filesystem::path output = root() / (".bake-" + newUUIDString() + ".mov");
    const std::uint64_t save = clipSaves_.begin({folderName, filename});
    clipIdentities_[save] = {flowId, clipFd};
    const std::filesystem::path libraryRoot = root();
    QPointer<FlowLibrary> self(this);
    auto cancel = cancelVideo_;
    videoPool_.start([=, this] {
        const auto report = [&](double fraction) {
            if (progress)
                QMetaObject::invokeMethod(this, [progress, fraction] { progress(fraction); });
        };
        auto failure = VideoRedactor::render(zones, output, source, style, report, cancel.get());
        ::close(sourceFd);
        QMetaObject::invokeMethod(this, [=, this] {
            if (!self || self->root() != libraryRoot) {
                std::error_code ignored;
                std::filesystem::remove(output, ignored);
                if (self && clipIdentities_.contains(save)) {
                    ::close(clipIdentities_[save].fd);
                    clipIdentities_.erase(save);
                }
                if (self)
                    emit notice(tr("The zones of a clip in the library you left were not saved."));
                if (self && done)
                    done(false);
                return;
            }
            const bool saved = finishClipSave(save, output, zones, style, failure);
            if (done)
                done(saved);
        });
    });
}

// Runs on the main thread, where every screen operation runs: the clip is where the save's
// bookkeeping says, and stays there until the new file has taken its place.
// Where the clip a save was made from is now: the screen whose file is the one held open, in
// the flow with the save's id. None when it left the library (deleted, or replaced by another
// flow or clip of the same name).
std::optional<ScreenID> FlowLibrary::clipNow(std::uint64_t save) {
    const auto identity = clipIdentities_.find(save);
    if (identity == clipIdentities_.end())
        return std::nullopt;
    struct stat held {};
    if (::fstat(identity->second.fd, &held) != 0)
        return std::nullopt;
    const auto isHeld = [&](const ScreenID& screen) {
        struct stat now {};
        return ::stat(store_.screenURL(screen.folder, screen.filename).c_str(), &now) == 0 &&
               now.st_dev == held.st_dev && now.st_ino == held.st_ino;
    };
    try {
        if (const auto followed = clipSaves_.screenOf(save); followed && isHeld(*followed))
            return followed;
        const LibraryIndex index = store_.readIndex();
        if (const FlowSummary* flow = index.findId(identity->second.flowId))
            for (const auto& screen : store_.meta(flow->folderName).screens)
                if (ScreenFiles::isClip(screen.filename) &&
                    isHeld({flow->folderName, screen.filename}))
                    return ScreenID{flow->folderName, screen.filename};
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

bool FlowLibrary::finishClipSave(std::uint64_t save, const std::filesystem::path& output,
                                 const std::vector<RedactShape>& shapes, const RedactStyle& style,
                                 std::optional<std::string> failure) {
    const auto where = clipNow(save);
    if (const auto identity = clipIdentities_.find(save); identity != clipIdentities_.end()) {
        ::close(identity->second.fd);
        clipIdentities_.erase(identity);
    }
    clipSaves_.end(save);
    std::error_code ignored;
    if (!where) {
        std::filesystem::remove(output, ignored);
        emit notice(tr("A clip was deleted or replaced while its zones were being saved; they "
                       "were not saved."));
        return false;
    }
    bool clipChanged = false;
    if (!failure) {
        try {
            mutate([&] {
                const FlowMeta current = store_.meta(where->folder);
                if (!current.screen(where->filename))
                    throw LibraryError("The clip is no longer in its flow.");
                // One journaled change: the new clip moves in and the record follows, or the
                // clip as it was is put back, also after a crash.
                FlowStore::Bake bake;
                bake.pictureFile = output;
                bake.zones = shapes;
                bake.style = style;
                try {
                    store_.bakeScreen(where->folder, where->filename, bake);
                } catch (const RollbackError&) {
                    clipChanged = true;
                    throw;
                }
            });
        } catch (const std::exception& e) {
            failure = e.what();
        }
    }
    std::filesystem::remove(output, ignored);
    if (failure) {
        qWarning("The clip %s/%s wasn't saved: %s", where->folder.c_str(), where->filename.c_str(),
                 failure->c_str());
        clipSaves_.addProblem({*where, shapes, style, *failure, clipChanged});
        emit clipSaveProblemsChanged();
        return false;
    }
    if (clipSaves_.discard(*where))
        emit clipSaveProblemsChanged();
    screenFileChanged(where->folder, where->filename);
    return true;
}

std::vector<ScreenComment> FlowLibrary::comments(const std::string& folderName,
                                                 const std::string& filename) const {
    try {
        const FlowMeta m = store_.meta(folderName);
        if (const ScreenRef* screen = m.screen(filename))
            return screen->pins();
    } catch (const std::exception&) {
    }
    return {};
}

bool FlowLibrary::saveComments(const std::string& folderName, const std::string& filename,
                               const std::vector<ScreenComment>& pins, std::string* why) {
    try {
        mutate([&] { store_.setComments(folderName, filename, pins); });
        return true;
    } catch (const std::exception& e) {
        qWarning("Saving the comments of %s/%s failed: %s", folderName.c_str(), filename.c_str(),
                 e.what());
        if (why)
            *why = e.what();
        return false;
    }
}

} // namespace varnel
