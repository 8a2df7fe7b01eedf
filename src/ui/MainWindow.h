#pragma once

#include <QMainWindow>

#include <optional>
#include <string>

class QTreeWidget;
class QLabel;
class QAction;

namespace varnel {

class AppSettings;
class FlowLibrary;

// The library at a glance: applications, their categories and flows, and the commands that
// work on a whole application.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    MainWindow(FlowLibrary& library, AppSettings& settings, QWidget* parent = nullptr);

    // The application of the selected row, if any.
    std::optional<std::string> selectedApplication() const;

    void exportApplication();
    void importApplication();
    void deleteApplication();
    void showSettings();

signals:
    // The user chose another library folder in the settings.
    void libraryFolderChosen(const QString& folder);

private:
    void refresh();
    void updateActions();
    void importInspected(const std::string& zipFile);

    FlowLibrary& library_;
    AppSettings& settings_;
    QTreeWidget* tree_;
    QLabel* status_;
    QAction* exportAction_;
    QAction* importAction_;
    QAction* deleteAction_;
};

} // namespace varnel
