#pragma once

#include <QDialog>
#include <QPointer>

class QLineEdit;
class QMenuBar;
class QTreeWidget;

namespace varnel {

// Help ▸ Keyboard Shortcuts: every command of a window's menus that has a shortcut, grouped by
// menu, read from the menus' own actions each time it opens, and searchable.
class ShortcutsWindow : public QDialog {
    Q_OBJECT

public:
    ShortcutsWindow(QMenuBar* menus, QWidget* parent);

    QLineEdit* searchField() const { return search_; }
    QTreeWidget* list() const { return list_; }
    // Reads the menus again.
    void rebuild();
    // The rows shown now, as "Menu ▸ Command — Shortcut".
    QStringList shownRows() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void filter(const QString& text);

    QPointer<QMenuBar> menus_;
    QLineEdit* search_;
    QTreeWidget* list_;
};

} // namespace varnel
