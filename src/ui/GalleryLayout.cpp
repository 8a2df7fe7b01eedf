#include "ui/GalleryLayout.h"

#include <algorithm>

namespace varnel {

void GalleryLayout::build(const GalleryContent& content, int width, const GalleryMetrics& metrics) {
    metrics_ = metrics;
    width_ = width;
    const int usable = width - 2 * metrics.margin + metrics.spacing;
    perLine_ = std::max(1, usable / (metrics.tileWidth() + metrics.spacing));
    tops_.clear();
    tops_.reserve(content.rows.size() + 1);
    int y = 0;
    for (const auto& row : content.rows) {
        tops_.push_back(y);
        switch (row.kind) {
        case GalleryRow::Kind::application:
            y += metrics.applicationHeading;
            break;
        case GalleryRow::Kind::category:
            y += metrics.categoryHeading;
            break;
        case GalleryRow::Kind::flow: {
            const auto count = std::max<std::int64_t>(1, content.flows[row.flow].screenCount);
            const auto lines = (count + perLine_ - 1) / perLine_;
            y += metrics.bandHeader + static_cast<int>(lines) * metrics.lineHeight() +
                 metrics.bandBottom;
            break;
        }
        }
    }
    tops_.push_back(y);
}

std::optional<std::size_t> GalleryLayout::rowAt(int y) const {
    if (rowCount() == 0 || y < 0 || y >= height())
        return std::nullopt;
    const auto after = std::upper_bound(tops_.begin(), tops_.end(), y);
    return static_cast<std::size_t>(after - tops_.begin()) - 1;
}

std::pair<std::size_t, std::size_t> GalleryLayout::rowsIn(int top, int bottom) const {
    if (rowCount() == 0 || bottom <= 0 || top >= height())
        return {0, 0};
    const auto first = rowAt(std::max(0, top)).value_or(0);
    const auto last = rowAt(std::min(bottom, height()) - 1).value_or(rowCount() - 1);
    return {first, last + 1};
}

QRect GalleryLayout::headerRect(std::size_t row) const {
    return {metrics_.margin, rowTop(row), width_ - 2 * metrics_.margin, metrics_.bandHeader};
}

QRect GalleryLayout::tileRect(std::size_t row, std::size_t index) const {
    const int line = static_cast<int>(index) / perLine_;
    const int column = static_cast<int>(index) % perLine_;
    return {metrics_.margin + column * (metrics_.tileWidth() + metrics_.spacing),
            rowTop(row) + metrics_.bandHeader + line * metrics_.lineHeight(), metrics_.tileWidth(),
            metrics_.thumbHeight};
}

std::optional<std::size_t> GalleryLayout::tileAt(std::size_t row, QPoint point,
                                                 std::size_t count) const {
    if (row >= rowCount() || count == 0)
        return std::nullopt;
    const int y = point.y() - rowTop(row) - metrics_.bandHeader;
    const int x = point.x() - metrics_.margin;
    if (x < 0 || y < 0)
        return std::nullopt;
    const int column = x / (metrics_.tileWidth() + metrics_.spacing);
    const int line = y / metrics_.lineHeight();
    if (column >= perLine_)
        return std::nullopt;
    const auto index = static_cast<std::size_t>(line * perLine_ + column);
    if (index >= count || !tileRect(row, index).adjusted(0, 0, 0, metrics_.caption).contains(point))
        return std::nullopt;
    return index;
}

std::size_t GalleryLayout::insertionAt(std::size_t row, QPoint point, std::size_t count) const {
    const int y = point.y() - rowTop(row) - metrics_.bandHeader;
    if (y < 0)
        return count; // on the title: after the last screen
    const int step = metrics_.tileWidth() + metrics_.spacing;
    const int line = y / metrics_.lineHeight();
    // The nearer gap: left or right of the tile under the pointer.
    const int column = std::clamp((point.x() - metrics_.margin + step / 2) / step, 0, perLine_);
    const auto index = static_cast<std::size_t>(std::max(0, line * perLine_ + column));
    return std::min(index, count);
}

QRect GalleryLayout::insertionMarker(std::size_t row, std::size_t index) const {
    // After the last tile of a full line the marker stays on that line, at its end.
    const bool endOfLine = index > 0 && index % static_cast<std::size_t>(perLine_) == 0;
    const QRect tile = endOfLine ? tileRect(row, index - 1) : tileRect(row, index);
    const int x =
        endOfLine ? tile.right() + metrics_.spacing / 2 : tile.left() - metrics_.spacing / 2;
    return {x - 2, tile.top(), 4, tile.height()};
}

} // namespace varnel
