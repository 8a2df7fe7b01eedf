#include "ui/MainWindow.h"
#include "app/UpdateChecker.h"
#include "ui/ClipSaveBanner.h"
#include "ui/EditorCanvas.h"
#include "ui/ScreenEditor.h"
#include "ui/TranslationOverlay.h"

#include "text/LibrarySearch.h"

#include "app/AppSettings.h"
#include "capture/DeviceManager.h"
#include "capture/GlobalHotkey.h"
#include "figma/FigmaServices.h"
#include "model/FlowLibrary.h"
#include "model/LibraryChanges.h"
#include "model/LibraryHistory.h"
#include "text/ApertiumEngine.h"
#include "text/Languages.h"
#include "text/LibreTranslateEngine.h"
#include "text/ScreenTranslator.h"
#include "ui/CaptureWindow.h"
#include "ui/FigmaFlowBar.h"
#include "ui/GalleryContent.h"
#include "ui/GalleryView.h"
#include "ui/ImportDialogs.h"
#include "ui/LibrarySidebar.h"
#include "ui/Messages.h"
#include "ui/ScreenPreview.h"
#include "ui/SecondaryWindows.h"
#include "ui/SettingsWindow.h"
#include "ui/ShortcutsWindow.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSlider>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>

namespace varnel {

namespace {

struct ShownFlow {
    FlowSummary summary; // with the count of screens its band shows
    std::set<std::string> hits;
};

// What the gallery shows of a flow under a search or media filter: nothing, or its band.
std::optional<ShownFlow> shownUnderSearch(const LibrarySearch& search, const FlowSummary& summary,
                                          const std::map<std::string, MediaCounts>& mediaIndex) {
    if (!search.matches(summary))
        return std::nullopt;
    ShownFlow shown{summary, search.screenHits(summary)};
    const MediaFilter media = search.media();
    std::int64_t fitting = 0;
    for (const auto& file : shown.hits)
        fitting += fitsMedia(media, file);
    const auto counts = mediaIndex.find(summary.folderName);
    if (fitting == 0 && media != MediaFilter::all && counts != mediaIndex.end())
        fitting = media == MediaFilter::images ? counts->second.images : counts->second.videos;
    if (fitting > 0)
        shown.summary.screenCount = fitting;
    return shown;
}

// A folder in the user's home as the shell writes it: ~/Pictures/Varnel.
QString homeShort(const QString& path) {
    const QString home = QDir::homePath();
    if (home.size() > 1 && (path == home || path.startsWith(home + '/')))
        return '~' + path.mid(home.size());
    return path;
}

} // namespace

MainWindow::MainWindow(FlowLibrary& library, AppSettings& settings, QWidget* parent,
                       FigmaServices* figma)
    : QMainWindow(parent), library_(library), settings_(settings), thumbnails_(library.root()),
      shownRoot_(library.root()), sidebar_(new LibrarySidebar(this)),
      gallery_(new GalleryView(library, thumbnails_, this)), status_(new QLabel(this)),
      repairs_(new QPushButton(tr("Repairs…"), this)),
      sizeSlider_(new QSlider(Qt::Horizontal, this)),
      ownFigma_(figma ? nullptr : std::make_unique<FigmaServices>(library)),
      figma_(figma ? figma : ownFigma_.get()), hotkey_(std::make_unique<GlobalHotkey>()) {
    // Device discovery costs tens of milliseconds: after the first paint, not before.
    QTimer::singleShot(0, this, [this] { devices(); });
    setWindowTitle("Varnel");
    // A still from anywhere while a capture session runs.
    connect(hotkey_.get(), &GlobalHotkey::activated, this, [this] {
        if (captureWindow_ && captureWindow_->session().isRecording())
            captureWindow_->captureStill();
    });
    connect(&settings_, &AppSettings::changed, this, [this](const QString& key) {
        if (key == QLatin1String("captureHotkey"))
            registerHotkey();
    });
    if (!settings_.captureHotkey().empty())
        registerHotkey();
    auto* splitter = splitter_ = new QSplitter(this);
    splitter->addWidget(sidebar_);
    auto* galleryColumn = new QWidget(splitter);
    auto* column = new QVBoxLayout(galleryColumn);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    readOnlyBanner_ = new QLabel(galleryColumn);
    readOnlyBanner_->setObjectName("readOnlyBanner");
    readOnlyBanner_->setWordWrap(true);
    readOnlyBanner_->setMargin(8);
    readOnlyBanner_->setStyleSheet("QLabel#readOnlyBanner { background: #fff3cd; color: #5c4400; "
                                   "border-bottom: 1px solid #e0c36a; }");
    readOnlyBanner_->hide();
    column->addWidget(readOnlyBanner_);
    clipSaveBanner_ = new ClipSaveBanner(galleryColumn);
    column->addWidget(clipSaveBanner_);
    searchScope_ = new QWidget(galleryColumn);
    searchScope_->setObjectName("searchScope");
    auto* scopeRow = new QHBoxLayout(searchScope_);
    scopeRow->setContentsMargins(12, 6, 12, 6);
    searchScopeText_ = new QLabel(searchScope_);
    searchScopeText_->setObjectName("searchScopeText");
    scopeRow->addWidget(searchScopeText_, 1);
    searchEverywhere_ = new QPushButton(tr("Search All Applications"), searchScope_);
    searchEverywhere_->setObjectName("searchEverywhere");
    scopeRow->addWidget(searchEverywhere_);
    searchScope_->hide();
    column->addWidget(searchScope_);
    column->addWidget(gallery_, 1);
    figmaBar_ = new FigmaFlowBar(library_, *figma_, galleryColumn);
    column->addWidget(figmaBar_);
    splitter->addWidget(galleryColumn);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({220, 880});
    splitter->setChildrenCollapsible(false);
    setCentralWidget(splitter);

    auto* toolbar = addToolBar(tr("Gallery"));
    toolbar->setObjectName("galleryToolbar");
    toolbar->setMovable(false);
    search_ = new QLineEdit(toolbar);
    search_->setObjectName("search");
    search_->setPlaceholderText(tr("Search flows and the text on screens"));
    search_->setClearButtonEnabled(true);
    search_->setMinimumWidth(280);
    toolbar->addWidget(search_);
    media_ = new QComboBox(toolbar);
    media_->setObjectName("mediaFilter");
    media_->addItems({tr("All"), tr("Images"), tr("Videos")});
    media_->setCurrentIndex(static_cast<int>(settings_.mediaFilter()));
    toolbar->addWidget(media_);
    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    toolbar->addWidget(new QLabel(tr("Thumbnails"), toolbar));
    sizeSlider_->setRange(150, 300);
    sizeSlider_->setSingleStep(10);
    sizeSlider_->setPageStep(30);
    sizeSlider_->setFixedWidth(160);
    sizeSlider_->setToolTip(tr("Thumbnail height"));
    sizeSlider_->setValue(static_cast<int>(settings_.thumbnailHeight()));
    toolbar->addWidget(sizeSlider_);
    statusBar()->addWidget(status_, 1);
    undoButton_ = new QPushButton(tr("Undo"), this);
    undoButton_->setObjectName("statusUndo");
    undoButton_->setFlat(true);
    undoButton_->hide();
    statusBar()->addWidget(undoButton_);
    connect(undoButton_, &QPushButton::clicked, this, &MainWindow::undo);
    // A message about a change fades after a while, as a desktop notification does.
    transientFade_.setSingleShot(true);
    transientFade_.setInterval(std::chrono::seconds(8));
    connect(&transientFade_, &QTimer::timeout, this, [this] {
        transientStatus_.clear();
        undoButton_->hide();
        showStatus();
    });
    history_ = new LibraryHistory(library_, this);
    connect(history_, &LibraryHistory::changed, this, &MainWindow::updateUndoActions);
    // What undo keeps belongs to the library it was made in.
    connect(&library_, &FlowLibrary::aboutToSwitchRoot, history_, &LibraryHistory::clear);
    repairs_->setObjectName("repairs");
    repairs_->setFlat(true);
    repairs_->setToolTip(tr("What Varnel repaired when it opened this library"));
    statusBar()->addPermanentWidget(repairs_);
    connect(repairs_, &QPushButton::clicked, this, &MainWindow::showRepairs);
    updateAvailable_ = new QPushButton(this);
    updateAvailable_->setObjectName("updateAvailable");
    updateAvailable_->setFlat(true);
    updateAvailable_->hide();
    statusBar()->addPermanentWidget(updateAvailable_);
    updates_ = new UpdateChecker(settings_, std::string(applicationVersion()), this);
    connect(updates_, &UpdateChecker::checked, this, &MainWindow::showUpdateCheck);
    // The weekly check, when it is on, once the window is up and settled.
    QTimer::singleShot(std::chrono::seconds(10), updates_, &UpdateChecker::checkIfDue);
    gallery_->setThumbnailHeight(static_cast<int>(settings_.thumbnailHeight()));

    buildMenus();
    assignMnemonics(menuBar());
    restoreWindowState();
    // Quit ends the run without closing the window first.
    connect(qApp, &QCoreApplication::aboutToQuit, this, &MainWindow::rememberWindowState);

    connect(sizeSlider_, &QSlider::valueChanged, this, &MainWindow::setThumbnailHeight);
    connect(&settings_, &AppSettings::changed, this, [this](const QString& key) {
        if (key == "thumbnailHeight") {
            const int height = static_cast<int>(settings_.thumbnailHeight());
            sizeSlider_->setValue(height);
            gallery_->setThumbnailHeight(height);
        }
    });
    connect(&library_, &FlowLibrary::changed, this, &MainWindow::refresh);
    connect(&library_, &FlowLibrary::clipSaveProblemsChanged, this,
            &MainWindow::showClipSaveProblems);
    connect(&library_, &FlowLibrary::notice, this,
            [this](const QString& text) { statusBar()->showMessage(text, 10000); });
    connect(clipSaveBanner_, &ClipSaveBanner::discard, this,
            [this](const QString& folder, const QString& file) {
                library_.discardClipSaveProblem(folder.toStdString(), file.toStdString());
            });
    connect(clipSaveBanner_, &ClipSaveBanner::reopen, this,
            [this](const QString& folder, const QString& file) {
                gallery_->selectScreen({folder.toStdString(), file.toStdString()});
                editScreen();
            });
    connect(search_, &QLineEdit::textChanged, this, &MainWindow::rebuildGallery);
    search_->installEventFilter(this);
    connect(searchEverywhere_, &QPushButton::clicked, this, [this] {
        settings_.setSelectedApp(std::nullopt);
        refresh();
    });
    connect(media_, &QComboBox::currentIndexChanged, this, [this](int index) {
        settings_.setMediaFilter(static_cast<MediaFilter>(index));
        rebuildGallery();
    });
    connect(&library_, &FlowLibrary::ocrIndexChanged, this,
            [this](const QString& folder) { flowTextChanged(folder.toStdString()); });
    connect(&library_, &FlowLibrary::ocrIndexReplaced, this, [this] {
        if (!search_->text().trimmed().isEmpty() || media_->currentIndex() != 0)
            rebuildGallery();
    });
    // Results come a flow at a time during a pass: the gallery follows a few times a second.
    galleryRebuild_.setSingleShot(true);
    galleryRebuild_.setInterval(250);
    connect(&galleryRebuild_, &QTimer::timeout, this, &MainWindow::rebuildGallery);
    connect(&library_, &FlowLibrary::ocrProgress, this, [this](int remaining) {
        textRemaining_ = remaining;
        showStatus();
    });
    connect(&library_, &FlowLibrary::thumbnailsChanged, &thumbnails_, &ThumbnailCache::apply);
    connect(sidebar_, &LibrarySidebar::applicationSelected, this, [this](const QString& app) {
        settings_.setSelectedApp(app.isEmpty() ? std::nullopt
                                               : std::optional<std::string>(app.toStdString()));
        refresh();
        gallery_->verticalScrollBar()->setValue(0);
    });
    connect(sidebar_, &LibrarySidebar::categoryClicked, this,
            [this](const QString& app, const QString& category) {
                gallery_->scrollToCategory(app.toStdString(), category.toStdString());
            });
    connect(sidebar_, &LibrarySidebar::categoryMoved, this,
            [this](const QString& category, const QString& before) {
                attempt(tr("Couldn’t move the category"), [&] {
                    recorded(LibraryChanges::moveCategory(
                        library_, category.toStdString(),
                        before.isEmpty() ? std::nullopt
                                         : std::optional<std::string>(before.toStdString())));
                });
            });
    connect(gallery_, &GalleryView::selectionChanged, this, &MainWindow::updateActions);
    connect(gallery_, &GalleryView::previewRequested, this, &MainWindow::showPreview);
    connect(gallery_, &GalleryView::screenActivated, this, &MainWindow::showPreview);
    connect(gallery_, &GalleryView::contextMenuRequested, this, &MainWindow::showContextMenu);
    connect(gallery_, &GalleryView::screensDropped, this,
            [this](const QString& source, const QStringList& files, const QString& target,
                   int index, bool copy) {
                std::vector<std::string> names;
                for (const auto& file : files)
                    names.push_back(file.toStdString());
                dropScreens(source.toStdString(), names, target.toStdString(),
                            static_cast<std::size_t>(index), copy);
            });
    connect(gallery_, &GalleryView::filesDropped, this,
            [this](const QStringList& paths, const QString& target, int index) {
                std::vector<std::filesystem::path> files;
                for (const auto& path : paths)
                    files.emplace_back(path.toStdString());
                dropFiles(files, target.toStdString(), static_cast<std::size_t>(index));
            });
    // Files dropped anywhere but on a flow make flows.
    connect(gallery_, &GalleryView::filesDroppedOutsideFlows, this,
            [this](const QStringList& paths) {
                std::vector<std::filesystem::path> files;
                for (const auto& path : paths)
                    files.emplace_back(path.toStdString());
                const auto application = selectedApplication();
                importPaths(files, application, std::nullopt, !application);
            });
    connect(sidebar_, &LibrarySidebar::filesDropped, this,
            [this](const QStringList& paths, const QString& application, const QString& category) {
                std::vector<std::filesystem::path> files;
                for (const auto& path : paths)
                    files.emplace_back(path.toStdString());
                auto text = [](const QString& name) {
                    return name.isEmpty() ? std::nullopt
                                          : std::optional<std::string>(name.toStdString());
                };
                importPaths(files, text(application), text(category), application.isEmpty());
            });
    emptyLibrary_ = new EmptyLibraryPanel(gallery_->viewport());
    gallery_->viewport()->installEventFilter(this);
    connect(emptyLibrary_, &EmptyLibraryPanel::captureRequested, this, &MainWindow::newCapture);
    connect(emptyLibrary_, &EmptyLibraryPanel::importRequested, this, &MainWindow::importScreens);
    connect(emptyLibrary_, &EmptyLibraryPanel::newFlowRequested, this, &MainWindow::newFlow);
    refresh();
}

MainWindow::~MainWindow() {
    delete captureWindow_; // before the device list it shows
}

DeviceManager& MainWindow::devices() {
    if (!devices_)
        devices_ = std::make_unique<DeviceManager>(settings_);
    return *devices_;
}

CaptureWindow* MainWindow::captureWindow() const {
    return captureWindow_;
}

void MainWindow::newCapture() {
    openCapture(std::nullopt);
}

void MainWindow::captureMore() {
    if (const auto flow = gallery_->currentFlow())
        openCapture(*flow);
}

void MainWindow::openCapture(const std::optional<std::string>& appendTo) {
    if (!captureWindow_) {
        captureWindow_ = new CaptureWindow(library_, settings_, devices(), this);
        captureWindow_->setAttribute(Qt::WA_DeleteOnClose);
    }
    if (captureWindow_->session().isRecording()) {
        if (captureWindow_->session().appendTarget() != appendTo)
            showTransient(tr("Finish the capture that is open first."));
    } else {
        captureWindow_->setAppendTarget(appendTo);
    }
    captureWindow_->show();
    captureWindow_->raise();
    captureWindow_->activateWindow();
}

void MainWindow::registerHotkey() {
    if (!hotkey_->setShortcut(qs(settings_.captureHotkey())))
        showTransient(tr("The capture shortcut can't be used: ") + hotkey_->error());
}

QAction* MainWindow::action(const QString& text) const {
    // Access keys are given to the menus' commands after they are made.
    for (QAction* candidate : findChildren<QAction*>())
        if (withoutMnemonic(candidate->text()) == withoutMnemonic(text))
            return candidate;
    return nullptr;
}

void MainWindow::restoreWindowState() {
    QSettings& store = settings_.store();
    if (!restoreGeometry(store.value(QStringLiteral("mainWindow/geometry")).toByteArray())) {
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            const QSize available = screen->availableSize();
            resize(std::min(1400, available.width() * 9 / 10),
                   std::min(960, available.height() * 9 / 10));
        }
    }
    splitter_->restoreState(store.value(QStringLiteral("mainWindow/splitter")).toByteArray());
}

void MainWindow::rememberWindowState() {
    QSettings& store = settings_.store();
    store.setValue(QStringLiteral("mainWindow/geometry"), saveGeometry());
    store.setValue(QStringLiteral("mainWindow/splitter"), splitter_->saveState());
    store.sync();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    rememberWindowState();
    QMainWindow::closeEvent(event);
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* newCapture = file->addAction(tr("New Capture…"), this, &MainWindow::newCapture);
    newCapture->setShortcut(QKeySequence::New);
    captureMoreAction_ = file->addAction(tr("Capture More…"), this, &MainWindow::captureMore);
    captureMoreAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+N")));
    captureMoreAction_->setStatusTip(tr("Captures screens into the selected flow"));
    QAction* newFlowAction = file->addAction(tr("New Flow…"), this, &MainWindow::newFlow);
    newFlowAction->setShortcut(QKeySequence(tr("Ctrl+Alt+N")));
    file->addSeparator();
    QAction* importScreensAction =
        file->addAction(tr("Import Screens…"), this, &MainWindow::importScreens);
    importScreensAction->setShortcut(QKeySequence(tr("Ctrl+I")));
    QAction* importFolderAction =
        file->addAction(tr("Import Folder…"), this, &MainWindow::importFolder);
    importFolderAction->setStatusTip(
        tr("A folder of screenshots becomes a flow; a folder of folders, a flow for each"));
    addScreensAction_ =
        file->addAction(tr("Add Screens to Flow…"), this, &MainWindow::addScreensToFlow);
    addScreensAction_->setStatusTip(tr("Adds pictures and clips from files to the selected flow"));
    file->addSeparator();
    QAction* trash = file->addAction(tr("Trash…"), this, &MainWindow::showTrash);
    trash->setObjectName("showTrash");
    trash->setStatusTip(tr("Deleted flows and screens, to put back or delete for good"));
    file->addSeparator();
    QAction* importApp =
        file->addAction(tr("Import Application…"), this, &MainWindow::importApplication);
    importApp->setShortcut(QKeySequence(tr("Ctrl+Shift+I")));
    exportAction_ =
        file->addAction(tr("Export Application…"), this, &MainWindow::exportApplication);
    exportAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+E")));
    exportSharedAction_ = file->addAction(tr("Export Application Without Originals…"), this,
                                          &MainWindow::exportApplicationWithoutOriginals);
    exportSharedAction_->setStatusTip(tr("A copy to share: the screens as edited, without their "
                                         "untouched copies or the text of hidden areas"));
    deleteApplicationAction_ =
        file->addAction(tr("Delete Application"), this, &MainWindow::deleteApplication);
    file->addSeparator();
    exportFigmaAction_ =
        file->addAction(tr("Export for Figma…"), this, &MainWindow::exportForFigma);
    file->addAction(tr("Download Figma Plugin…"), this, &MainWindow::downloadFigmaPlugin);
    file->addSeparator();
    QAction* preferences = file->addAction(tr("Settings…"), this, &MainWindow::showSettings);
    preferences->setShortcut(QKeySequence(tr("Ctrl+,")));
    preferences->setMenuRole(QAction::PreferencesRole);
    file->addSeparator();
    file->addAction(tr("Quit"), qApp, &QApplication::quit)->setShortcut(QKeySequence::Quit);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    undoAction_ = edit->addAction(tr("Undo"), this, &MainWindow::undo);
    undoAction_->setObjectName("undo");
    undoAction_->setShortcut(QKeySequence::Undo);
    redoAction_ = edit->addAction(tr("Redo"), this, &MainWindow::redo);
    redoAction_->setObjectName("redo");
    redoAction_->setShortcuts({QKeySequence(tr("Ctrl+Shift+Z")), QKeySequence(tr("Ctrl+Y"))});
    edit->addSeparator();
    QAction* find = edit->addAction(tr("Find"), this, [this] {
        search_->setFocus(Qt::ShortcutFocusReason);
        search_->selectAll();
    });
    find->setShortcut(QKeySequence::Find);
    edit->addSeparator();
    renameScreenAction_ = edit->addAction(tr("Rename Screen…"), this, &MainWindow::renameScreen);
    renameScreenAction_->setShortcut(QKeySequence(Qt::Key_F2));
    duplicateAction_ = edit->addAction(tr("Duplicate"), this, &MainWindow::duplicateScreens);
    duplicateAction_->setShortcut(QKeySequence(tr("Ctrl+D")));
    deleteAction_ = edit->addAction(tr("Delete"), this, &MainWindow::deleteSelection);
    deleteAction_->setShortcut(QKeySequence::Delete);
    edit->addSeparator();
    selectAllAction_ =
        edit->addAction(tr("Select All in Flow"), gallery_, &GalleryView::selectAllInFlow);
    selectAllAction_->setShortcut(QKeySequence::SelectAll);
    edit->addSeparator();
    editScreenAction_ = edit->addAction(tr("Edit Screen…"), this, &MainWindow::editScreen);
    editScreenAction_->setShortcut(QKeySequence(tr("Ctrl+E")));
    revertAction_ = edit->addAction(tr("Revert to Original"), this, &MainWindow::revertToOriginal);

    QMenu* flow = menuBar()->addMenu(tr("F&low"));
    renameFlowAction_ = flow->addAction(tr("Rename Flow…"), this, &MainWindow::renameFlow);
    renameFlowAction_->setShortcut(QKeySequence(tr("Shift+F2")));
    categorizeAction_ = flow->addAction(tr("Categorize Flow…"), this, &MainWindow::categorizeFlow);
    categorizeAction_->setShortcut(QKeySequence(tr("Ctrl+K")));
    revealAction_ =
        flow->addAction(tr("Show in File Manager"), this, &MainWindow::showFlowInFileManager);
    revealAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+R")));
    flow->addSeparator();
    deleteFlowAction_ = flow->addAction(tr("Delete Flow"), this, &MainWindow::deleteFlow);
    deleteFlowAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+Del")));
    flow->addSeparator();
    publishFigmaAction_ = flow->addAction(tr("Sync with Figma"), this, &MainWindow::publishToFigma);
    publishFigmaAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+P")));

    QMenu* view = menuBar()->addMenu(tr("&View"));
    previewAction_ = view->addAction(tr("Quick Look"), this, &MainWindow::showPreview);
    previewAction_->setShortcut(QKeySequence(Qt::Key_Space));
    previewAction_->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    gallery_->addAction(previewAction_);
    view->addSeparator();
    view->addAction(tr("Larger Thumbnails"), this,
                    [this] { setThumbnailHeight(sizeSlider_->value() + 30); })
        ->setShortcut(QKeySequence::ZoomIn);
    view->addAction(tr("Smaller Thumbnails"), this,
                    [this] { setThumbnailHeight(sizeSlider_->value() - 30); })
        ->setShortcut(QKeySequence::ZoomOut);
    view->addSeparator();
    showTextAction_ = view->addAction(tr("Show Recognized Text"));
    showTextAction_->setCheckable(true);
    showTextAction_->setShortcut(QKeySequence(tr("Ctrl+T")));
    connect(showTextAction_, &QAction::toggled, this, [this](bool shows) {
        showPreview();
        if (preview_)
            preview_->setShowsText(shows);
    });
    showTranslationAction_ = view->addAction(tr("Show Translation"));
    showTranslationAction_->setCheckable(true);
    showTranslationAction_->setChecked(settings_.showTranslation());
    showTranslationAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+L")));
    connect(showTranslationAction_, &QAction::toggled, this, [this](bool shows) {
        settings_.setShowTranslation(shows);
        showPreview();
        applyTranslation();
    });
    // The target language sits next to the toggle.
    QMenu* into = view->addMenu(tr("Translate Into"));
    auto* languages = new QActionGroup(into);
    for (const char* code : {"en", "es", "fr", "de", "it", "pt", "nl", "ko", "ja", "zh"}) {
        QAction* language = into->addAction(qs(Languages::name(code)));
        language->setCheckable(true);
        language->setChecked(settings_.translationLanguage() == code);
        languages->addAction(language);
        connect(language, &QAction::triggered, this, [this, code = std::string(code)] {
            settings_.setTranslationLanguage(code);
            applyTranslation();
        });
    }
    wholeScreenAction_ = view->addAction(tr("Translate Whole Screen"));
    wholeScreenAction_->setCheckable(true);
    wholeScreenAction_->setShortcut(QKeySequence(tr("Ctrl+Alt+L")));
    connect(wholeScreenAction_, &QAction::toggled, this, [this](bool whole) {
        if (whole && !showTranslationAction_->isChecked())
            showTranslationAction_->setChecked(true);
        showPreview();
        if (preview_)
            preview_->setTranslatesWholeScreen(whole);
        if (editor_) {
            editor_->translation().setWholeScreen(whole);
            editor_->canvas().update();
        }
    });

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("Check for Updates…"), this, &MainWindow::checkForUpdates);
    changingActions_ = {
        newCapture,         addScreensAction_,   importApp,           deleteApplicationAction_,
        captureMoreAction_, newFlowAction,       importScreensAction, importFolderAction,
        exportFigmaAction_, renameScreenAction_, duplicateAction_,    deleteAction_,
        editScreenAction_,  revertAction_,       renameFlowAction_,   categorizeAction_,
        deleteFlowAction_,  publishFigmaAction_, undoAction_,         redoAction_};
    help->addAction(tr("About Varnel"), this, [this] {
        // The licence and address as the package's copyright file and metainfo state them.
        QMessageBox::about(this, tr("About Varnel"),
                           tr("<b>Varnel %1</b><p>Collect and study the screens of mobile "
                              "apps.</p><p>© 2026 The Varnel developers. All rights reserved: "
                              "Varnel may be used as its developers' terms allow.</p>"
                              "<p><a href=\"https://varnel.app/\">varnel.app</a></p>")
                               .arg(qs(std::string(applicationVersion()))));
    });
    // Before About, as GNOME's and KDE's Help menus have it.
    auto* guide = new QAction(tr("User Guide"), help);
    guide->setObjectName("userGuide");
    connect(guide, &QAction::triggered, this, &MainWindow::showUserGuide);
    help->insertAction(help->actions().constLast(), guide);
    auto* shortcuts = new QAction(tr("Keyboard Shortcuts"), help);
    shortcuts->setShortcut(QKeySequence(Qt::Key_F1));
    help->insertAction(help->actions().constLast(), shortcuts);
    connect(shortcuts, &QAction::triggered, this, [this] {
        auto* window = findChild<ShortcutsWindow*>();
        if (!window)
            window = new ShortcutsWindow(menuBar(), this);
        window->show();
        window->raise();
        window->activateWindow();
    });
}

void MainWindow::setThumbnailHeight(int height) {
    height = std::clamp(height, 150, 300);
    if (height != static_cast<int>(settings_.thumbnailHeight()))
        settings_.setThumbnailHeight(height); // the gallery and the slider follow the setting
}

std::optional<std::string> MainWindow::selectedApplication() const {
    if (const auto& app = sidebar_->selectedApplication())
        return app;
    if (const auto& folder = gallery_->currentFlow()) {
        if (const auto row = gallery_->content().rowOfFlow(*folder))
            return gallery_->content().rows[*row].application;
    }
    return std::nullopt;
}

void MainWindow::refresh() {
    if (library_.root() != shownRoot_) {
        shownRoot_ = library_.root();
        thumbnails_.setRoot(shownRoot_);
    }
    thumbnails_.revalidate();
    transientStatus_.clear();
    sidebar_->setLibrary(library_.summaries(), library_.categoryOrder(), settings_.selectedApp());
    if (sidebar_->selectedApplication() != settings_.selectedApp())
        settings_.setSelectedApp(sidebar_->selectedApplication());
    rebuildGallery();
    showEmptyLibrary();
    if (const auto pending = settings_.pendingScrollFlow()) {
        gallery_->scrollToFlow(*pending);
        settings_.setPendingScrollFlow(std::nullopt);
    }
    showStatus();
    updateActions();
}

void MainWindow::flowTextChanged(const std::string& folder) {
    const auto media = static_cast<MediaFilter>(std::max(0, media_->currentIndex()));
    if (search_->text().trimmed().isEmpty() && media == MediaFilter::all)
        return; // without a search the gallery shows no text
    if (galleryRebuild_.isActive())
        return;
    const auto& summaries = library_.summaries();
    const auto summary = std::find_if(summaries.begin(), summaries.end(),
                                      [&](const FlowSummary& s) { return s.folderName == folder; });
    if (summary == summaries.end())
        return;
    LibrarySearch search(library_.textSearchIndex(), library_.mediaIndex());
    search.setQuery(search_->text().toStdString(), folder);
    search.setMedia(media);
    const auto now = shownUnderSearch(search, *summary, library_.mediaIndex());
    // What the gallery shows of the flow now.
    const GalleryContent& content = gallery_->content();
    const auto row = content.rowOfFlow(folder);
    std::set<std::string> hits;
    const auto& shownHits = gallery_->screenFilter().hits;
    for (auto it = shownHits.lower_bound({folder, ""});
         it != shownHits.end() && it->folder == folder; ++it)
        hits.insert(it->filename);
    const bool same =
        now ? row &&
                  content.flows[content.rows[*row].flow].screenCount == now->summary.screenCount &&
                  hits == now->hits
            : !row;
    if (!same)
        galleryRebuild_.start();
}

void MainWindow::rebuildGallery() {
    galleryRebuild_.stop();
    const auto media = static_cast<MediaFilter>(std::max(0, media_->currentIndex()));
    LibrarySearch search(library_.textSearchIndex(), library_.mediaIndex());
    search.setQuery(search_->text().toStdString());
    search.setMedia(media);
    if (search.query().empty() && media == MediaFilter::all) {
        searchScope_->hide();
        gallery_->setEmptyText(tr("No flows yet"),
                               tr("Capture screens from a phone or an emulator, or bring in an "
                                  "application with File ▸ Import Application…"));
        gallery_->setScreenFilter({});
        gallery_->setContent(GalleryContent::make(library_.summaries(), library_.categoryOrder(),
                                                  sidebar_->selectedApplication()));
        return;
    }
    // Each band is laid out for the screens it will show.
    GalleryView::ScreenFilter filter{{}, media};
    std::vector<FlowSummary> shown;
    for (const FlowSummary& summary : library_.summaries()) {
        auto flow = shownUnderSearch(search, summary, library_.mediaIndex());
        if (!flow)
            continue;
        for (const auto& file : flow->hits)
            filter.hits.insert({summary.folderName, file});
        shown.push_back(std::move(flow->summary));
    }
    gallery_->setEmptyText(tr("Nothing found"),
                           search.query().empty()
                               ? tr("No flow has screens of this kind.")
                               : tr("No flow name, category or text on a screen holds “%1”.")
                                     .arg(search_->text().trimmed()));
    // What the search found where it looks: the selected application, or everywhere.
    const auto& app = sidebar_->selectedApplication();
    std::size_t flows = 0, screens = 0;
    for (const auto& flow : shown) {
        if (app && flow.application.value_or("") != *app)
            continue;
        ++flows;
        screens += static_cast<std::size_t>(std::max<std::int64_t>(0, flow.screenCount));
    }
    gallery_->setScreenFilter(std::move(filter));
    gallery_->setContent(GalleryContent::make(shown, library_.categoryOrder(), app));
    showSearchScope(screens, flows);
}

void MainWindow::showSearchScope(std::size_t screens, std::size_t flows) {
    const QString found =
        flows == 0 ? tr("Nothing found")
                   : (screens == 1 ? tr("1 screen") : tr("%1 screens").arg(screens)) + " " +
                         (flows == 1 ? tr("in 1 flow") : tr("in %1 flows").arg(flows));
    const auto& app = sidebar_->selectedApplication();
    searchScopeText_->setText(app ? tr("%1 in %2").arg(found, qs(*app))
                                  : tr("%1 in all applications").arg(found));
    searchEverywhere_->setVisible(app.has_value());
    searchScope_->show();
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (emptyLibrary_ && watched == gallery_->viewport() && event->type() == QEvent::Resize)
        emptyLibrary_->setGeometry(gallery_->viewport()->rect());
    if (watched == search_ && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape && !search_->text().isEmpty()) {
        search_->clear();
        return true;
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::showStatus() {
    if (!transientStatus_.isEmpty()) {
        status_->setText(transientStatus_);
        return;
    }
    // What is selected, then what is shown: the selected application's flows or all of them.
    const auto& app = sidebar_->selectedApplication();
    std::size_t flows = 0;
    std::int64_t screens = 0;
    for (const auto& flow : library_.summaries()) {
        if (app && flow.application.value_or("") != *app)
            continue;
        ++flows;
        screens += flow.screenCount;
    }
    QString text;
    const auto selected = gallery_->selectedScreens().size();
    if (selected > 0)
        text = (selected == 1 ? tr("1 screen selected") : tr("%1 screens selected").arg(selected)) +
               " — ";
    else if (const auto& flow = gallery_->currentFlow())
        for (const auto& summary : library_.summaries())
            if (summary.folderName == *flow)
                text = tr("“%1” selected").arg(qs(summary.name)) + " — ";
    text += (app ? qs(*app) + ": " : tr("All applications: ")) +
            (flows == 1 ? tr("1 flow") : tr("%1 flows").arg(flows)) + ", " +
            (screens == 1 ? tr("1 screen") : tr("%1 screens").arg(screens)) + " — " +
            homeShort(qs(library_.root().string()));
    if (textRemaining_ > 0)
        text += textRemaining_ == 1 ? tr(" — reading the text of 1 screen")
                                    : tr(" — reading the text of %1 screens").arg(textRemaining_);
    if (const auto& error = library_.loadError())
        text = tr("Couldn’t read the library: %1").arg(qs(*error));
    const auto& report = library_.recoveryReport();
    const auto repaired = report.repairedLines().size() - report.recoveredFlows.size();
    if (const auto recovered = report.recoveredFlows.size(); recovered > 0)
        text += recovered == 1 ? tr(" — recovered an interrupted capture")
                               : tr(" — recovered %1 interrupted captures").arg(recovered);
    if (repaired > 0)
        text += repaired == 1 ? tr(" — repaired an interrupted change")
                              : tr(" — repaired %1 interrupted changes").arg(repaired);
    if (const auto unresolved = report.unresolvedLines().size(); unresolved > 0)
        text += unresolved == 1 ? tr(" — 1 problem left by an interrupted change")
                                : tr(" — %1 problems left by interrupted changes").arg(unresolved);
    repairs_->setVisible(!report.empty());
    status_->setText(text);
}

void MainWindow::showRepairs() {
    const auto& report = library_.recoveryReport();
    QStringList lines;
    for (const auto& line : report.repairedLines())
        lines << QString::fromStdString(line);
    QStringList unresolved;
    for (const auto& line : report.unresolvedLines())
        unresolved << QString::fromStdString(line);
    QMessageBox box(unresolved.isEmpty() ? QMessageBox::Information : QMessageBox::Warning,
                    tr("Repairs"),
                    tr("When it opened this library, Varnel finished or undid changes that were "
                       "interrupted, so that every flow is complete."),
                    QMessageBox::Ok, this);
    QString details;
    if (!lines.isEmpty())
        details += tr("Repaired:") + "\n" + lines.join("\n");
    if (!unresolved.isEmpty())
        details += (details.isEmpty() ? "" : "\n\n") +
                   tr("Not repaired; the data is still there:") + "\n" + unresolved.join("\n");
    box.setInformativeText(details);
    box.setObjectName("repairsDialog");
    box.exec();
}

void MainWindow::showTransient(const QString& message) {
    transientStatus_ = message;
    undoButton_->hide();
    transientFade_.start();
    showStatus();
}

void MainWindow::updateActions() {
    if (transientStatus_.isEmpty())
        showStatus(); // the selection is part of it
    const bool screen = gallery_->currentScreen().has_value();
    const bool flow = gallery_->currentFlow().has_value();
    const bool application = selectedApplication().has_value();
    exportAction_->setEnabled(application);
    exportSharedAction_->setEnabled(application);
    deleteApplicationAction_->setEnabled(application);
    previewAction_->setEnabled(screen);
    renameScreenAction_->setEnabled(screen);
    editScreenAction_->setEnabled(screen);
    showTextAction_->setEnabled(screen);
    revertAction_->setEnabled(screen && library_.hasOriginal(gallery_->currentScreen()->folder,
                                                             gallery_->currentScreen()->filename));
    duplicateAction_->setEnabled(screen);
    deleteAction_->setEnabled(screen || flow);
    selectAllAction_->setEnabled(flow);
    renameFlowAction_->setEnabled(flow);
    addScreensAction_->setEnabled(flow);
    captureMoreAction_->setEnabled(flow);
    categorizeAction_->setEnabled(!library_.summaries().empty());
    revealAction_->setEnabled(flow);
    deleteFlowAction_->setEnabled(flow);
    exportFigmaAction_->setEnabled(flow);
    figmaBar_->setFlow(gallery_->currentFlow());
    publishFigmaAction_->setEnabled(flow && figmaBar_->publishButton()->isEnabled());

    const auto& readOnly = library_.readOnlyReason();
    readOnlyBanner_->setVisible(readOnly.has_value());
    if (translationKeeps_ == readOnly.has_value())
        applyTranslation(); // translations are stored only while the library can be written
    // Nor are thumbnails written into it: they go to the user's cache meanwhile.
    std::optional<std::filesystem::path> thumbnailsElsewhere;
    if (readOnly)
        thumbnailsElsewhere = std::filesystem::path(QStandardPaths::writableLocation(
                                                        QStandardPaths::GenericCacheLocation)
                                                        .toStdString()) /
                              "varnel" / "read-only-thumbnails" /
                              std::to_string(std::hash<std::string>{}(library_.root().string()));
    thumbnails_.setThumbnailFolder(thumbnailsElsewhere);
    if (readOnly) {
        readOnlyBanner_->setText(
            tr("Read-only: %1 You can browse, search and look at screens; changes are off until "
               "Varnel opens the library again.")
                .arg(qs(*readOnly)));
        for (QAction* action : changingActions_)
            action->setEnabled(false);
        emptyLibrary_->setEnabled(false);
        figmaBar_->setEnabled(false);
    }
    gallery_->setAcceptDrops(!readOnly);
    gallery_->viewport()->setAcceptDrops(!readOnly);
    sidebar_->setDragDropMode(readOnly ? QAbstractItemView::NoDragDrop
                                       : QAbstractItemView::InternalMove);
}

void MainWindow::showContextMenu(const QPoint& globalPosition) {
    QMenu menu(this);
    if (gallery_->currentScreen()) {
        menu.addAction(previewAction_);
        menu.addAction(editScreenAction_);
        menu.addAction(revertAction_);
        menu.addAction(renameScreenAction_);
        menu.addAction(duplicateAction_);
        menu.addAction(deleteAction_);
        menu.addSeparator();
    }
    menu.addAction(renameFlowAction_);
    menu.addAction(categorizeAction_);
    menu.addAction(revealAction_);
    menu.addSeparator();
    menu.addAction(deleteFlowAction_);
    menu.exec(globalPosition);
}

void MainWindow::showSettings() {
    auto* window = findChild<SettingsWindow*>();
    if (!window) {
        window = new SettingsWindow(settings_, this, figma_);
        connect(window, &SettingsWindow::libraryFolderChosen, this,
                &MainWindow::libraryFolderChosen);
    }
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace varnel

namespace varnel {

void MainWindow::showClipSaveProblems() {
    clipSaveBanner_->setProblems(library_.clipSaveProblems(), [this](const std::string& folder) {
        for (const auto& flow : library_.summaries())
            if (flow.folderName == folder)
                return QString::fromStdString(flow.name);
        return QString::fromStdString(folder);
    });
}

} // namespace varnel

namespace varnel {

std::filesystem::path MainWindow::userGuide() {
    // The installed copy first; the source tree's when Varnel runs from its build folder.
    for (const char* candidate : {VARNEL_GUIDE_INSTALLED, VARNEL_GUIDE_SOURCE}) {
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error))
            return candidate;
    }
    return {};
}

void MainWindow::showUserGuide() {
    const auto guide = userGuide();
    if (guide.empty()) {
        showError(this, tr("Couldn’t open the user guide"),
                  tr("It isn’t installed at %1.").arg(VARNEL_GUIDE_INSTALLED));
        return;
    }
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(qs(guide.string()))))
        showError(this, tr("Couldn’t open the user guide"),
                  tr("No program opened %1; open it in a web browser.").arg(qs(guide.string())));
}

} // namespace varnel
