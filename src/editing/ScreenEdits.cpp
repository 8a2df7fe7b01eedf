#include "editing/ScreenEdits.h"

#include "editing/ImagePatcher.h"
#include "editing/ImageRedactor.h"
#include "editing/VideoRedactor.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"
#include "media/PngImage.h"
#include "text/HiddenText.h"
#include "text/OCRIndex.h"

#include <set>

namespace varnel::ScreenEdits {

namespace fs = std::filesystem;

namespace {

fs::path originalURL(const FlowStore& store, std::string_view folder, const std::string& filename) {
    return store.screenURL(folder, ScreenFiles::originalFilename(filename));
}

// The screen's text goes before its picture changes: what the old and the new zones and patches
// cover is dropped, and the rest is read again from the new picture. A sidecar that can't be
// written stops the change, so no blur is ever reported over words that stay searchable.
void forgetText(const FlowStore& store, std::string_view folder, const ScreenRef& screen,
                std::vector<NormalizedRect> covered) {
    if (ScreenFiles::isClip(screen.filename))
        return;
    for (const auto& area : HiddenText::coveredAreas(screen))
        covered.push_back(area);
    OCRIndex::forgetCovered(store, folder, screen.filename, covered);
}

const ScreenRef& requireEntry(const FlowMeta& meta, std::string_view folder,
                              const std::string& filename) {
    LibraryLayout::validateFileName(filename);
    const ScreenRef* entry = meta.screen(filename);
    if (!entry)
        throw ScreenNotFoundError(std::string(folder), filename);
    return *entry;
}

// The screen rebuilt from its untouched picture: patches drawn, then zones frosted over them.
// Throws, touching nothing, when the picture can't be decoded.
std::string bakedBytes(const std::string& filename, const std::string& untouched,
                       const std::vector<RedactShape>& shapes, const RedactStyle& style,
                       const std::vector<PatchDraft>& drafts) {
    if (shapes.empty() && drafts.empty())
        return untouched;
    auto decoded = PngImage::decode(untouched);
    if (auto* why = std::get_if<std::string>(&decoded))
        throw LibraryError("The picture of “" + filename + "” can’t be decoded (" + *why +
                           "), so nothing could be blurred or patched.");
    PngImage& image = std::get<PngImage>(decoded);
    for (const auto& draft : drafts)
        ImagePatcher::draw(draft.image, draft.rect, image.pixels);
    if (!shapes.empty() && image.pixels.cols > 1 && image.pixels.rows > 1 &&
        !ImageRedactor::applyToPixels(shapes, image.pixels, style))
        throw LibraryError("The zones of “" + filename + "” couldn’t be drawn.");
    std::string baked = image.encode();
    if (baked.empty())
        throw LibraryError("The edited picture of “" + filename + "” couldn’t be encoded.");
    return baked;
}

} // namespace

ScreenEditRecords edits(const FlowStore& store, std::string_view folder,
                        const std::string& filename) {
    try {
        const FlowMeta meta = store.meta(folder);
        const ScreenRef* screen = meta.screen(filename);
        if (!screen)
            return {};
        return {screen->redactions.value_or(std::vector<RedactShape>{}), screen->redactStyle,
                screen->patches.value_or(std::vector<RedactPatch>{})};
    } catch (const std::exception&) {
        return {};
    }
}

fs::path editingSource(const FlowStore& store, std::string_view folder,
                       const std::string& filename) {
    const fs::path original = originalURL(store, folder, filename);
    return FileOps::exists(original) ? original : store.screenURL(folder, filename);
}

bool hasOriginal(const FlowStore& store, std::string_view folder, const std::string& filename) {
    return FileOps::exists(originalURL(store, folder, filename));
}

std::vector<PatchDraft> patchDrafts(const FlowStore& store, std::string_view folder,
                                    const std::string& filename) {
    std::vector<PatchDraft> drafts;
    for (const auto& patch : edits(store, folder, filename).patches) {
        if (!LibraryLayout::isSafeFileName(patch.file))
            continue;
        cv::Mat image = ImageRedactor::load(store.screenURL(folder, patch.file));
        if (!image.empty())
            drafts.push_back({std::move(image), patch.rect});
    }
    return drafts;
}

namespace {

void saveStill(FlowStore& store, std::string_view folder, const std::string& filename,
               const std::vector<RedactShape>& shapes, const RedactStyle& style,
               const std::vector<PatchDraft>& drafts) {
    const std::vector<RedactShape> zones = zonesOnPicture(shapes);
    requireFinite(style);
    const FlowMeta meta = store.meta(folder);
    requireEntry(meta, folder, filename);
    const fs::path screen = store.screenURL(folder, filename);
    const fs::path original = originalURL(store, folder, filename);
    const bool hadOriginal = FileOps::exists(original);
    const std::string current = FileOps::read(screen);
    const std::string untouched = hadOriginal ? FileOps::read(original) : current;
    // Everything is worked out before the first file is written.
    FlowStore::Bake bake;
    bake.picture = bakedBytes(filename, untouched, zones, style, drafts);
    if (!hadOriginal)
        bake.original = untouched;
    bake.zones = zones;
    bake.style = style;
    std::vector<NormalizedRect> covered;
    for (const auto& zone : zones)
        covered.push_back(zone.rect);
    for (const auto& draft : drafts) {
        const auto rect = clampedToPicture(draft.rect);
        if (draft.image.empty() || !rect)
            continue;
        RedactPatch patch{newUUIDString(), ScreenFiles::newPatchName(filename), *rect};
        std::string png = ImageRedactor::encodePng(draft.image);
        if (png.empty())
            throw LibraryError("A clone patch of “" + filename + "” couldn’t be encoded.");
        covered.push_back(patch.rect);
        bake.patches.emplace_back(std::move(patch), std::move(png));
    }
    forgetText(store, folder, *meta.screen(filename), covered);
    store.bakeScreen(folder, filename, bake);
}

} // namespace

void save(FlowStore& store, std::string_view folder, const std::string& filename,
          const std::vector<RedactShape>& shapes, const RedactStyle& style,
          const std::vector<PatchDraft>& drafts) {
    try {
        saveStill(store, folder, filename, shapes, style, drafts);
    } catch (const RollbackError&) {
        throw; // it says where the picture as it was is kept
    } catch (const std::exception& e) {
        throw LibraryError(std::string(e.what()) + " The screen file is as it was before.");
    }
}

void revert(FlowStore& store, std::string_view folder, const std::string& filename) {
    const FlowMeta meta = store.meta(folder);
    requireEntry(meta, folder, filename);
    forgetText(store, folder, *meta.screen(filename), {});
    store.revertEdits(folder, filename);
}

fs::path prepareClip(FlowStore& store, std::string_view folder, const std::string& filename) {
    requireEntry(store.meta(folder), folder, filename);
    const fs::path original = originalURL(store, folder, filename);
    // Without its untouched original a baked clip could never be reverted: no original, no bake.
    if (!FileOps::exists(original))
        FileOps::copyDurably(store.screenURL(folder, filename), original);
    return original;
}

void recordClip(FlowStore& store, std::string_view folder, const std::string& filename,
                const std::vector<RedactShape>& shapes, const RedactStyle& style) {
    store.setEdits(folder, filename, shapes, style, {});
}

bool saveClip(FlowStore& store, std::string_view folder, const std::string& filename,
              const std::vector<RedactShape>& shapes, const RedactStyle& style,
              const std::function<void(double)>& progress, const std::atomic<bool>* cancel,
              std::string* why) {
    const std::vector<RedactShape> zones = zonesOnPicture(shapes);
    requireFinite(style);
    if (zones.empty()) {
        revert(store, folder, filename);
        return true;
    }
    const fs::path source = prepareClip(store, folder, filename);
    // Rendered beside the clip, then moved in with its record as one journaled change.
    const fs::path rendered = store.flowURL(folder) / (".bake-" + newUUIDString() + ".mov");
    if (auto failure = VideoRedactor::render(zones, rendered, source, style, progress, cancel)) {
        if (why)
            *why = *failure;
        return false;
    }
    FlowStore::Bake bake;
    bake.pictureFile = rendered;
    bake.zones = zones;
    bake.style = style;
    try {
        store.bakeScreen(folder, filename, bake);
    } catch (...) {
        std::error_code ignored;
        fs::remove(rendered, ignored);
        throw;
    }
    if (progress)
        progress(1.0);
    return true;
}

} // namespace varnel::ScreenEdits
