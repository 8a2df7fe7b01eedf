#include "app/AppSettings.h"

#include <QDir>
#include <QStandardPaths>

#include <algorithm>
#include <array>
#include <utility>

namespace varnel {

namespace {

template <typename E, std::size_t N>
E matchEnum(const std::string& text, const std::array<std::pair<const char*, E>, N>& values,
            E fallback) {
    for (const auto& [name, value] : values) {
        if (text == name)
            return value;
    }
    return fallback;
}

constexpr std::array<std::pair<const char*, Appearance>, 3> kAppearances{
    {{"system", Appearance::system}, {"dark", Appearance::dark}, {"light", Appearance::light}}};
constexpr std::array<std::pair<const char*, Accent>, 4> kAccents{{{"blue", Accent::blue},
                                                                  {"purple", Accent::purple},
                                                                  {"green", Accent::green},
                                                                  {"orange", Accent::orange}}};

template <typename E, std::size_t N>
std::string_view nameOf(E value, const std::array<std::pair<const char*, E>, N>& values) {
    for (const auto& [name, v] : values) {
        if (v == value)
            return name;
    }
    return values.front().first;
}

QString qs(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

std::string_view toString(Appearance value) {
    return nameOf(value, kAppearances);
}
std::string_view toString(Accent value) {
    return nameOf(value, kAccents);
}
std::string_view toString(CaptureView value) {
    return value == CaptureView::panel ? "panel" : "centered";
}

AppSettings::AppSettings(std::unique_ptr<QSettings> store, QObject* parent)
    : QObject(parent),
      store_(store ? std::move(store) : std::make_unique<QSettings>("Varnel", "Varnel")) {
    read();
}

std::string AppSettings::defaultRootFolderPath() {
    QStringList pictures = QStandardPaths::standardLocations(QStandardPaths::PicturesLocation);
    QString base = pictures.isEmpty() ? QDir::homePath() + "/Pictures" : pictures.first();
    return (base + "/Varnel").toStdString();
}

std::string AppSettings::readString(const char* key, const std::string& fallback) const {
    const QVariant value = store_->value(key);
    if (!value.isValid() || !value.canConvert<QString>())
        return fallback;
    return value.toString().toStdString();
}

RedactStyle AppSettings::readStyle(const char* key, RedactPreset preset) const {
    const QByteArray data = store_->value(key).toByteArray();
    if (data.isEmpty())
        return defaultStyle(preset);
    try {
        return RedactStyle::fromJson(parseLibraryJson(data.toStdString()));
    } catch (const std::exception&) {
        return defaultStyle(preset);
    }
}

void AppSettings::read() {
    rootFolderPath_ = readString("rootFolderPath", defaultRootFolderPath());
    if (store_->contains("shutterSoundEnabled"))
        shutterSoundEnabled_ = store_->value("shutterSoundEnabled").toBool();
    shutterSoundName_ = readString("shutterSoundName", "Shutter");
    if (store_->contains("shutterVolume"))
        shutterVolume_ = store_->value("shutterVolume").toDouble();
    appearance_ = matchEnum(readString("appearance", ""), kAppearances, Appearance::system);
    accent_ = matchEnum(readString("accent", ""), kAccents, Accent::blue);
    captureView_ =
        readString("captureView", "") == "panel" ? CaptureView::panel : CaptureView::centered;
    includeSimulator_ = store_->value("includeSimulator").toBool();
    if (store_->contains("selectedApp"))
        selectedApp_ = readString("selectedApp", "");
    if (store_->contains("preferredDeviceID"))
        preferredDeviceID_ = readString("preferredDeviceID", "");
    captureHotkey_ = readString("captureHotkey", "");
    translationServer_ = readString("translationServer", "");
    updateFeed_ = readString("updateFeed", std::string(kDefaultUpdateFeed));
    checkForUpdatesWeekly_ = store_->value("checkForUpdatesWeekly").toBool();
    lastUpdateCheck_ = store_->value("lastUpdateCheck").toDouble();
    lastApplication_ = readString("lastApplication", "");
    lastCategory_ = readString("lastCategory", "");
    redactLight_ = readStyle("redactLight", RedactPreset::light);
    redactDark_ = readStyle("redactDark", RedactPreset::dark);
    redactPreset_ =
        readString("redactPreset", "") == "dark" ? RedactPreset::dark : RedactPreset::light;
    if (store_->contains("thumbnailHeight"))
        thumbnailHeight_ = std::clamp(store_->value("thumbnailHeight").toDouble(),
                                      kThumbnailHeightMin, kThumbnailHeightMax);
    mediaFilter_ = varnel::mediaFilter(readString("mediaFilter", "")).value_or(MediaFilter::all);
    showTranslation_ = store_->value("showTranslation").toBool();
    translationLanguage_ = readString("translationLanguage", "en");
    settingsSelectedTab_ = readString("settings.selectedTab", "flows");
}

const RedactStyle& AppSettings::redactStyle() const {
    return redactPreset_ == RedactPreset::dark ? redactDark_ : redactLight_;
}

void AppSettings::write(const char* key, const QVariant& value) {
    if (value.isValid())
        store_->setValue(key, value);
    else
        store_->remove(key);
    store_->sync();
    emit changed(key);
}

void AppSettings::setRootFolderPath(const std::string& value) {
    rootFolderPath_ = value;
    write("rootFolderPath", qs(value));
}

void AppSettings::setShutterSoundEnabled(bool value) {
    shutterSoundEnabled_ = value;
    write("shutterSoundEnabled", value);
}

void AppSettings::setShutterSoundName(const std::string& value) {
    shutterSoundName_ = value;
    write("shutterSoundName", qs(value));
}

void AppSettings::setShutterVolume(double value) {
    shutterVolume_ = std::clamp(value, 0.0, 1.0);
    write("shutterVolume", shutterVolume_);
}

void AppSettings::setAppearance(Appearance value) {
    appearance_ = value;
    write("appearance", qs(toString(value)));
}

void AppSettings::setAccent(Accent value) {
    accent_ = value;
    write("accent", qs(toString(value)));
}

void AppSettings::setCaptureView(CaptureView value) {
    captureView_ = value;
    write("captureView", qs(toString(value)));
}

void AppSettings::setIncludeSimulator(bool value) {
    includeSimulator_ = value;
    write("includeSimulator", value);
}

void AppSettings::setSelectedApp(const std::optional<std::string>& value) {
    selectedApp_ = value;
    write("selectedApp", value ? QVariant(qs(*value)) : QVariant());
}

void AppSettings::setPreferredDeviceID(const std::optional<std::string>& value) {
    preferredDeviceID_ = value;
    write("preferredDeviceID", value ? QVariant(qs(*value)) : QVariant());
}

void AppSettings::setTranslationServer(const std::string& value) {
    translationServer_ = value;
    write("translationServer", value.empty() ? QVariant() : QVariant(qs(value)));
}

void AppSettings::setCaptureHotkey(const std::string& value) {
    captureHotkey_ = value;
    write("captureHotkey", value.empty() ? QVariant() : QVariant(qs(value)));
}

void AppSettings::setUpdateFeed(const std::string& value) {
    updateFeed_ = value.empty() ? std::string(kDefaultUpdateFeed) : value;
    write("updateFeed", value.empty() ? QVariant() : QVariant(qs(value)));
}

void AppSettings::setCheckForUpdatesWeekly(bool value) {
    checkForUpdatesWeekly_ = value;
    write("checkForUpdatesWeekly", value);
}

void AppSettings::setLastUpdateCheck(double value) {
    lastUpdateCheck_ = value;
    write("lastUpdateCheck", value);
}

void AppSettings::setLastApplication(const std::string& value) {
    lastApplication_ = value;
    write("lastApplication", qs(value));
}

void AppSettings::setLastCategory(const std::string& value) {
    lastCategory_ = value;
    write("lastCategory", qs(value));
}

void AppSettings::setRedactLight(const RedactStyle& value) {
    redactLight_ = value;
    write("redactLight", QByteArray::fromStdString(value.toJson().dump()));
}

void AppSettings::setRedactDark(const RedactStyle& value) {
    redactDark_ = value;
    write("redactDark", QByteArray::fromStdString(value.toJson().dump()));
}

void AppSettings::setRedactPreset(RedactPreset value) {
    redactPreset_ = value;
    write("redactPreset", qs(toString(value)));
}

void AppSettings::setThumbnailHeight(double value) {
    thumbnailHeight_ = std::clamp(value, kThumbnailHeightMin, kThumbnailHeightMax);
    write("thumbnailHeight", thumbnailHeight_);
}

void AppSettings::setMediaFilter(MediaFilter value) {
    mediaFilter_ = value;
    write("mediaFilter", qs(toString(value)));
}

void AppSettings::setShowTranslation(bool value) {
    showTranslation_ = value;
    write("showTranslation", value);
}

void AppSettings::setTranslationLanguage(const std::string& value) {
    translationLanguage_ = value;
    write("translationLanguage", qs(value));
}

void AppSettings::setSettingsSelectedTab(const std::string& value) {
    settingsSelectedTab_ = value;
    write("settings.selectedTab", qs(value));
}

void AppSettings::setPendingScrollFlow(const std::optional<std::string>& value) {
    pendingScrollFlow_ = value;
    emit changed("pendingScrollFlow");
}

} // namespace varnel
