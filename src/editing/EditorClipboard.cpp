#include "editing/EditorClipboard.h"

namespace varnel {

EditorClipboard& EditorClipboard::shared() {
    static EditorClipboard clipboard;
    return clipboard;
}

std::filesystem::path EditorClipboard::standardized(const std::filesystem::path& file) {
    std::error_code error;
    auto canonical = std::filesystem::weakly_canonical(file, error);
    return error ? file.lexically_normal() : canonical;
}

void EditorClipboard::copyZones(const std::vector<RedactShape>& shapes,
                                const std::filesystem::path& source) {
    if (shapes.empty())
        return;
    zones_ = ZoneItem{shapes, standardized(source)};
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
