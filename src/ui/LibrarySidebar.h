#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/FlowSummary.h"

#include <optional>
#include <string>
#include <vector>
#endif

#include <QTreeWidget>

namespace varnel {

// "All", then the applications; under the selected application its categories in the
// user's order, which the user rearranges by dragging one onto another.
class LibrarySidebar : public QTreeWidget {
    Q_OBJECT

public:
    static constexpr int kKindRole = Qt::UserRole + 1;
    static constexpr int kNameRole = Qt::UserRole + 2;
    enum Kind { all, application, category };

    explicit LibrarySidebar(QWidget* parent = nullptr);

    // Rebuilds the list; `selected` is the application to select (none: "All").
    void setLibrary(const std::vector<FlowSummary>& summaries,
                    const std::vector<std::string>& categoryOrder,
                    const std::optional<std::string>& selected);
    const std::optional<std::string>& selectedApplication() const { return selected_; }

    // Where a category dragged to `point` goes: before the returned category, or to the end
    // (none). Nothing when `point` is not on a category of the selected application.
    std::optional<std::optional<std::string>> categoryDropAt(QPoint point) const;

signals:
    void applicationSelected(const QString& application); // empty for "All"
    void categoryClicked(const QString& application, const QString& category);
    // The user dropped `category` before `before` (empty: at the end).
    void categoryMoved(const QString& category, const QString& before);
    // Files or folders from outside dropped on an application or one of its categories (empty
    // names: on "All").
    void filesDropped(const QStringList& paths, const QString& application,
                      const QString& category);

protected:
    // A focus ring on the current row while the list has the keyboard focus.
    void drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                 const QModelIndex& index) const override;
    void focusInEvent(QFocusEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QList<QTreeWidgetItem*>& items) const override;

private:
    void itemPicked(QTreeWidgetItem* item);
    QTreeWidgetItem* categoryItemAt(QPoint point) const;
    static bool carriesFiles(const QMimeData* mime);

    std::optional<std::string> selected_;
    bool rebuilding_ = false;
    bool pressing_ = false;
    QTreeWidgetItem* pendingPick_ = nullptr; // picked by a click not yet released
};

} // namespace varnel
