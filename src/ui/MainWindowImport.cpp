// Bringing screens in from files: new empty flows, imports of files and folders, drops from a
// file manager, and what an empty library shows.
#include "ui/MainWindow.h"

#include "app/AppSettings.h"
#include "model/FlowLibrary.h"
#include "model/LibraryChanges.h"
#include "model/LibraryHistory.h"
#include "ui/GalleryView.h"
#include "ui/ImportDialogs.h"
#include "ui/LibrarySidebar.h"
#include "ui/Messages.h"

#include <QApplication>
#include <QEvent>
#include <QFileDialog>
#include <QMessageBox>
#include <QProgressDialog>

namespace varnel {

namespace {

const char* kScreenFiles = QT_TRANSLATE_NOOP(
    "MainWindow", "Pictures and clips (*.png *.jpg *.jpeg *.heic *.heif *.mov *.mp4 *.m4v "
                  "*.PNG *.JPG *.JPEG *.HEIC *.HEIF *.MOV *.MP4 *.M4V);;All files (*)");

std::vector<std::filesystem::path> pathsOf(const QStringList& files) {
    std::vector<std::filesystem::path> paths;
    for (const auto& file : files)
        paths.emplace_back(file.toStdString());
    return paths;
}

} // namespace

void MainWindow::addScreensToFlow() {
    const auto flow = gallery_->currentFlow();
    if (!flow)
        return;
    const QStringList files = QFileDialog::getOpenFileNames(
        this, tr("Add Screens to Flow"), startFolder(QStandardPaths::PicturesLocation),
        tr(kScreenFiles));
    if (!files.isEmpty())
        dropFiles(pathsOf(files), *flow, std::numeric_limits<std::size_t>::max());
}

void MainWindow::importScreens() {
    const QStringList files = QFileDialog::getOpenFileNames(
        this, tr("Import Screens"), startFolder(QStandardPaths::PicturesLocation),
        tr(kScreenFiles));
    if (!files.isEmpty())
        importPaths(pathsOf(files), selectedApplication(), std::nullopt, true);
}

void MainWindow::importFolder() {
    const QString folder = QFileDialog::getExistingDirectory(
        this, tr("Import Folder"), startFolder(QStandardPaths::PicturesLocation));
    if (!folder.isEmpty())
        importPaths(pathsOf({folder}), selectedApplication(), std::nullopt, true);
}

void MainWindow::newFlow() {
    NewFlowDialog dialog(library_.summaries(), selectedApplication(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    FlowSummary made;
    if (!attempt(tr("Couldn’t make the flow"), [&] {
            made = library_.createEmptyFlow(dialog.application(), dialog.name(), dialog.category(),
                                            Date::now());
            history_->record(LibraryChanges::createdFlow(library_, made.folderName, "New Flow"));
        }))
        return;
    // The sidebar shows the flow's application, where the new band is.
    if (const auto shown = sidebar_->selectedApplication(); shown && shown != made.application) {
        settings_.setSelectedApp(made.application);
        refresh();
    }
    gallery_->selectFlow(made.folderName);
    gallery_->scrollToFlow(made.folderName);
    showTransient(tr("Made the flow “%1”").arg(qs(made.name)));
    undoButton_->show();
}

void MainWindow::importPaths(const std::vector<std::filesystem::path>& paths,
                             const std::optional<std::string>& application,
                             const std::optional<std::string>& category, bool confirm) {
    if (paths.empty())
        return;
    ScreenImport::Plan plan = ScreenImport::plan(paths);
    plan.application = application.value_or("");
    plan.category = category;
    if (plan.flows.empty()) {
        runImport(plan, true); // says why nothing can come in
        return;
    }
    if (confirm || plan.application.empty()) {
        ImportPlanDialog dialog(plan, library_.summaries(), this);
        if (dialog.exec() != QDialog::Accepted)
            return;
        plan = dialog.plan();
    }
    runImport(plan, confirm);
}

bool MainWindow::recordImport(const ScreenImport::Report& report,
                              const std::optional<std::string>& target,
                              std::optional<std::size_t> insertAt) {
    std::vector<std::unique_ptr<LibraryChange>> changes;
    std::size_t added = 0;
    attempt(tr("Couldn’t place the screens"), [&] {
        for (const auto& folder : report.createdFlows)
            changes.push_back(LibraryChanges::createdFlow(library_, folder, "Import"));
        for (const auto& [folder, files] : report.addedScreens) {
            // Dropped between screens: they go there, and undo knows them at their places.
            const auto placed = insertAt && target && folder == *target
                                    ? placeAppended(folder, files, *insertAt)
                                    : files;
            added += placed.size();
            changes.push_back(LibraryChanges::addedScreens(library_, folder, placed, "Add"));
        }
    });
    if (changes.empty())
        return false;
    const std::string name = !report.createdFlows.empty() ? "Import Screens"
                             : added == 1                 ? "Add Screen"
                                                          : "Add Screens";
    history_->record(LibraryChanges::together(name, std::move(changes)));
    return true;
}

ScreenImport::Report MainWindow::runImport(const ScreenImport::Plan& plan, bool alwaysSummarize,
                                           std::optional<std::size_t> insertAt) {
    ScreenImport::Report report;
    report.skipped = plan.skipped;
    if (!plan.flows.empty()) {
        QProgressDialog progress(tr("Importing screens…"), tr("Cancel"), 0,
                                 static_cast<int>(plan.fileCount()), this);
        progress.setObjectName("importProgress");
        progress.setWindowTitle(tr("Import Screens"));
        progress.setWindowModality(Qt::WindowModal);
        progress.setMinimumDuration(400);
        progress.setAutoClose(false);
        progress.setValue(0);
        try {
            report = ScreenImport::run(library_, plan, [&](const ScreenImport::Progress& now) {
                progress.setMaximum(static_cast<int>(now.total));
                progress.setValue(static_cast<int>(now.done));
                progress.setLabelText(
                    tr("Importing screens… %1 of %2").arg(now.done).arg(now.total));
                QApplication::processEvents();
                return !progress.wasCanceled();
            });
        } catch (const std::exception& e) {
            showError(this, tr("Couldn’t import the screens"), qs(e.what()));
            return report;
        }
    }
    lastImport_ = report;
    const bool undoable = recordImport(report, plan.targetFlow, insertAt);

    // The gallery goes to what came in.
    std::optional<std::string> shown;
    if (!report.createdFlows.empty())
        shown = report.createdFlows.front();
    else if (!report.addedScreens.empty())
        shown = report.addedScreens.begin()->first;
    if (shown) {
        const auto selected = sidebar_->selectedApplication();
        if (selected && !plan.targetFlow && *selected != plan.application) {
            settings_.setSelectedApp(plan.application);
            refresh();
        }
        gallery_->selectFlow(*shown);
        gallery_->scrollToFlow(*shown);
    }
    const QString summary = qs(report.summary());
    showTransient(summary);
    undoButton_->setVisible(undoable);
    if (!alwaysSummarize && report.skipped.empty() && !report.cancelled)
        return report;
    auto* box = new QMessageBox(report.failure || report.screens == 0 ? QMessageBox::Warning
                                                                      : QMessageBox::Information,
                                tr("Import Screens"), summary, QMessageBox::Ok, this);
    box->setObjectName("importSummary");
    const auto lines = report.skippedLines();
    if (!lines.empty()) {
        QStringList shownLines;
        for (std::size_t i = 0; i < lines.size() && i < 8; ++i)
            shownLines << qs(lines[i]);
        if (lines.size() > 8)
            shownLines << tr("…and %1 more (Show Details…)").arg(lines.size() - 8);
        box->setInformativeText(tr("Skipped:") + "\n" + shownLines.join("\n"));
        if (lines.size() > 8)
            box->setDetailedText(qsList(lines).join("\n"));
    }
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
    return report;
}

void MainWindow::showEmptyLibrary() {
    const bool empty = library_.summaries().empty() && !library_.loadError();
    emptyLibrary_->setGeometry(gallery_->viewport()->rect());
    emptyLibrary_->setVisible(empty);
    emptyLibrary_->setEnabled(!library_.readOnlyReason());
}

} // namespace varnel
