#include "ui/MainWindow.h"

#include "library/AppArchive.h"
#include "library/FlowLibrary.h"
#include "organization/LibraryGrouping.h"
#include "ui/SettingsWindow.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFutureWatcher>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTreeWidget>
#include <QtConcurrent>

#include <algorithm>
#include <map>
#include <variant>

namespace varnel {

namespace {

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

constexpr int kApplicationRole = Qt::UserRole + 1;

void showError(QWidget* parent, const QString& title, const QString& description) {
    QMessageBox box(QMessageBox::Warning, title, title, QMessageBox::Ok, parent);
    box.setInformativeText(description);
    box.exec();
}

// A standard folder to start a file dialog in, or the home folder when it doesn't exist.
QString startFolder(QStandardPaths::StandardLocation location) {
    const QString folder = QStandardPaths::writableLocation(location);
    return QDir(folder).exists() ? folder : QDir::homePath();
}

QProgressDialog* busy(QWidget* parent, const QString& text) {
    auto* progress = new QProgressDialog(text, QString(), 0, 100, parent);
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(300);
    progress->setAutoClose(false);
    progress->setValue(0);
    return progress;
}

} // namespace

MainWindow::MainWindow(FlowLibrary& library, AppSettings& settings, QWidget* parent)
    : QMainWindow(parent), library_(library), settings_(settings), tree_(new QTreeWidget(this)),
      status_(new QLabel(this)) {
    setWindowTitle("Varnel");
    tree_->setColumnCount(2);
    tree_->setHeaderLabels({tr("Flow"), tr("Screens")});
    tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    setCentralWidget(tree_);
    statusBar()->addWidget(status_, 1);

    QMenu* file = menuBar()->addMenu(tr("&File"));
    importAction_ =
        file->addAction(tr("Import Application…"), this, &MainWindow::importApplication);
    importAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+I")));
    exportAction_ =
        file->addAction(tr("Export Application…"), this, &MainWindow::exportApplication);
    exportAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+E")));
    file->addSeparator();
    deleteAction_ =
        file->addAction(tr("Delete Application…"), this, &MainWindow::deleteApplication);
    file->addSeparator();
    QAction* preferences = file->addAction(tr("Settings…"), this, &MainWindow::showSettings);
    preferences->setShortcut(QKeySequence(tr("Ctrl+,")));
    preferences->setMenuRole(QAction::PreferencesRole);
    file->addSeparator();
    file->addAction(tr("Quit"), qApp, &QApplication::quit)->setShortcut(QKeySequence::Quit);

    connect(&library_, &FlowLibrary::changed, this, &MainWindow::refresh);
    connect(tree_, &QTreeWidget::itemSelectionChanged, this, &MainWindow::updateActions);
    refresh();
}

std::optional<std::string> MainWindow::selectedApplication() const {
    const auto items = tree_->selectedItems();
    if (items.isEmpty())
        return std::nullopt;
    return items.first()->data(0, kApplicationRole).toString().toStdString();
}

void MainWindow::updateActions() {
    const bool selected = selectedApplication().has_value();
    exportAction_->setEnabled(selected);
    deleteAction_->setEnabled(selected);
}

void MainWindow::exportApplication() {
    const auto application = selectedApplication();
    if (!application)
        return;
    const QString title = tr("Couldn’t export “%1”").arg(qs(*application));
    const QString documents = startFolder(QStandardPaths::DocumentsLocation);
    const QString destination = QFileDialog::getSaveFileName(
        this, tr("Export Application"),
        documents + "/" + qs(*application) + qs(std::string(AppArchive::kExtension)),
        tr("Varnel application archives (*.varnel.zip)"));
    if (destination.isEmpty())
        return;

    QProgressDialog* progress = busy(this, tr("Exporting “%1”…").arg(qs(*application)));
    auto* watcher = new QFutureWatcher<QString>(this);
    const std::filesystem::path target = destination.toStdString();
    const std::string name = *application;
    FlowLibrary* library = &library_;
    watcher->setFuture(QtConcurrent::run([library, name, target, progress]() -> QString {
        try {
            const auto flows = library->exportApplication(name, target, [progress](double done) {
                QMetaObject::invokeMethod(progress, "setValue", Qt::QueuedConnection,
                                          Q_ARG(int, static_cast<int>(done * 100)));
            });
            return flows == 0 ? tr("Nothing to export") : QString();
        } catch (const std::exception& e) {
            return QString::fromStdString(e.what());
        }
    }));
    connect(watcher, &QFutureWatcher<QString>::finished, this,
            [this, watcher, progress, title, destination] {
                progress->deleteLater();
                watcher->deleteLater();
                const QString problem = watcher->result();
                if (problem == tr("Nothing to export"))
                    QMessageBox::information(this, problem, problem);
                else if (!problem.isEmpty())
                    showError(this, title, problem);
                else
                    status_->setText(tr("Exported to %1").arg(destination));
            });
}

void MainWindow::importApplication() {
    const QString zipFile = QFileDialog::getOpenFileName(
        this, tr("Import Application"), startFolder(QStandardPaths::DownloadLocation),
        tr("Varnel application archives (*.varnel.zip *.zip)"));
    if (!zipFile.isEmpty())
        importInspected(zipFile.toStdString());
}

void MainWindow::importInspected(const std::string& zipFile) {
    QProgressDialog* progress = busy(this, tr("Reading the archive…"));
    progress->setRange(0, 0);
    using Outcome = std::variant<FlowLibrary::ArchiveInspection, QString>;
    auto* watcher = new QFutureWatcher<Outcome>(this);
    const FlowLibrary* library = &library_;
    watcher->setFuture(QtConcurrent::run([library, zipFile]() -> Outcome {
        try {
            return library->inspectArchive(zipFile);
        } catch (const std::exception& e) {
            return QString::fromStdString(e.what());
        }
    }));
    connect(watcher, &QFutureWatcher<Outcome>::finished, this, [this, watcher, progress] {
        progress->close();
        progress->deleteLater();
        watcher->deleteLater();
        const Outcome outcome = watcher->result();
        if (const auto* problem = std::get_if<QString>(&outcome)) {
            showError(this, tr("Couldn’t import the archive"), *problem);
            return;
        }
        const auto& inspection = std::get<FlowLibrary::ArchiveInspection>(outcome);
        ImportConflictResolution resolution = ImportConflictResolution::replace;
        if (inspection.conflicts > 0) {
            QMessageBox question(QMessageBox::Question,
                                 qs(AppArchive::conflictQuestion(inspection.conflicts)),
                                 qs(AppArchive::conflictQuestion(inspection.conflicts)),
                                 QMessageBox::NoButton, this);
            question.setInformativeText(qs(std::string(AppArchive::kConflictExplanation)));
            QPushButton* replace = question.addButton(tr("Replace"), QMessageBox::AcceptRole);
            QPushButton* duplicate = question.addButton(tr("Duplicate"), QMessageBox::AcceptRole);
            question.addButton(QMessageBox::Cancel);
            question.setDefaultButton(duplicate);
            question.exec();
            if (question.clickedButton() != replace && question.clickedButton() != duplicate) {
                inspection.extracted.cleanup();
                return;
            }
            if (question.clickedButton() == duplicate)
                resolution = ImportConflictResolution::duplicate;
        }
        try {
            const ImportResult result = library_.importArchive(inspection.extracted, resolution);
            status_->setText(tr("Imported %1 flows into “%2”")
                                 .arg(result.folders.size())
                                 .arg(qs(result.application)));
            if (!result.skipped.empty()) {
                QStringList reasons;
                for (const auto& why : result.skipped)
                    reasons << qs(why);
                showError(this, tr("Some flows couldn’t be imported"), reasons.join("\n"));
            }
        } catch (const std::exception& e) {
            showError(this, tr("Couldn’t import the archive"), qs(e.what()));
        }
    });
}

void MainWindow::showSettings() {
    auto* window = findChild<SettingsWindow*>();
    if (!window) {
        window = new SettingsWindow(settings_, this);
        connect(window, &SettingsWindow::libraryFolderChosen, this,
                &MainWindow::libraryFolderChosen);
    }
    window->show();
    window->raise();
    window->activateWindow();
}

void MainWindow::deleteApplication() {
    const auto application = selectedApplication();
    if (!application)
        return;
    QMessageBox confirm(QMessageBox::Warning, tr("Delete “%1”?").arg(qs(*application)),
                        tr("Delete “%1”?").arg(qs(*application)), QMessageBox::Cancel, this);
    const auto flows =
        AppArchive::flowsOf(LibraryIndex{library_.summaries(), {}}, *application).size();
    confirm.setInformativeText(
        (flows == 1 ? tr("Its flow and all its screens are deleted.")
                    : tr("Its %1 flows and all their screens are deleted.").arg(flows)) +
        " " + tr("This can’t be undone."));
    QPushButton* remove = confirm.addButton(tr("Delete"), QMessageBox::DestructiveRole);
    confirm.setDefaultButton(QMessageBox::Cancel);
    confirm.exec();
    if (confirm.clickedButton() != remove)
        return;
    try {
        library_.deleteApplication(*application);
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t delete “%1”").arg(qs(*application)), qs(e.what()));
    }
}

void MainWindow::refresh() {
    tree_->clear();
    // Applications by name, "Sans application" after them; categories in the user's order.
    // One pass puts each flow with its application; "Sans application" comes after the named.
    std::map<std::string, std::vector<FlowSummary>> byApplication;
    for (const auto& flow : library_.summaries())
        byApplication[flow.application.value_or(std::string(AppArchive::kSansApplication))]
            .push_back(flow);
    std::vector<std::string> applications = library_.applications();
    if (byApplication.contains(std::string(AppArchive::kSansApplication)) &&
        std::find(applications.begin(), applications.end(), AppArchive::kSansApplication) ==
            applications.end())
        applications.emplace_back(AppArchive::kSansApplication);
    for (const auto& app : applications) {
        auto* appItem = new QTreeWidgetItem(tree_, {qs(app)});
        appItem->setData(0, kApplicationRole, qs(app));
        for (const auto& group :
             LibraryGrouping::group(byApplication[app], library_.categoryOrder())) {
            auto* categoryItem = new QTreeWidgetItem(appItem, {qs(group.name)});
            categoryItem->setData(0, kApplicationRole, qs(app));
            for (const FlowSummary& flow : group.flows) {
                auto* item = new QTreeWidgetItem(
                    categoryItem, {qs(flow.name), QString::number(flow.screenCount)});
                item->setData(0, kApplicationRole, qs(app));
            }
        }
    }
    tree_->expandAll();
    updateActions();

    const auto flows = library_.summaries().size();
    QString text = tr("Library: %1 — %2 %3")
                       .arg(QString::fromStdString(library_.root().string()))
                       .arg(flows)
                       .arg(flows == 1 ? tr("flow") : tr("flows"));
    if (const auto& error = library_.loadError())
        text = tr("Couldn’t read the library: %1").arg(qs(*error));
    const auto& report = library_.recoveryReport();
    if (const auto recovered = report.recoveredFlows.size(); recovered > 0)
        text += recovered == 1 ? tr(" — recovered an interrupted capture")
                               : tr(" — recovered %1 interrupted captures").arg(recovered);
    status_->setText(text);
}

} // namespace varnel
