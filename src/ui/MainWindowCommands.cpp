#include "model/FlowLibrary.h"
#include "ui/CategorizeDialog.h"
#include "ui/GalleryView.h"
#include "ui/MainWindow.h"

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
    if (attempt(tr("Couldn’t rename the screen"), [&] {
            library_.renameScreen(current->folder, current->filename, chosen.toStdString());
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
    attempt(tr("Couldn’t duplicate the screens"),
            [&] { library_.duplicateScreens(current->folder, names); });
}

void MainWindow::deleteSelection() {
    const auto current = gallery_->currentScreen();
    if (!current) {
        deleteFlow();
        return;
    }
    const auto names = selectedInCurrentFlow();
    const QString question =
        names.size() == 1 ? tr("Delete this screen?") : tr("Delete %1 screens?").arg(names.size());
    if (!confirmDestructive(this, question,
                            tr("The screen files and their untouched originals are deleted. "
                               "This can’t be undone."),
                            tr("Delete")))
        return;
    if (attempt(tr("Couldn’t delete the screens"),
                [&] { library_.deleteScreens(current->folder, names); }))
        showTransient(names.size() == 1 ? tr("Deleted a screen")
                                        : tr("Deleted %1 screens").arg(names.size()));
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
    std::string moved;
    if (attempt(tr("Couldn’t rename the flow"),
                [&] { moved = library_.renameFlow(*folder, chosen.toStdString()); }))
        gallery_->scrollToFlow(moved);
}

void MainWindow::categorizeFlow() {
    CategorizeDialog dialog(library_, gallery_->currentFlow(), this);
    if (dialog.exec() == QDialog::Accepted && dialog.savedFolder())
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
    std::size_t screens = 0;
    try {
        name = qs(library_.meta(*folder).name);
        screens = library_.meta(*folder).screens.size();
    } catch (const std::exception&) {
    }
    const QString details =
        (screens == 1 ? tr("Its screen is deleted with it.")
                      : tr("Its %1 screens are deleted with it.").arg(screens)) +
        " " + tr("This can’t be undone.");
    if (!confirmDestructive(this, tr("Delete the flow “%1”?").arg(name), details, tr("Delete")))
        return;
    if (attempt(tr("Couldn’t delete the flow"), [&] { library_.deleteFlow(*folder); }))
        showTransient(tr("Deleted “%1”").arg(name));
}

void MainWindow::placeAppended(const std::string& folder, const std::vector<std::string>& added,
                               std::size_t index) {
    std::vector<std::string> order;
    for (const auto& screen : library_.meta(folder).screens)
        if (std::find(added.begin(), added.end(), screen.filename) == added.end())
            order.push_back(screen.filename);
    index = std::min(index, order.size());
    if (index == order.size())
        return; // appended is where they belong
    order.insert(order.begin() + static_cast<std::ptrdiff_t>(index), added.begin(), added.end());
    library_.reorderScreens(folder, order);
}

void MainWindow::dropScreens(const std::string& sourceFolder, const std::vector<std::string>& files,
                             const std::string& targetFolder, std::size_t index, bool copy) {
    if (files.empty())
        return;
    if (sourceFolder == targetFolder && copy) {
        attempt(tr("Couldn’t copy the screens"),
                [&] { library_.duplicateScreens(sourceFolder, files); });
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
            std::vector<std::string> order = kept;
            order.insert(order.begin() + static_cast<std::ptrdiff_t>(std::min(at, kept.size())),
                         dragged.begin(), dragged.end());
            if (order != was)
                library_.reorderScreens(sourceFolder, order);
        });
        return;
    }
    if (!copy) {
        if (attempt(tr("Couldn’t move the screens"),
                    [&] { library_.moveScreens(sourceFolder, files, targetFolder, index); }))
            showTransient(files.size() == 1 ? tr("Moved a screen")
                                            : tr("Moved %1 screens").arg(files.size()));
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
    const ScreenImport::Report report = runImport(plan, false);
    const auto added = report.addedScreens.find(targetFolder);
    if (added != report.addedScreens.end())
        attempt(tr("Couldn’t add the screens"),
                [&] { placeAppended(targetFolder, added->second, index); });
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
