#include "ui/ScreenEditor.h"
#include "ui/SecondaryWindows.h"
#include "ui/TranslationOverlay.h"

#include "figma/FigmaServices.h"

#include "app/AppSettings.h"
#include "comments/CommentThreadLogic.h"
#include "editing/ClipPlayer.h"
#include "editing/EditorClipboard.h"
#include "editing/ImagePatcher.h"
#include "editing/ImageRedactor.h"
#include "editing/ScreenEdits.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"
#include "model/FlowLibrary.h"
#include "ui/EditorCanvas.h"
#include "ui/ImageConversion.h"
#include "ui/Messages.h"
#include "ui/ThreadPanel.h"

#include <QButtonGroup>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QStatusBar>
#include <QTimer>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace varnel {

namespace {

QString clock(double seconds) {
    const int whole = static_cast<int>(std::floor(std::max(0.0, seconds)));
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

QToolButton* toolButton(const QString& text, QWidget* parent, bool checkable = false) {
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setCheckable(checkable);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    return button;
}

} // namespace

ScreenEditor::ScreenEditor(FlowLibrary& library, AppSettings& settings, std::string folder,
                           const std::string& filename, QWidget* parent, FigmaServices* figma)
    : QMainWindow(parent), library_(library), translation_(new TranslationOverlay(library, this)),
      settings_(settings), figma_(figma), folder_(std::move(folder)),
      style_(settings.redactStyle()), canvas_(new EditorCanvas(state_, this)),
      threadPanel_(new ThreadPanel(this)), savedTimer_(new QTimer(this)) {
    setAttribute(Qt::WA_DeleteOnClose);
    resize(1100, 860);
    // Its Close command carries Ctrl+W.
    behaveAsSecondaryWindow(this, false);
    canvas_->setTranslationOverlay(translation_);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildTopBar());
    auto* middle = new QHBoxLayout;
    middle->setSpacing(0);
    middle->addWidget(canvas_, 1);
    middle->addWidget(threadPanel_);
    threadPanel_->hide();
    layout->addLayout(middle, 1);
    layout->addWidget(buildClipBar());
    setCentralWidget(central);
    buildMenus();
    assignMnemonics(menuBar());

    saved_ = new QLabel(tr("Saved"), this);
    saved_->setStyleSheet("QLabel { color: white; background: #34a853; border-radius: 4px; "
                          "padding: 2px 10px; font-weight: bold; }");
    saved_->hide();
    progressLabel_ = new QLabel(tr("Re-encoding the clip…"), this);
    progress_ = new QProgressBar(this);
    progress_->setRange(0, 100);
    progress_->setMaximumWidth(220);
    progressLabel_->hide();
    progress_->hide();
    statusBar()->addWidget(progressLabel_);
    statusBar()->addWidget(progress_);
    statusBar()->addPermanentWidget(saved_);
    savedTimer_->setSingleShot(true);
    connect(savedTimer_, &QTimer::timeout, saved_, &QLabel::hide);

    connect(canvas_, &EditorCanvas::edited, this, &ScreenEditor::edited);
    connect(canvas_, &EditorCanvas::patchesSettled, this, &ScreenEditor::refreshFrost);
    connect(canvas_, &EditorCanvas::selectionChanged, this, &ScreenEditor::updateActions);
    connect(canvas_, &EditorCanvas::zoomChanged, this, [this] {
        zoomLabel_->setText(QStringLiteral("%1 %").arg(std::lround(canvas_->zoom() * 100)));
    });
    connect(canvas_, &EditorCanvas::pinsEdited, this, &ScreenEditor::savePins);
    connect(canvas_, &EditorCanvas::pinActivated, this, [this](const QString& id) {
        for (const auto& pin : canvas_->pins())
            if (pin.id == id.toStdString()) {
                if (const FigmaThread* thread = CommentThreadLogic::thread(pin, threads_))
                    openThread(thread->rootId, pin.id);
                else
                    canvas_->editPin(pin.id);
            }
    });
    connect(canvas_, &EditorCanvas::remotePinActivated, this,
            [this](const QString& root) { openThread(root.toStdString(), std::nullopt); });
    connect(threadPanel_, &ThreadPanel::closeRequested, threadPanel_, &QWidget::hide);
    connect(threadPanel_, &ThreadPanel::editRequested, this, [this] {
        threadPanel_->hide();
        if (threadPin_)
            canvas_->editPin(*threadPin_);
    });

    connectFigma();

    const FlowMeta& meta = library_.meta(folder_);
    for (const auto& screen : meta.screens)
        screens_.push_back(screen.filename);
    const auto at = std::find(screens_.begin(), screens_.end(), filename);
    load(at == screens_.end() ? 0 : static_cast<std::size_t>(at - screens_.begin()));
}

ScreenEditor::~ScreenEditor() = default;

QWidget* ScreenEditor::buildTopBar() {
    auto* bar = new QWidget(this);
    // The current tool and theme must stand out from the buttons around them.
    bar->setStyleSheet("QToolButton { padding: 3px 8px; }"
                       "QToolButton:checked { background: palette(highlight);"
                       " color: palette(highlighted-text); border-radius: 3px; }");
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(8, 6, 8, 6);

    auto* previous = toolButton(tr("◀"), bar);
    previous->setToolTip(tr("Previous screen"));
    auto* next = toolButton(tr("▶"), bar);
    next->setToolTip(tr("Next screen"));
    screenLabel_ = new QLabel(bar);
    screenLabel_->setMinimumWidth(120);
    connect(previous, &QToolButton::clicked, this, [this] { step(-1); });
    connect(next, &QToolButton::clicked, this, [this] { step(1); });
    row->addWidget(previous);
    row->addWidget(next);
    row->addWidget(screenLabel_);
    row->addSpacing(12);

    tools_ = new QButtonGroup(this);
    const std::pair<QString, EditorMode> tools[] = {{tr("Select / move"), EditorMode::select},
                                                    {tr("Rectangle"), EditorMode::rectangle},
                                                    {tr("Ellipse"), EditorMode::ellipse},
                                                    {tr("Patch"), EditorMode::patch},
                                                    {tr("Comment"), EditorMode::comment}};
    for (const auto& [label, mode] : tools) {
        auto* button = toolButton(label, bar, true);
        tools_->addButton(button, static_cast<int>(mode));
        row->addWidget(button);
        if (mode == EditorMode::comment)
            commentTool_ = button;
    }
    tools_->button(static_cast<int>(EditorMode::patch))
        ->setToolTip(tr("Drag over pixels to clone them, then copy and paste them over what "
                        "they should hide"));
    tools_->button(static_cast<int>(EditorMode::select))->setChecked(true);
    connect(tools_, &QButtonGroup::idClicked, this,
            [this](int id) { canvas_->setMode(static_cast<EditorMode>(id)); });
    row->addSpacing(12);

    auto* zoomOut = toolButton(tr("−"), bar);
    zoomLabel_ = new QLabel(QStringLiteral("100 %"), bar);
    zoomLabel_->setMinimumWidth(48);
    zoomLabel_->setAlignment(Qt::AlignCenter);
    auto* zoomIn = toolButton(tr("+"), bar);
    connect(zoomOut, &QToolButton::clicked, this,
            [this] { canvas_->setZoom(canvas_->zoom() / 1.25); });
    connect(zoomIn, &QToolButton::clicked, this,
            [this] { canvas_->setZoom(canvas_->zoom() * 1.25); });
    row->addWidget(zoomOut);
    row->addWidget(zoomLabel_);
    row->addWidget(zoomIn);
    row->addStretch();

    compare_ = toolButton(tr("Compare"), bar);
    compare_->setToolTip(tr("Hold to compare with the untouched original"));
    connect(compare_, &QToolButton::pressed, this, [this] { setComparing(true); });
    connect(compare_, &QToolButton::released, this, [this] { setComparing(false); });
    revertButton_ = new QPushButton(tr("Revert"), bar);
    revertButton_->setToolTip(tr("Discard all edits and restore the original"));
    connect(revertButton_, &QPushButton::clicked, this, &ScreenEditor::revert);
    saveButton_ = new QPushButton(tr("Save"), bar);
    saveButton_->setDefault(true);
    connect(saveButton_, &QPushButton::clicked, this, &ScreenEditor::save);
    row->addWidget(compare_);
    row->addWidget(revertButton_);
    row->addWidget(saveButton_);
    row->addSpacing(12);

    row->addWidget(new QLabel(tr("Blur theme:"), bar));
    theme_ = new QButtonGroup(this);
    for (const auto preset : {RedactPreset::light, RedactPreset::dark}) {
        auto* button =
            toolButton(preset == RedactPreset::light ? tr("Light") : tr("Dark"), bar, true);
        theme_->addButton(button, static_cast<int>(preset));
        row->addWidget(button);
    }
    theme_->button(static_cast<int>(settings_.redactPreset()))->setChecked(true);
    connect(theme_, &QButtonGroup::idClicked, this,
            [this](int id) { setPreset(static_cast<RedactPreset>(id)); });
    return bar;
}

QWidget* ScreenEditor::buildClipBar() {
    clipBar_ = new QWidget(this);
    auto* row = new QHBoxLayout(clipBar_);
    row->setContentsMargins(8, 4, 8, 4);
    playButton_ = new QPushButton(tr("Play"), clipBar_);
    position_ = new QSlider(Qt::Horizontal, clipBar_);
    position_->setRange(0, 1000);
    time_ = new QLabel(clipBar_);
    row->addWidget(playButton_);
    row->addWidget(position_, 1);
    row->addWidget(time_);
    clock_ = new QTimer(this);
    clock_->setInterval(100);
    connect(clock_, &QTimer::timeout, this, &ScreenEditor::updateClipBar);
    connect(playButton_, &QPushButton::clicked, this, &ScreenEditor::playPause);
    connect(position_, &QSlider::sliderMoved, this, [this](int value) {
        if (player_)
            player_->seek(player_->duration() * value / 1000.0);
        updateClipBar();
    });
    clipBar_->hide();
    return clipBar_;
}

void ScreenEditor::buildMenus() {
    QMenu* screen = menuBar()->addMenu(tr("&Screen"));
    screen->addAction(tr("Previous Screen"), this, [this] { step(-1); })
        ->setShortcut(QKeySequence(Qt::Key_PageUp));
    screen->addAction(tr("Next Screen"), this, [this] { step(1); })
        ->setShortcut(QKeySequence(Qt::Key_PageDown));
    screen->addSeparator();
    screen
        ->addAction(tr("Rename Screen…"), this,
                    [this] {
                        bool ok = false;
                        const QString name = QInputDialog::getText(
                            this, tr("Rename Screen"), tr("Name shown under the screen:"),
                            QLineEdit::Normal, screenName(), &ok);
                        if (ok)
                            rename(name);
                    })
        ->setShortcut(QKeySequence(Qt::Key_F2));
    screen->addAction(tr("Save"), this, &ScreenEditor::save)->setShortcut(QKeySequence::Save);
    screen->addAction(tr("Revert…"), this, &ScreenEditor::revert)
        ->setStatusTip(tr("Discard all edits and restore the original"));
    screen->addSeparator();
    QAction* close = screen->addAction(tr("Close"), this, &QWidget::close);
    QList<QKeySequence> closeKeys = QKeySequence::keyBindings(QKeySequence::Close);
    if (!closeKeys.contains(QKeySequence(Qt::CTRL | Qt::Key_W)))
        closeKeys.prepend(QKeySequence(Qt::CTRL | Qt::Key_W));
    close->setShortcuts(closeKeys);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(tr("Undo"), this, &ScreenEditor::undo)->setShortcut(QKeySequence::Undo);
    edit->addAction(tr("Redo"), this, &ScreenEditor::redo)->setShortcut(QKeySequence::Redo);
    edit->addSeparator();
    edit->addAction(tr("Copy Zones"), this, &ScreenEditor::copyZones)
        ->setShortcut(QKeySequence::Copy);
    edit->addAction(tr("Copy region pixels"), this, &ScreenEditor::copyRegionPixels)
        ->setShortcut(QKeySequence(tr("Ctrl+Shift+C")));
    edit->addAction(tr("Paste zones"), this, &ScreenEditor::pasteZones)
        ->setShortcut(QKeySequence::Paste);
    edit->addAction(tr("Paste pixels"), this, &ScreenEditor::pastePixels)
        ->setShortcut(QKeySequence(tr("Ctrl+Shift+V")));
    edit->addSeparator();
    edit->addAction(tr("Select All Zones"), this,
                    [this] {
                        state_.selectAll();
                        canvas_->stateChanged();
                    })
        ->setShortcut(QKeySequence::SelectAll);
    connect(edit, &QMenu::aboutToShow, this, &ScreenEditor::updateActions);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(tr("Zoom In"), this, [this] { canvas_->setZoom(canvas_->zoom() * 1.25); })
        ->setShortcut(QKeySequence::ZoomIn);
    view->addAction(tr("Zoom Out"), this, [this] { canvas_->setZoom(canvas_->zoom() / 1.25); })
        ->setShortcut(QKeySequence::ZoomOut);
    view->addAction(tr("Fit"), this, [this] { canvas_->setZoom(1); })
        ->setShortcut(QKeySequence(tr("Ctrl+0")));
}

QAction* ScreenEditor::action(const QString& text) const {
    for (QAction* menu : menuBar()->actions())
        for (QAction* action : menu->menu()->actions())
            if (withoutMnemonic(action->text()) == withoutMnemonic(text))
                return action;
    return nullptr;
}

std::filesystem::path ScreenEditor::screenPath() const {
    return library_.root() / folder_ / filename_;
}

// --- Screens ---

void ScreenEditor::load(std::size_t index) {
    if (screens_.empty()) {
        close();
        return;
    }
    index_ = std::min(index, screens_.size() - 1);
    // Reloading the same screen (a revert) keeps pins that could not be saved.
    if (screens_[index_] != filename_)
        pinsUnsaved_ = false;
    filename_ = screens_[index_];
    clip_ = ScreenFiles::isClip(filename_);
    translation_->setScreen({folder_, filename_});
    threadPanel_->hide();
    canvas_->setShowOriginal(false);

    const ScreenEditRecords records = library_.edits(folder_, filename_);
    std::vector<EditorPatch> patches;
    if (!clip_) {
        const auto stored = ScreenEdits::patchDrafts(library_.store(), folder_, filename_);
        for (const auto& draft : stored)
            patches.push_back({newUUIDString(), draft.image, draft.rect});
    }
    state_.load(records.shapes, std::move(patches));
    // Zones whose bake failed after the editor had closed come back, still to be saved.
    const auto unsaved = library_.clipSaveProblem(folder_, filename_);
    if (unsaved)
        state_.restoreShapes(unsaved->shapes);
    frostKey_.clear();
    frostedFrame_ = nullptr;

    const auto source = library_.editingSourceURL(folder_, filename_);
    if (clip_) {
        source_ = cv::Mat();
        if (!player_) {
            player_ = new ClipPlayer(this);
            connect(player_, &ClipPlayer::frameChanged, this, &ScreenEditor::showClipFrame);
            connect(player_, &ClipPlayer::finished, this, &ScreenEditor::updateClipBar);
            connect(player_, &ClipPlayer::failed, this, [this](const QString& message) {
                statusBar()->showMessage(message, 5000);
                updateClipBar();
            });
        }
        if (!player_->open(source))
            statusBar()->showMessage(player_->error(), 5000);
        showClipFrame();
    } else {
        if (player_)
            player_->close();
        source_ = ImageRedactor::load(source);
        refreshFrost();
    }
    clipBar_->setVisible(clip_);
    canvas_->resetView();
    loadComments();

    if (canvas_->mode() == EditorMode::patch && clip_)
        canvas_->setMode(EditorMode::select);
    tools_->button(static_cast<int>(canvas_->mode()))->setChecked(true);
    tools_->button(static_cast<int>(EditorMode::patch))->setEnabled(!clip_);

    showTitle();
    updateClipBar();
    updateActions();
    if (unsaved)
        statusBar()->showMessage(
            tr("These zones weren't saved: %1").arg(QString::fromStdString(unsaved->reason)));
}

const FlowMeta* ScreenEditor::flowMeta() const {
    // The flow may be deleted or broken from elsewhere while the editor is open.
    try {
        return &library_.meta(folder_);
    } catch (const std::exception&) {
        return nullptr;
    }
}

QString ScreenEditor::screenName() const {
    if (const FlowMeta* meta = flowMeta())
        if (const ScreenRef* screen = meta->screen(filename_))
            return qs(screen->name.value_or(""));
    return {};
}

void ScreenEditor::showTitle() {
    const QString name = screenName();
    const QString position = tr("%1 of %2").arg(index_ + 1).arg(screens_.size());
    screenLabel_->setText(name.isEmpty() ? tr("Screen %1").arg(position)
                                         : tr("%1 — %2").arg(name, position));
    const FlowMeta* meta = flowMeta();
    setWindowTitle(tr("%1 — %2").arg(meta ? qs(meta->name) : QString(),
                                     name.isEmpty() ? tr("Screen %1").arg(index_ + 1) : name));
}

void ScreenEditor::rename(const QString& name) {
    try {
        library_.renameScreen(folder_, filename_, name.toStdString());
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t rename the screen"), qs(e.what()));
    }
    showTitle();
}

bool ScreenEditor::step(int delta) {
    const auto target = static_cast<long>(index_) + delta;
    if (target < 0 || target >= static_cast<long>(screens_.size()) || saving_)
        return false;
    if (!settleBeforeLeaving(false))
        return false;
    load(static_cast<std::size_t>(target));
    return true;
}

bool ScreenEditor::showScreen(const std::string& filename) {
    const auto at = std::find(screens_.begin(), screens_.end(), filename);
    if (at == screens_.end())
        return false;
    return step(static_cast<int>(at - screens_.begin()) - static_cast<int>(index_));
}

bool ScreenEditor::settleBeforeLeaving(bool closing) {
    if (!state_.isEdited() && !pinsUnsaved_)
        return true;
    switch (leaveQuestion_ ? leaveQuestion_(closing) : askAboutLeaving(closing)) {
    case LeaveAnswer::cancel:
        return false;
    case LeaveAnswer::discard:
        return true;
    case LeaveAnswer::save:
        save();
        // A clip's save goes on in the library; its zones are recorded once baked.
        return (clip_ || !state_.isEdited()) && !pinsUnsaved_;
    }
    return false;
}

ScreenEditor::LeaveAnswer ScreenEditor::askAboutLeaving(bool closing) {
    QMessageBox box(QMessageBox::Warning, tr("Unsaved Changes"),
                    tr("You have unsaved changes on this screen."), QMessageBox::NoButton, this);
    // "&&" shows as "&": a single one would mark the next letter as the access key.
    QPushButton* save = box.addButton(closing ? tr("Save && Close") : tr("Save && Continue"),
                                      QMessageBox::AcceptRole);
    QPushButton* discard = box.addButton(tr("Discard changes"), QMessageBox::DestructiveRole);
    QPushButton* cancel = box.addButton(tr("Cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(save);
    box.setEscapeButton(cancel);
    box.exec();
    if (box.clickedButton() == save)
        return LeaveAnswer::save;
    if (box.clickedButton() == discard)
        return LeaveAnswer::discard;
    return LeaveAnswer::cancel;
}

void ScreenEditor::closeEvent(QCloseEvent* event) {
    if (!settleBeforeLeaving(true)) {
        event->ignore();
        return;
    }
    if (player_)
        player_->close();
    event->accept();
}

// --- Edits ---

void ScreenEditor::edited() {
    if (player_ && player_->isPlaying())
        player_->setZones(state_.shapes(), style_);
    updateActions();
}

void ScreenEditor::refreshFrost() {
    if (clip_) {
        frostedFrame_ = nullptr;
        showClipFrame();
        return;
    }
    // Zones show what the bake will blur: the patched picture.
    std::string key = std::to_string(style_.blur) + std::to_string(style_.opacity) +
                      std::to_string(style_.red + 2 * style_.green + 4 * style_.blue);
    for (const auto& patch : state_.patches())
        key += patch.id + std::to_string(patch.rect.x) + std::to_string(patch.rect.y) +
               std::to_string(patch.rect.width) + std::to_string(patch.rect.height);
    if (key == frostKey_ && !canvas_->picture().isNull())
        return;
    frostKey_ = key;
    if (source_.empty()) {
        canvas_->setPicture({}, {});
        return;
    }
    cv::Mat patched = source_.clone();
    for (const auto& patch : state_.patches())
        ImagePatcher::draw(patch.image, patch.rect, patched);
    canvas_->setPicture(qImageOf(source_), qImageOf(ImageRedactor::frostedImage(patched, style_)));
}

void ScreenEditor::showClipFrame() {
    if (!player_)
        return;
    // A playing clip's frames carry their zones; a paused one shows them like a still.
    if (player_->isPlaying() && !canvas_->showsOriginal()) {
        canvas_->setPicture(qImageOf(player_->frame()), {});
        return;
    }
    const cv::Mat raw = player_->rawFrame();
    if (raw.data == frostedFrame_ && !canvas_->picture().isNull())
        return;
    frostedFrame_ = raw.data;
    canvas_->setPicture(
        qImageOf(raw), raw.empty() ? QImage() : qImageOf(ImageRedactor::frostedImage(raw, style_)));
}

void ScreenEditor::playPause() {
    if (!player_)
        return;
    if (player_->isPlaying()) {
        player_->pause();
        frostedFrame_ = nullptr;
        showClipFrame();
    } else {
        player_->setZones(state_.shapes(), style_);
        player_->play();
    }
    updateClipBar();
}

void ScreenEditor::updateClipBar() {
    if (!player_ || !clip_)
        return;
    const bool playing = player_->isPlaying();
    playButton_->setText(playing ? tr("Pause") : tr("Play"));
    playing ? clock_->start() : clock_->stop();
    const double length = player_->duration();
    const double at = player_->position();
    if (!position_->isSliderDown())
        position_->setValue(length > 0 ? static_cast<int>(std::lround(1000 * at / length)) : 0);
    time_->setText(QStringLiteral("%1 / %2").arg(clock(at), clock(length)));
    if (!playing)
        showClipFrame();
}

void ScreenEditor::updateActions() {
    const bool edited = state_.isEdited();
    saveButton_->setEnabled(!saving_ && (edited || pinsUnsaved_));
    revertButton_->setEnabled(!saving_ && (edited || library_.hasOriginal(folder_, filename_)));
    compare_->setEnabled(!state_.shapes().empty() || !state_.patches().empty());
    commentTool_->setEnabled(!clip_);
    const auto& clipboard = EditorClipboard::shared();
    const auto enable = [this](const QString& text, bool on) {
        if (QAction* a = action(text))
            a->setEnabled(on && !saving_);
    };
    enable(tr("Undo"), state_.canUndo());
    enable(tr("Redo"), state_.canRedo());
    enable(tr("Copy Zones"), !state_.selection().empty());
    enable(tr("Copy region pixels"), !clip_ && canvas_->selectedRegion().has_value());
    enable(tr("Paste zones"), clipboard.zones().has_value());
    enable(tr("Paste pixels"), !clip_ && clipboard.patch().has_value());
    enable(tr("Save"), edited || pinsUnsaved_);
    enable(tr("Revert…"), revertButton_->isEnabled());
}

void ScreenEditor::undo() {
    state_.undo();
    canvas_->stateChanged();
    refreshFrost();
    edited();
}

void ScreenEditor::redo() {
    state_.redo();
    canvas_->stateChanged();
    refreshFrost();
    edited();
}

void ScreenEditor::copyZones() {
    EditorClipboard::shared().copyZones(state_.selectedShapes(), screenPath());
    updateActions();
}

void ScreenEditor::copyRegionPixels() {
    const auto region = canvas_->selectedRegion();
    if (clip_ || !region || source_.empty())
        return;
    if (auto pixels = ImagePatcher::crop(source_, *region))
        EditorClipboard::shared().copyPatch(std::move(*pixels), *region);
    updateActions();
}

void ScreenEditor::pasteZones() {
    if (state_.pasteZones(EditorClipboard::shared(), screenPath())) {
        state_.patchSelection().reset();
        canvas_->stateChanged();
        edited();
    }
}

void ScreenEditor::pastePixels() {
    if (state_.pastePatch(EditorClipboard::shared(), !clip_)) {
        canvas_->setMode(EditorMode::select);
        tools_->button(static_cast<int>(EditorMode::select))->setChecked(true);
        canvas_->stateChanged();
        refreshFrost();
        edited();
    }
}

void ScreenEditor::setPreset(RedactPreset preset) {
    settings_.setRedactPreset(preset);
    style_ = settings_.redactStyle();
    theme_->button(static_cast<int>(preset))->setChecked(true);
    if (player_ && player_->isPlaying())
        player_->setZones(state_.shapes(), style_);
    refreshFrost();
}

void ScreenEditor::setComparing(bool comparing) {
    canvas_->setShowOriginal(comparing);
    if (clip_) {
        frostedFrame_ = nullptr;
        if (comparing && player_)
            canvas_->setPicture(qImageOf(player_->rawFrame()), {});
        else
            showClipFrame();
    }
}

// --- Save and revert ---

void ScreenEditor::save() {
    if (!saving_ && pinsUnsaved_) {
        savePins();
        if (!pinsUnsaved_ && !state_.isEdited())
            flashSaved();
    }
    if (saving_ || !state_.isEdited())
        return;
    if (!clip_) {
        std::vector<PatchDraft> drafts;
        for (const auto& patch : state_.patches())
            drafts.push_back({patch.image, patch.rect});
        std::string why;
        if (library_.saveEdits(folder_, filename_, state_.shapes(), style_, drafts, &why)) {
            state_.markSaved();
            flashSaved();
        } else {
            // The reason says what became of the file on disk.
            showError(this, tr("The screen couldn't be saved."),
                      QString::fromStdString(why) + " " +
                          tr("Your edits are still here — try saving again."));
        }
        updateActions();
        return;
    }

    setBusy(true);
    if (player_)
        player_->pause();
    QPointer<ScreenEditor> self(this);
    const std::string folder = folder_;
    const std::string file = filename_;
    library_.saveVideoEdits(
        folder_, filename_, state_.shapes(), style_,
        [self](double progress) {
            if (self)
                self->progress_->setValue(static_cast<int>(std::lround(progress * 100)));
        },
        [self, folder, file](bool ok) {
            if (!self)
                return;
            self->setBusy(false);
            if (ok && self->folder_ == folder && self->filename_ == file) {
                self->state_.markSaved();
                self->flashSaved();
                // The clip on disk was replaced; play the editing source again.
                self->player_->open(self->library_.editingSourceURL(folder, file));
                self->frostedFrame_ = nullptr;
                self->showClipFrame();
                self->updateClipBar();
            } else if (!ok) {
                const auto problem = self->library_.clipSaveProblem(folder, file);
                const QString reason =
                    problem ? QString::fromStdString(problem->reason) + "\n\n" : QString();
                auto* alert =
                    new QMessageBox(QMessageBox::Warning, tr("Clip Not Saved"),
                                    tr("The video couldn't be saved."), QMessageBox::Ok, self);
                const QString clip =
                    problem && problem->clipChanged
                        ? tr("The clip on disk has the new zones, but they aren't recorded.")
                        : tr("The clip on disk is unchanged.");
                alert->setInformativeText(reason + clip + " " +
                                          tr("Your zones are still here — try saving again."));
                alert->setAttribute(Qt::WA_DeleteOnClose);
                alert->open();
            }
            self->updateActions();
            emit self->clipSaveFinished(ok);
        });
}

void ScreenEditor::revert() {
    if (saving_)
        return;
    const bool confirmed =
        confirmRevert_ ? confirmRevert_()
                       : confirmDestructive(this,
                                            tr("Revert this screen to the original? All blur "
                                               "zones and clone patches will be discarded."),
                                            {}, tr("Revert"));
    if (!confirmed)
        return;
    library_.revertScreen(folder_, filename_);
    load(index_);
}

void ScreenEditor::flashSaved() {
    saved_->show();
    savedTimer_->start(1500);
}

void ScreenEditor::setBusy(bool busy) {
    saving_ = busy;
    progressLabel_->setVisible(busy);
    progress_->setVisible(busy);
    progress_->setValue(0);
    canvas_->setEnabled(!busy);
    updateActions();
}

// --- Comments ---

void ScreenEditor::loadComments() {
    threads_.clear();
    if (const FlowMeta* meta = flowMeta(); meta && !clip_)
        for (const auto& screen : meta->screens)
            if (screen.filename == filename_ && screen.figmaThreads)
                threads_ = *screen.figmaThreads;
    // Pins that could not be saved exist only here; what is on disk would lose them.
    std::vector<ScreenComment> pins;
    if (pinsUnsaved_)
        pins = canvas_->pins();
    else if (!clip_)
        pins = library_.comments(folder_, filename_);
    canvas_->setComments(std::move(pins), threads_, !clip_);
}

void ScreenEditor::savePins() {
    std::string why;
    if (library_.saveComments(folder_, filename_, canvas_->pins(), &why)) {
        if (pinsUnsaved_)
            statusBar()->clearMessage();
        pinsUnsaved_ = false;
        loadComments(); // what was really saved
    } else {
        pinsUnsaved_ = true;
        QString reason = qs(why);
        if (!reason.isEmpty() && !reason.endsWith('.'))
            reason += '.';
        statusBar()->showMessage(
            tr("Couldn’t save the comments: %1 Your comments are still here — save to try again.")
                .arg(reason));
    }
    updateActions();
}

void ScreenEditor::openThread(const std::string& rootId, const std::optional<std::string>& pinId) {
    const auto thread = std::find_if(threads_.begin(), threads_.end(),
                                     [&](const FigmaThread& t) { return t.rootId == rootId; });
    if (thread == threads_.end())
        return;
    bool locked = false;
    if (pinId)
        for (const auto& pin : canvas_->pins())
            if (pin.id == *pinId)
                locked = CommentThreadLogic::isEditLocked(pin, threads_);
    threadPanel_->showThread(*thread, pinId.has_value(), locked);
    threadPin_ = pinId;
    threadPanel_->show();
}

void ScreenEditor::connectFigma() {
    // Threads pulled or changed elsewhere (a publish, a reply) show at once.
    connect(&library_, &FlowLibrary::figmaThreadsRefreshed, this, [this](const QString& folder) {
        if (folder.toStdString() != folder_)
            return;
        loadComments();
        if (!threadPanel_->isVisible())
            return;
        const std::string root = threadPanel_->rootId();
        if (std::none_of(threads_.begin(), threads_.end(),
                         [&](const FigmaThread& t) { return t.rootId == root; }))
            threadPanel_->hide();
        else
            openThread(root, threadPin_);
    });
    if (!figma_)
        return;
    FigmaThreadActions& actions = figma_->threads();
    threadPanel_->setFigmaActions(
        {[this, &actions](const std::string& root, const std::string& text) {
             threadPanel_->setNote(tr("Sending…"));
             actions.reply(folder_, filename_, root, text);
         },
         [this, &actions](const std::string& root) {
             threadPanel_->setNote(tr("Deleting…"));
             actions.deleteThread(folder_, filename_, root);
         },
         [this, &actions](const std::string& root) {
             const std::string url = actions.threadURL(folder_, root);
             if (!url.empty())
                 QDesktopServices::openUrl(QUrl(QString::fromStdString(url)));
         }});
    connect(&actions, &FigmaThreadActions::finished, this,
            [this](const QString& folder, const QString& root, const QString& error) {
                if (folder.toStdString() != folder_ || root.toStdString() != threadPanel_->rootId())
                    return;
                threadPanel_->setNote(error);
                threadPanel_->requestFinished(!error.isEmpty());
            });
    FigmaAccountCache& account = figma_->account();
    const auto showAccount = [this, &account] {
        threadPanel_->setAccountId(account.account() ? std::optional(account.account()->id)
                                                     : std::nullopt);
    };
    connect(&account, &FigmaAccountCache::changed, this, showAccount);
    showAccount();
    account.ensureLoaded();
    FigmaAvatarCache& avatars = figma_->avatars();
    threadPanel_->setAvatarSource([&avatars](const std::optional<std::string>& url) {
        avatars.ensureLoaded(url);
        return url ? avatars.image(*url) : QImage();
    });
    connect(&avatars, &FigmaAvatarCache::imageLoaded, threadPanel_, &ThreadPanel::refreshAvatars);
}

} // namespace varnel
