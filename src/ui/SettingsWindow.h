#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "editing/RedactRecords.h"
#endif

#include <QDialog>

#include <memory>

class QTabWidget;
class QSlider;
class QPushButton;
class QLabel;
class QButtonGroup;

namespace varnel {

class AppSettings;
class FigmaServices;
class ShutterSound;

// Preferences, in the tabs "flows", "appearance", "redaction", "storage" and "figma"; the
// selected tab is remembered. Every control writes its setting as it changes.
class SettingsWindow : public QDialog {
    Q_OBJECT

public:
    static constexpr const char* kTabs[] = {"flows", "appearance",  "redaction", "storage",
                                            "figma", "translation", "updates"};

    // Without `figma`, the Figma tab only says that Figma isn't available.
    explicit SettingsWindow(AppSettings& settings, QWidget* parent = nullptr,
                            FigmaServices* figma = nullptr);
    ~SettingsWindow() override;

    QTabWidget* tabs() const { return tabs_; }

signals:
    // The user picked another library folder; the application decides whether it can switch.
    void libraryFolderChosen(const QString& folder);

private:
    QWidget* flowsTab();
    QWidget* appearanceTab();
    QWidget* redactionTab();
    QWidget* storageTab();
    QWidget* figmaTab();
    QWidget* translationTab();
    QWidget* updatesTab();
    void showPresetStyle();
    void editPresetStyle();
    void showPreview(bool dark, const RedactStyle& style);

    AppSettings& settings_;
    FigmaServices* figma_;
    QTabWidget* tabs_;
    QButtonGroup* preset_ = nullptr;
    QSlider* blur_ = nullptr;
    QSlider* opacity_ = nullptr;
    QPushButton* color_ = nullptr;
    QLabel* rootLabel_ = nullptr;
    QLabel* preview_ = nullptr;
    bool loadingStyle_ = false;
    // Plays a sound when it is picked.
    std::unique_ptr<ShutterSound> sound_;
};

} // namespace varnel
