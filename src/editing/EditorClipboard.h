#pragma once

#include "editing/RedactRecords.h"
#include "library/NormalizedRect.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <optional>
#include <vector>

namespace varnel {

// Zones and pixels copied in the editor, for pasting onto this or another screen. Lives in
// memory only, on the main thread; it is not the system clipboard.
class EditorClipboard {
public:
    enum class ItemKind { zones, patch };
    struct ZoneItem {
        std::vector<RedactShape> shapes;
        std::filesystem::path sourceURL;
    };
    struct PatchItem {
        cv::Mat image;
        NormalizedRect rect;
    };

    static EditorClipboard& shared();
    // The location as the clipboard keeps it: links resolved, dots removed.
    static std::filesystem::path standardized(const std::filesystem::path& file);

    const std::optional<ZoneItem>& zones() const { return zones_; }
    const std::optional<PatchItem>& patch() const { return patch_; }
    const std::optional<ItemKind>& lastCopiedKind() const { return lastCopiedKind_; }

    // Nothing changes for an empty list.
    void copyZones(const std::vector<RedactShape>& shapes, const std::filesystem::path& source);
    void copyPatch(cv::Mat image, const NormalizedRect& rect);
    void clear();

private:
    std::optional<ZoneItem> zones_;
    std::optional<PatchItem> patch_;
    std::optional<ItemKind> lastCopiedKind_;
};

} // namespace varnel
