#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "editing/EditorState.h"
#include "editing/RedactRecords.h"
#include "figma/FigmaThread.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QMainWindow>

class QAbstractButton;
class QAction;
class QButtonGroup;
class QLabel;
class QProgressBar;
class QPushButton;
class QSlider;
class QTimer;
class QToolButton;

namespace varnel {

class TranslationOverlay;

class AppSettings;
class ClipPlayer;
class EditorCanvas;
class FigmaServices;
class FlowLibrary;
class ThreadPanel;
struct FlowMeta;

// The editor of one flow's screens: blur zones and clone patches on stills, zones on clips,
// comment pins, and save, revert and compare. It steps through the flow's screens and asks
// before leaving unsaved changes behind.
class ScreenEditor : public QMainWindow {
    Q_OBJECT

public:
    // With `figma`, threads can be answered, deleted and opened in Figma.
    ScreenEditor(FlowLibrary& library, AppSettings& settings, std::string folder,
                 const std::string& filename, QWidget* parent = nullptr,
                 FigmaServices* figma = nullptr);
    ~ScreenEditor() override;

    // What the unsaved-changes question was answered with; tests answer it themselves.
    enum class LeaveAnswer { save, discard, cancel };
    using LeaveQuestion = std::function<LeaveAnswer(bool closing)>;
    void setLeaveQuestion(LeaveQuestion question) { leaveQuestion_ = std::move(question); }
    using Confirmation = std::function<bool()>;
    void setRevertConfirmation(Confirmation confirm) { confirmRevert_ = std::move(confirm); }

    const std::string& folder() const { return folder_; }
    const std::string& filename() const { return filename_; }
    std::size_t screenIndex() const { return index_; }
    std::size_t screenCount() const { return screens_.size(); }
    bool isClip() const { return clip_; }
    EditorState& state() { return state_; }
    EditorCanvas& canvas() const { return *canvas_; }
    TranslationOverlay& translation() const { return *translation_; }
    ThreadPanel& threadPanel() const { return *threadPanel_; }
    ClipPlayer* player() const { return player_; }
    QAction* action(const QString& text) const;
    QLabel* savedBadge() const { return saved_; }
    bool isSaving() const { return saving_; }
    const RedactStyle& style() const { return style_; }

    // Steps to another screen of the flow, asking first about unsaved edits; false when the
    // user stayed.
    bool step(int delta);
    bool showScreen(const std::string& filename);
    // Save and revert as the buttons do them.
    void save();
    void revert();
    void undo();
    void redo();
    void copyZones();
    void copyRegionPixels();
    void pasteZones();
    void pastePixels();
    void setPreset(RedactPreset preset);
    void setComparing(bool comparing);
    // The screen's display name; blank removes it.
    void rename(const QString& name);
    QString screenName() const;

signals:
    // A clip's save ended (true: baked and recorded).
    void clipSaveFinished(bool ok);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* buildTopBar();
    QWidget* buildClipBar();
    void buildMenus();
    void load(std::size_t index);
    // Asks what to do with unsaved edits before leaving the screen; false: stay.
    bool settleBeforeLeaving(bool closing);
    LeaveAnswer askAboutLeaving(bool closing);
    void edited();
    void refreshFrost();
    void showClipFrame();
    void playPause();
    void updateClipBar();
    void updateActions();
    void loadComments();
    void savePins();
    void openThread(const std::string& rootId, const std::optional<std::string>& pinId);
    void flashSaved();
    void showTitle();
    const FlowMeta* flowMeta() const;
    void setBusy(bool busy);
    std::filesystem::path screenPath() const;

    void connectFigma();

    FlowLibrary& library_;
    TranslationOverlay* translation_;
    AppSettings& settings_;
    FigmaServices* figma_;
    std::string folder_;
    std::vector<std::string> screens_;
    std::size_t index_ = 0;
    std::string filename_;
    bool clip_ = false;
    EditorState state_;
    RedactStyle style_;
    cv::Mat source_; // the editing source's pixels (stills)
    std::string frostKey_;
    std::vector<FigmaThread> threads_;
    std::optional<std::string> threadPin_; // the local pin of the thread on show

    EditorCanvas* canvas_;
    ThreadPanel* threadPanel_;
    ClipPlayer* player_ = nullptr;
    const void* frostedFrame_ = nullptr;
    QWidget* clipBar_ = nullptr;
    QPushButton* playButton_ = nullptr;
    QSlider* position_ = nullptr;
    QLabel* time_ = nullptr;
    QTimer* clock_ = nullptr;
    QLabel* screenLabel_ = nullptr;
    QButtonGroup* tools_ = nullptr;
    QAbstractButton* commentTool_ = nullptr;
    QButtonGroup* theme_ = nullptr;
    QToolButton* compare_ = nullptr;
    QPushButton* saveButton_ = nullptr;
    QPushButton* revertButton_ = nullptr;
    QLabel* saved_ = nullptr;
    QLabel* zoomLabel_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* progressLabel_ = nullptr;
    QTimer* savedTimer_ = nullptr;
    bool saving_ = false;
    // The pins on the canvas differ from the saved ones: their save failed.
    bool pinsUnsaved_ = false;
    LeaveQuestion leaveQuestion_;
    Confirmation confirmRevert_;
};

} // namespace varnel
