#pragma once

#include <QMainWindow>

class QTreeWidget;
class QLabel;

namespace varnel {

class FlowLibrary;

// The library at a glance: applications, their categories and flows.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(FlowLibrary& library, QWidget* parent = nullptr);

private:
    void refresh();

    FlowLibrary& library_;
    QTreeWidget* tree_;
    QLabel* status_;
};

} // namespace varnel
