#include "capture/SessionController.h"

#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Slug.h"
#include "library/Text.h"
#include "library/Uuid.h"
#include "media/PngSize.h"

#include <algorithm>
#include <set>

namespace varnel {

namespace {

constexpr std::size_t kRecentCount = 8;

std::string extensionOrPng(const std::string& filename) {
    std::string ext = ScreenFiles::extension(filename);
    return ext.empty() ? "png" : ext;
}

} // namespace

SessionController::SessionController(FlowStore& store, FrameSource capture, Clock now,
                                     QObject* parent)
    : QObject(parent), store_(store), capture_(std::move(capture)), now_(std::move(now)) {}

void SessionController::start(const std::optional<std::string>& appendingTo) {
    if (isRecording_)
        return;
    const std::string id = newUUIDString();
    const auto staging = store_.root() / LibraryLayout::kStagingFolder / id;
    if (FileOps::exists(staging))
        store_.operations().folderRemover(staging);
    store_.operations().directoryCreator(staging, true);

    sessionID_ = id;
    stagingDir_ = staging;
    startDate_ = now_();
    pending_.clear();
    nextIndex_ = 1;
    startedAt_ = startDate_;
    lastWidth_ = lastHeight_ = 0;
    isRecording_ = true;
    appendTarget_ = appendingTo;
    publishLists();
}

bool SessionController::add(CaptureSource source) {
    addFailure_.clear();
    addNote_.clear();
    if (!isRecording_ || !stagingDir_)
        return false;
    const auto frame = capture_();
    if (!frame) {
        addFailure_ = kNoPicture;
        return false;
    }
    if (auto problem = oversizeProblem("", frame->width, frame->height)) {
        addFailure_ = *problem;
        return false;
    }
    std::string filename = ScreenFiles::capturedName(nextIndex_++, "png");
    try {
        FileOps::writeAtomically(*stagingDir_ / filename, frame->pngData);
    } catch (const FileError& e) {
        addFailure_ = "The screen couldn't be saved: " + (e.code() == std::errc::no_space_on_device
                                                              ? std::string("the disk is full.")
                                                          : e.code() ? e.code().message() + "."
                                                                     : std::string(e.what()));
        return false;
    } catch (const LibraryError& e) {
        addFailure_ = std::string("The screen couldn't be saved: ") + e.what();
        return false;
    }
    lastWidth_ = frame->width;
    lastHeight_ = frame->height;
    addNote_ = frame->note;
    appendPending(std::move(filename), source);
    return true;
}

std::optional<std::filesystem::path> SessionController::beginVideo(int width, int height) {
    if (!isRecording_ || !stagingDir_ || pendingVideoFilename_)
        return std::nullopt;
    if (width >= 1) {
        lastWidth_ = width;
        lastHeight_ = height;
    }
    pendingVideoFilename_ = ScreenFiles::capturedName(nextIndex_++, "mov");
    isRecordingVideo_ = true;
    emit changed();
    return *stagingDir_ / *pendingVideoFilename_;
}

bool SessionController::commitVideo() {
    if (!isRecording_ || !stagingDir_ || !pendingVideoFilename_)
        return false;
    std::string filename = std::move(*pendingVideoFilename_);
    pendingVideoFilename_.reset();
    isRecordingVideo_ = false;
    if (!FileOps::exists(*stagingDir_ / filename)) {
        emit changed();
        return false;
    }
    appendPending(std::move(filename), CaptureSource::manual);
    return true;
}

bool SessionController::deleteStaged(const std::string& filename) {
    const auto it = std::find_if(pending_.begin(), pending_.end(),
                                 [&](const PendingScreen& p) { return p.filename == filename; });
    if (it == pending_.end() || !stagingDir_)
        return false;
    try {
        FileOps::remove(*stagingDir_ / filename);
    } catch (const LibraryError&) {
        return false;
    }
    pending_.erase(it);
    publishLists();
    return true;
}

std::optional<std::filesystem::path> SessionController::stop(const std::string& application,
                                                             const std::string& name,
                                                             const std::string& categoryL1,
                                                             const std::string& deviceName) {
    if (!stagingDir_ || !sessionID_) {
        endSession();
        return std::nullopt;
    }
    if (pending_.empty()) {
        removeStagingFolder();
        endSession();
        return std::nullopt;
    }
    try {
        auto saved = appendTarget_ ? appendToFlow(*appendTarget_)
                                   : saveNewFlow(application, name, categoryL1, deviceName);
        endSession();
        return saved;
    } catch (...) {
        endSession();
        throw;
    }
}

std::optional<std::filesystem::path> SessionController::saveNewFlow(const std::string& application,
                                                                    const std::string& name,
                                                                    const std::string& categoryL1,
                                                                    const std::string& deviceName) {
    FlowMeta meta;
    meta.id = *sessionID_;
    meta.name = Text::nonBlank(name).value_or(localTimestamp(startDate_));
    meta.application = Text::nonBlank(application);
    meta.categoryL1 = Text::nonBlank(categoryL1);
    meta.date = startDate_;
    meta.deviceName = Text::nonBlank(deviceName);
    meta.width = lastWidth_;
    meta.height = lastHeight_;

    // The gaps of dropped screens close inside the capture folder; numbers only shrink, so no
    // name is taken. Then the store brings the folder in as one journaled change: stopped at
    // any step, the capture is either the listed flow or still a capture, recovered on opening.
    clearStagingLeftovers();
    long long number = 1;
    for (const auto& screen : pending_) {
        ScreenRef ref;
        ref.filename = ScreenFiles::capturedName(number++, extensionOrPng(screen.filename));
        ref.capturedAt = screen.capturedAt;
        ref.source = screen.source;
        if (ref.filename != screen.filename)
            store_.operations().folderMover(*stagingDir_ / screen.filename,
                                            *stagingDir_ / ref.filename);
        meta.screens.push_back(std::move(ref));
    }
    const std::string folderName = store_.adopt(meta, *stagingDir_);
    removeStagingFolder();
    return store_.flowURL(folderName);
}

std::optional<std::filesystem::path>
SessionController::appendToFlow(const std::string& folderName) {
    std::vector<FlowStore::NewScreen> screens;
    for (const auto& screen : pending_) {
        ScreenRef ref;
        ref.capturedAt = screen.capturedAt;
        ref.source = screen.source;
        screens.push_back({*stagingDir_ / screen.filename, std::move(ref)});
    }
    FlowStore::AppendOptions options;
    options.link = true;
    options.consumedStaging = *stagingDir_;
    if (lastWidth_ >= 1)
        options.size = std::pair{lastWidth_, lastHeight_};
    store_.appendScreens(folderName, screens, options);
    return store_.flowURL(folderName);
}

// What isn't a staged screen (a write cut short) must not come into the flow.
void SessionController::clearStagingLeftovers() {
    std::set<std::string> staged;
    for (const auto& screen : pending_)
        staged.insert(screen.filename);
    for (const auto& name : FileOps::list(*stagingDir_))
        if (!staged.contains(name))
            store_.operations().folderRemover(*stagingDir_ / name);
}

void SessionController::cancel() {
    if (!isRecording_)
        return;
    pendingVideoFilename_.reset();
    removeStagingFolder();
    endSession();
    lastWidth_ = lastHeight_ = 0;
}

void SessionController::appendPending(std::string filename, CaptureSource source) {
    pending_.push_back(PendingScreen{std::move(filename), now_(), source});
    publishLists();
}

void SessionController::publishLists() {
    staged_.clear();
    for (const auto& screen : pending_)
        staged_.push_back(*stagingDir_ / screen.filename);
    const std::size_t first = staged_.size() > kRecentCount ? staged_.size() - kRecentCount : 0;
    recent_.assign(staged_.begin() + static_cast<std::ptrdiff_t>(first), staged_.end());
    emit changed();
}

void SessionController::removeStagingFolder() {
    if (!stagingDir_)
        return;
    try {
        store_.operations().folderRemover(*stagingDir_);
    } catch (const std::exception&) {
    }
}

void SessionController::endSession() {
    isRecording_ = false;
    isRecordingVideo_ = false;
    sessionID_.reset();
    appendTarget_.reset();
    pendingVideoFilename_.reset();
    stagingDir_.reset();
    pending_.clear();
    recent_.clear();
    staged_.clear();
    startedAt_.reset();
    emit changed();
}

} // namespace varnel
