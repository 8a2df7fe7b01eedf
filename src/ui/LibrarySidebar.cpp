#include "ui/LibrarySidebar.h"
#include "ui/Messages.h"

#include "organization/LibraryGrouping.h"
#include "ui/GalleryContent.h"

#include <QDropEvent>
#include <QHeaderView>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QUrl>

#include <algorithm>

#include <map>
#include <utility>

namespace varnel {

namespace {

constexpr const char* kCategoryMimeType = "application/x-varnel-category";

// Rows with room around their text. A style sheet would do it too, but a widget with a style
// sheet keeps the palette it had when the style last changed: after a switch of appearance the
// list stayed in the old colours until a restart.
class RoomyRows : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        return QStyledItemDelegate::sizeHint(option, index) + QSize(8, 10);
    }
};

} // namespace

LibrarySidebar::LibrarySidebar(QWidget* parent) : QTreeWidget(parent) {
    setHeaderHidden(true);
    setRootIsDecorated(false);
    setIndentation(14);
    setFrameShape(QFrame::NoFrame);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(true);
    viewport()->setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::InternalMove);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setMinimumWidth(180);
    setItemDelegate(new RoomyRows(this));
    setViewportMargins(0, 8, 0, 0);
    setBackgroundRole(QPalette::Base); // the margin above the rows is the list's colour
    setAutoFillBackground(true);
    connect(this, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item) { itemPicked(item); });
    connect(this, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) {
        if (rebuilding_ || !item)
            return;
        // Picking an application rebuilds the rows under the pointer: not while the click that
        // picked it is still under way, or its release lands on whatever row moved there.
        if (pressing_) {
            pendingPick_ = item;
            return;
        }
        itemPicked(item);
    });
}

void LibrarySidebar::mousePressEvent(QMouseEvent* event) {
    pressing_ = true;
    pendingPick_ = nullptr;
    QTreeWidget::mousePressEvent(event);
}

void LibrarySidebar::mouseReleaseEvent(QMouseEvent* event) {
    QTreeWidget::mouseReleaseEvent(event);
    pressing_ = false;
    if (QTreeWidgetItem* item = std::exchange(pendingPick_, nullptr))
        itemPicked(item);
}

void LibrarySidebar::setLibrary(const std::vector<FlowSummary>& summaries,
                                const std::vector<std::string>& categoryOrder,
                                const std::optional<std::string>& selected) {
    rebuilding_ = true;
    pendingPick_ = nullptr;
    clear();
    std::map<std::string, std::vector<FlowSummary>> byApplication;
    for (const auto& flow : summaries)
        byApplication[applicationOf(flow)].push_back(flow);
    const std::vector<std::string> applications = shownApplications(summaries);
    // An application that no longer exists falls back to "All".
    selected_ = selected && byApplication.contains(*selected) ? selected : std::nullopt;

    auto* everything = new QTreeWidgetItem(this, {tr("All")});
    everything->setData(0, kKindRole, all);
    everything->setData(0, Qt::ToolTipRole,
                        summaries.size() == 1 ? tr("1 flow")
                                              : tr("%1 flows").arg(summaries.size()));
    everything->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    QTreeWidgetItem* current = everything;
    for (const auto& app : applications) {
        auto* item = new QTreeWidgetItem(this, {qs(app)});
        item->setData(0, kKindRole, application);
        item->setData(0, kNameRole, qs(app));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        QFont bold = item->font(0);
        bold.setWeight(QFont::DemiBold);
        item->setFont(0, bold);
        if (app != selected_)
            continue;
        current = item;
        for (const auto& group : LibraryGrouping::group(byApplication[app], categoryOrder)) {
            auto* child = new QTreeWidgetItem(item, {qs(group.name)});
            child->setData(0, kKindRole, category);
            child->setData(0, kNameRole, qs(group.name));
            child->setData(0, Qt::ToolTipRole,
                           group.flows.size() == 1 ? tr("1 flow")
                                                   : tr("%1 flows").arg(group.flows.size()));
            // "Uncategorized" is always last, so it is not dragged.
            Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
            if (group.name != kUncategorized)
                flags |= Qt::ItemIsDragEnabled;
            child->setFlags(flags);
        }
        item->setExpanded(true);
    }
    setCurrentItem(current);
    rebuilding_ = false;
}

void LibrarySidebar::itemPicked(QTreeWidgetItem* item) {
    const int kind = item->data(0, kKindRole).toInt();
    if (kind == category) {
        emit categoryClicked(item->parent()->data(0, kNameRole).toString(),
                             item->data(0, kNameRole).toString());
        return;
    }
    const std::optional<std::string> app =
        kind == all ? std::nullopt
                    : std::optional<std::string>(item->data(0, kNameRole).toString().toStdString());
    if (app == selected_)
        return;
    selected_ = app;
    emit applicationSelected(app ? qs(*app) : QString());
}

void LibrarySidebar::drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
    QTreeWidget::drawRow(painter, option, index);
    if (!hasFocus() || index != currentIndex())
        return;
    // On the selection's fill the accent would vanish: the ring takes the fill's text colour.
    const bool selected = selectionModel() && selectionModel()->isSelected(index);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(
        QPen(palette().color(selected ? QPalette::HighlightedText : QPalette::Highlight), 2));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(option.rect).adjusted(3, 3, -3, -3), 4, 4);
    painter->restore();
}

void LibrarySidebar::focusInEvent(QFocusEvent* event) {
    QTreeWidget::focusInEvent(event);
    viewport()->update();
}

void LibrarySidebar::focusOutEvent(QFocusEvent* event) {
    QTreeWidget::focusOutEvent(event);
    viewport()->update();
}

QTreeWidgetItem* LibrarySidebar::categoryItemAt(QPoint point) const {
    QTreeWidgetItem* item = itemAt(point);
    if (!item || item->data(0, kKindRole).toInt() != category)
        return nullptr;
    return item;
}

std::optional<std::optional<std::string>> LibrarySidebar::categoryDropAt(QPoint point) const {
    QTreeWidgetItem* item = categoryItemAt(point);
    if (!item)
        return std::nullopt;
    QTreeWidgetItem* parent = item->parent();
    // The upper half of a row drops before it, the lower half before the next one.
    const QRect rect = visualItemRect(item);
    int index = parent->indexOfChild(item) + (point.y() >= rect.center().y() ? 1 : 0);
    // Nothing goes after "Uncategorized".
    const QTreeWidgetItem* last = parent->child(parent->childCount() - 1);
    const bool lastIsCatchAll =
        last->data(0, kNameRole).toString() == qs(std::string(kUncategorized));
    if (lastIsCatchAll && index >= parent->childCount())
        index = parent->childCount() - 1;
    if (index >= parent->childCount())
        return std::optional<std::string>();
    const QString before = parent->child(index)->data(0, kNameRole).toString();
    if (before == qs(std::string(kUncategorized)))
        return std::optional<std::string>();
    return std::optional<std::string>(before.toStdString());
}

QStringList LibrarySidebar::mimeTypes() const {
    return {kCategoryMimeType};
}

QMimeData* LibrarySidebar::mimeData(const QList<QTreeWidgetItem*>& items) const {
    if (items.isEmpty() || items.first()->data(0, kKindRole).toInt() != category)
        return nullptr;
    auto* mime = new QMimeData;
    mime->setData(kCategoryMimeType, items.first()->data(0, kNameRole).toString().toUtf8());
    return mime;
}

bool LibrarySidebar::carriesFiles(const QMimeData* mime) {
    const QList<QUrl> urls = mime->hasFormat(kCategoryMimeType) ? QList<QUrl>() : mime->urls();
    return std::any_of(urls.begin(), urls.end(), [](const QUrl& url) { return url.isLocalFile(); });
}

void LibrarySidebar::dragEnterEvent(QDragEnterEvent* event) {
    if (carriesFiles(event->mimeData())) {
        event->acceptProposedAction();
        return;
    }
    if (!event->mimeData()->hasFormat(kCategoryMimeType)) {
        event->ignore();
        return;
    }
    setState(DraggingState); // so that the view scrolls and draws its drop indicator
    event->acceptProposedAction();
}

void LibrarySidebar::dragMoveEvent(QDragMoveEvent* event) {
    if (carriesFiles(event->mimeData())) {
        // Onto any row: the item under the pointer shows where the flows go.
        QTreeWidgetItem* item = itemAt(event->position().toPoint());
        if (!item) {
            event->ignore();
            return;
        }
        event->acceptProposedAction();
        return;
    }
    if (!event->mimeData()->hasFormat(kCategoryMimeType) ||
        !categoryDropAt(event->position().toPoint())) {
        event->ignore();
        return;
    }
    QTreeWidget::dragMoveEvent(event); // draws the drop indicator
    event->acceptProposedAction();
}

void LibrarySidebar::dropEvent(QDropEvent* event) {
    // The tree does not move its own rows: the library changes and the list is rebuilt.
    if (carriesFiles(event->mimeData())) {
        QTreeWidgetItem* item = itemAt(event->position().toPoint());
        if (!item) {
            event->ignore();
            return;
        }
        event->setDropAction(Qt::CopyAction);
        event->accept();
        QStringList paths;
        for (const QUrl& url : event->mimeData()->urls())
            if (url.isLocalFile())
                paths << url.toLocalFile();
        const int kind = item->data(0, kKindRole).toInt();
        const QString app = kind == application ? item->data(0, kNameRole).toString()
                            : kind == category  ? item->parent()->data(0, kNameRole).toString()
                                                : QString();
        const QString group = kind == category ? item->data(0, kNameRole).toString() : QString();
        emit filesDropped(paths, app, group);
        return;
    }
    event->setDropAction(Qt::IgnoreAction);
    event->accept();
    const auto target = categoryDropAt(event->position().toPoint());
    if (!target || !event->mimeData()->hasFormat(kCategoryMimeType))
        return;
    const QString moved = QString::fromUtf8(event->mimeData()->data(kCategoryMimeType));
    const QString before = target->has_value() ? qs(**target) : QString();
    if (moved == before)
        return;
    emit categoryMoved(moved, before);
}

} // namespace varnel
