#pragma once

#ifndef Q_MOC_RUN
#include "capture/CaptureService.h"
#include "capture/SessionController.h"
#include "capture/ShutterSound.h"

#include <optional>
#include <string>
#endif

#include <QHash>
#include <QIcon>
#include <QWidget>

class QBoxLayout;
class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QPushButton;

namespace varnel {

class AppSettings;
class DeviceManager;
class FlowLibrary;
class LivePreview;

// The capture window: the live picture of the chosen source, capturing stills and clips into
// a session, the strip of what was captured, and saving the session as a flow (or adding it to
// one).
class CaptureWindow : public QWidget {
    Q_OBJECT

public:
    CaptureWindow(FlowLibrary& library, AppSettings& settings, DeviceManager& devices,
                  QWidget* parent = nullptr);
    ~CaptureWindow() override;

    // The next session adds its screens to this flow; none: a new flow. Ignored while a session
    // runs.
    void setAppendTarget(const std::optional<std::string>& folderName);

    SessionController& session() { return session_; }
    CaptureService& service() { return service_; }
    LivePreview& preview() const { return *preview_; }
    QComboBox* sourcePicker() const { return sources_; }
    QPushButton* recordButton() const { return record_; }
    QListWidget* strip() const { return strip_; }
    QLabel* statusLabel() const { return status_; }
    QLabel* targetLabel() const { return target_; }
    QCheckBox* includeWindowsBox() const { return includeWindows_; }

    // Captures a still, starting a session when none runs.
    bool captureStill();
    void toggleClip();
    // Saves the session; a new flow asks where it goes first.
    void finish();
    void discard();
    void removeStaged(const std::string& filename);

    // What the save sheet would answer; set by tests to skip the dialog.
    struct Answer {
        std::string application, category, name;
    };
    std::function<std::optional<Answer>()> askWhereToSave;
    // Asks before captured screens are thrown away; set by tests to skip the dialog.
    std::function<bool(const QString& question)> confirmDiscard;

    // What closing the window with screens not yet saved does.
    enum class CloseAnswer { finish, discard, cancel };

signals:
    // A flow was saved or extended; its folder name.
    void flowSaved(const QString& folderName);

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void buildLayout();
    void applyCaptureView();
    void rebuildSources();
    void userPicked(int index);
    void startSelectedSource();
    void showNoSource();
    void showSourceState();
    bool ensureSession();
    // Stages the still in hand (or the source's latest); the shutter and badge say it is taken.
    bool addStill();
    void sessionChanged();
    void clipEnded();
    void clipFailed(const QString& reason, bool kept);
    bool askToDiscard(const QString& question, const QString& details);
    CloseAnswer askBeforeClosing(bool recordingClip);
    void showStatus(const QString& text);
    // A failure stays in the status line until the next capture succeeds.
    void showProblem(const QString& text);
    std::optional<Answer> askWithSheet();

    FlowLibrary& library_;
    AppSettings& settings_;
    DeviceManager& devices_;
    CaptureService service_;
    SessionController session_;
    ShutterSound sound_;
    std::optional<std::string> appendTarget_;
    std::optional<std::string> runningSource_;
    // A phone's screenshot being taken off the main thread, and the still it made.
    bool screenshotPending_ = false;
    std::optional<CapturedFrame> stillInHand_;

    QComboBox* sources_;
    QPushButton* refresh_;
    QCheckBox* includeWindows_;
    QLabel* target_;
    LivePreview* preview_;
    QPushButton* capture_;
    QPushButton* record_;
    QPushButton* finish_;
    QPushButton* discard_;
    QListWidget* strip_;
    QLabel* status_;
    QString problem_;
    QWidget* controls_;
    QBoxLayout* body_;
    // Pictures of the staged screens, made once each (a clip's means decoding it).
    QHash<QString, QIcon> stripIcons_;
};

} // namespace varnel
