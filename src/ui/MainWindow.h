#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "model/ScreenImport.h"
#include "thumbnails/ThumbnailCache.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QMainWindow>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

class QAction;
class QComboBox;
class QLabel;
class QLineEdit;
class QSlider;
class QSplitter;

namespace varnel {

class AppSettings;
class CaptureWindow;
class EmptyLibraryPanel;
class DeviceManager;
class ClipSaveBanner;
class FigmaFlowBar;
class FigmaServices;
class FlowLibrary;
class GlobalHotkey;
class GalleryView;
class LibraryChange;
class LibraryHistory;
class LibrarySidebar;
class ScreenEditor;
class ScreenPreview;
class UpdateChecker;
struct Release;
struct UpdateCheckResult;

// The library window: the sidebar of applications and categories, the gallery of flows and
// their screens, and the commands on screens, flows and whole applications.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // Without `figma`, the window reaches Figma through the desktop keychain and Figma's API.
    MainWindow(FlowLibrary& library, AppSettings& settings, QWidget* parent = nullptr,
               FigmaServices* figma = nullptr);
    ~MainWindow() override;

    GalleryView& gallery() const { return *gallery_; }
    LibrarySidebar& sidebar() const { return *sidebar_; }
    ThumbnailCache& thumbnails() { return thumbnails_; }
    ScreenPreview* preview() const { return preview_; }
    ScreenEditor* editor() const;
    QLineEdit* searchField() const { return search_; }
    // The application the commands on a whole application work on: the one selected in the
    // sidebar, or else the current flow's.
    std::optional<std::string> selectedApplication() const;
    QAction* action(const QString& text) const;

    // Capture: a new flow, or more screens for the current one.
    void newCapture();
    void captureMore();
    // Screens from files: a chooser of pictures and clips for the current flow.
    void addScreensToFlow();

    // An empty flow, asked for in a dialog.
    void newFlow();
    // Files or a folder from a chooser, shown as a plan of flows before anything is written.
    void importScreens();
    void importFolder();
    // Plans flows from files and folders; asks for what is missing (or always, with `confirm`)
    // and runs the import. Drops and the commands above end here.
    void importPaths(const std::vector<std::filesystem::path>& paths,
                     const std::optional<std::string>& application,
                     const std::optional<std::string>& category, bool confirm);
    // Every import runs through here, with progress and a summary; returns what it did.
    // Screens for an existing flow go at `insertAt` there, when given.
    ScreenImport::Report runImport(const ScreenImport::Plan& plan, bool alwaysSummarize,
                                   std::optional<std::size_t> insertAt = std::nullopt);
    const std::optional<ScreenImport::Report>& lastImport() const { return lastImport_; }
    EmptyLibraryPanel* emptyLibraryPanel() const { return emptyLibrary_; }
    CaptureWindow* captureWindow() const;
    // The capture sources; discovery starts once the window is up (or when first needed).
    DeviceManager& devices();

    // Application archives. The copy to share leaves out what could bring back hidden areas.
    void exportApplication();
    void exportApplicationWithoutOriginals();
    void importApplication();
    // An archive opened from outside (the file manager, the command line): asks first.
    void offerImport(const QString& zipFile);
    void deleteApplication();
    void showSettings();
    // Help ▸ User Guide: the guide shipped with Varnel, in the desktop's browser.
    static std::filesystem::path userGuide();
    void showUserGuide();

    // Updates: Help ▸ Check for Updates…, and the weekly check when it is on.
    UpdateChecker& updates() const { return *updates_; }
    void checkForUpdates();

    // Figma.
    FigmaServices& figma() { return *figma_; }
    FigmaFlowBar& figmaBar() const { return *figmaBar_; }
    void exportForFigma();
    void downloadFigmaPlugin();
    // Hands the translation settings and engines to the large preview.
    void applyTranslation();
    bool translationKeeps_ = true;
    void publishToFigma();

    // Screens.
    void showPreview();
    void renameScreen();
    void editScreen();
    void revertToOriginal();
    void duplicateScreens();
    void deleteSelection();
    // Edit ▸ Undo and Redo of the library's changes, and the trash they keep deleted items in.
    LibraryHistory& history() const { return *history_; }
    void undo();
    void redo();
    void showTrash();
    // Flows.
    void renameFlow();
    void categorizeFlow();
    void showFlowInFileManager();
    void deleteFlow();
    void setThumbnailHeight(int height);

    // What a drop on the gallery does; public so that the decisions can be tested.
    void dropScreens(const std::string& sourceFolder, const std::vector<std::string>& files,
                     const std::string& targetFolder, std::size_t index, bool copy);
    void dropFiles(const std::vector<std::filesystem::path>& files, const std::string& targetFolder,
                   std::size_t index);

signals:
    // The user chose another library folder in the settings.
    void libraryFolderChosen(const QString& folder);

protected:
    void closeEvent(QCloseEvent* event) override;
    // Esc in the search field clears it; the empty library's panel follows the gallery's size.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The window's size, place and splitter, kept between runs.
    void restoreWindowState();
    void rememberWindowState();
    void buildMenus();
    void refresh();
    void rebuildGallery();
    // A flow's text was read: the gallery is rebuilt (soon, once for a burst of results) only
    // when what the search shows of that flow changed.
    void flowTextChanged(const std::string& folder);
    void updateActions();
    void showStatus();
    void showRepairs();
    // A message in the status bar until the library changes again.
    void showTransient(const QString& message);
    // A change made: kept for undo, its message shown with a way back.
    void recorded(std::unique_ptr<LibraryChange> change, const QString& message = {});
    void selectTouched(const LibraryChange& change);
    // Keeps what an import made for undo; false when it made nothing.
    bool recordImport(const ScreenImport::Report& report, const std::optional<std::string>& target,
                      std::optional<std::size_t> insertAt);
    void updateUndoActions();
    // Above the gallery while searching: where the search looks and what it found.
    void showSearchScope(std::size_t screens, std::size_t flows);
    void exportArchive(bool withoutOriginals);
    void importInspected(const std::string& zipFile);
    void showUpdateCheck(const UpdateCheckResult& result, bool userAsked);
    void showNewRelease(const Release& release);
    void showContextMenu(const QPoint& globalPosition);
    // Screens of the current flow that are selected, in the flow's order.
    std::vector<std::string> selectedInCurrentFlow() const;
    // Runs a library change; its error is shown under `title`. False when it failed.
    bool attempt(const QString& title, const std::function<void()>& change);
    // Puts screens that were appended to a flow at `index` instead.
    std::vector<std::string> placeAppended(const std::string& folder,
                                           const std::vector<std::string>& added,
                                           std::size_t index);
    void openCapture(const std::optional<std::string>& appendTo);
    void registerHotkey();

    FlowLibrary& library_;
    AppSettings& settings_;
    ThumbnailCache thumbnails_;
    std::filesystem::path shownRoot_;
    LibrarySidebar* sidebar_;
    GalleryView* gallery_;
    QSplitter* splitter_ = nullptr;
    ScreenPreview* preview_ = nullptr;
    QLabel* status_;
    QPushButton* repairs_;
    QLabel* readOnlyBanner_ = nullptr;
    ClipSaveBanner* clipSaveBanner_ = nullptr;
    void showClipSaveProblems();
    // Every command that changes the library, disabled while it is open read-only.
    std::vector<QAction*> changingActions_;
    QSlider* sizeSlider_;
    QLineEdit* search_ = nullptr;
    QComboBox* media_ = nullptr;
    int textRemaining_ = 0;
    QString transientStatus_;
    QTimer transientFade_;
    LibraryHistory* history_ = nullptr;
    QAction* undoAction_ = nullptr;
    QAction* redoAction_ = nullptr;
    QPushButton* undoButton_ = nullptr;
    QWidget* searchScope_ = nullptr;
    QLabel* searchScopeText_ = nullptr;
    QPushButton* searchEverywhere_ = nullptr;

    QAction* exportAction_ = nullptr;
    QAction* exportSharedAction_ = nullptr;
    QAction* deleteApplicationAction_ = nullptr;
    QAction* previewAction_ = nullptr;
    QAction* renameScreenAction_ = nullptr;
    QAction* editScreenAction_ = nullptr;
    QAction* revertAction_ = nullptr;
    QAction* showTranslationAction_ = nullptr;
    QAction* wholeScreenAction_ = nullptr;
    QAction* showTextAction_ = nullptr;
    QAction* duplicateAction_ = nullptr;
    QAction* deleteAction_ = nullptr;
    QAction* selectAllAction_ = nullptr;
    QAction* renameFlowAction_ = nullptr;
    QAction* categorizeAction_ = nullptr;
    QAction* revealAction_ = nullptr;
    QAction* deleteFlowAction_ = nullptr;
    QAction* addScreensAction_ = nullptr;
    QAction* exportFigmaAction_ = nullptr;
    QAction* publishFigmaAction_ = nullptr;

    std::unique_ptr<FigmaServices> ownFigma_;
    FigmaServices* figma_;
    FigmaFlowBar* figmaBar_ = nullptr;

    std::unique_ptr<DeviceManager> devices_;
    std::unique_ptr<GlobalHotkey> hotkey_;
    QPointer<CaptureWindow> captureWindow_;
    QPointer<ScreenEditor> editor_;
    QTimer galleryRebuild_;
    UpdateChecker* updates_ = nullptr;
    QPushButton* updateAvailable_ = nullptr;
    EmptyLibraryPanel* emptyLibrary_ = nullptr;
    QAction* captureMoreAction_ = nullptr;
    std::optional<ScreenImport::Report> lastImport_;
    void showEmptyLibrary();
};

} // namespace varnel
