#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "editing/RedactRecords.h"
#include "text/MediaFilter.h"

#include <QObject>
#include <QSettings>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#endif

namespace varnel {

enum class Appearance { system, dark, light };
enum class Accent { blue, purple, green, orange };
enum class CaptureView { centered, panel };

std::string_view toString(Appearance value);
std::string_view toString(Accent value);
std::string_view toString(CaptureView value);

// The user's preferences. Every value is read once at construction, with a fixed default for
// an absent or unknown value, and written back under its key whenever it is set.
class AppSettings : public QObject {
    Q_OBJECT

public:
    static constexpr double kThumbnailHeightMin = 150;
    static constexpr double kThumbnailHeightMax = 300;

    // The standard store of the user, or `store` (tests pass a scratch file).
    explicit AppSettings(std::unique_ptr<QSettings> store = nullptr, QObject* parent = nullptr);

    static std::string defaultRootFolderPath();
    static constexpr std::string_view kDefaultUpdateFeed = "https://varnel.app/releases.json";

    const std::string& rootFolderPath() const { return rootFolderPath_; }
    bool shutterSoundEnabled() const { return shutterSoundEnabled_; }
    const std::string& shutterSoundName() const { return shutterSoundName_; }
    double shutterVolume() const { return shutterVolume_; }
    Appearance appearance() const { return appearance_; }
    Accent accent() const { return accent_; }
    CaptureView captureView() const { return captureView_; }
    bool includeSimulator() const { return includeSimulator_; }
    const std::optional<std::string>& selectedApp() const { return selectedApp_; }
    // The camera the user picked last; windows are never remembered.
    const std::optional<std::string>& preferredDeviceID() const { return preferredDeviceID_; }
    // The system-wide shortcut that captures a still, in Qt's portable text ("Ctrl+Shift+S");
    // empty when none is set.
    const std::string& captureHotkey() const { return captureHotkey_; }
    // A LibreTranslate server the user runs or chose; empty: nothing is ever sent anywhere.
    const std::string& translationServer() const { return translationServer_; }
    // The release feed Help ▸ Check for Updates… reads (an https address).
    const std::string& updateFeed() const { return updateFeed_; }
    // Whether Varnel looks for a new version once a week by itself; off unless turned on.
    bool checkForUpdatesWeekly() const { return checkForUpdatesWeekly_; }
    // When the feed was last read, in seconds since 1970; 0 for never.
    double lastUpdateCheck() const { return lastUpdateCheck_; }
    const std::string& lastApplication() const { return lastApplication_; }
    const std::string& lastCategory() const { return lastCategory_; }
    const RedactStyle& redactLight() const { return redactLight_; }
    const RedactStyle& redactDark() const { return redactDark_; }
    RedactPreset redactPreset() const { return redactPreset_; }
    // The style of the current preset.
    const RedactStyle& redactStyle() const;
    double thumbnailHeight() const { return thumbnailHeight_; }
    MediaFilter mediaFilter() const { return mediaFilter_; }
    bool showTranslation() const { return showTranslation_; }
    const std::string& translationLanguage() const { return translationLanguage_; }
    const std::string& settingsSelectedTab() const { return settingsSelectedTab_; }
    const std::optional<std::string>& pendingScrollFlow() const { return pendingScrollFlow_; }

    void setRootFolderPath(const std::string& value);
    void setShutterSoundEnabled(bool value);
    void setShutterSoundName(const std::string& value);
    void setShutterVolume(double value);
    void setAppearance(Appearance value);
    void setAccent(Accent value);
    void setCaptureView(CaptureView value);
    void setIncludeSimulator(bool value);
    void setSelectedApp(const std::optional<std::string>& value);
    void setPreferredDeviceID(const std::optional<std::string>& value);
    void setCaptureHotkey(const std::string& value);
    void setTranslationServer(const std::string& value);
    void setUpdateFeed(const std::string& value);
    void setCheckForUpdatesWeekly(bool value);
    void setLastUpdateCheck(double value);
    void setLastApplication(const std::string& value);
    void setLastCategory(const std::string& value);
    void setRedactLight(const RedactStyle& value);
    void setRedactDark(const RedactStyle& value);
    void setRedactPreset(RedactPreset value);
    void setThumbnailHeight(double value);
    void setMediaFilter(MediaFilter value);
    void setShowTranslation(bool value);
    void setTranslationLanguage(const std::string& value);
    void setSettingsSelectedTab(const std::string& value);
    void setPendingScrollFlow(const std::optional<std::string>& value);

    QSettings& store() { return *store_; }

signals:
    // The key of the setting that changed ("pendingScrollFlow" for the transient one).
    void changed(const QString& key);

private:
    void read();
    void write(const char* key, const QVariant& value);
    std::string readString(const char* key, const std::string& fallback) const;
    RedactStyle readStyle(const char* key, RedactPreset preset) const;

    std::unique_ptr<QSettings> store_;
    std::string rootFolderPath_;
    bool shutterSoundEnabled_ = true;
    std::string shutterSoundName_ = "Shutter";
    double shutterVolume_ = 1.0;
    Appearance appearance_ = Appearance::system;
    Accent accent_ = Accent::blue;
    CaptureView captureView_ = CaptureView::centered;
    bool includeSimulator_ = false;
    std::optional<std::string> selectedApp_;
    std::optional<std::string> preferredDeviceID_;
    std::string captureHotkey_;
    std::string translationServer_;
    std::string updateFeed_ = std::string(kDefaultUpdateFeed);
    bool checkForUpdatesWeekly_ = false;
    double lastUpdateCheck_ = 0;
    std::string lastApplication_;
    std::string lastCategory_;
    RedactStyle redactLight_ = defaultStyle(RedactPreset::light);
    RedactStyle redactDark_ = defaultStyle(RedactPreset::dark);
    RedactPreset redactPreset_ = RedactPreset::light;
    double thumbnailHeight_ = 220;
    MediaFilter mediaFilter_ = MediaFilter::all;
    bool showTranslation_ = false;
    std::string translationLanguage_ = "en";
    std::string settingsSelectedTab_ = "flows";
    std::optional<std::string> pendingScrollFlow_;
};

} // namespace varnel
