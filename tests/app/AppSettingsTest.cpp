#include "app/AppSettings.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class AppSettingsTest : public ::testing::Test {
protected:
    TempDir dir;
    QString file = QString::fromStdString((dir / "settings.ini").string());

    std::unique_ptr<QSettings> store() {
        return std::make_unique<QSettings>(file, QSettings::IniFormat);
    }
    void preset(const QString& key, const QVariant& value) {
        QSettings s(file, QSettings::IniFormat);
        s.setValue(key, value);
    }
};

} // namespace

TEST_F(AppSettingsTest, FreshInstallGetsTheDefaults) {
    AppSettings settings(store());
    EXPECT_TRUE(settings.rootFolderPath().ends_with("/Varnel"));
    EXPECT_TRUE(settings.shutterSoundEnabled());
    EXPECT_EQ(settings.shutterSoundName(), "Shutter");
    EXPECT_EQ(settings.shutterVolume(), 1.0);
    EXPECT_EQ(settings.appearance(), Appearance::system) << "the desktop's light or dark";
    EXPECT_EQ(settings.accent(), Accent::blue);
    EXPECT_EQ(settings.captureView(), CaptureView::centered);
    EXPECT_FALSE(settings.includeSimulator());
    EXPECT_FALSE(settings.selectedApp());
    EXPECT_EQ(settings.lastApplication(), "");
    EXPECT_EQ(settings.redactLight(), (RedactStyle{1, 1, 1, 0.35, 50}));
    EXPECT_EQ(settings.redactDark(), (RedactStyle{0, 0, 0, 0.35, 50}));
    EXPECT_EQ(settings.redactPreset(), RedactPreset::light);
    EXPECT_EQ(settings.thumbnailHeight(), 220);
    EXPECT_EQ(settings.mediaFilter(), MediaFilter::all);
    EXPECT_FALSE(settings.showTranslation());
    EXPECT_EQ(settings.translationLanguage(), "en");
    EXPECT_FALSE(settings.pendingScrollFlow());
}

TEST_F(AppSettingsTest, UnknownOrMiscasedEnumerationsFallBack) {
    preset("appearance", "System");
    preset("accent", "pink");
    preset("captureView", "Panel");
    preset("redactPreset", "DARK");
    preset("mediaFilter", "image");
    AppSettings settings(store());
    EXPECT_EQ(settings.appearance(), Appearance::system);
    EXPECT_EQ(settings.accent(), Accent::blue);
    EXPECT_EQ(settings.captureView(), CaptureView::centered);
    EXPECT_EQ(settings.redactPreset(), RedactPreset::light);
    EXPECT_EQ(settings.mediaFilter(), MediaFilter::all);
}

TEST_F(AppSettingsTest, StoredValuesAreReadWithTheirRules) {
    preset("appearance", "light");
    preset("captureView", "panel");
    preset("redactPreset", "dark");
    preset("mediaFilter", "videos");
    preset("shutterVolume", 0);
    preset("shutterSoundEnabled", false);
    preset("includeSimulator", true);
    preset("selectedApp", "Acme");
    preset("rootFolderPath", "/data/Library");
    AppSettings settings(store());
    EXPECT_EQ(settings.appearance(), Appearance::light);
    EXPECT_EQ(settings.captureView(), CaptureView::panel);
    EXPECT_EQ(settings.redactPreset(), RedactPreset::dark);
    EXPECT_EQ(settings.redactStyle(), settings.redactDark());
    EXPECT_EQ(settings.mediaFilter(), MediaFilter::videos);
    EXPECT_EQ(settings.shutterVolume(), 0.0) << "a stored 0 is not mistaken for absent";
    EXPECT_FALSE(settings.shutterSoundEnabled());
    EXPECT_TRUE(settings.includeSimulator());
    EXPECT_EQ(settings.selectedApp(), "Acme");
    EXPECT_EQ(settings.rootFolderPath(), "/data/Library");
}

TEST_F(AppSettingsTest, ThumbnailHeightIsClamped) {
    for (auto [stored, read] : {std::pair{80.0, 150.0}, {999.0, 300.0}, {200.0, 200.0}}) {
        preset("thumbnailHeight", stored);
        AppSettings settings(store());
        EXPECT_EQ(settings.thumbnailHeight(), read) << stored;
    }
}

TEST_F(AppSettingsTest, UndecodableStylesFallBackToTheirPreset) {
    preset("redactLight", QByteArray("{not json"));
    preset("redactDark", QByteArray(R"({"red":0.5,"green":0.5,"blue":0.5,"opacity":1,"blur":9})"));
    AppSettings settings(store());
    EXPECT_EQ(settings.redactLight(), defaultStyle(RedactPreset::light));
    EXPECT_EQ(settings.redactDark(), (RedactStyle{0.5, 0.5, 0.5, 1, 9}));
}

TEST_F(AppSettingsTest, EverySetterPersistsUnderItsKey) {
    std::vector<QString> changes;
    {
        AppSettings settings(store());
        QObject::connect(&settings, &AppSettings::changed,
                         [&](const QString& key) { changes.push_back(key); });
        settings.setAppearance(Appearance::system);
        settings.setAccent(Accent::orange);
        settings.setCaptureView(CaptureView::panel);
        settings.setShutterVolume(0.25);
        settings.setShutterSoundEnabled(false);
        settings.setShutterSoundName("Pop");
        settings.setIncludeSimulator(true);
        settings.setSelectedApp("Acme");
        settings.setLastApplication("Acme");
        settings.setLastCategory("Onboarding");
        settings.setRedactLight({0.9, 0.8, 0.7, 0.5, 20});
        settings.setRedactPreset(RedactPreset::dark);
        settings.setThumbnailHeight(260);
        settings.setMediaFilter(MediaFilter::images);
        settings.setShowTranslation(true);
        settings.setTranslationLanguage("fr");
        settings.setRootFolderPath("/srv/lib");
        settings.setSettingsSelectedTab("figma");
        settings.setPendingScrollFlow("a/b/c");
    }
    EXPECT_EQ(changes.size(), 19u);
    EXPECT_EQ(QSettings(file, QSettings::IniFormat).value("appearance").toString(), "system");

    AppSettings reread(store());
    EXPECT_EQ(reread.appearance(), Appearance::system);
    EXPECT_EQ(reread.accent(), Accent::orange);
    EXPECT_EQ(reread.captureView(), CaptureView::panel);
    EXPECT_EQ(reread.shutterVolume(), 0.25);
    EXPECT_FALSE(reread.shutterSoundEnabled());
    EXPECT_EQ(reread.shutterSoundName(), "Pop");
    EXPECT_TRUE(reread.includeSimulator());
    EXPECT_EQ(reread.selectedApp(), "Acme");
    EXPECT_EQ(reread.lastCategory(), "Onboarding");
    EXPECT_EQ(reread.redactLight(), (RedactStyle{0.9, 0.8, 0.7, 0.5, 20}));
    EXPECT_EQ(reread.redactPreset(), RedactPreset::dark);
    EXPECT_EQ(reread.thumbnailHeight(), 260);
    EXPECT_EQ(reread.mediaFilter(), MediaFilter::images);
    EXPECT_TRUE(reread.showTranslation());
    EXPECT_EQ(reread.translationLanguage(), "fr");
    EXPECT_EQ(reread.rootFolderPath(), "/srv/lib");
    EXPECT_EQ(reread.settingsSelectedTab(), "figma");
    EXPECT_FALSE(reread.pendingScrollFlow()) << "transient";

    reread.setSelectedApp(std::nullopt);
    EXPECT_FALSE(QSettings(file, QSettings::IniFormat).contains("selectedApp"));
}
