#pragma once

#include "editing/RedactRecords.h"
#include "library/FlowStore.h"
#include "library/NormalizedRect.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// A clone patch as the editor hands it to a save: pixels in memory and where they go.
struct PatchDraft {
    cv::Mat image;
    NormalizedRect rect;
};

// A screen's edit records as meta.json holds them.
struct ScreenEditRecords {
    std::vector<RedactShape> shapes;
    std::optional<RedactStyle> style;
    std::vector<RedactPatch> patches;
};

// Zones and patches of one screen, kept twice: as records in meta.json and baked into the
// screen file. The untouched file is kept beside it as "<name>.orig.<ext>" from the first save
// on, and every bake starts again from it. Failing steps throw; because each save rebuilds the
// screen from the original copy, the next save or a revert repairs a half-done one.
namespace ScreenEdits {

// Empty records for a missing flow, screen or key.
ScreenEditRecords edits(const FlowStore& store, std::string_view folder,
                        const std::string& filename);
// The original copy when there is one, else the screen file: what the editor shows and samples.
std::filesystem::path editingSource(const FlowStore& store, std::string_view folder,
                                    const std::string& filename);
bool hasOriginal(const FlowStore& store, std::string_view folder, const std::string& filename);

// The screen's stored patches as drafts, to be kept by a save; unreadable patch files are left
// out.
std::vector<PatchDraft> patchDrafts(const FlowStore& store, std::string_view folder,
                                    const std::string& filename);

// Bakes a still's patches (first) and zones into its file and records them. The picture is
// decoded and baked before any file is written; the original copy and new patch files are
// written durably before the screen is replaced, and old patch files go only once the records
// are written. A failure throws with the screen file as it was.
void save(FlowStore& store, std::string_view folder, const std::string& filename,
          const std::vector<RedactShape>& shapes, const RedactStyle& style,
          const std::vector<PatchDraft>& drafts);

// Throws the edits away: patch files removed, original copy back under the screen's name.
void revert(FlowStore& store, std::string_view folder, const std::string& filename);

// A clip's save in its three steps, for callers that bake elsewhere. `prepareClip` keeps the
// original copy, written durably, and returns it: the file to bake from. Without it there is no
// bake, so a baked clip can always be reverted.
std::filesystem::path prepareClip(FlowStore& store, std::string_view folder,
                                  const std::string& filename);
void recordClip(FlowStore& store, std::string_view folder, const std::string& filename,
                const std::vector<RedactShape>& shapes, const RedactStyle& style);
// All three on the caller's thread; with no zones this is a revert. False when the bake failed.
bool saveClip(FlowStore& store, std::string_view folder, const std::string& filename,
              const std::vector<RedactShape>& shapes, const RedactStyle& style,
              const std::function<void(double)>& progress = {},
              const std::atomic<bool>* cancel = nullptr, std::string* why = nullptr);

} // namespace ScreenEdits
} // namespace varnel
