// Edit records and comment pins of a screen: one meta.json write each.
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/UndoLog.h"
#include "library/Uuid.h"

#include <algorithm>
#include <set>

namespace varnel {

namespace {

ScreenRef& requireScreen(FlowMeta& m, std::string_view folderName, const std::string& filename) {
    LibraryLayout::validateFileName(filename);
    ScreenRef* screen = m.screen(filename);
    if (!screen)
        throw ScreenNotFoundError(std::string(folderName), filename);
    return *screen;
}

template <typename T> std::optional<std::vector<T>> nonEmpty(std::vector<T> items) {
    if (items.empty())
        return std::nullopt;
    return items;
}

} // namespace

void setScreenEdits(ScreenRef& screen, std::vector<RedactShape> shapes,
                    std::optional<RedactStyle> style, std::vector<RedactPatch> patches) {
    shapes = zonesOnPicture(shapes);
    if (style)
        requireFinite(*style);
    for (auto& patch : patches) {
        const auto rect = clampedToPicture(patch.rect);
        if (!rect)
            throw LibraryError("A clone patch has a position or size that isn’t usable.");
        patch.rect = *rect;
    }
    screen.redactions = nonEmpty(std::move(shapes));
    screen.redactStyle = style;
    screen.patches = nonEmpty(std::move(patches));
}

Json editsJson(const ScreenRef& screen) {
    const Json json = screen.toJson();
    Json edits = Json::object();
    for (const char* key : {"redactions", "redactStyle", "patches"})
        if (json.contains(key))
            edits[key] = json[key];
    return edits;
}

void FlowStore::setEdits(std::string_view folderName, const std::string& filename,
                         std::vector<RedactShape> shapes, std::optional<RedactStyle> style,
                         std::vector<RedactPatch> patches) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    setScreenEdits(screen, std::move(shapes), style, std::move(patches));
    writeMeta(folderName, m);
}

void FlowStore::bakeScreen(std::string_view folderName, const std::string& filename,
                           const Bake& bake) {
    const std::string folder(folderName);
    FlowMeta current = meta(folderName);
    requireScreen(current, folderName, filename);
    const fs::path flowDir = flowURL(folderName);
    const fs::path picture = flowDir / filename;
    const std::string originalName = ScreenFiles::originalFilename(filename);
    const std::string previous = "." + filename + ".before-" + newUUIDString();
    Json created = Json::array();
    for (const auto& [patch, png] : bake.patches) {
        LibraryLayout::validateFileName(patch.file);
        created.push_back(patch.file);
    }
    const bool makesOriginal = bake.original && !FileOps::exists(flowDir / originalName);
    std::vector<RedactPatch> records;
    for (const auto& [patch, png] : bake.patches)
        records.push_back(patch);
    ScreenRef planned = *current.screen(filename);
    setScreenEdits(planned, bake.zones, bake.style, records);
    const fs::path intent = beginIntent(Json{{"operation", "bake"},
                                             {"flows", {folder}},
                                             {"created", {{folder, created}}},
                                             {"bake",
                                              {{"folder", folder},
                                               {"screen", filename},
                                               {"previous", previous},
                                               {"makesOriginal", makesOriginal},
                                               {"record", editsJson(planned)}}}});
    UndoLog undo;
    try {
        if (makesOriginal) {
            ops_.indexWriter(flowDir / originalName, *bake.original);
            undo.add([this, flowDir, originalName] { ops_.folderRemover(flowDir / originalName); });
        }
        for (const auto& [patch, png] : bake.patches) {
            ops_.indexWriter(flowDir / patch.file, png);
            undo.add([this, flowDir, file = patch.file] { ops_.folderRemover(flowDir / file); });
        }
        // The picture as it was stays under a second name until the record says what the new
        // one holds.
        FileOps::linkOrCopy(picture, flowDir / previous);
        undo.add([this, flowDir, previous] { ops_.folderRemover(flowDir / previous); });
        if (bake.pictureFile) {
            std::error_code error;
            fs::rename(*bake.pictureFile, picture, error);
            if (error)
                throw FileError("replace", picture, error);
            FileOps::syncFolder(flowDir);
        } else {
            ops_.indexWriter(picture, bake.picture);
        }
        undo.add(
            [this, flowDir, previous, picture] { putBackPicture(flowDir / previous, picture); });
        setEdits(folderName, filename, bake.zones, bake.style, records);
    } catch (const std::exception& e) {
        undo.undoOrThrow("blur “" + filename + "” of “" + folder + "”", flowDir.string(), e);
        dropIntent(intent);
        throw;
    }
    try {
        ops_.folderRemover(flowDir / previous);
        removePatchesOf(folder, filename);
    } catch (const std::exception&) {
        return; // saved; the note stays and opening the library tidies up
    }
    endIntent(intent);
}

// The picture kept aside takes its place again. Still the same file (a second name of it, the new
// one never written), the second name just goes: a rename between two names of one file does
// nothing.
void FlowStore::putBackPicture(const fs::path& kept, const fs::path& picture) {
    std::error_code error;
    if (fs::equivalent(kept, picture, error)) {
        ops_.folderRemover(kept);
        return;
    }
    fs::rename(kept, picture, error);
    if (error)
        throw FileError("put back", picture, error);
    FileOps::syncFolder(picture.parent_path());
}

// The patch images beside a screen that its record doesn't name.
void FlowStore::removePatchesOf(const std::string& folderName, const std::string& filename) {
    const FlowMeta m = meta(folderName);
    const ScreenRef* screen = m.screen(filename);
    std::set<std::string> kept;
    if (screen)
        for (const auto& patch : screen->patches.value_or(std::vector<RedactPatch>{}))
            kept.insert(patch.file);
    for (const auto& name : FileOps::list(flowURL(folderName)))
        if (ScreenFiles::isPatchOf(name, filename) && !kept.contains(name))
            ops_.folderRemover(flowURL(folderName) / name);
}

void FlowStore::revertEdits(std::string_view folderName, const std::string& filename) {
    const std::string folder(folderName);
    FlowMeta current = meta(folderName);
    requireScreen(current, folderName, filename);
    const fs::path intent = beginIntent(
        Json{{"operation", "revert"}, {"flows", {folder}}, {"revert", {folder, filename}}});
    try {
        setEdits(folderName, filename, {}, std::nullopt, {});
    } catch (...) {
        dropIntent(intent);
        throw;
    }
    // From here on the record says "no zones"; should this stop, opening the library puts the
    // original back, so the picture ends as the record says.
    putBackOriginal(folder, filename);
    try {
        removePatchesOf(folder, filename);
    } catch (const std::exception&) {
        return; // reverted; the note stays and opening the library tidies up
    }
    endIntent(intent);
}

void FlowStore::putBackOriginal(const std::string& folderName, const std::string& filename) {
    const fs::path screen = screenURL(folderName, filename);
    const fs::path original = flowURL(folderName) / ScreenFiles::originalFilename(filename);
    if (!FileOps::exists(original))
        return;
    // One rename puts the untouched file in place of the baked one.
    std::error_code error;
    fs::rename(original, screen, error);
    if (error)
        throw FileError("put back the original of", screen, error);
    FileOps::syncFolder(screen.parent_path());
}

void FlowStore::setComments(std::string_view folderName, const std::string& filename,
                            std::optional<std::vector<ScreenComment>> pins) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    std::vector<ScreenComment> next = pins.value_or(std::vector<ScreenComment>{});
    std::set<std::string> kept;
    for (const auto& pin : next)
        if (pin.postedId)
            kept.insert(*pin.postedId);
    std::vector<std::string> gone;
    for (const auto& pin : screen.pins())
        if (m.isPostedToLinkedFile(pin) && !kept.contains(*pin.postedId))
            gone.push_back(*pin.postedId);
    m.queuePendingDeletes(std::move(gone));
    screen.comments = nonEmpty(std::move(next));
    writeMeta(folderName, m);
    appendToIndex(m.summary(std::string(folderName)));
}

} // namespace varnel

namespace varnel {

void FlowStore::markFigmaPosted(std::string_view folderName, const std::string& filename,
                                const std::string& pinId, const std::string& commentId,
                                const std::string& signature, const std::string& fileKey) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    std::vector<ScreenComment> pins = screen.pins();
    const auto pin = std::find_if(pins.begin(), pins.end(),
                                  [&](const ScreenComment& p) { return p.id == pinId; });
    const bool linked = m.figmaFileKey() == fileKey;
    if (pin == pins.end()) {
        // Deleted while it was being posted; the next run deletes the comment, if it can reach it.
        if (linked)
            m.queuePendingDeletes({commentId});
    } else {
        const bool sameFile = pin->postedFileKey.value_or(fileKey) == fileKey;
        if (pin->postedId && *pin->postedId != commentId && sameFile && linked)
            m.queuePendingDeletes({*pin->postedId});
        pin->postedId = commentId;
        pin->postedSignature = signature;
        pin->postedFileKey = fileKey;
        screen.comments = std::move(pins);
    }
    writeMeta(folderName, m);
}

void FlowStore::clearFigmaPendingDelete(std::string_view folderName, const std::string& commentId) {
    FlowMeta m = meta(folderName);
    if (!m.figmaPendingDeletes)
        return;
    auto& ids = *m.figmaPendingDeletes;
    const auto end = std::remove(ids.begin(), ids.end(), commentId);
    if (end == ids.end())
        return;
    ids.erase(end, ids.end());
    if (ids.empty())
        m.figmaPendingDeletes.reset();
    writeMeta(folderName, m);
}

void FlowStore::queueFigmaDelete(std::string_view folderName, const std::string& commentId,
                                 const std::string& fileKey) {
    FlowMeta m = meta(folderName);
    if (m.figmaFileKey() != fileKey)
        return;
    m.queuePendingDeletes({commentId});
    writeMeta(folderName, m);
}

void FlowStore::removePinDeletedInFigma(std::string_view folderName, const std::string& filename,
                                        const std::string& pinId) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    std::vector<ScreenComment> pins = screen.pins();
    std::erase_if(pins, [&](const ScreenComment& p) { return p.id == pinId; });
    screen.comments = nonEmpty(std::move(pins));
    writeMeta(folderName, m);
}

void FlowStore::saveFigmaThreads(std::string_view folderName,
                                 const std::map<std::string, std::vector<FigmaThread>>& threads,
                                 Date pulledAt, const std::optional<std::set<std::string>>& only) {
    FlowMeta m = meta(folderName);
    for (auto& screen : m.screens) {
        if (only && !only->contains(screen.filename))
            continue;
        const auto found = threads.find(screen.filename);
        screen.figmaThreads = found == threads.end() ? std::nullopt : nonEmpty(found->second);
    }
    m.figmaLastPulledAt = pulledAt;
    writeMeta(folderName, m);
}

void FlowStore::setFigmaFileURL(std::string_view folderName,
                                const std::optional<std::string>& url) {
    FlowMeta m = meta(folderName);
    const auto before = m.figmaFileKey();
    m.figmaFileURL = url;
    const auto after = m.figmaFileKey();
    if (before && before != after) {
        // The posts stay the old file's: each pin remembers it, so that it is unpublished in the
        // new one and published again if the old link comes back. What was pulled or queued for
        // the old file can't be reached through the new link.
        for (auto& screen : m.screens) {
            if (screen.comments)
                for (auto& pin : *screen.comments)
                    if (pin.postedId && !pin.postedFileKey)
                        pin.postedFileKey = before;
            screen.figmaThreads.reset();
        }
        m.figmaPendingDeletes.reset();
        m.figmaLastPulledAt.reset();
    }
    writeMeta(folderName, m);
}

void FlowStore::addFigmaReply(std::string_view folderName, const std::string& filename,
                              const std::string& rootId, const FigmaReply& reply) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    if (!screen.figmaThreads)
        return;
    for (auto& thread : *screen.figmaThreads)
        if (thread.rootId == rootId)
            thread.replies.push_back(reply);
    writeMeta(folderName, m);
}

void FlowStore::removeFigmaThread(std::string_view folderName, const std::string& filename,
                                  const std::string& rootId) {
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    if (screen.figmaThreads) {
        std::erase_if(*screen.figmaThreads,
                      [&](const FigmaThread& t) { return t.rootId == rootId; });
        if (screen.figmaThreads->empty())
            screen.figmaThreads.reset();
    }
    std::vector<ScreenComment> pins = screen.pins();
    std::erase_if(pins, [&](const ScreenComment& p) { return p.postedId == rootId; });
    screen.comments = nonEmpty(std::move(pins));
    writeMeta(folderName, m);
}

FigmaPublishPersistence FlowStore::figmaPersistence(const std::string& folderName) {
    FigmaPublishPersistence p;
    p.markPosted = [this, folderName](const std::string& file, const std::string& pin,
                                      const std::string& id, const std::string& signature,
                                      const std::string& fileKey) {
        markFigmaPosted(folderName, file, pin, id, signature, fileKey);
    };
    p.clearPendingDelete = [this, folderName](const std::string& id) {
        clearFigmaPendingDelete(folderName, id);
    };
    p.removeLocalPin = [this, folderName](const std::string& file, const std::string& pin) {
        removePinDeletedInFigma(folderName, file, pin);
    };
    p.saveThreads = [this, folderName](const FigmaPublishPersistence::Threads& threads) {
        saveFigmaThreads(folderName, threads, Date::now());
    };
    return p;
}

} // namespace varnel
