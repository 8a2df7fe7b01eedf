#pragma once

#include "ui/GalleryContent.h"

#include <QPoint>
#include <QRect>

#include <optional>
#include <utility>
#include <vector>

namespace varnel {

// Sizes of the gallery's parts, in device-independent pixels.
struct GalleryMetrics {
    int thumbHeight = 220;
    int margin = 28;
    int spacing = 14;
    int caption = 22;
    int applicationHeading = 60;
    int categoryHeading = 42;
    int bandHeader = 50;
    int bandBottom = 22;

    // Phone screens are about 9 by 19.5; other shapes are fitted into this tile.
    int tileWidth() const { return (thumbHeight * 9 * 2 + 19) / 39; }
    int lineHeight() const { return thumbHeight + caption + spacing; }
};

// Where every row and tile of the gallery sits, computed from the screen counts of the index
// alone, so that a library of any size is laid out without reading a flow folder.
class GalleryLayout {
public:
    void build(const GalleryContent& content, int width, const GalleryMetrics& metrics);

    const GalleryMetrics& metrics() const { return metrics_; }
    int height() const { return tops_.empty() ? 0 : tops_.back(); }
    std::size_t rowCount() const { return tops_.empty() ? 0 : tops_.size() - 1; }
    int rowTop(std::size_t row) const { return tops_[row]; }
    int rowHeight(std::size_t row) const { return tops_[row + 1] - tops_[row]; }
    // Screens on one line of a band.
    int perLine() const { return perLine_; }

    std::optional<std::size_t> rowAt(int y) const;
    // The rows that overlap [top, bottom), as [first, last).
    std::pair<std::size_t, std::size_t> rowsIn(int top, int bottom) const;
    // A band's title area.
    QRect headerRect(std::size_t row) const;
    QRect tileRect(std::size_t row, std::size_t index) const;
    // The screen under `point` in a band of `count` screens.
    std::optional<std::size_t> tileAt(std::size_t row, QPoint point, std::size_t count) const;
    // Where screens dropped at `point` go in a band of `count` screens (0..count).
    std::size_t insertionAt(std::size_t row, QPoint point, std::size_t count) const;
    // The rectangle of the drop marker before screen `index`.
    QRect insertionMarker(std::size_t row, std::size_t index) const;

private:
    GalleryMetrics metrics_;
    int width_ = 0;
    int perLine_ = 1;
    std::vector<int> tops_; // one per row, then the total height
};

} // namespace varnel
