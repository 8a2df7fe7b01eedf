#include "editing/ScreenEdits.h"

#include "editing/ImagePatcher.h"
#include "editing/ImageRedactor.h"
#include "editing/VideoRedactor.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"

#include <set>

namespace varnel::ScreenEdits {

namespace fs = std::filesystem;

namespace {

fs::path originalURL(const FlowStore& store, std::string_view folder, const std::string& filename) {
    return store.screenURL(folder, ScreenFiles::originalFilename(filename));
}

// Patch files named in meta.json are removed only when they are plain files of the flow.
void removePatchFiles(const FlowStore& store, std::string_view folder,
                      const std::vector<RedactPatch>& patches, const std::set<std::string>& keep) {
    for (const auto& patch : patches) {
        if (keep.contains(patch.file) || !LibraryLayout::isSafeFileName(patch.file))
            continue;
        FileOps::remove(store.screenURL(folder, patch.file));
    }
}

std::vector<RedactPatch> writeDrafts(const FlowStore& store, std::string_view folder,
                                     const std::string& filename,
                                     const std::vector<PatchDraft>& drafts) {
    std::vector<RedactPatch> patches;
    for (const auto& draft : drafts) {
        RedactPatch patch;
        patch.id = newUUIDString();
        patch.file = ScreenFiles::stem(filename) + ".patch-" + newUUIDString() + ".png";
        patch.rect = draft.rect;
        if (draft.image.empty() ||
            !ImageRedactor::writePng(draft.image, store.screenURL(folder, patch.file)))
            continue;
        patches.push_back(std::move(patch));
    }
    return patches;
}

// The screen rebuilt from its original: patches drawn, then zones frosted over them, written
// once. Without edits the original's bytes come back unchanged.
void bake(const FlowStore& store, std::string_view folder, const fs::path& screen,
          const fs::path& original, const std::vector<RedactShape>& shapes,
          const RedactStyle& style, const std::vector<RedactPatch>& patches) {
    cv::Mat pixels;
    if (!shapes.empty() || !patches.empty())
        pixels = ImageRedactor::load(original);
    if (pixels.empty()) {
        FileOps::writeAtomically(screen, FileOps::read(original));
        return;
    }
    for (const auto& patch : patches)
        ImagePatcher::draw(ImageRedactor::load(store.screenURL(folder, patch.file)), patch.rect,
                           pixels);
    if (!shapes.empty() && pixels.cols > 1 && pixels.rows > 1)
        ImageRedactor::applyToPixels(shapes, pixels, style);
    if (!ImageRedactor::writePng(pixels, screen))
        throw FileError("write the edited screen", screen, "the picture could not be encoded");
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

void save(FlowStore& store, std::string_view folder, const std::string& filename,
          const std::vector<RedactShape>& shapes, const RedactStyle& style,
          const std::vector<PatchDraft>& drafts) {
    const fs::path screen = store.screenURL(folder, filename);
    const fs::path original = originalURL(store, folder, filename);
    if (!FileOps::exists(original))
        FileOps::copy(screen, original);
    const std::vector<RedactPatch> patches = writeDrafts(store, folder, filename, drafts);
    const FlowMeta meta = store.meta(folder);
    if (const ScreenRef* entry = meta.screen(filename)) {
        std::set<std::string> keep;
        for (const auto& patch : patches)
            keep.insert(patch.file);
        removePatchFiles(store, folder, entry->patches.value_or(std::vector<RedactPatch>{}), keep);
    }
    bake(store, folder, screen, original, shapes, style, patches);
    store.setEdits(folder, filename, shapes, style, patches);
}

void revert(FlowStore& store, std::string_view folder, const std::string& filename) {
    const FlowMeta meta = store.meta(folder);
    if (const ScreenRef* entry = meta.screen(filename))
        removePatchFiles(store, folder, entry->patches.value_or(std::vector<RedactPatch>{}), {});
    const fs::path screen = store.screenURL(folder, filename);
    const fs::path original = originalURL(store, folder, filename);
    if (FileOps::exists(original)) {
        FileOps::remove(screen);
        FileOps::move(original, screen);
    }
    store.setEdits(folder, filename, {}, std::nullopt, {});
}

fs::path prepareClip(FlowStore& store, std::string_view folder, const std::string& filename) {
    const fs::path original = originalURL(store, folder, filename);
    if (!FileOps::exists(original)) {
        try {
            FileOps::copy(store.screenURL(folder, filename), original);
        } catch (const std::exception&) {
            // Baking from the clip itself still works; only a later revert has nothing to use.
            return store.screenURL(folder, filename);
        }
    }
    return original;
}

void recordClip(FlowStore& store, std::string_view folder, const std::string& filename,
                const std::vector<RedactShape>& shapes, const RedactStyle& style) {
    store.setEdits(folder, filename, shapes, style, {});
}

bool saveClip(FlowStore& store, std::string_view folder, const std::string& filename,
              const std::vector<RedactShape>& shapes, const RedactStyle& style,
              const std::function<void(double)>& progress, const std::atomic<bool>* cancel) {
    if (shapes.empty()) {
        revert(store, folder, filename);
        return true;
    }
    const fs::path source = prepareClip(store, folder, filename);
    if (!VideoRedactor::bake(shapes, store.screenURL(folder, filename), source, style, progress,
                             cancel))
        return false;
    recordClip(store, folder, filename, shapes, style);
    return true;
}

} // namespace varnel::ScreenEdits
