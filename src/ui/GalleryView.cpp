#include "ui/GalleryView.h"
#include "media/PngSize.h"
#include "ui/Messages.h"

#include "library/ScreenFiles.h"
#include "model/FlowLibrary.h"
#include "thumbnails/ThumbnailCache.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDateTime>
#include <QDrag>
#include <QHelpEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <QToolTip>
#include <QUrl>

#include <algorithm>

namespace varnel {

namespace {

QColor muted(const QPalette& palette) {
    QColor color = palette.color(QPalette::WindowText);
    color.setAlphaF(0.55f);
    return color;
}

QColor tileBackground(const QPalette& palette) {
    const QColor base = palette.color(QPalette::Base);
    return base.lightness() < 128 ? base.lighter(160) : base.darker(108);
}

QFont scaled(QFont font, double factor, QFont::Weight weight) {
    font.setPointSizeF(font.pointSizeF() * factor);
    font.setWeight(weight);
    return font;
}

QString caption(const ScreenRef& ref, std::size_t number) {
    if (ref.name && !ref.name->empty())
        return qs(*ref.name);
    return QString::number(number);
}

void paintClipBadge(QPainter& painter, const QRect& tile) {
    const QRect badge(tile.left() + 6, tile.bottom() - 25, 28, 20);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 160));
    painter.drawRoundedRect(badge, 5, 5);
    QPainterPath triangle;
    const QPointF c = QRectF(badge).center();
    triangle.moveTo(c.x() - 4, c.y() - 6);
    triangle.lineTo(c.x() + 6, c.y());
    triangle.lineTo(c.x() - 4, c.y() + 6);
    triangle.closeSubpath();
    painter.setBrush(Qt::white);
    painter.drawPath(triangle);
}

// Top-right pills that say what was done to a screen: blurred or patched (a half-filled disc),
// and its comment pins (a speech bubble with their count).
void paintStateBadges(QPainter& painter, const QRect& tile, const ScreenRef& ref) {
    const bool edited =
        (ref.redactions && !ref.redactions->empty()) || (ref.patches && !ref.patches->empty());
    const std::size_t pins = ref.pins().size();
    int right = tile.right() - 6;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QFont small = painter.font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    small.setWeight(QFont::DemiBold);
    painter.setFont(small);
    if (pins > 0) {
        const QString count = pins > 99 ? QStringLiteral("99+") : QString::number(pins);
        const int width = 22 + painter.fontMetrics().horizontalAdvance(count);
        const QRect pill(right - width, tile.top() + 6, width, 18);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0, 0, 0, 160));
        painter.drawRoundedRect(pill, 9, 9);
        const QRectF bubble(pill.left() + 5, pill.top() + 4, 11, 8);
        QPainterPath speech;
        speech.addRoundedRect(bubble, 2.5, 2.5);
        speech.moveTo(bubble.left() + 2.5, bubble.bottom());
        speech.lineTo(bubble.left() + 2.5, bubble.bottom() + 3);
        speech.lineTo(bubble.left() + 6, bubble.bottom());
        painter.setBrush(Qt::white);
        painter.drawPath(speech);
        painter.setPen(Qt::white);
        painter.drawText(QRect(pill.left() + 18, pill.top(), width - 20, pill.height()),
                         Qt::AlignVCenter | Qt::AlignLeft, count);
        right = pill.left() - 4;
    }
    if (edited) {
        const QRect pill(right - 18, tile.top() + 6, 18, 18);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0, 0, 0, 160));
        painter.drawEllipse(pill);
        const QRectF disc = QRectF(pill).adjusted(4.5, 4.5, -4.5, -4.5);
        painter.setPen(QPen(Qt::white, 1.4));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(disc);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        painter.drawPie(disc, 90 * 16, 180 * 16);
    }
    painter.restore();
}

} // namespace

GalleryView::GalleryView(FlowLibrary& library, ThumbnailCache& thumbnails, QWidget* parent)
    : QAbstractScrollArea(parent), library_(library), thumbnails_(thumbnails) {
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::StrongFocus);
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
    viewport()->setBackgroundRole(QPalette::Base);
    verticalScrollBar()->setSingleStep(48);
    viewport()->setMouseTracking(true); // the tile under the pointer is highlighted
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    autoScrollTimer_.setInterval(16);
    connect(&autoScrollTimer_, &QTimer::timeout, this,
            [this] { verticalScrollBar()->setValue(offset() + autoScroll_); });
    connect(&thumbnails_, &ThumbnailCache::ready, viewport(), qOverload<>(&QWidget::update));
    connect(&thumbnails_, &ThumbnailCache::failed, viewport(), qOverload<>(&QWidget::update));
}

void GalleryView::setContent(GalleryContent content) {
    content_ = std::move(content);
    unreadable_.clear();
    // A selection outlives a reload where its screens do.
    std::erase_if(selection_, [this](const ScreenID& screen) {
        const auto* screens = screensOf(screen.folder);
        return !screens || std::none_of(screens->begin(), screens->end(), [&](const ScreenRef& s) {
            return s.filename == screen.filename;
        });
    });
    if (current_ && !selection_.contains(*current_))
        current_.reset();
    if (anchor_ && !selection_.contains(*anchor_))
        anchor_.reset();
    if (currentFlow_ && !content_.rowOfFlow(*currentFlow_))
        currentFlow_.reset();
    relayout();
    emit selectionChanged();
}

void GalleryView::setThumbnailHeight(int height) {
    if (height == metrics_.thumbHeight)
        return;
    // Keep the band at the top of the view in place.
    const auto top = layout_.rowAt(offset());
    metrics_.thumbHeight = height;
    relayout();
    if (top)
        verticalScrollBar()->setValue(layout_.rowTop(*top));
}

void GalleryView::setEmptyText(const QString& title, const QString& hint) {
    emptyTitle_ = title;
    emptyHint_ = hint;
    viewport()->update();
}

void GalleryView::relayout() {
    layout_.build(content_, viewport()->width(), metrics_);
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setRange(0, std::max(0, layout_.height() - viewport()->height()));
    thumbnails_.setImageHeight(static_cast<int>(metrics_.thumbHeight * devicePixelRatioF() + 0.5));
    viewport()->update();
}

int GalleryView::offset() const {
    return verticalScrollBar()->value();
}

QRect GalleryView::toViewport(QRect contentRect) const {
    return contentRect.translated(0, -offset());
}

void GalleryView::setScreenFilter(ScreenFilter filter) {
    filter_ = std::move(filter);
    visible_.clear();
    visibleRefs_.clear();
}

const std::vector<ScreenRef>* GalleryView::screensOf(const std::string& folder) {
    if (unreadable_.contains(folder))
        return nullptr;
    const std::vector<ScreenRef>* all = nullptr;
    try {
        all = &library_.meta(folder).screens;
    } catch (const std::exception& e) {
        unreadable_[folder] = qs(e.what());
        return nullptr;
    }
    if (!filter_.active())
        return all;
    auto it = visibleRefs_.find(folder);
    if (it == visibleRefs_.end()) {
        auto shown = GalleryScreenFilter::visible(*all, folder, filter_.hits, filter_.media);
        std::vector<ScreenRef> refs;
        for (const auto& screen : shown)
            refs.push_back(screen.screen);
        visible_[folder] = std::move(shown);
        it = visibleRefs_.emplace(folder, std::move(refs)).first;
    }
    return &it->second;
}

std::size_t GalleryView::positionOf(const std::string& folder, std::size_t shown) {
    if (!filter_.active() || !screensOf(folder))
        return shown;
    const auto& list = visible_[folder];
    if (shown < list.size())
        return list[shown].position;
    // After the last shown screen: after its position.
    return list.empty() ? 0 : list.back().position + 1;
}

void GalleryView::resizeEvent(QResizeEvent* event) {
    QAbstractScrollArea::resizeEvent(event);
    const auto top = layout_.rowAt(offset());
    const int within = top ? offset() - layout_.rowTop(*top) : 0;
    relayout();
    if (top && *top < layout_.rowCount())
        verticalScrollBar()->setValue(layout_.rowTop(*top) +
                                      std::min(within, layout_.rowHeight(*top)));
}

void GalleryView::paintEvent(QPaintEvent* event) {
    QPainter painter(viewport());
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (content_.rows.empty()) {
        paintEmpty(painter);
        return;
    }
    const QRect exposed = event->rect().translated(0, offset());
    const auto [first, last] = layout_.rowsIn(exposed.top(), exposed.bottom() + 1);
    for (std::size_t row = first; row < last; ++row) {
        if (content_.rows[row].kind == GalleryRow::Kind::flow)
            paintBand(painter, row, exposed);
        else
            paintHeading(painter, row);
    }
    if (dropTarget_) {
        if (const auto row = content_.rowOfFlow(dropTarget_->folder)) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(palette().color(QPalette::Highlight));
            painter.drawRoundedRect(toViewport(layout_.insertionMarker(*row, dropTarget_->shown)),
                                    2, 2);
        }
    }
}

void GalleryView::paintEmpty(QPainter& painter) {
    const QRect area = viewport()->rect().adjusted(40, 0, -40, 0);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.setFont(scaled(font(), 1.6, QFont::DemiBold));
    const QRect titleRect(area.left(), area.center().y() - 40, area.width(), 36);
    painter.drawText(titleRect, Qt::AlignCenter, emptyTitle_);
    painter.setPen(muted(palette()));
    painter.setFont(font());
    painter.drawText(QRect(area.left(), titleRect.bottom() + 8, area.width(), 60),
                     Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, emptyHint_);
}

void GalleryView::paintHeading(QPainter& painter, std::size_t row) {
    const GalleryRow& heading = content_.rows[row];
    const QRect area =
        toViewport(QRect(metrics_.margin, layout_.rowTop(row),
                         viewport()->width() - 2 * metrics_.margin, layout_.rowHeight(row)));
    if (heading.kind == GalleryRow::Kind::application) {
        painter.setPen(palette().color(QPalette::WindowText));
        painter.setFont(scaled(font(), 1.75, QFont::Bold));
        painter.drawText(area.adjusted(0, 14, 0, 0), Qt::AlignLeft | Qt::AlignVCenter,
                         qs(heading.title));
        return;
    }
    painter.setFont(scaled(font(), 1.05, QFont::DemiBold));
    painter.setPen(muted(palette()));
    const QRect text = area.adjusted(0, 10, 0, 0);
    painter.drawText(text, Qt::AlignLeft | Qt::AlignVCenter, qs(heading.title).toUpper());
    const int width = painter.fontMetrics().horizontalAdvance(qs(heading.title).toUpper());
    QColor rule = muted(palette());
    rule.setAlphaF(0.18f);
    painter.setPen(QPen(rule, 1));
    const int y = text.center().y() + 1;
    painter.drawLine(text.left() + width + 12, y, text.right(), y);
}

void GalleryView::paintBand(QPainter& painter, std::size_t row, const QRect& exposed) {
    const FlowSummary& flow = content_.flows[content_.rows[row].flow];
    const QRect header = toViewport(layout_.headerRect(row));
    if (currentFlow_ == flow.folderName && !current_) {
        QColor fill = palette().color(QPalette::Highlight);
        fill.setAlphaF(0.16f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(header.adjusted(-10, 2, 10, -2), 8, 8);
        if (hasFocus())
            paintFocusRing(painter, QRectF(header).adjusted(-10, 2, 10, -2), 8);
    }
    painter.setPen(palette().color(QPalette::WindowText));
    painter.setFont(scaled(font(), 1.2, QFont::DemiBold));
    const QRect nameRect = header.adjusted(0, 4, 0, -header.height() / 2 + 4);
    painter.drawText(
        nameRect, Qt::AlignLeft | Qt::AlignBottom,
        painter.fontMetrics().elidedText(qs(flow.name), Qt::ElideRight, nameRect.width()));
    const QDateTime date =
        QDateTime::fromSecsSinceEpoch(static_cast<qint64>(flow.date.unixSeconds()));
    const QString details =
        QLocale().toString(date.date(), QLocale::ShortFormat) + "  ·  " +
        (flow.screenCount == 1 ? tr("1 screen") : tr("%1 screens").arg(flow.screenCount));
    painter.setFont(font());
    painter.setPen(muted(palette()));
    painter.drawText(header.adjusted(0, header.height() / 2 + 4, 0, 0),
                     Qt::AlignLeft | Qt::AlignTop, details);

    const std::vector<ScreenRef>* screens = screensOf(flow.folderName);
    if (!screens || screens->empty()) {
        // The empty band is a place to drop screens on.
        const QRect tile = toViewport(layout_.tileRect(row, 0));
        const QRect zone(tile.left(), tile.top(),
                         std::min(viewport()->width() - 2 * metrics_.margin,
                                  3 * tile.width() + 2 * metrics_.spacing),
                         tile.height());
        QColor dashes = muted(palette());
        dashes.setAlphaF(0.35f);
        painter.setPen(QPen(dashes, 1.5, Qt::DashLine));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(zone).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
        painter.setPen(muted(palette()));
        painter.drawText(zone.adjusted(12, 12, -12, -12), Qt::AlignCenter | Qt::TextWordWrap,
                         screens
                             ? tr("No screens yet. Drop screens here.")
                             : tr("Couldn’t read this flow: %1").arg(unreadable_[flow.folderName]));
        return;
    }
    const std::size_t count = std::min(
        screens->size(), static_cast<std::size_t>(std::max<std::int64_t>(1, flow.screenCount)));
    for (std::size_t i = 0; i < count; ++i) {
        const QRect tile = layout_.tileRect(row, i);
        if (!tile.adjusted(0, 0, 0, metrics_.caption).intersects(exposed))
            continue;
        paintTile(painter, toViewport(tile), {flow.folderName, (*screens)[i].filename},
                  (*screens)[i], positionOf(flow.folderName, i) + 1);
    }
}

void GalleryView::paintTile(QPainter& painter, const QRect& tile, const ScreenID& screen,
                            const ScreenRef& ref, std::size_t number) {
    QPainterPath shape;
    shape.addRoundedRect(tile, 8, 8);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tileBackground(palette()));
    painter.drawPath(shape);

    const QImage image = thumbnails_.image(screen);
    if (!image.isNull()) {
        QSizeF size = QSizeF(image.size()) / image.devicePixelRatio();
        size.scale(tile.size(), Qt::KeepAspectRatio);
        QRectF target(QPointF(0, 0), size);
        target.moveCenter(QRectF(tile).center());
        painter.save();
        painter.setClipPath(shape);
        painter.drawImage(target, image);
        painter.restore();
    } else if (thumbnails_.hasFailed(screen)) {
        painter.setPen(muted(palette()));
        painter.drawText(tile.adjusted(8, 8, -8, -8), Qt::AlignCenter | Qt::TextWordWrap,
                         tr("Can’t show this screen"));
    }
    if (ScreenFiles::isClip(screen.filename))
        paintClipBadge(painter, tile);
    paintStateBadges(painter, tile, ref);

    const bool selected = selection_.contains(screen);
    const bool found = filter_.hits.contains(screen);
    QColor edge = selected || found ? palette().color(QPalette::Highlight) : muted(palette());
    if (!selected)
        edge.setAlphaF(found ? 0.8f : 0.2f);
    if (found && !selected) {
        // Screens found by their text stand out from those shown for their flow's name.
        painter.setPen(QPen(edge, 2, Qt::DashLine));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(tile).adjusted(-3, -3, 3, 3), 10, 10);
    }
    if (hovered_ == screen && !selected) {
        edge = palette().color(QPalette::Highlight);
        edge.setAlphaF(0.6f);
    }
    painter.setPen(QPen(edge, selected || hovered_ == screen ? 2 : 1));
    if (selected)
        painter.setPen(QPen(edge, 3));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(tile).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
    if (current_ == screen && hasFocus())
        paintFocusRing(painter, QRectF(tile).adjusted(-5, -5, 5, 5), 12);

    const QRect captionRect(tile.left(), tile.bottom() + 4, tile.width(), metrics_.caption - 4);
    painter.setPen(selected ? palette().color(QPalette::WindowText) : muted(palette()));
    painter.setFont(scaled(font(), 0.9, QFont::Normal));
    painter.drawText(captionRect, Qt::AlignHCenter | Qt::AlignTop,
                     painter.fontMetrics().elidedText(caption(ref, number), Qt::ElideRight,
                                                      captionRect.width()));
}

void GalleryView::paintFocusRing(QPainter& painter, const QRectF& area, double radius) {
    // The accent, solid and apart from the selection's edge, as GNOME and KDE draw keyboard focus.
    painter.save();
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(area, radius, radius);
    painter.restore();
}

std::optional<GalleryView::Hit> GalleryView::hitAt(QPoint point) const {
    const auto row = layout_.rowAt(point.y() + offset());
    if (!row || content_.rows[*row].kind != GalleryRow::Kind::flow)
        return std::nullopt;
    const auto& flow = content_.flows[content_.rows[*row].flow];
    Hit hit{*row, std::nullopt};
    hit.screen =
        layout_.tileAt(*row, point + QPoint(0, offset()),
                       static_cast<std::size_t>(std::max<std::int64_t>(0, flow.screenCount)));
    return hit;
}

std::optional<ScreenID> GalleryView::screenAt(const Hit& hit) {
    if (!hit.screen)
        return std::nullopt;
    const auto& folder = content_.flows[content_.rows[hit.row].flow].folderName;
    const auto* screens = screensOf(folder);
    if (!screens || *hit.screen >= screens->size())
        return std::nullopt;
    return ScreenID{folder, (*screens)[*hit.screen].filename};
}

std::vector<ScreenID> GalleryView::selectedScreens() const {
    // Only the flows that hold a selected screen, in gallery order.
    std::vector<std::pair<std::size_t, std::string>> folders;
    for (const auto& screen : selection_) {
        if (!folders.empty() && folders.back().second == screen.folder)
            continue;
        folders.emplace_back(content_.rowOfFlow(screen.folder).value_or(content_.rows.size()),
                             screen.folder);
    }
    std::sort(folders.begin(), folders.end());
    std::vector<ScreenID> ordered;
    for (const auto& [row, folder] : folders) {
        try {
            for (const auto& ref : library_.meta(folder).screens)
                if (selection_.contains({folder, ref.filename}))
                    ordered.push_back({folder, ref.filename});
        } catch (const std::exception&) {
        }
    }
    return ordered;
}

void GalleryView::setCurrent(const ScreenID& screen, bool notify) {
    current_ = screen;
    currentFlow_ = screen.folder;
    if (const auto row = content_.rowOfFlow(screen.folder)) {
        if (const auto index = currentIndex())
            ensureVisible(layout_.tileRect(*row, *index)
                              .adjusted(0, -metrics_.bandHeader, 0, metrics_.caption));
    }
    viewport()->update();
    if (notify)
        emit selectionChanged();
}

void GalleryView::selectScreen(const ScreenID& screen) {
    selection_ = {screen};
    anchor_ = screen;
    setCurrent(screen);
}

void GalleryView::selectScreens(const std::vector<ScreenID>& screens) {
    selection_ = std::set<ScreenID>(screens.begin(), screens.end());
    if (screens.empty()) {
        current_.reset();
        viewport()->update();
        emit selectionChanged();
        return;
    }
    anchor_ = screens.front();
    setCurrent(screens.front());
}

void GalleryView::selectFlow(const std::string& folder) {
    selection_.clear();
    current_.reset();
    anchor_.reset();
    currentFlow_ = folder;
    viewport()->update();
    emit selectionChanged();
}

void GalleryView::selectAllInFlow() {
    if (!currentFlow_)
        return;
    const auto* screens = screensOf(*currentFlow_);
    if (!screens || screens->empty())
        return;
    for (const auto& ref : *screens)
        selection_.insert({*currentFlow_, ref.filename});
    if (!current_)
        current_ = ScreenID{*currentFlow_, screens->front().filename};
    viewport()->update();
    emit selectionChanged();
}

std::optional<std::size_t> GalleryView::currentIndex() {
    if (!current_)
        return std::nullopt;
    const auto* screens = screensOf(current_->folder);
    if (!screens)
        return std::nullopt;
    for (std::size_t i = 0; i < screens->size(); ++i)
        if ((*screens)[i].filename == current_->filename)
            return i;
    return std::nullopt;
}

bool GalleryView::stepCurrent(int delta) {
    // Flows are walked in gallery order; empty and unreadable ones are passed over.
    std::optional<std::size_t> row;
    std::optional<long long> index;
    if (current_) {
        row = content_.rowOfFlow(current_->folder);
        if (const auto i = currentIndex())
            index = static_cast<long long>(*i);
    }
    if (!row || !index) {
        for (std::size_t r = 0; r < content_.rows.size(); ++r) {
            if (content_.rows[r].kind != GalleryRow::Kind::flow)
                continue;
            const auto* screens = screensOf(content_.flows[content_.rows[r].flow].folderName);
            if (screens && !screens->empty()) {
                selectScreen(
                    {content_.flows[content_.rows[r].flow].folderName, screens->front().filename});
                return true;
            }
        }
        return false;
    }
    long long target = *index + delta;
    std::size_t r = *row;
    while (true) {
        const auto* screens = screensOf(content_.flows[content_.rows[r].flow].folderName);
        const auto size = screens ? static_cast<long long>(screens->size()) : 0;
        if (target >= 0 && target < size) {
            selectScreen({content_.flows[content_.rows[r].flow].folderName,
                          (*screens)[static_cast<std::size_t>(target)].filename});
            return true;
        }
        // Into the next or previous band that has screens.
        std::optional<std::size_t> next;
        for (std::size_t s = r; delta > 0 ? s + 1 < content_.rows.size() : s > 0;) {
            s = delta > 0 ? s + 1 : s - 1;
            if (content_.rows[s].kind == GalleryRow::Kind::flow) {
                next = s;
                break;
            }
        }
        if (!next)
            return false;
        if (delta > 0) {
            target -= size;
        } else {
            const auto* before = screensOf(content_.flows[content_.rows[*next].flow].folderName);
            target += before ? static_cast<long long>(before->size()) : 0;
        }
        r = *next;
    }
}

bool GalleryView::stepLine(int direction) {
    const auto index = current_ ? currentIndex() : std::nullopt;
    const auto row = current_ ? content_.rowOfFlow(current_->folder) : std::nullopt;
    if (!index || !row)
        return stepCurrent(direction);
    const std::size_t perLine = std::max(1, layout_.perLine());
    const auto* screens = screensOf(current_->folder);
    const std::size_t size = screens ? screens->size() : 0;
    const std::size_t column = *index % perLine;
    // Within the band: the line above or below, or the last screen of a shorter last line.
    if (direction > 0 && *index / perLine < (size - 1) / perLine) {
        selectScreen({current_->folder, (*screens)[std::min(*index + perLine, size - 1)].filename});
        return true;
    }
    if (direction < 0 && *index >= perLine) {
        selectScreen({current_->folder, (*screens)[*index - perLine].filename});
        return true;
    }
    // Into the next or previous band with screens, on its nearest line, in the same column.
    for (std::size_t r = *row; direction > 0 ? r + 1 < content_.rows.size() : r > 0;) {
        r = direction > 0 ? r + 1 : r - 1;
        if (content_.rows[r].kind != GalleryRow::Kind::flow)
            continue;
        const std::string& folder = content_.flows[content_.rows[r].flow].folderName;
        const auto* next = screensOf(folder);
        if (!next || next->empty())
            continue;
        const std::size_t lineStart = direction > 0 ? 0 : (next->size() - 1) / perLine * perLine;
        selectScreen({folder, (*next)[std::min(lineStart + column, next->size() - 1)].filename});
        return true;
    }
    return false;
}

void GalleryView::ensureVisible(const QRect& contentRect) {
    const int top = offset();
    const int height = viewport()->height();
    if (contentRect.top() < top)
        verticalScrollBar()->setValue(contentRect.top());
    else if (contentRect.bottom() > top + height)
        verticalScrollBar()->setValue(contentRect.bottom() - height + metrics_.spacing);
}

void GalleryView::scrollToFlow(const std::string& folder) {
    if (const auto row = content_.rowOfFlow(folder)) {
        verticalScrollBar()->setValue(std::max(0, layout_.rowTop(*row) - metrics_.categoryHeading));
        selectFlow(folder);
    }
}

void GalleryView::scrollToCategory(const std::string& application, const std::string& category) {
    if (const auto row = content_.rowOfCategory(application, category))
        verticalScrollBar()->setValue(layout_.rowTop(*row));
}

void GalleryView::mousePressEvent(QMouseEvent* event) {
    setFocus(Qt::MouseFocusReason);
    dragReady_ = false;
    const auto hit = hitAt(event->position().toPoint());
    if (!hit) {
        if (event->button() == Qt::LeftButton)
            selectScreens({});
        return;
    }
    const auto screen = screenAt(*hit);
    if (!screen) {
        selectFlow(content_.flows[content_.rows[hit->row].flow].folderName);
        return;
    }
    const auto modifiers = event->modifiers();
    if (event->button() == Qt::RightButton) {
        if (!selection_.contains(*screen))
            selectScreen(*screen);
        return;
    }
    if (modifiers & Qt::ControlModifier) {
        if (!selection_.erase(*screen))
            selection_.insert(*screen);
        anchor_ = *screen;
        setCurrent(*screen);
        return;
    }
    if ((modifiers & Qt::ShiftModifier) && anchor_ && anchor_->folder == screen->folder) {
        // A range within one flow, from the anchor to here.
        const auto* screens = screensOf(screen->folder);
        bool inside = false;
        selection_.clear();
        for (const auto& ref : *screens) {
            const bool edge = ref.filename == anchor_->filename || ref.filename == screen->filename;
            if (edge || inside)
                selection_.insert({screen->folder, ref.filename});
            if (edge && anchor_->filename != screen->filename)
                inside = !inside;
        }
        setCurrent(*screen);
        return;
    }
    // A press inside a selection may start dragging all of it; released without a drag, the
    // click picks that screen alone, as a file manager does.
    if (!selection_.contains(*screen)) {
        selectScreen(*screen);
    } else {
        setCurrent(*screen);
        if (selection_.size() > 1)
            clickedInSelection_ = *screen;
    }
    pressPosition_ = event->position().toPoint();
    dragReady_ = true;
}

void GalleryView::mouseReleaseEvent(QMouseEvent* event) {
    QAbstractScrollArea::mouseReleaseEvent(event);
    const auto clicked = std::exchange(clickedInSelection_, std::nullopt);
    if (clicked && dragReady_ && event->button() == Qt::LeftButton && selection_.contains(*clicked))
        selectScreen(*clicked);
    dragReady_ = false;
}

QMimeData* GalleryView::mimeDataFor(const std::vector<ScreenID>& screens) const {
    auto* mime = new QMimeData;
    QJsonArray files;
    QList<QUrl> urls;
    for (const auto& screen : screens) {
        files.append(qs(screen.filename));
        urls.append(
            QUrl::fromLocalFile(qs((library_.root() / screen.folder / screen.filename).string())));
    }
    const QJsonObject payload{{"folder", screens.empty() ? QString() : qs(screens.front().folder)},
                              {"files", files}};
    mime->setData(kScreensMimeType, QJsonDocument(payload).toJson(QJsonDocument::Compact));
    mime->setUrls(urls); // so that screens can be dragged out to other applications
    return mime;
}

QString GalleryView::tileInfo(const ScreenID& screen) {
    const auto* screens = screensOf(screen.folder);
    if (!screens)
        return {};
    const auto ref = std::find_if(screens->begin(), screens->end(), [&](const ScreenRef& r) {
        return r.filename == screen.filename;
    });
    if (ref == screens->end())
        return {};
    const auto file = library_.root() / screen.folder / screen.filename;
    QStringList lines{QString::fromStdString(screen.filename)};
    if (const auto size = pngSize(file))
        lines << tr("%1 × %2 pixels").arg(size->first).arg(size->second);
    std::error_code error;
    if (const auto bytes = std::filesystem::file_size(file, error); !error)
        lines << QLocale().formattedDataSize(static_cast<qint64>(bytes));
    lines << (ref->source == CaptureSource::automatic ? tr("Captured automatically %1")
                                                      : tr("Captured %1"))
                 .arg(QString::fromStdString(localTimestamp(ref->capturedAt)));
    try {
        if (const auto& device = library_.meta(screen.folder).deviceName)
            lines << tr("On %1").arg(QString::fromStdString(*device));
    } catch (const std::exception&) {
        // Its flow's record can't be read: the gallery says so on the band.
    }
    const auto zones = ref->redactions ? ref->redactions->size() : 0;
    const auto patches = ref->patches ? ref->patches->size() : 0;
    if (zones > 0)
        lines << (zones == 1 ? tr("1 blur zone") : tr("%1 blur zones").arg(zones));
    if (patches > 0)
        lines << (patches == 1 ? tr("1 clone patch") : tr("%1 clone patches").arg(patches));
    const auto pins = ref->pins().size();
    if (pins > 0)
        lines << (pins == 1 ? tr("1 comment") : tr("%1 comments").arg(pins));
    return lines.join('\n');
}

bool GalleryView::viewportEvent(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        const auto hit = hitAt(help->pos());
        const auto screen = hit ? screenAt(*hit) : std::nullopt;
        if (screen)
            QToolTip::showText(help->globalPos(), tileInfo(*screen), viewport());
        else
            QToolTip::hideText();
        return true;
    }
    if (event->type() == QEvent::Leave && hovered_) {
        hovered_.reset();
        viewport()->update();
    }
    return QAbstractScrollArea::viewportEvent(event);
}

void GalleryView::mouseMoveEvent(QMouseEvent* event) {
    if (!(event->buttons() & Qt::LeftButton)) {
        const auto hit = hitAt(event->position().toPoint());
        const auto under = hit ? screenAt(*hit) : std::nullopt;
        if (under != hovered_) {
            hovered_ = under;
            viewport()->update();
        }
    }
    if (!dragReady_ || !(event->buttons() & Qt::LeftButton) ||
        (event->position().toPoint() - pressPosition_).manhattanLength() <
            QApplication::startDragDistance())
        return;
    dragReady_ = false;
    clickedInSelection_.reset();
    std::vector<ScreenID> dragged;
    for (const auto& screen : selectedScreens())
        if (current_ && screen.folder == current_->folder)
            dragged.push_back(screen);
    if (dragged.empty())
        return;
    auto* drag = new QDrag(this);
    drag->setMimeData(mimeDataFor(dragged));
    const QImage picture = thumbnails_.image(dragged.front());
    if (!picture.isNull())
        drag->setPixmap(QPixmap::fromImage(picture.scaledToHeight(120, Qt::SmoothTransformation)));
    drag->exec(Qt::MoveAction | Qt::CopyAction, Qt::MoveAction);
}

void GalleryView::mouseDoubleClickEvent(QMouseEvent* event) {
    const auto hit = hitAt(event->position().toPoint());
    if (!hit)
        return;
    if (const auto screen = screenAt(*hit)) {
        selectScreen(*screen);
        emit screenActivated(*screen);
    }
}

void GalleryView::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Right:
        stepCurrent(1);
        return;
    case Qt::Key_Left:
        stepCurrent(-1);
        return;
    case Qt::Key_Down:
        stepLine(1);
        return;
    case Qt::Key_Up:
        stepLine(-1);
        return;
    case Qt::Key_Space:
        if (current_)
            emit previewRequested();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (current_)
            emit screenActivated(*current_);
        return;
    case Qt::Key_Home:
        verticalScrollBar()->setValue(0);
        return;
    case Qt::Key_End:
        verticalScrollBar()->setValue(verticalScrollBar()->maximum());
        return;
    default:
        QAbstractScrollArea::keyPressEvent(event);
    }
}

void GalleryView::contextMenuEvent(QContextMenuEvent* event) {
    const auto hit = hitAt(event->pos());
    if (!hit)
        return;
    if (!hit->screen)
        selectFlow(content_.flows[content_.rows[hit->row].flow].folderName);
    emit contextMenuRequested(event->globalPos());
}

bool GalleryView::acceptsDrop(const QMimeData* mime) const {
    if (mime->hasFormat(kScreensMimeType))
        return true;
    if (!mime->hasUrls())
        return false;
    // Any file or folder: what can't become a screen is left out with its reason.
    const QList<QUrl> urls = mime->urls();
    return std::any_of(urls.begin(), urls.end(), [](const QUrl& url) { return url.isLocalFile(); });
}

std::optional<GalleryView::DropTarget> GalleryView::dropTargetAt(QPoint point) {
    const auto row = layout_.rowAt(point.y() + offset());
    if (!row || content_.rows[*row].kind != GalleryRow::Kind::flow)
        return std::nullopt;
    const auto& folder = content_.flows[content_.rows[*row].flow].folderName;
    const auto* screens = screensOf(folder);
    if (!screens)
        return std::nullopt;
    // While filtering, a drop between two shown screens lands there in the full flow.
    const std::size_t shown =
        layout_.insertionAt(*row, point + QPoint(0, offset()), screens->size());
    return DropTarget{folder, positionOf(folder, shown), shown};
}

void GalleryView::dragEnterEvent(QDragEnterEvent* event) {
    if (acceptsDrop(event->mimeData()))
        event->acceptProposedAction();
}

void GalleryView::dragMoveEvent(QDragMoveEvent* event) {
    const QPoint point = event->position().toPoint();
    dropTarget_ = acceptsDrop(event->mimeData()) ? dropTargetAt(point) : std::nullopt;
    if (dropTarget_ || (acceptsDrop(event->mimeData()) && event->mimeData()->hasUrls() &&
                        !event->mimeData()->hasFormat(kScreensMimeType)))
        event->acceptProposedAction();
    else
        event->ignore();
    // Held near an edge, the view scrolls, so that any flow can be reached while dragging.
    autoScroll_ = point.y() < 40 ? -12 : point.y() > viewport()->height() - 40 ? 12 : 0;
    if (autoScroll_ != 0 && !autoScrollTimer_.isActive())
        autoScrollTimer_.start();
    else if (autoScroll_ == 0)
        autoScrollTimer_.stop();
    viewport()->update();
}

void GalleryView::dragLeaveEvent(QDragLeaveEvent*) {
    autoScrollTimer_.stop();
    dropTarget_.reset();
    viewport()->update();
}

void GalleryView::dropEvent(QDropEvent* event) {
    autoScrollTimer_.stop();
    const auto target = dropTargetAt(event->position().toPoint());
    dropTarget_.reset();
    viewport()->update();
    const QMimeData* mime = event->mimeData();
    if (!target && acceptsDrop(mime) && !mime->hasFormat(kScreensMimeType)) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
        QStringList paths;
        for (const QUrl& url : mime->urls())
            if (url.isLocalFile())
                paths << url.toLocalFile();
        emit filesDroppedOutsideFlows(paths);
        return;
    }
    if (!target || !acceptsDrop(mime)) {
        event->ignore();
        return;
    }
    const bool copy = event->modifiers() & Qt::ControlModifier;
    event->setDropAction(copy ? Qt::CopyAction : Qt::MoveAction);
    event->accept();
    if (mime->hasFormat(kScreensMimeType)) {
        const QJsonObject payload = QJsonDocument::fromJson(mime->data(kScreensMimeType)).object();
        QStringList files;
        for (const auto& file : payload.value("files").toArray())
            files << file.toString();
        emit screensDropped(payload.value("folder").toString(), files, qs(target->folder),
                            static_cast<int>(target->index), copy);
        return;
    }
    QStringList paths;
    for (const QUrl& url : mime->urls())
        if (url.isLocalFile())
            paths << url.toLocalFile();
    emit filesDropped(paths, qs(target->folder), static_cast<int>(target->index));
}

} // namespace varnel
