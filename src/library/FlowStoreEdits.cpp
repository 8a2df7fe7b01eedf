// Edit records and comment pins of a screen: one meta.json write each.
#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/LibraryLayout.h"

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

void FlowStore::setEdits(std::string_view folderName, const std::string& filename,
                         std::vector<RedactShape> shapes, std::optional<RedactStyle> style,
                         std::vector<RedactPatch> patches) {
    shapes = zonesOnPicture(shapes);
    if (style)
        requireFinite(*style);
    for (auto& patch : patches) {
        const auto rect = clampedToPicture(patch.rect);
        if (!rect)
            throw LibraryError("A clone patch has a position or size that isn’t usable.");
        patch.rect = *rect;
    }
    FlowMeta m = meta(folderName);
    ScreenRef& screen = requireScreen(m, folderName, filename);
    screen.redactions = nonEmpty(std::move(shapes));
    screen.redactStyle = style;
    screen.patches = nonEmpty(std::move(patches));
    writeMeta(folderName, m);
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
