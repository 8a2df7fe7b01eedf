// How the windows look in the light and the dark, how they follow the desktop, where they open,
// and how every command is reached from the keyboard.
#include "app/AppSettings.h"
#include "model/FlowLibrary.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"
#include "ui/Appearance.h"
#include "ui/CaptureWindow.h"
#include "ui/GalleryView.h"
#include "ui/LibrarySidebar.h"
#include "ui/MainWindow.h"
#include "ui/Messages.h"
#include "ui/ScreenPreview.h"
#include "ui/SettingsWindow.h"
#include "ui/ShortcutsWindow.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QRadioButton>
#include <QScreen>
#include <QScrollBar>
#include <QSplitter>
#include <QStyleOptionButton>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

using namespace varnel;
using namespace varnel::test;

namespace {

int luma(QColor c) {
    return (299 * c.red() + 587 * c.green() + 114 * c.blue()) / 1000;
}

bool near(QColor a, QColor b, int tolerance = 24) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

// Hands the next modal window of type T to `answer` once it is up.
template <typename T> void whenModal(std::function<void(T*)> answer) {
    auto* poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, [poll, answer] {
        auto* modal = qobject_cast<T*>(QApplication::activeModalWidget());
        if (!modal)
            return;
        poll->stop();
        poll->deleteLater();
        answer(modal);
    });
    poll->start(10);
}

// Points XDG_CONFIG_HOME at a folder of the test's own for as long as it lives.
class ConfigHome {
public:
    explicit ConfigHome(const fs::path& folder) : folder_(folder) {
        fs::create_directories(folder);
        if (const char* old = std::getenv("XDG_CONFIG_HOME"))
            old_ = old;
        setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    }
    ~ConfigHome() {
        if (old_)
            setenv("XDG_CONFIG_HOME", old_->c_str(), 1);
        else
            unsetenv("XDG_CONFIG_HOME");
    }
    void write(const std::string& file, const std::string& text) const {
        fs::create_directories((folder_ / file).parent_path());
        std::ofstream(folder_ / file) << text;
    }

private:
    fs::path folder_;
    std::optional<std::string> old_;
};

// xdg-desktop-portal's Settings interface as GNOME's and KDE's portals answer it, on a bus of
// the test's own.
class FakePortal : public QDBusVirtualObject {
public:
    uint colorScheme = 0;

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() != "org.freedesktop.portal.Settings" || message.member() != "Read")
            return false;
        // Read answers a variant that holds the value's variant.
        const QVariant inner = QVariant::fromValue(QDBusVariant(QVariant::fromValue(colorScheme)));
        connection.send(message.createReply(QVariant::fromValue(QDBusVariant(inner))));
        return true;
    }
    void change(QDBusConnection& connection, uint value) {
        colorScheme = value;
        QDBusMessage signal = QDBusMessage::createSignal(
            "/org/freedesktop/portal/desktop", "org.freedesktop.portal.Settings", "SettingChanged");
        signal << QString("org.freedesktop.appearance") << QString("color-scheme")
               << QVariant::fromValue(QDBusVariant(QVariant::fromValue(value)));
        connection.send(signal);
    }
};

class PrivateBus {
public:
    PrivateBus() {
        daemon_.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
        if (daemon_.waitForReadyRead(10000))
            address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
    }
    ~PrivateBus() {
        QDBusConnection::disconnectFromBus("varnel-portal");
        QDBusConnection::disconnectFromBus("varnel-app");
        daemon_.kill();
        daemon_.waitForFinished();
    }
    bool running() const { return !address_.isEmpty(); }
    QDBusConnection connection(const QString& name) {
        return QDBusConnection::connectToBus(address_, name);
    }

private:
    QProcess daemon_;
    QString address_;
};

class AppearanceTest : public ::testing::Test {
protected:
    ~AppearanceTest() override { applyAppearance(Appearance::light, Accent::blue); }

    TempDir dir;
    AppSettings settings{std::make_unique<QSettings>(
        QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)};
};

TEST_F(AppearanceTest, SystemFollowsTheDesktopsLightOrDarkAndItsChanges) {
    ConfigHome config(dir / "config"); // no GTK or KDE file: the portal alone tells
    PrivateBus bus;
    ASSERT_TRUE(bus.running());
    QDBusConnection portalSide = bus.connection("varnel-portal");
    ASSERT_TRUE(portalSide.isConnected());
    FakePortal portal;
    portal.colorScheme = 1; // dark
    ASSERT_TRUE(portalSide.registerVirtualObject("/org/freedesktop/portal/desktop", &portal));
    ASSERT_TRUE(portalSide.registerService("org.freedesktop.portal.Desktop"));

    EXPECT_EQ(settings.appearance(), Appearance::system) << "the default";
    DesktopColorScheme desktop(settings, bus.connection("varnel-app"));
    ASSERT_TRUE(waitUntil([&] { return desktop.scheme() == ColorScheme::dark; }, 10));
    EXPECT_TRUE(isDark(QApplication::palette())) << "read at the start, applied at once";

    LibrarySidebar sidebar;
    sidebar.resize(200, 300);
    sidebar.show();
    const auto background = [&] {
        return sidebar.viewport()->grab().toImage().pixelColor(100, 280);
    };
    EXPECT_LT(luma(background()), 80);

    portal.change(portalSide, 2); // the user switched the desktop to light
    ASSERT_TRUE(waitUntil([&] { return desktop.scheme() == ColorScheme::light; }, 10));
    EXPECT_FALSE(isDark(QApplication::palette()));
    EXPECT_GT(luma(background()), 180) << "the sidebar follows at once";

    // A chosen appearance is kept whatever the desktop says.
    settings.setAppearance(Appearance::dark);
    applyAppearance(settings.appearance(), settings.accent());
    portal.change(portalSide, 2);
    portal.change(portalSide, 1);
    portal.change(portalSide, 2);
    ASSERT_TRUE(waitUntil([&] { return desktop.scheme() == ColorScheme::light; }, 10));
    QApplication::processEvents();
    EXPECT_TRUE(isDark(QApplication::palette()));
    portalSide.unregisterObject("/org/freedesktop/portal/desktop");
}

TEST_F(AppearanceTest, WithoutThePortalGtksSettingsTell) {
    ConfigHome config(dir / "config");
    config.write("gtk-3.0/settings.ini", "[Settings]\ngtk-application-prefer-dark-theme=1\n");
    DesktopColorScheme desktop(settings, QDBusConnection("no-bus"));
    EXPECT_EQ(desktop.scheme(), ColorScheme::dark);
    applyAppearance(Appearance::system, Accent::blue);
    EXPECT_TRUE(isDark(QApplication::palette()));

    config.write("gtk-3.0/settings.ini", "[Settings]\ngtk-theme-name=Adwaita\n");
    DesktopColorScheme light(settings, QDBusConnection("no-bus"));
    EXPECT_EQ(light.scheme(), ColorScheme::light);
}

// An unchecked box stands out from the window around it, in the dark as in the light.
TEST_F(AppearanceTest, UncheckedCheckBoxesShowInBothThemes) {
    for (const Appearance appearance : {Appearance::dark, Appearance::light}) {
        applyAppearance(appearance, Accent::blue);
        QWidget window;
        auto* box = new QCheckBox("Include windows", &window);
        auto* round = new QRadioButton("Side panel", &window);
        auto* layout = new QVBoxLayout(&window);
        layout->addWidget(box);
        layout->addWidget(round);
        window.show();
        QApplication::processEvents();
        for (QAbstractButton* button :
             {static_cast<QAbstractButton*>(box), static_cast<QAbstractButton*>(round)}) {
            QStyleOptionButton option;
            option.initFrom(button);
            const QRect indicator = button->style()->subElementRect(
                qobject_cast<QCheckBox*>(button) ? QStyle::SE_CheckBoxIndicator
                                                 : QStyle::SE_RadioButtonIndicator,
                &option, button);
            const QImage image = button->grab().toImage();
            const int around = luma(window.palette().color(QPalette::Window));
            int strongest = 0;
            for (int y = indicator.top(); y <= indicator.bottom(); ++y)
                for (int x = indicator.left(); x <= indicator.right(); ++x)
                    strongest =
                        std::max(strongest, std::abs(luma(image.pixelColor(x, y)) - around));
            EXPECT_GE(strongest, 60) << (appearance == Appearance::dark ? "dark " : "light ")
                                     << button->text().toStdString();
        }
    }
}

class LookAndKeysTest : public ::testing::Test {
protected:
    LookAndKeysTest() {
        library.open();
        applyAppearance(Appearance::light, Accent::blue);
        window = std::make_unique<MainWindow>(library, *settings);
        window->show();
        QApplication::processEvents();
    }
    ~LookAndKeysTest() override { applyAppearance(Appearance::light, Accent::blue); }
    std::unique_ptr<AppSettings> makeSettings() {
        return std::make_unique<AppSettings>(std::make_unique<QSettings>(
            QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat));
    }
    // The offscreen platform has no window manager to make a window active.
    bool activate(QWidget* widget) {
        QApplication::setActiveWindow(widget);
        return QApplication::activeWindow() == widget;
    }

    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowLibrary library{FlowStore(sample.root)};
    std::unique_ptr<AppSettings> settings = makeSettings();
    std::unique_ptr<MainWindow> window;
};

// Switching in the settings repaints the sidebar, the gallery and the toolbar at once.
TEST_F(LookAndKeysTest, SwitchingAppearanceRepaintsEveryPartAtOnce) {
    window->showSettings();
    auto* settingsWindow = window->findChild<SettingsWindow*>();
    ASSERT_TRUE(settingsWindow);
    auto pick = [&](const QString& text) {
        for (auto* button : settingsWindow->findChildren<QRadioButton*>())
            if (button->text() == text)
                button->click();
        QApplication::processEvents();
    };
    LibrarySidebar& sidebar = window->sidebar();
    auto sidebarBackground = [&] {
        return sidebar.viewport()->grab().toImage().pixelColor(10,
                                                               sidebar.viewport()->height() - 5);
    };
    auto galleryBackground = [&] {
        const QWidget* viewport = window->gallery().viewport();
        return window->gallery().viewport()->grab().toImage().pixelColor(viewport->width() - 4,
                                                                         viewport->height() - 4);
    };
    pick("Dark");
    EXPECT_LT(luma(sidebarBackground()), 80);
    EXPECT_LT(luma(galleryBackground()), 80);
    EXPECT_LT(
        luma(window->menuBar()->grab().toImage().pixelColor(window->menuBar()->width() - 3, 3)),
        90);
    pick("Light");
    EXPECT_GT(luma(sidebarBackground()), 180) << "the sidebar is light without a restart";
    EXPECT_GT(luma(galleryBackground()), 180);
    EXPECT_GT(
        luma(window->menuBar()->grab().toImage().pixelColor(window->menuBar()->width() - 3, 3)),
        170);
    pick("Dark");
    EXPECT_LT(luma(sidebarBackground()), 80) << "and back";
}

TEST_F(LookAndKeysTest, TheWindowsSizePlaceAndSplitterAreRemembered) {
    window->resize(700, 460);
    window->move(40, 30);
    auto* splitter = window->findChild<QSplitter*>();
    ASSERT_TRUE(splitter);
    splitter->setSizes({260, 440});
    QApplication::processEvents();
    const QList<int> sizes = splitter->sizes();
    const QRect geometry = window->geometry();
    window->close();
    window.reset();

    auto again = makeSettings();
    MainWindow next(library, *again);
    next.show();
    QApplication::processEvents();
    EXPECT_EQ(next.size(), geometry.size());
    EXPECT_EQ(next.geometry().topLeft(), geometry.topLeft());
    EXPECT_EQ(next.findChild<QSplitter*>()->sizes(), sizes);
}

// A message's window title names the situation; the message is said once, in the text.
TEST_F(LookAndKeysTest, DialogTitlesDontRepeatTheMessage) {
    QString title, text;
    auto note = [&](QMessageBox* box) {
        title = box->windowTitle();
        text = box->text();
        box->reject();
    };
    whenModal<QMessageBox>(note);
    showError(window.get(), "Couldn’t rename the flow", "The disk is full.");
    EXPECT_EQ(text, "Couldn’t rename the flow");
    EXPECT_EQ(title, "Error");
    whenModal<QMessageBox>(note);
    confirmDestructive(window.get(), "Delete the flow “Sign up”?", "It can't be undone.", "Delete");
    EXPECT_EQ(text, "Delete the flow “Sign up”?");
    EXPECT_EQ(title, "Confirm Delete");
}

// Help ▸ Keyboard Shortcuts lists what the menus hold now, grouped by menu, and finds by word.
TEST_F(LookAndKeysTest, KeyboardShortcutsListTheMenusCommandsAndSearch) {
    QAction* help = window->action("Keyboard Shortcuts");
    ASSERT_TRUE(help);
    EXPECT_EQ(help->shortcut(), QKeySequence(Qt::Key_F1));
    for (const QKeySequence& key : {QKeySequence(Qt::Key_F1)}) {
        int bound = 0;
        for (QAction* action : window->findChildren<QAction*>())
            bound += action->shortcuts().contains(key);
        EXPECT_EQ(bound, 1) << "F1 clashes with nothing";
    }
    window->action("Check for Updates…")->setShortcut(QKeySequence("Ctrl+Shift+U"));
    help->trigger();
    auto* shortcuts = window->findChild<ShortcutsWindow*>();
    ASSERT_TRUE(shortcuts);
    EXPECT_TRUE(shortcuts->isVisible());
    const QStringList rows = shortcuts->shownRows();
    for (const char* row :
         {"File ▸ New Capture… — Ctrl+N", "Edit ▸ Rename Screen… — F2",
          "Flow ▸ Categorize Flow… — Ctrl+K", "View ▸ Quick Look — Space",
          "Help ▸ Keyboard Shortcuts — F1", "Help ▸ Check for Updates… — Ctrl+Shift+U"})
        EXPECT_TRUE(rows.contains(QString::fromUtf8(row))) << row << "\n"
                                                           << rows.join("\n").toStdString();
    // Every command of the menus that has a shortcut is there, and nothing else.
    int withKeys = 0;
    for (QAction* top : window->menuBar()->actions()) {
        std::function<void(QMenu*)> count = [&](QMenu* menu) {
            for (QAction* action : menu->actions())
                if (action->menu())
                    count(action->menu());
                else
                    withKeys += !action->shortcuts().isEmpty();
        };
        count(top->menu());
    }
    EXPECT_EQ(rows.size(), withKeys);
    EXPECT_FALSE(rows.join("\n").contains("&")) << "access keys are not shown";

    shortcuts->searchField()->setText("thumbnails");
    EXPECT_EQ(shortcuts->shownRows(), (QStringList{"View ▸ Larger Thumbnails — Ctrl++",
                                                   "View ▸ Smaller Thumbnails — Ctrl+-"}));
    shortcuts->searchField()->setText("ctrl+k");
    EXPECT_EQ(shortcuts->shownRows(), QStringList{"Flow ▸ Categorize Flow… — Ctrl+K"});
    QTest::keyClick(shortcuts->searchField(), Qt::Key_Escape);
    EXPECT_FALSE(shortcuts->isVisible()) << "Esc closes it";
}

// Alt and a letter reach every command: each has an access key, different within its menu.
TEST_F(LookAndKeysTest, EveryMenuCommandHasAnAccessKey) {
    QStringList menus;
    for (QAction* top : window->menuBar()->actions()) {
        EXPECT_FALSE(QKeySequence::mnemonic(top->text()).isEmpty()) << top->text().toStdString();
        menus << top->text();
        QSet<int> keys;
        for (QAction* action : top->menu()->actions()) {
            if (action->isSeparator())
                continue;
            const QKeySequence key = QKeySequence::mnemonic(action->text());
            EXPECT_FALSE(key.isEmpty()) << action->text().toStdString();
            EXPECT_FALSE(keys.contains(key[0].toCombined())) << action->text().toStdString();
            keys.insert(key[0].toCombined());
        }
    }
    EXPECT_EQ(window->action("&New Capture…"), window->action("New Capture…"));
    EXPECT_TRUE(window->action("New Capture…")->text().contains('&'));
}

// Secondary windows open centred on the main window, within the screen, and Esc or Ctrl+W
// closes them.
TEST_F(LookAndKeysTest, SecondaryWindowsOpenCentredAndCloseWithEscOrCtrlW) {
    window->resize(760, 560);
    window->move(20, 20);
    const QRect free = window->screen()->availableGeometry();
    const QPoint centre = window->frameGeometry().center();
    auto centred = [&](QWidget* other) {
        const QPoint delta = other->frameGeometry().center() - centre;
        return std::abs(delta.x()) <= 2 && std::abs(delta.y()) <= 2;
    };

    window->showSettings();
    auto* settingsWindow = window->findChild<SettingsWindow*>();
    ASSERT_TRUE(settingsWindow && settingsWindow->isVisible());
    EXPECT_TRUE(centred(settingsWindow));
    ASSERT_TRUE(activate(settingsWindow));
    QTest::keyClick(settingsWindow, Qt::Key_W, Qt::ControlModifier);
    EXPECT_FALSE(settingsWindow->isVisible()) << "Ctrl+W";

    window->gallery().selectScreen({SampleLibrary::signUp, "01.png"});
    window->showPreview();
    ScreenPreview* preview = window->preview();
    ASSERT_TRUE(preview && preview->isVisible());
    EXPECT_TRUE(free.contains(preview->frameGeometry())) << "it fits the screen";
    ASSERT_TRUE(activate(preview));
    QTest::keyClick(preview, Qt::Key_W, Qt::ControlModifier);
    EXPECT_FALSE(preview->isVisible());

    window->newCapture();
    CaptureWindow* capture = window->captureWindow();
    ASSERT_TRUE(capture && capture->isVisible());
    EXPECT_TRUE(free.contains(capture->frameGeometry()))
        << "asked for 900 pixels, it gets what the screen has";
    EXPECT_TRUE(centred(capture) || capture->frameGeometry().height() >= free.height() - 60);
    QTest::keyClick(capture->sourcePicker(), Qt::Key_Escape);
    EXPECT_FALSE(capture->isVisible()) << "Esc that the picker doesn't use";
}

// The current item has a ring of its own while the list has the keyboard, in both themes.
TEST_F(LookAndKeysTest, TheSidebarAndGalleryShowWhereTheKeyboardIs) {
    for (const Appearance appearance : {Appearance::light, Appearance::dark}) {
        applyAppearance(appearance, Accent::blue);
        QApplication::processEvents();
        const QColor accent = QApplication::palette().color(QPalette::Highlight);

        LibrarySidebar& sidebar = window->sidebar();
        ASSERT_TRUE(activate(window.get()));
        sidebar.setFocus();
        ASSERT_TRUE(sidebar.hasFocus());
        const QRect row = sidebar.visualItemRect(sidebar.currentItem());
        const QPoint ringAt(row.left() + 3, row.center().y());
        const QColor focused = sidebar.viewport()->grab().toImage().pixelColor(ringAt);
        EXPECT_TRUE(near(focused, sidebar.palette().color(QPalette::HighlightedText)))
            << "a ring in the selection's text colour";
        window->gallery().setFocus();
        const QColor unfocused = sidebar.viewport()->grab().toImage().pixelColor(ringAt);
        EXPECT_TRUE(near(unfocused, accent)) << "just the selection without the keyboard";

        GalleryView& gallery = window->gallery();
        gallery.selectScreen({SampleLibrary::signUp, "02.png"});
        const auto flowRow = gallery.content().rowOfFlow(SampleLibrary::signUp);
        ASSERT_TRUE(flowRow);
        const QRect tile = gallery.galleryLayout()
                               .tileRect(*flowRow, 1)
                               .translated(0, -gallery.verticalScrollBar()->value());
        const QPoint ring(tile.left() - 5, tile.center().y());
        gallery.setFocus();
        EXPECT_TRUE(near(gallery.viewport()->grab().toImage().pixelColor(ring), accent, 40));
        sidebar.setFocus();
        EXPECT_FALSE(near(gallery.viewport()->grab().toImage().pixelColor(ring), accent, 40));
    }
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
