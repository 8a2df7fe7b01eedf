#include "archive/AppArchive.h"
#include "model/FlowLibrary.h"
#include "model/LibraryChanges.h"
#include "model/LibraryHistory.h"
#include "ui/MainWindow.h"
#include "ui/Messages.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QtConcurrent>

#include <variant>

// The commands that work on a whole application: its archive out and in, and its deletion.
namespace varnel {

void MainWindow::exportApplication() {
    exportArchive(false);
}

void MainWindow::exportApplicationWithoutOriginals() {
    exportArchive(true);
}

void MainWindow::exportArchive(bool withoutOriginals) {
    const auto application = selectedApplication();
    if (!application)
        return;
    const QString title = tr("Couldn’t export “%1”").arg(qs(*application));
    const QString documents = startFolder(QStandardPaths::DocumentsLocation);
    // Its own default name, so that the copy to share doesn't replace the full archive unasked.
    const QString suggested =
        withoutOriginals ? tr("%1 without originals").arg(qs(*application)) : qs(*application);
    const QString destination = QFileDialog::getSaveFileName(
        this,
        withoutOriginals ? tr("Export Application Without Originals") : tr("Export Application"),
        documents + "/" + suggested + qs(std::string(AppArchive::kExtension)),
        tr("Varnel application archives (*.varnel.zip)"));
    if (destination.isEmpty())
        return;

    QProgressDialog* progress = busy(this, tr("Exporting “%1”…").arg(qs(*application)));
    auto* watcher = new QFutureWatcher<QString>(this);
    const std::filesystem::path target = destination.toStdString();
    const std::string name = *application;
    const auto content = withoutOriginals ? AppArchive::ExportContent::withoutOriginals
                                          : AppArchive::ExportContent::everything;
    FlowLibrary* library = &library_;
    watcher->setFuture(QtConcurrent::run([library, name, target, content, progress]() -> QString {
        try {
            const auto flows =
                library->exportApplication(name, target, content, [progress](double done) {
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
                    QMessageBox::information(this, tr("Export Application"), problem);
                else if (!problem.isEmpty())
                    showError(this, title, problem);
                else
                    showTransient(tr("Exported to %1").arg(destination));
            });
}

void MainWindow::importApplication() {
    const QString zipFile = QFileDialog::getOpenFileName(
        this, tr("Import Application"), startFolder(QStandardPaths::DownloadLocation),
        tr("Varnel application archives (*.varnel.zip *.zip)"));
    if (!zipFile.isEmpty())
        importInspected(zipFile.toStdString());
}

void MainWindow::offerImport(const QString& zipFile) {
    if (const auto& reason = library_.readOnlyReason()) {
        showError(this, tr("Couldn’t import the archive"),
                  tr("The library is open read-only: %1").arg(qs(*reason)));
        return;
    }
    QMessageBox question(
        QMessageBox::Question, tr("Import Application…"),
        tr("Import the application in “%1” into this library?").arg(QFileInfo(zipFile).fileName()),
        QMessageBox::Cancel, this);
    question.setInformativeText(QDir::toNativeSeparators(QFileInfo(zipFile).absolutePath()));
    QPushButton* import = question.addButton(tr("Import"), QMessageBox::AcceptRole);
    question.setDefaultButton(import);
    question.exec();
    if (question.clickedButton() == import)
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
            QMessageBox question(QMessageBox::Question, tr("Import Application"),
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
            // Flows that came in beside the library's own can go again; flows that replaced
            // others can't come back as they were, so that import is not kept for undo.
            const bool replaced =
                inspection.conflicts > 0 && resolution == ImportConflictResolution::replace;
            std::vector<std::unique_ptr<LibraryChange>> made;
            if (!replaced)
                for (const auto& folder : result.folders)
                    made.push_back(LibraryChanges::createdFlow(library_, folder, "Import"));
            const QString message = tr("Imported %1 flows into “%2”")
                                        .arg(result.folders.size())
                                        .arg(qs(result.application));
            if (made.empty())
                showTransient(message);
            else
                recorded(LibraryChanges::together("Import Application", std::move(made)), message);
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

void MainWindow::deleteApplication() {
    const auto application = selectedApplication();
    if (!application)
        return;
    // Into the trash with every flow, and undoable.
    std::vector<std::string> folders;
    for (const auto& flow :
         AppArchive::flowsOf(LibraryIndex{library_.summaries(), {}}, *application))
        folders.push_back(flow.folderName);
    if (folders.empty())
        return;
    try {
        recorded(
            LibraryChanges::deleteFlows(library_, folders, "Delete Application"),
            folders.size() == 1
                ? tr("Deleted “%1” and its flow").arg(qs(*application))
                : tr("Deleted “%1” and its %2 flows").arg(qs(*application)).arg(folders.size()));
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t delete “%1”").arg(qs(*application)), qs(e.what()));
    }
}

} // namespace varnel
