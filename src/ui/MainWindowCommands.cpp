#include "model/FlowLibrary.h"
#include "model/LibraryChanges.h"
#include "model/LibraryHistory.h"
#include "ui/CategorizeDialog.h"
#include "ui/GalleryView.h"
#include "ui/MainWindow.h"
#include "ui/TrashWindow.h"

#include "app/AppSettings.h"
#include "figma/FigmaPlugin.h"
#include "text/ApertiumEngine.h"
#include "text/LibreTranslateEngine.h"
#include "ui/EditorCanvas.h"
#include "ui/FigmaFlowBar.h"
#include "ui/Messages.h"
#include "ui/ScreenEditor.h"
#include "ui/ScreenPreview.h"
#include "ui/TranslationOverlay.h"

#include <QDesktopServices>
#include <QInputDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#include <algorithm>

// The commands on screens and flows, and what a drop on the gallery does.
namespace varnel {

bool MainWindow::attempt(const QString& title, const std::function<void()>& change) {
    try {
        change();
        return true;
    } catch (const std::exception& e) {
        showError(this, title, qs(e.what()));
        return false;
    }
}

void MainWindow::recorded(std::unique_ptr<LibraryChange> change, const QString& message) {
    const LibraryChange& kept = *change;
    history_->record(std::move(change));
    selectTouched(kept);
    if (message.isEmpty())
        return;
    showTransient(message);
    undoButton_->setToolTip(tr("Undo %1").arg(qs(kept.name())));
    undoButton_->show();
}

void MainWindow::selectTouched(const LibraryChange& change) {
    if (!change.touched().empty()) {
        gallery_->selectScreens(change.touched());
        gallery_->scrollToFlow(change.touched().front().folder);
        gallery_->selectScreens(change.touched());
    } else if (const auto& flow = change.touchedFlow()) {
        gallery_->scrollToFlow(*flow);
    }
}

void MainWindow::undo() {
    if (!history_->canUndo())
        return;
    const QString name = qs(history_->undoName());
    try {
        const LibraryChange& undone = history_->undo();
        selectTouched(undone);
        showTransient(tr("Undid “%1”").arg(name));
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t undo “%1”").arg(name), qs(e.what()));
    }
}

void MainWindow::redo() {
    if (!history_->canRedo())
        return;
    const QString name = qs(history_->redoName());
    try {
        const LibraryChange& redone = history_->redo();
        selectTouched(redone);
        showTransient(tr("Redid “%1”").arg(name));
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t redo “%1”").arg(name), qs(e.what()));
    }
}

void MainWindow::updateUndoActions() {
    const bool writable = !library_.readOnlyReason();
    undoAction_->setEnabled(writable && history_->canUndo());
    undoAction_->setText(history_->canUndo() ? tr("Undo %1").arg(qs(history_->undoName()))
                                             : tr("Undo"));
    redoAction_->setEnabled(writable && history_->canRedo());
    redoAction_->setText(history_->canRedo() ? tr("Redo %1").arg(qs(history_->redoName()))
                                             : tr("Redo"));
    if (!history_->canUndo())
        undoButton_->hide();
}

void MainWindow::showTrash() {
    auto* window = findChild<TrashWindow*>();
    if (!window) {
        window = new TrashWindow(library_, this);
        connect(window, &TrashWindow::putBack, this, [this](const TrashEntry& entry) {
            attempt(tr("Couldn’t put it back"), [&] {
                recorded(LibraryChanges::putBack(library_, entry),
                         tr("Put back %1").arg(qs(entry.description())));
            });
        });
    }
    window->show();
    window->raise();
    window->activateWindow();
}

std::vector<std::string> MainWindow::selectedInCurrentFlow() const {
    std::vector<std::string> names;
    const auto& current = gallery_->currentScreen();
    if (!current)
        return names;
    for (const auto& screen : gallery_->selectedScreens())
        if (screen.folder == current->folder)
            names.push_back(screen.filename);
    if (names.empty())
        names.push_back(current->filename);
    return names;
}

void MainWindow::showPreview() {
    const auto& current = gallery_->currentScreen();
    if (!current)
        return;
    if (!preview_) {
        preview_ = new ScreenPreview(library_, thumbnails_, *gallery_, this);
        preview_->setShowsText(showTextAction_->isChecked());
        applyTranslation();
        preview_->setTranslatesWholeScreen(wholeScreenAction_->isChecked());
    }
    preview_->showScreen(*current);
    preview_->show();
    preview_->raise();
    preview_->activateWindow();
}

void MainWindow::applyTranslation() {
    // Apertium on this computer first; a server only when the user set one.
    // A library open read-only is never written, translations included.
    translationKeeps_ = !library_.readOnlyReason();
    auto translate = [root = library_.root(), server = settings_.translationServer(),
                      keep = translationKeeps_](const ScreenID& screen, const std::string& to) {
        const FlowStore store(root);
        const ApertiumEngine apertium;
        std::vector<const TranslationEngine*> engines{&apertium};
        std::optional<LibreTranslateEngine> libre;
        if (!server.empty())
            engines.push_back(&libre.emplace(server));
        return ScreenTranslator::translate(store, screen.folder, screen.filename, to, engines,
                                           keep);
    };
    if (preview_)
        preview_->setTranslation(settings_.showTranslation(), settings_.translationLanguage(),
                                 translate);
    if (editor_) {
        editor_->translation().setTranslation(settings_.showTranslation(),
                                              settings_.translationLanguage(), translate);
        editor_->canvas().update();
    }
}

void MainWindow::renameScreen() {
    const auto current = gallery_->currentScreen();
    if (!current)
        return;
    QString name;
    try {
        if (const ScreenRef* ref = library_.meta(current->folder).screen(current->filename))
            name = qs(ref->name.value_or(""));
    } catch (const std::exception&) {
    }
    bool ok = false;
    const QString chosen =
        QInputDialog::getText(this, tr("Rename Screen"), tr("Name shown under the screen:"),
                              QLineEdit::Normal, name, &ok);
    if (!ok)
        return;
    if (chosen.trimmed() == name.trimmed())
        return;
    if (attempt(tr("Couldn’t rename the screen"), [&] {
            recorded(LibraryChanges::renameScreen(library_, current->folder, current->filename,
                                                  chosen.toStdString()));
        }))
        gallery_->selectScreen(*current);
}

ScreenEditor* MainWindow::editor() const {
    return editor_;
}

void MainWindow::editScreen() {
    const auto current = gallery_->currentScreen();
    if (!current)
        return;
    if (editor_ && editor_->folder() == current->folder) {
        editor_->showScreen(current->filename);
    } else {
        if (editor_ && !editor_->close())
            return;
        attempt(tr("Couldn’t open the editor"), [&] {
            editor_ = new ScreenEditor(library_, settings_, current->folder, current->filename,
                                       this, figma_);
            editor_->setWindowFlag(Qt::Window);
            applyTranslation();
            editor_->translation().setWholeScreen(wholeScreenAction_->isChecked());
        });
    }
    if (!editor_)
        return;
    editor_->show();
    editor_->raise();
    editor_->activateWindow();
}

void MainWindow::revertToOriginal() {
    const auto current = gallery_->currentScreen();
    if (!current || !library_.hasOriginal(current->folder, current->filename))
        return;
    if (!confirmDestructive(this,
                            tr("Revert this screen to the original? All blur zones and clone "
                               "patches will be discarded."),
                            {}, tr("Revert")))
        return;
    library_.revertScreen(current->folder, current->filename);
    gallery_->selectScreen(*current);
}

void MainWindow::duplicateScreens() {
    const auto current = gallery_->currentScreen();
    if (!current)
        return;
    const auto names = selectedInCurrentFlow();
    attempt(tr("Couldn’t duplicate the screens"), [&] {
        const auto copies =
            LibraryChanges::copiesMade(library_.duplicateScreens(current->folder, names));
        recorded(LibraryChanges::addedScreens(library_, current->folder, copies,
                                              copies.size() == 1 ? "Duplicate Screen"
                                                                 : "Duplicate Screens"));
    });
}

void MainWindow::deleteSelection() {
    const auto current = gallery_->currentScreen();
    if (!current) {
        deleteFlow();
        return;
    }
    // Into the trash, and undoable: no question first, as a file manager does.
    const auto names = selectedInCurrentFlow();
    const std::string folder = current->folder;
    attempt(tr("Couldn’t delete the screens"), [&] {
        recorded(LibraryChanges::deleteScreens(library_, folder, names),
                 names.size() == 1 ? tr("Deleted a screen")
                                   : tr("Deleted %1 screens").arg(names.size()));
    });
    // The screens renumbered into the deleted ones' names were not picked: none is selected.
    if (gallery_->content().rowOfFlow(folder))
        gallery_->selectFlow(folder);
    else
        gallery_->selectScreens({});
}

void MainWindow::renameFlow() {
    const auto folder = gallery_->currentFlow();
    if (!folder)
        return;
    QString name;
    try {
        name = qs(library_.meta(*folder).name);
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t rename the flow"), qs(e.what()));
        return;
    }
    bool ok = false;
    const QString chosen = QInputDialog::getText(this, tr("Rename Flow"), tr("Flow name:"),
                                                 QLineEdit::Normal, name, &ok)
                               .trimmed();
    if (!ok || chosen.isEmpty() || chosen == name)
        return;
    attempt(tr("Couldn’t rename the flow"),
            [&] { recorded(LibraryChanges::renameFlow(library_, *folder, chosen.toStdString())); });
}

void MainWindow::categorizeFlow() {
    // The dialog saves by itself: what it changed is recorded from the flow before and after.
    std::optional<FlowSummary> before;
    for (const auto& flow : library_.summaries())
        if (gallery_->currentFlow() && flow.folderName == *gallery_->currentFlow())
            before = flow;
    CategorizeDialog dialog(library_, gallery_->currentFlow(), this);
    if (dialog.exec() != QDialog::Accepted || !dialog.savedFolder())
        return;
    if (before)
        attempt(tr("Couldn’t categorize the flow"), [&] {
            recorded(LibraryChanges::refiled(library_, before->id, before->application,
                                             before->categoryL1));
        });
    gallery_->scrollToFlow(*dialog.savedFolder());
}

void MainWindow::showFlowInFileManager() {
    if (const auto folder = gallery_->currentFlow())
        QDesktopServices::openUrl(QUrl::fromLocalFile(qs((library_.root() / *folder).string())));
}

void MainWindow::deleteFlow() {
    const auto folder = gallery_->currentFlow();
    if (!folder)
        return;
    QString name = qs(*folder);
    for (const auto& flow : library_.summaries())
        if (flow.folderName == *folder)
            name = qs(flow.name);
    attempt(tr("Couldn’t delete the flow"), [&] {
        recorded(LibraryChanges::deleteFlows(library_, {*folder}, "Delete Flow"),
                 tr("Deleted “%1”").arg(name));
    });
}

std::vector<std::string> MainWindow::placeAppended(const std::string& folder,
                                                   const std::vector<std::string>& added,
                                                   std::size_t index) {
    std::vector<std::string> order;
    for (const auto& screen : library_.meta(folder).screens)
        if (std::find(added.begin(), added.end(), screen.filename) == added.end())
            order.push_back(screen.filename);
    index = std::min(index, order.size());
    if (index == order.size())
        return added; // appended is where they belong
    order.insert(order.begin() + static_cast<std::ptrdiff_t>(index), added.begin(), added.end());
    library_.reorderScreens(folder, order);
    // Renumbered: they are the screens at their places now.
    const auto& screens = library_.meta(folder).screens;
    std::vector<std::string> placed;
    for (std::size_t i = index; i < index + added.size() && i < screens.size(); ++i)
        placed.push_back(screens[i].filename);
    return placed;
}

void MainWindow::dropScreens(const std::string& sourceFolder, const std::vector<std::string>& files,
                             const std::string& targetFolder, std::size_t index, bool copy) {
    if (files.empty())
        return;
    if (sourceFolder == targetFolder && copy) {
        attempt(tr("Couldn’t copy the screens"), [&] {
            const auto copies =
                LibraryChanges::copiesMade(library_.duplicateScreens(sourceFolder, files));
            recorded(
                LibraryChanges::addedScreens(library_, sourceFolder, copies,
                                             copies.size() == 1 ? "Copy Screen" : "Copy Screens"));
        });
        return;
    }
    if (sourceFolder == targetFolder) {
        attempt(tr("Couldn’t move the screens"), [&] {
            // The dragged screens leave their places and go, in their order, before `index`.
            std::vector<std::string> was, kept, dragged;
            std::size_t at = index;
            const auto& screens = library_.meta(sourceFolder).screens;
            for (std::size_t i = 0; i < screens.size(); ++i) {
                const std::string& name = screens[i].filename;
                was.push_back(name);
                const bool moved = std::find(files.begin(), files.end(), name) != files.end();
                (moved ? dragged : kept).push_back(name);
                if (moved && i < index)
                    --at;
            }
            at = std::min(at, kept.size());
            std::vector<std::string> order = kept;
            order.insert(order.begin() + static_cast<std::ptrdiff_t>(at), dragged.begin(),
                         dragged.end());
            if (order == was)
                return;
            recorded(LibraryChanges::reorder(library_, sourceFolder, order));
            // The selection follows the screens that were dragged, under their new names.
            const auto& now = library_.meta(sourceFolder).screens;
            std::vector<ScreenID> moved;
            for (std::size_t i = at; i < at + dragged.size() && i < now.size(); ++i)
                moved.push_back({sourceFolder, now[i].filename});
            gallery_->selectScreens(moved);
        });
        return;
    }
    if (!copy) {
        attempt(tr("Couldn’t move the screens"), [&] {
            recorded(LibraryChanges::move(library_, sourceFolder, files, targetFolder, index),
                     files.size() == 1 ? tr("Moved a screen")
                                       : tr("Moved %1 screens").arg(files.size()));
        });
        return;
    }
    // Screens of the library are copied as they are.
    std::vector<std::filesystem::path> paths;
    for (const auto& file : files)
        paths.push_back(library_.root() / sourceFolder / file);
    if (attempt(tr("Couldn’t add the screens"), [&] {
            placeAppended(targetFolder, library_.addScreens(targetFolder, paths), index);
        }))
        showTransient(paths.size() == 1 ? tr("Added a screen")
                                        : tr("Added %1 screens").arg(paths.size()));
}

void MainWindow::dropFiles(const std::vector<std::filesystem::path>& files,
                           const std::string& targetFolder, std::size_t index) {
    ScreenImport::Plan plan = ScreenImport::plan(files);
    plan.targetFlow = targetFolder;
    runImport(plan, false, index);
}

// --- Figma ---

void MainWindow::exportForFigma() {
    if (!gallery_->currentFlow())
        return;
    figmaBar_->exportPackage(); // its row says when the package is ready
}

void MainWindow::publishToFigma() {
    if (gallery_->currentFlow())
        figmaBar_->publish();
}

void MainWindow::downloadFigmaPlugin() {
    // The plugin ships inside Varnel: saving it needs no network.
    const QString folder = startFolder(QStandardPaths::DownloadLocation);
    std::filesystem::path file;
    try {
        file = FigmaPlugin::save(folder.toStdString());
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t save the Figma plugin"), qs(e.what()));
        return;
    }
    showTransient(tr("Saved the Figma plugin to %1").arg(qs(file.string())));
    auto* box = new QMessageBox(QMessageBox::Information, tr("Figma Plugin Saved"),
                                tr("Saved %1 in %2.").arg(qs(file.filename().string()), folder),
                                QMessageBox::Ok, this);
    box->setObjectName("figmaPluginSaved");
    box->setInformativeText(tr(FigmaPlugin::kInstructions));
    QPushButton* show = box->addButton(tr("Show in Folder"), QMessageBox::ActionRole);
    connect(show, &QPushButton::clicked, this,
            [folder] { QDesktopServices::openUrl(QUrl::fromLocalFile(folder)); });
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

} // namespace varnel
