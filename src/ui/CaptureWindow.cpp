#include "ui/CaptureWindow.h"

#include "app/AppSettings.h"
#include "capture/AdbSources.h"
#include "capture/DeviceManager.h"
#include "library/ScreenFiles.h"
#include "media/PosterFrame.h"
#include "model/FlowLibrary.h"
#include "ui/FinishCaptureDialog.h"
#include "ui/LivePreview.h"
#include "ui/Messages.h"
#include "ui/SecondaryWindows.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFutureWatcher>
#include <QImageReader>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QtConcurrent>

#include <gst/gst.h>

namespace varnel {

namespace {

constexpr int kStripHeight = 96;

QIcon stagedIcon(const std::filesystem::path& file) {
    QImage image;
    if (ScreenFiles::isClip(file.filename().string())) {
        image = PosterFrame::grab(file);
    } else {
        QImageReader reader(QString::fromStdString(file.string()));
        const QSize size = reader.size();
        if (size.isValid())
            reader.setScaledSize(
                size.scaled(QSize(kStripHeight, kStripHeight), Qt::KeepAspectRatio));
        image = reader.read();
    }
    return QIcon(QPixmap::fromImage(image));
}

// What the picker shows: what kind of source it is, then its name. Android devices and windows
// are named so already; the rest are V4L2 and PipeWire devices.
QString sourceLabel(const DeviceInfo& device) {
    if (device.isWindow || AdbSources::isAdbID(device.id))
        return qs(device.name);
    return CaptureWindow::tr("Camera — %1").arg(qs(device.name));
}

} // namespace

CaptureWindow::CaptureWindow(FlowLibrary& library, AppSettings& settings, DeviceManager& devices,
                             QWidget* parent)
    : QWidget(parent, Qt::Window), library_(library), settings_(settings), devices_(devices),
      session_(library.store(), [this] {
          return stillInHand_ ? std::exchange(stillInHand_, std::nullopt) : service_.stillFrame();
      }) {
    setWindowTitle(tr("New Capture"));
    buildLayout();
    behaveAsSecondaryWindow(this);

    connect(&devices_, &DeviceManager::devicesChanged, this, &CaptureWindow::rebuildSources);
    connect(&devices_, &DeviceManager::selectionChanged, this, [this] {
        rebuildSources();
        startSelectedSource();
    });
    connect(&service_, &CaptureService::frameArrived, this,
            [this] { preview_->showFrame(service_.latestFrame()); });
    connect(&service_, &CaptureService::streamStopped, this, [this](const QString& reason) {
        runningSource_.reset();
        preview_->showMessage(tr("The source stopped"), reason);
        devices_.refresh();
    });
    connect(&service_, &CaptureService::sourceHiddenChanged, this, &CaptureWindow::showSourceState);
    connect(&service_, &CaptureService::recordingChanged, this, &CaptureWindow::sessionChanged);
    connect(&service_, &CaptureService::recordingAbandoned, this, &CaptureWindow::clipEnded);
    connect(&service_, &CaptureService::recordingFailed, this, &CaptureWindow::clipFailed);
    service_.onRecordingFinished = [this](const std::filesystem::path&) { clipEnded(); };
    connect(&session_, &SessionController::changed, this, &CaptureWindow::sessionChanged);
    connect(&settings_, &AppSettings::changed, this, [this](const QString& key) {
        if (key == QLatin1String("captureView"))
            applyCaptureView();
    });

    rebuildSources();
    startSelectedSource();
    sessionChanged();
}

CaptureWindow::~CaptureWindow() {
    // A session left open keeps its staged files; the store recovers them at the next start.
    service_.stop();
}

void CaptureWindow::buildLayout() {
    sources_ = new QComboBox(this);
    sources_->setMinimumWidth(260);
    refresh_ = new QPushButton(tr("R&efresh"), this);
    target_ = new QLabel(this);
    target_->setVisible(false);
    preview_ = new LivePreview(this);
    capture_ = new QPushButton(tr("Capture"), this);
    capture_->setToolTip(tr("Capture a still screen (Space)"));
    capture_->setDefault(true);
    record_ = new QPushButton(tr("Record Clip"), this);
    record_->setCheckable(true);
    record_->setToolTip(tr("Start or stop recording a clip (R)"));
    finish_ = new QPushButton(tr("&Finish…"), this);
    discard_ = new QPushButton(tr("&Discard"), this);
    strip_ = new QListWidget(this);
    strip_->setViewMode(QListView::IconMode);
    strip_->setFlow(QListView::LeftToRight);
    strip_->setWrapping(false);
    strip_->setIconSize(QSize(kStripHeight, kStripHeight));
    strip_->setFixedHeight(kStripHeight + 36);
    strip_->setContextMenuPolicy(Qt::CustomContextMenu);
    strip_->setToolTip(tr("The last screens of this session; Delete removes one."));
    status_ = new QLabel(this);
    status_->setWordWrap(true);
    // Room for a problem and the screen count under it, without the layout jumping.
    status_->setMinimumHeight(2 * status_->fontMetrics().lineSpacing() + 4);

    includeWindows_ = new QCheckBox(tr("Include &windows"), this);
    includeWindows_->setChecked(settings_.includeSimulator());
    includeWindows_->setToolTip(tr("List the windows of the Android Emulator and of mirroring "
                                   "tools (scrcpy, AirPlay receivers) as sources."));
    connect(includeWindows_, &QCheckBox::toggled, this, [this](bool on) {
        settings_.setIncludeSimulator(on);
        if (!devices_.selectedInfo())
            showNoSource(); // the hint names what is left to do
    });

    auto* top = new QHBoxLayout;
    auto* sourceLabel = new QLabel(tr("&Source:"), this);
    sourceLabel->setBuddy(sources_);
    top->addWidget(sourceLabel);
    top->addWidget(sources_, 1);
    top->addWidget(refresh_);
    top->addWidget(includeWindows_);

    controls_ = new QWidget(this);
    body_ = new QBoxLayout(QBoxLayout::TopToBottom);
    body_->addWidget(preview_, 1);
    body_->addWidget(controls_);

    auto* root = new QVBoxLayout(this);
    root->addLayout(top);
    root->addWidget(target_);
    root->addLayout(body_, 1);
    root->addWidget(strip_);
    root->addWidget(status_);
    applyCaptureView();

    connect(refresh_, &QPushButton::clicked, &devices_, &DeviceManager::refresh);
    connect(sources_, qOverload<int>(&QComboBox::activated), this, &CaptureWindow::userPicked);
    connect(capture_, &QPushButton::clicked, this, &CaptureWindow::captureStill);
    connect(record_, &QPushButton::clicked, this, &CaptureWindow::toggleClip);
    connect(finish_, &QPushButton::clicked, this, &CaptureWindow::finish);
    connect(discard_, &QPushButton::clicked, this, &CaptureWindow::discard);
    new QShortcut(QKeySequence(Qt::Key_Space), this, [this] { captureStill(); });
    new QShortcut(QKeySequence(Qt::Key_R), this, [this] { toggleClip(); });
    auto removeCurrent = [this] {
        if (QListWidgetItem* item = strip_->currentItem())
            removeStaged(item->data(Qt::UserRole).toString().toStdString());
    };
    new QShortcut(QKeySequence::Delete, strip_, removeCurrent, Qt::WidgetShortcut);
    connect(strip_, &QListWidget::customContextMenuRequested, this,
            [this, removeCurrent](const QPoint& at) {
                if (!strip_->itemAt(at))
                    return;
                strip_->setCurrentItem(strip_->itemAt(at));
                QMenu menu(this);
                menu.addAction(tr("Remove Screen"), removeCurrent);
                menu.exec(strip_->viewport()->mapToGlobal(at));
            });
    resize(720, 900);
}

void CaptureWindow::applyCaptureView() {
    const bool panel = settings_.captureView() == CaptureView::panel;
    delete controls_->layout();
    QBoxLayout* buttons = panel ? static_cast<QBoxLayout*>(new QVBoxLayout(controls_))
                                : static_cast<QBoxLayout*>(new QHBoxLayout(controls_));
    if (!panel)
        buttons->addStretch();
    for (QPushButton* button : {capture_, record_, finish_, discard_})
        buttons->addWidget(button);
    buttons->addStretch();
    body_->setDirection(panel ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
}

void CaptureWindow::setAppendTarget(const std::optional<std::string>& folderName) {
    if (session_.isRecording())
        return;
    appendTarget_ = folderName;
    sessionChanged();
}

void CaptureWindow::rebuildSources() {
    const QSignalBlocker blocker(sources_);
    sources_->clear();
    for (const auto& device : devices_.devices())
        sources_->addItem(sourceLabel(device), qs(device.id));
    if (devices_.devices().empty()) {
        sources_->addItem(tr("No source found"));
        sources_->setEnabled(false);
        return;
    }
    sources_->setEnabled(true);
    if (devices_.selectedID())
        sources_->setCurrentIndex(sources_->findData(qs(*devices_.selectedID())));
}

void CaptureWindow::userPicked(int index) {
    const std::string id = sources_->itemData(index).toString().toStdString();
    if (id.empty() || id == devices_.selectedID())
        return;
    if (session_.isRecording()) {
        showStatus(tr("Finish or discard the session to switch sources."));
        rebuildSources(); // back to the source in use
        return;
    }
    devices_.select(id);
}

void CaptureWindow::startSelectedSource() {
    const auto selected = devices_.selectedInfo();
    if (!selected) {
        showNoSource();
        return;
    }
    if (selected->id == runningSource_ && service_.isRunning())
        return;
    runningSource_.reset();
    preview_->showMessage(tr("Starting %1…").arg(qs(selected->name)));
    try {
        if (selected->isWindow) {
            const auto window = devices_.window(selected->id);
            if (!window)
                throw CaptureError(CaptureError::Kind::cannotAddInput, "The window is gone.");
            service_.startWindow(*window);
        } else if (AdbSources::isAdbID(selected->id)) {
            service_.startAdb(AdbSources::serialOf(selected->id), devices_.adbClient());
        } else {
            GstDevice* device = devices_.cameraDevice(selected->id);
            try {
                service_.start(device);
            } catch (...) {
                if (device)
                    gst_object_unref(device);
                throw;
            }
            gst_object_unref(device);
        }
        runningSource_ = selected->id;
        showSourceState(); // a window may be minimized from the start
    } catch (const CaptureError& error) {
        service_.stop();
        if (error.kind() == CaptureError::Kind::accessDenied && AdbSources::isAdbID(selected->id)) {
            preview_->showMessage(tr("Allow USB debugging"), QString::fromUtf8(error.what()));
            sessionChanged();
            return;
        }
        if (error.kind() == CaptureError::Kind::accessDenied) {
            preview_->showMessage(tr("Camera access required"),
                                  tr("Varnel may not read %1. Add yourself to the “video” group "
                                     "and log in again.")
                                      .arg(qs(selected->name)));
            return;
        }
        preview_->showMessage(selected->isWindow ? tr("Couldn’t capture the window")
                                                 : tr("Couldn’t start the source"),
                              QString::fromUtf8(error.what()));
    }
    sessionChanged();
}

void CaptureWindow::showSourceState() {
    if (service_.isSourceHidden())
        preview_->showMessage(tr("The window is minimized — restore it to capture"));
    else
        preview_->clearMessage();
}

void CaptureWindow::showNoSource() {
    service_.stop();
    runningSource_.reset();
    if (!devices_.unreadableCameras().empty()) {
        preview_->showMessage(
            tr("Camera access required"),
            tr("Varnel may not open %1. Add yourself to the “video” group (sudo usermod -aG video "
               "$USER), log out and in again, then refresh.")
                .arg(qs(devices_.unreadableCameras().front())));
        sessionChanged();
        return;
    }
    // The ways to a phone's screen on Linux: adb, a V4L2 device, or a window on the X server.
    const QString windows = settings_.includeSimulator()
                                ? tr("open a mirroring window (scrcpy, the Android Emulator)")
                                : tr("open a mirroring window (scrcpy, the Android Emulator) and "
                                     "tick “Include windows”");
    preview_->showMessage(
        tr("No phone, emulator or window found"),
        tr("Connect an Android phone by USB with USB debugging on (Settings ▸ System ▸ Developer "
           "options), start an Android emulator, or %1. Cameras and capture devices (V4L2) are "
           "listed too. Then click Refresh.")
            .arg(windows));
    sessionChanged();
}

bool CaptureWindow::ensureSession() {
    if (session_.isRecording())
        return true;
    try {
        session_.start(appendTarget_);
        return true;
    } catch (const std::exception& e) {
        showError(this, tr("Couldn’t start the session"), QString::fromUtf8(e.what()));
        return false;
    }
}

bool CaptureWindow::captureStill() {
    if (!service_.isRunning() || !ensureSession())
        return false;
    if (service_.isSourceHidden()) {
        showProblem(tr("The window is minimized — restore it to capture"));
        return false;
    }
    auto screenshot = service_.screenshotTask();
    if (!screenshot)
        return addStill();
    // A phone takes its screenshot in up to a second or two: the window goes on meanwhile, and
    // presses in between take no second one.
    if (screenshotPending_)
        return false;
    screenshotPending_ = true;
    auto* watcher = new QFutureWatcher<CaptureService::Screenshot>(this);
    const std::optional<std::string> source = runningSource_;
    connect(watcher, &QFutureWatcher<CaptureService::Screenshot>::finished, this,
            [this, watcher, source] {
                watcher->deleteLater();
                screenshotPending_ = false;
                if (source != runningSource_ || !service_.isRunning() || !session_.isRecording())
                    return; // the source or the session changed meanwhile
                stillInHand_ = service_.stillFrom(watcher->result());
                addStill();
            });
    watcher->setFuture(QtConcurrent::run(std::move(screenshot)));
    return true;
}

bool CaptureWindow::addStill() {
    if (!session_.add(CaptureSource::manual)) {
        stillInHand_.reset();
        showProblem(qs(session_.addFailure()));
        return false;
    }
    showProblem(qs(session_.addNote())); // a phone's screenshot that failed is said, not hidden
    if (settings_.shutterSoundEnabled())
        sound_.play(settings_.shutterSoundName(), settings_.shutterVolume());
    preview_->flashCaptured();
    return true;
}

void CaptureWindow::toggleClip() {
    if (service_.isRecordingVideo()) {
        service_.stopRecording();
        return;
    }
    if (!service_.isRunning() || !ensureSession()) {
        sessionChanged();
        return;
    }
    const auto size = service_.resolution();
    const auto file = session_.beginVideo(size.width, size.height);
    if (!file)
        return;
    if (!service_.startRecording(*file)) {
        session_.commitVideo(); // nothing recorded: the number stays a gap
        return;
    }
    showProblem({});
}

void CaptureWindow::clipEnded() {
    if (session_.isRecordingVideo() && !session_.commitVideo())
        showProblem(tr("The clip could not be recorded."));
    sessionChanged();
}

void CaptureWindow::clipFailed(const QString& reason, bool kept) {
    const bool committed = session_.isRecordingVideo() && session_.commitVideo();
    showProblem(
        kept && committed
            ? tr("The clip stopped early: %1 What was recorded until then is kept.").arg(reason)
            : tr("The clip could not be recorded: %1").arg(reason));
}

void CaptureWindow::finish() {
    if (!session_.isRecording() || session_.isRecordingVideo())
        return;
    const bool appending = session_.appendTarget().has_value();
    std::optional<Answer> answer = Answer{};
    if (!appending && session_.screenCount() > 0) {
        answer = askWhereToSave ? askWhereToSave() : askWithSheet();
        if (!answer)
            return; // back to capturing
    }
    const std::string deviceName =
        devices_.selectedInfo() ? devices_.selectedInfo()->name : std::string();
    std::optional<std::filesystem::path> saved;
    try {
        saved = session_.stop(answer->application, answer->name, answer->category, deviceName);
    } catch (const std::exception& e) {
        library_.reload();
        showError(this, appending ? tr("Couldn’t add the screens") : tr("Couldn’t save the flow"),
                  QString::fromUtf8(e.what()));
        return;
    }
    if (!saved) {
        showStatus(appending ? tr("No screens added.")
                             : tr("No screens captured — nothing to save."));
        return;
    }
    const std::string folder = std::filesystem::relative(*saved, library_.root()).string();
    if (!appending) {
        settings_.setLastApplication(answer->application);
        settings_.setLastCategory(answer->category);
    }
    settings_.setPendingScrollFlow(folder);
    problem_.clear();
    library_.reload();
    showStatus(appending ? tr("Screens added.") : tr("Saved."));
    emit flowSaved(qs(folder));
}

std::optional<CaptureWindow::Answer> CaptureWindow::askWithSheet() {
    FinishCaptureDialog sheet(library_.summaries(), settings_.lastApplication(),
                              settings_.lastCategory(), this);
    if (sheet.exec() != QDialog::Accepted)
        return std::nullopt;
    return Answer{sheet.application(), sheet.category(), sheet.name()};
}

void CaptureWindow::discard() {
    if (!session_.isRecording())
        return;
    if (session_.screenCount() > 0 &&
        !askToDiscard(session_.screenCount() == 1
                          ? tr("Discard the captured screen?")
                          : tr("Discard the %1 captured screens?").arg(session_.screenCount()),
                      tr("They are not saved anywhere.")))
        return;
    if (service_.isRecordingVideo())
        service_.stopRecording();
    session_.cancel();
    problem_.clear();
    showStatus({});
}

bool CaptureWindow::askToDiscard(const QString& question, const QString& details) {
    if (confirmDiscard)
        return confirmDiscard(question);
    return confirmDestructive(this, question, details, tr("Discard"));
}

void CaptureWindow::removeStaged(const std::string& filename) {
    if (!session_.deleteStaged(filename))
        showStatus(tr("The screen could not be removed."));
}

void CaptureWindow::closeEvent(QCloseEvent* event) {
    // A clip being recorded counts: it would be lost as well.
    const bool recordingClip = service_.isRecordingVideo() || session_.isRecordingVideo();
    if (session_.isRecording() && (session_.screenCount() > 0 || recordingClip)) {
        const CloseAnswer answer = askBeforeClosing(recordingClip);
        if (answer == CloseAnswer::finish) {
            finish();
            if (session_.isRecording()) { // the save was cancelled or failed
                event->ignore();
                return;
            }
        } else if (answer != CloseAnswer::discard) {
            event->ignore();
            return;
        }
    }
    if (service_.isRecordingVideo())
        service_.stopRecording();
    session_.cancel();
    service_.stop();
    runningSource_.reset();
    preview_->setRecording(false);
    event->accept();
}

CaptureWindow::CloseAnswer CaptureWindow::askBeforeClosing(bool recordingClip) {
    // A clip still being written can't be saved yet: it is kept only by stopping it first.
    const QString text = recordingClip ? tr("A clip is being recorded")
                         : session_.screenCount() == 1
                             ? tr("1 captured screen is not saved")
                             : tr("%1 captured screens are not saved").arg(session_.screenCount());
    QMessageBox box(QMessageBox::Warning, tr("Unsaved Screens"), text, QMessageBox::NoButton, this);
    box.setInformativeText(recordingClip
                               ? tr("Closing the window discards the clip and the session. Stop "
                                    "the clip first to keep it.")
                               : tr("Finish… saves them as a flow; closing without it discards "
                                    "them."));
    QPushButton* finish =
        recordingClip ? nullptr : box.addButton(tr("&Finish…"), QMessageBox::AcceptRole);
    QPushButton* discard = box.addButton(tr("&Discard"), QMessageBox::DestructiveRole);
    QPushButton* cancel = box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(finish ? finish : cancel);
    box.setEscapeButton(cancel);
    box.exec();
    if (finish && box.clickedButton() == finish)
        return CloseAnswer::finish;
    return box.clickedButton() == discard ? CloseAnswer::discard : CloseAnswer::cancel;
}

void CaptureWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    startSelectedSource();
}

void CaptureWindow::sessionChanged() {
    const bool running = session_.isRecording();
    const bool clip = service_.isRecordingVideo();
    capture_->setEnabled(service_.isRunning());
    record_->setEnabled(service_.isRunning() || clip);
    record_->setChecked(clip);
    record_->setText(clip ? tr("Stop Clip") : tr("Record Clip"));
    preview_->setRecording(clip);
    finish_->setEnabled(running && !clip);
    discard_->setEnabled(running);

    const auto target = running ? session_.appendTarget() : appendTarget_;
    target_->setVisible(target.has_value());
    if (target) {
        QString name = qs(*target);
        try {
            name = qs(library_.meta(*target).name);
        } catch (const std::exception&) {
        }
        target_->setText(tr("Adding screens to: ") + name);
    }
    setWindowTitle(target ? tr("Add Screens") : tr("New Capture"));

    strip_->clear();
    QHash<QString, QIcon> shown;
    for (const auto& file : session_.recentThumbnails()) {
        const QString key = qs(file.string());
        const QIcon icon = stripIcons_.contains(key) ? stripIcons_.value(key) : stagedIcon(file);
        shown.insert(key, icon);
        auto* item = new QListWidgetItem(icon, qs(file.filename().string()), strip_);
        item->setData(Qt::UserRole, qs(file.filename().string()));
    }
    stripIcons_ = shown;
    if (strip_->count() > 0)
        strip_->scrollToItem(strip_->item(strip_->count() - 1));
    if (!running && !problem_.isEmpty())
        status_->setText(problem_);
    if (!running)
        return;
    const QString count = session_.screenCount() == 1
                              ? tr("1 screen in this session")
                              : tr("%1 screens in this session").arg(session_.screenCount());
    status_->setText(problem_.isEmpty() ? count : problem_ + QLatin1Char('\n') + count);
}

void CaptureWindow::showStatus(const QString& text) {
    status_->setText(text);
}

void CaptureWindow::showProblem(const QString& text) {
    problem_ = text;
    sessionChanged();
}

} // namespace varnel
