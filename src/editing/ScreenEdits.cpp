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

#include <set>

namespace varnel::ScreenEdits {

namespace fs = std::filesystem;

namespace {

fs::path originalURL(const FlowStore& store, std::string_view folder, const std::string& filename) {
    return store.screenURL(folder, ScreenFiles::originalFilename(filename));
}

// Only files that reading accepted as this screen's patch files are ever removed; a failure
// leaves an unlisted file behind, which loses nothing.
void removePatchFiles(const FlowStore& store, std::string_view folder,
                      const std::vector<RedactPatch>& patches, const std::set<std::string>& keep) {
    for (const auto& patch : patches) {
        if (keep.contains(patch.file) || !ScreenFiles::isPatchFileName(patch.file) ||
            !LibraryLayout::isSafeFileName(patch.file))
            continue;
        try {
            FileOps::remove(store.screenURL(folder, patch.file));
        } catch (const std::exception&) {
        }
    }
}

std::vector<RedactPatch> storedPatches(const FlowMeta& meta, const std::string& filename) {
    const ScreenRef* entry = meta.screen(filename);
    return entry ? entry->patches.value_or(std::vector<RedactPatch>{}) : std::vector<RedactPatch>{};
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

// Files written by a save that did not complete are taken back, newest first.
struct Written {
    std::vector<fs::path> files;
    ~Written() {
        for (auto it = files.rbegin(); it != files.rend(); ++it) {
            std::error_code ignored;
            fs::remove(*it, ignored);
        }
    }
    void keep() { files.clear(); }
};

std::vector<RedactPatch> writeDrafts(const FlowStore& store, std::string_view folder,
                                     const std::string& filename,
                                     const std::vector<PatchDraft>& drafts, Written& written) {
    std::vector<RedactPatch> patches;
    for (const auto& draft : drafts) {
        const auto rect = clampedToPicture(draft.rect);
        if (draft.image.empty() || !rect)
            continue;
        RedactPatch patch{newUUIDString(), ScreenFiles::newPatchName(filename), *rect};
        const std::string png = ImageRedactor::encodePng(draft.image);
        if (png.empty())
            throw LibraryError("A clone patch of “" + filename + "” couldn’t be encoded.");
        const fs::path file = store.screenURL(folder, patch.file);
        FileOps::writeAtomically(file, png);
        written.files.push_back(file);
        patches.push_back(std::move(patch));
    }
    return patches;
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

// Thrown when a save could not put the screen file back as it was.
class ScreenLeftChanged : public LibraryError {
public:
    using LibraryError::LibraryError;
};

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
    const std::string baked = bakedBytes(filename, untouched, zones, style, drafts);

    Written written;
    if (!hadOriginal) {
        FileOps::writeAtomically(original, untouched);
        written.files.push_back(original);
    }
    const std::vector<RedactPatch> patches = writeDrafts(store, folder, filename, drafts, written);
    FileOps::writeAtomically(screen, baked);
    try {
        store.setEdits(folder, filename, zones, style, patches);
    } catch (const std::exception& e) {
        try {
            FileOps::writeAtomically(screen, current);
        } catch (const std::exception& back) {
            written.keep(); // the original copy is all that is left of the untouched picture
            throw ScreenLeftChanged(std::string(e.what()) +
                                    " The screen file could not be put back "
                                    "as it was (" +
                                    back.what() +
                                    "); its untouched picture is kept beside it as “" +
                                    original.filename().string() + "”.");
        }
        throw;
    }
    written.keep();
    std::set<std::string> keep;
    for (const auto& patch : patches)
        keep.insert(patch.file);
    removePatchFiles(store, folder, storedPatches(meta, filename), keep);
}

} // namespace

void save(FlowStore& store, std::string_view folder, const std::string& filename,
          const std::vector<RedactShape>& shapes, const RedactStyle& style,
          const std::vector<PatchDraft>& drafts) {
    try {
        saveStill(store, folder, filename, shapes, style, drafts);
    } catch (const ScreenLeftChanged&) {
        throw;
    } catch (const std::exception& e) {
        throw LibraryError(std::string(e.what()) + " The screen file is as it was before.");
    }
}

void revert(FlowStore& store, std::string_view folder, const std::string& filename) {
    const FlowMeta meta = store.meta(folder);
    requireEntry(meta, folder, filename);
    const fs::path screen = store.screenURL(folder, filename);
    const fs::path original = originalURL(store, folder, filename);
    if (FileOps::exists(original)) {
        // One rename puts the untouched file in place of the baked one.
        std::error_code error;
        fs::rename(original, screen, error);
        if (error)
            throw FileError("put back the original of", screen, error);
        FileOps::syncFolder(screen.parent_path());
    }
    store.setEdits(folder, filename, {}, std::nullopt, {});
    removePatchFiles(store, folder, storedPatches(meta, filename), {});
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
    if (!VideoRedactor::bake(zones, store.screenURL(folder, filename), source, style, progress,
                             cancel, why))
        return false;
    recordClip(store, folder, filename, zones, style);
    return true;
}

} // namespace varnel::ScreenEdits
