#include "ui/SettingsWindow.h"
#include "app/AppSettings.h"
#include "support/TestLibrary.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSlider>
#include <QTabWidget>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class SettingsWindowTest : public ::testing::Test {
protected:
    TempDir dir;
    QString file = QString::fromStdString((dir / "settings.ini").string());
    std::unique_ptr<AppSettings> settings = fresh();

    std::unique_ptr<AppSettings> fresh() {
        return std::make_unique<AppSettings>(
            std::make_unique<QSettings>(file, QSettings::IniFormat));
    }
    template <typename T> T* find(QWidget& window, const char* name) {
        T* widget = window.findChild<T*>(name);
        EXPECT_TRUE(widget) << name;
        return widget;
    }
    QRadioButton* radio(QWidget& window, const QString& text) {
        for (auto* button : window.findChildren<QRadioButton*>())
            if (button->text() == text)
                return button;
        ADD_FAILURE() << text.toStdString();
        return nullptr;
    }
};

} // namespace

TEST_F(SettingsWindowTest, RemembersTheSelectedTab) {
    {
        SettingsWindow window(*settings);
        EXPECT_EQ(window.tabs()->count(), 7);
        EXPECT_EQ(window.tabs()->currentIndex(), 0) << "flows first when nothing is remembered";
        window.tabs()->setCurrentIndex(2);
    }
    EXPECT_EQ(fresh()->settingsSelectedTab(), "redaction");
    SettingsWindow again(*fresh());
    EXPECT_EQ(again.tabs()->currentIndex(), 2);
}

TEST_F(SettingsWindowTest, ControlsWriteTheirSettings) {
    SettingsWindow window(*settings);
    find<QSlider>(window, "thumbnailHeight")->setValue(260);
    find<QCheckBox>(window, "shutterSoundEnabled")->setChecked(false);
    find<QSlider>(window, "shutterVolume")->setValue(40);
    radio(window, "Light")->click();
    radio(window, "Side panel")->click();
    radio(window, "Green")->click();

    const auto reread = fresh();
    EXPECT_EQ(reread->thumbnailHeight(), 260);
    EXPECT_FALSE(reread->shutterSoundEnabled());
    EXPECT_DOUBLE_EQ(reread->shutterVolume(), 0.4);
    EXPECT_EQ(reread->appearance(), Appearance::light);
    EXPECT_EQ(reread->captureView(), CaptureView::panel);
    EXPECT_EQ(reread->accent(), Accent::green);
    EXPECT_GT(QApplication::palette().color(QPalette::Window).lightness(), 150)
        << "the light appearance applies at once";
    radio(window, "Dark")->click();
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 80);

    // Translation: the target language, what this computer translates, and a server only when
    // the user names one.
    auto* language = find<QComboBox>(window, "translationLanguage");
    EXPECT_EQ(language->currentData(), "en") << "English unless chosen";
    language->setCurrentIndex(language->findData("fr"));
    EXPECT_TRUE(find<QLabel>(window, "apertiumPairs")->text().contains("Spanish → English"));
    auto* server = find<QLineEdit>(window, "translationServer");
    EXPECT_TRUE(server->text().isEmpty());
    server->setText(" https://translate.example.org ");
    emit server->editingFinished();
    EXPECT_EQ(fresh()->translationLanguage(), "fr");
    EXPECT_EQ(fresh()->translationServer(), "https://translate.example.org");

    // Updates: the weekly check is off until ticked; an emptied feed is the project's again.
    auto* weekly = find<QCheckBox>(window, "checkForUpdatesWeekly");
    EXPECT_FALSE(weekly->isChecked());
    weekly->click();
    EXPECT_TRUE(fresh()->checkForUpdatesWeekly());
    auto* feed = find<QLineEdit>(window, "updateFeed");
    EXPECT_EQ(feed->text(), "https://varnel.app/releases.json");
    feed->setText("https://mirror.example.org/varnel.json ");
    emit feed->editingFinished();
    EXPECT_EQ(fresh()->updateFeed(), "https://mirror.example.org/varnel.json");
    feed->clear();
    emit feed->editingFinished();
    EXPECT_EQ(fresh()->updateFeed(), "https://varnel.app/releases.json");
    EXPECT_EQ(feed->text(), "https://varnel.app/releases.json");
}

TEST_F(SettingsWindowTest, EachRedactionPresetKeepsItsOwnStyle) {
    SettingsWindow window(*settings);
    auto* blur = find<QSlider>(window, "blur");
    auto* opacity = find<QSlider>(window, "opacity");
    EXPECT_EQ(blur->value(), 50);
    blur->setValue(80);
    opacity->setValue(60);
    EXPECT_EQ(settings->redactLight(), (RedactStyle{1, 1, 1, 0.6, 80}));
    EXPECT_EQ(settings->redactDark(), defaultStyle(RedactPreset::dark)) << "untouched";

    radio(window, "Dark captures")->click();
    EXPECT_EQ(blur->value(), 50) << "the dark preset shows its own values";
    blur->setValue(20);
    EXPECT_EQ(fresh()->redactDark(), (RedactStyle{0, 0, 0, 0.35, 20}));
    EXPECT_EQ(fresh()->redactLight().blur, 80);
}

TEST_F(SettingsWindowTest, RedactionPreviewFollowsThePresetAndItsControls) {
    SettingsWindow window(*settings);
    auto* preview = find<QLabel>(window, "redactionPreview");
    const auto picture = [&] { return preview->pixmap().toImage(); };
    ASSERT_EQ(picture().size(), QSize(260, 132));
    // The left half is the sample as it is; the right half is frosted with the style.
    const QPoint left(60, 5); // background
    const QPoint right(200, 100);
    const QImage light = picture();

    find<QSlider>(window, "opacity")->setValue(100);
    EXPECT_EQ(picture().pixelColor(right), QColor(Qt::white)) << "a full white tint";
    EXPECT_EQ(picture().pixel(left), light.pixel(left));

    radio(window, "Dark captures")->click();
    EXPECT_LT(picture().pixelColor(right).lightness(), 60) << "the dark sample, dark frost";
    EXPECT_NE(picture().pixel(left), light.pixel(left)) << "the dark sample";
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
