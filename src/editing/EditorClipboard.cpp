#include "editing/EditorClipboard.h"

namespace varnel {

EditorClipboard& EditorClipboard::shared() {
    static EditorClipboard clipboard;
    return clipboard;
}

void EditorClipboard::copyZones(const std::vector<RedactShape>& shapes,
                                const std::filesystem::path& source) {
    if (shapes.empty())
        return;
    std::error_code error;
    auto standardized = std::filesystem::weakly_canonical(source, error);
    zones_ = ZoneItem{shapes, error ? source.lexically_normal() : standardized};
    lastCopiedKind_ = ItemKind::zones;
}

void EditorClipboard::copyPatch(cv::Mat image, const NormalizedRect& rect) {
    if (image.empty())
        return;
    patch_ = PatchItem{std::move(image), rect};
    lastCopiedKind_ = ItemKind::patch;
}

void EditorClipboard::clear() {
    zones_.reset();
    patch_.reset();
    lastCopiedKind_.reset();
}

} // namespace varnel
