#pragma once

#ifndef Q_MOC_RUN
#include "library/TrashEntry.h"

#include <vector>
#endif

#include <QDialog>

class QPushButton;
class QTreeWidget;

namespace varnel {

class FlowLibrary;

// What was deleted from the library, newest first: put back, or deleted for good.
class TrashWindow : public QDialog {
    Q_OBJECT

public:
    TrashWindow(FlowLibrary& library, QWidget* parent = nullptr);

    QTreeWidget& list() const { return *list_; }
    void refresh();
    // Removed for good, after asking: the chosen entries, or everything.
    void deleteChosen();
    void emptyTrash();

signals:
    // The window asks; the main window puts it back, so that it can be undone.
    void putBack(const varnel::TrashEntry& entry);

private:
    std::vector<TrashEntry> chosen() const;
    void updateButtons();

    FlowLibrary& library_;
    std::vector<TrashEntry> entries_;
    QTreeWidget* list_;
    QPushButton* putBack_;
    QPushButton* delete_;
    QPushButton* empty_;
};

} // namespace varnel
