// The capture window with a test camera that the device monitor lists like a real one.
#include "ui/CaptureWindow.h"
#include "app/AppSettings.h"
#include "capture/DeviceManager.h"
#include "model/FlowLibrary.h"
#include "support/FakeAdb.h"
#include "support/MediaProbe.h"
#include "support/SmallDisk.h"
#include "support/TestCamera.h"
#include "support/TestLibrary.h"
#include "support/XServer.h"
#include "ui/FinishCaptureDialog.h"
#include "ui/GalleryView.h"
#include "ui/LivePreview.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <cstdlib>

using namespace varnel;
using namespace varnel::test;
using namespace std::chrono_literals;

namespace {

// Hands the next modal window of type T to `answer` once it is up (it runs inside the window's
// own event loop).
template <typename T> void whenModal(QObject* owner, std::function<void(T*)> answer) {
    auto* poll = new QTimer(owner);
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

QAbstractButton* buttonOf(QMessageBox* box, const QString& text) {
    for (QAbstractButton* button : box->buttons())
        if (button->text().remove(QLatin1Char('&')) == text)
            return button;
    return nullptr;
}

QStringList buttonTexts(QMessageBox* box) {
    QStringList texts;
    for (QAbstractButton* button : box->buttons())
        texts << button->text().remove(QLatin1Char('&'));
    texts.sort();
    return texts;
}

// Pixels of the REC mark's red within `area` of the image.
int redPixels(const QImage& image, const QRect& area) {
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const QColor c = image.pixelColor(x, y);
            count += c.red() > 200 && c.green() < 80 && c.blue() < 80;
        }
    return count;
}

class CaptureWindowTest : public ::testing::Test {
protected:
    CaptureWindowTest() {
        sample.store.createEmptyFlow("Acme", "Profile", std::string("Settings"), Date{5});
        library.open();
        settings.setLastApplication("Acme");
        settings.setLastCategory("Onboarding");
        settings.setShutterSoundEnabled(false); // no sound card here
    }
    ~CaptureWindowTest() override { TestCameras::disconnectAll(); }

    std::unique_ptr<CaptureWindow> openWith(const TestCameras::Spec& camera) {
        TestCameras::connect(camera);
        devices = std::make_unique<DeviceManager>(settings);
        devices->select(camera.serial);
        auto window = std::make_unique<CaptureWindow>(library, settings, *devices);
        window->show();
        EXPECT_TRUE(waitUntil([&] { return window->preview().pictureRect().isValid(); }))
            << "the live picture shows";
        return window;
    }

    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowLibrary library{FlowStore(sample.root)};
    AppSettings settings{std::make_unique<QSettings>(
        QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)};
    std::unique_ptr<DeviceManager> devices;
};

TEST_F(CaptureWindowTest, CapturesStillsAndAClipAndSavesThemAsAFlow) {
    auto window = openWith({"varnel-test-ui", "Test Phone", 180, 360, 30, "ball"});
    EXPECT_EQ(window->sourcePicker()->currentText(), "Camera — Test Phone");
    EXPECT_TRUE(window->preview().messageTitle().isEmpty());

    ASSERT_TRUE(window->captureStill());
    EXPECT_TRUE(window->preview().isBadgeShown()) << "the captured badge flashes";
    ASSERT_TRUE(window->captureStill());
    EXPECT_EQ(window->strip()->count(), 2);

    window->toggleClip();
    EXPECT_EQ(window->recordButton()->text(), "Stop Clip");
    ASSERT_TRUE(waitUntil([&] { return window->service().recordingCounts().appended >= 10; }));
    window->toggleClip();
    ASSERT_TRUE(waitUntil([&] { return window->session().screenCount() == 3; }))
        << "the finished clip joins the session";
    EXPECT_EQ(window->recordButton()->text(), "Record Clip");

    // Removing the first still from the strip.
    window->removeStaged("01.png");
    EXPECT_EQ(window->strip()->count(), 2);

    QString saved;
    QObject::connect(window.get(), &CaptureWindow::flowSaved,
                     [&](const QString& folder) { saved = folder; });
    window->askWhereToSave = [] { return CaptureWindow::Answer{"Acme", "Onboarding", "Checkout"}; };
    window->finish();
    EXPECT_EQ(saved, "acme/onboarding/checkout");
    const FlowMeta meta = sample.store.meta("acme/onboarding/checkout");
    ASSERT_EQ(meta.screens.size(), 2u);
    EXPECT_EQ(meta.screens[0].filename, "01.png");
    EXPECT_EQ(meta.screens[1].filename, "02.mov");
    EXPECT_EQ(meta.deviceName, "Test Phone");
    const auto clip = readClip(sample.root / "acme/onboarding/checkout/02.mov");
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->width, 180);
    EXPECT_EQ(settings.pendingScrollFlow(), "acme/onboarding/checkout") << "the gallery goes there";
    EXPECT_EQ(settings.lastCategory(), "Onboarding");
    bool listed = false;
    for (const auto& summary : library.summaries())
        listed = listed || summary.folderName == "acme/onboarding/checkout";
    EXPECT_TRUE(listed) << "the library shows the new flow";
    EXPECT_FALSE(window->session().isRecording());
}

TEST_F(CaptureWindowTest, SayWhenThereIsNothingToSaveAndRefuseToSwitchMidSession) {
    auto window = openWith({"varnel-test-a", "Phone A", 120, 240, 30, "smpte"});
    TestCameras::connect({"varnel-test-b", "Phone B", 120, 240, 30, "snow"});
    ASSERT_TRUE(waitUntil([&] { return window->sourcePicker()->count() >= 2; }));

    window->session().start();
    window->askWhereToSave = [] { return CaptureWindow::Answer{}; };
    window->finish();
    EXPECT_EQ(window->statusLabel()->text(), "No screens captured — nothing to save.");

    ASSERT_TRUE(window->captureStill());
    const int other = window->sourcePicker()->findData("varnel-test-b");
    ASSERT_GE(other, 0);
    window->sourcePicker()->setCurrentIndex(other);
    emit window->sourcePicker()->activated(other);
    EXPECT_EQ(window->statusLabel()->text(), "Finish or discard the session to switch sources.");
    EXPECT_EQ(devices->selectedID(), "varnel-test-a");
    EXPECT_EQ(window->sourcePicker()->currentData().toString(), "varnel-test-a");

    window->session().cancel();
    emit window->sourcePicker()->activated(other);
    EXPECT_EQ(devices->selectedID(), "varnel-test-b") << "without a session the switch is made";

    window->includeWindowsBox()->setChecked(true);
    EXPECT_TRUE(settings.includeSimulator());
    EXPECT_TRUE(devices->includeSimulator()) << "the device list follows the setting";
}

TEST_F(CaptureWindowTest, AddsScreensToAnExistingFlow) {
    auto window = openWith({"varnel-test-add", "Phone", 100, 200, 30, "smpte"});
    const std::string target = "acme/settings/profile";
    window->setAppendTarget(target);
    EXPECT_FALSE(window->targetLabel()->isHidden());
    EXPECT_EQ(window->targetLabel()->text(), "Adding screens to: Profile");

    window->session().start(target);
    window->finish();
    EXPECT_EQ(window->statusLabel()->text(), "No screens added.");

    ASSERT_TRUE(window->captureStill());
    window->finish();
    EXPECT_EQ(sample.store.meta(target).screens.size(), 1u);
    EXPECT_EQ(settings.lastCategory(), "Onboarding") << "adding does not change the last used";
}

// An Android phone is picked from the list like any source; its stills are its screenshots.
TEST_F(CaptureWindowTest, AnAndroidPhoneIsListedShownAndCapturedByItsScreenshots) {
    FakeAdb adb;
    const auto [h264, frames] = FakeAdb::h264Stream(180, 400, 60, 30);
    FakeAdb::Device phone;
    phone.serial = "R5CT90";
    phone.model = "Pixel_7";
    writePicture(dir / "screenshot.png", 108, 240, 0xff20a060u);
    phone.png = readFile(dir / "screenshot.png");
    phone.h264 = h264;
    phone.frames = frames;
    adb.plug(phone);
    FakeAdb::Device waiting;
    waiting.serial = "0A1B2C";
    waiting.state = "unauthorized";
    adb.plug(waiting);
    DeviceSources sources;
    sources.cameras = [] { return std::vector<DeviceInfo>{}; };
    sources.unreadableCameras = [] { return std::vector<std::string>{}; };
    sources.adb = AdbAddress::parse(adb.address());
    devices = std::make_unique<DeviceManager>(settings, sources);
    ASSERT_TRUE(waitUntil([&] { return devices->devices().size() == 2; }));
    devices->select("adb:R5CT90");
    CaptureWindow window(library, settings, *devices);
    window.show();
    EXPECT_EQ(window.sourcePicker()->currentText(), "Android — Pixel 7");
    ASSERT_TRUE(waitUntil([&] { return window.preview().pictureRect().isValid(); }))
        << "the phone's screen shows";
    ASSERT_TRUE(window.captureStill());
    EXPECT_FALSE(window.captureStill()) << "one screenshot at a time";
    ASSERT_TRUE(waitUntil([&] { return window.session().screenCount() == 1; }))
        << "the screenshot is taken off the main thread, then staged";
    const auto staged = window.session().stagedThumbnails();
    ASSERT_EQ(staged.size(), 1u);
    EXPECT_EQ(readFile(staged.front()), phone.png);

    // A phone that has not allowed this computer yet says what to do on it.
    devices->select("adb:0A1B2C");
    ASSERT_TRUE(
        waitUntil([&] { return window.preview().messageTitle() == "Allow USB debugging"; }));
    EXPECT_TRUE(window.preview().messageDetails().contains("tap Allow"));
}

TEST_F(CaptureWindowTest, WithoutASourceTheWindowSaysWhatToConnectOnLinux) {
    devices = std::make_unique<DeviceManager>(
        settings,
        DeviceSources{[] { return std::vector<DeviceInfo>{}; }, {}, {}, {}, {}, [](auto) {}, {}});
    CaptureWindow window(library, settings, *devices);
    window.show();
    const QString title = window.preview().messageTitle();
    EXPECT_EQ(title, "No phone, emulator or window found");
    const QString details = window.preview().messageDetails();
    // What works on Linux, and how; nothing that has no way in.
    for (const char* way :
         {"Android phone by USB with USB debugging on", "Android emulator", "mirroring window",
          "scrcpy", "tick “Include windows”", "V4L2", "Refresh"})
        EXPECT_TRUE(details.contains(QString::fromUtf8(way))) << way;
    for (const char* absent : {"iPhone", "Simulator", "Trust This Computer"}) {
        EXPECT_FALSE(title.contains(absent)) << absent;
        EXPECT_FALSE(details.contains(absent)) << absent;
    }
    EXPECT_EQ(window.sourcePicker()->currentText(), "No source found");
    EXPECT_FALSE(window.sourcePicker()->isEnabled());
    EXPECT_FALSE(window.captureStill());
    EXPECT_FALSE(window.session().isRecording()) << "no source, no session";

    // With windows listed already, what is left is to open one.
    window.includeWindowsBox()->setChecked(true);
    EXPECT_FALSE(window.preview().messageDetails().contains("tick"));
    EXPECT_TRUE(window.preview().messageDetails().contains("open a mirroring window"));
    EXPECT_FALSE(window.includeWindowsBox()->toolTip().contains("Simulator"));
}

// A camera this user may not open is not listed at all: the window says what is wrong.
TEST_F(CaptureWindowTest, ACameraThatCantBeOpenedAsksForAccess) {
    DeviceSources sources{[] { return std::vector<DeviceInfo>{}; },
                          {},
                          {},
                          {},
                          [] { return std::vector<std::string>{"/dev/video0"}; },
                          [](auto) {},
                          {}};
    devices = std::make_unique<DeviceManager>(settings, sources);
    CaptureWindow window(library, settings, *devices);
    window.show();
    EXPECT_EQ(window.preview().messageTitle(), "Camera access required");
    EXPECT_TRUE(window.preview().messageDetails().contains("“video” group"))
        << window.preview().messageDetails().toStdString();
    EXPECT_TRUE(window.preview().messageDetails().contains("/dev/video0"));
}

// The library's disk fills up during a session: the clip ends by itself with the reason, the
// window goes back to idle and keeps saying why; a still that can't be saved says so too.
TEST_F(CaptureWindowTest, AFullDiskEndsTheClipVisiblyAndStillsSayWhy) {
    SmallDisk disk(16 << 20);
    if (!disk.mounted())
        GTEST_SKIP() << disk.skipReason();
    SampleLibrary small{disk / "Library"};
    FlowLibrary smallLibrary{FlowStore(small.root)};
    smallLibrary.open();
    TestCameras::connect({"varnel-test-full", "Noisy Phone", 640, 480, 30, "snow"});
    devices = std::make_unique<DeviceManager>(settings);
    devices->select("varnel-test-full");
    CaptureWindow window(smallLibrary, settings, *devices);
    window.show();
    ASSERT_TRUE(waitUntil([&] { return window.preview().pictureRect().isValid(); }));
    ASSERT_TRUE(window.captureStill());

    disk.fill(1200 << 10); // about a second of noise fits
    window.toggleClip();
    ASSERT_EQ(window.recordButton()->text(), "Stop Clip");
    ASSERT_TRUE(waitUntil([&] { return window.recordButton()->text() == "Record Clip"; }, 30))
        << "the recording ends without the user's stop";
    EXPECT_FALSE(window.recordButton()->isChecked());
    EXPECT_FALSE(window.session().isRecordingVideo());
    EXPECT_EQ(window.session().screenCount(), 2) << "the second that was written is kept";
    const QString stopped =
        "The clip stopped early: The disk is full. What was recorded until then is kept.";
    EXPECT_TRUE(window.statusLabel()->text().startsWith(stopped))
        << window.statusLabel()->text().toStdString();

    disk.fill(0);
    EXPECT_FALSE(window.captureStill());
    const QString notSaved = "The screen couldn't be saved: the disk is full.";
    EXPECT_TRUE(window.statusLabel()->text().startsWith(notSaved))
        << window.statusLabel()->text().toStdString();
    window.removeStaged("01.png"); // the session changes: the reason stays
    EXPECT_TRUE(window.statusLabel()->text().startsWith(notSaved));
    EXPECT_TRUE(window.statusLabel()->text().endsWith("1 screen in this session"));

    window.confirmDiscard = [](const QString&) { return true; };
    window.discard();
}

// Closing the window would throw captured screens away: it offers to finish (save them as a
// flow), to discard them, or to stay; a clip still being recorded can only be discarded or kept.
TEST_F(CaptureWindowTest, ClosingWithUnsavedScreensOffersFinishDiscardOrCancel) {
    auto window = openWith({"varnel-test-close", "Phone", 120, 240, 30, "ball"});
    QString text;
    QStringList buttons;
    auto answer = [&](const QString& button) {
        whenModal<QMessageBox>(window.get(), [&, button](QMessageBox* box) {
            text = box->text();
            buttons = buttonTexts(box);
            if (QAbstractButton* chosen = buttonOf(box, button))
                chosen->click();
        });
    };
    window->toggleClip();
    ASSERT_TRUE(window->service().isRecordingVideo());
    answer("Cancel");
    EXPECT_FALSE(window->close()) << "kept open when the user says no";
    EXPECT_EQ(text, "A clip is being recorded");
    EXPECT_EQ(buttons, (QStringList{"Cancel", "Discard"}))
        << "a clip still recording can't be saved";
    EXPECT_TRUE(window->service().isRecordingVideo()) << "the recording goes on";

    ASSERT_TRUE(waitUntil([&] { return window->service().recordingCounts().appended >= 3; }));
    window->toggleClip();
    ASSERT_TRUE(waitUntil([&] { return window->session().screenCount() == 1; }));
    ASSERT_TRUE(window->captureStill());
    answer("Cancel");
    EXPECT_FALSE(window->close());
    EXPECT_EQ(text, "2 captured screens are not saved");
    EXPECT_EQ(buttons, (QStringList{"Cancel", "Discard", "Finish…"}));
    EXPECT_TRUE(window->session().isRecording());

    // Finish… opens the save sheet; cancelling it keeps the window and the session.
    whenModal<QMessageBox>(window.get(), [&](QMessageBox* box) {
        EXPECT_EQ(box->defaultButton(), buttonOf(box, "Finish…")) << "Enter saves";
        whenModal<FinishCaptureDialog>(window.get(),
                                       [](FinishCaptureDialog* sheet) { sheet->reject(); });
        buttonOf(box, "Finish…")->click();
    });
    EXPECT_FALSE(window->close());
    EXPECT_TRUE(window->session().isRecording());
    EXPECT_EQ(window->session().screenCount(), 2);

    QString saved;
    QObject::connect(window.get(), &CaptureWindow::flowSaved,
                     [&](const QString& folder) { saved = folder; });
    whenModal<QMessageBox>(window.get(), [&](QMessageBox* box) {
        whenModal<FinishCaptureDialog>(window.get(), [](FinishCaptureDialog* sheet) {
            sheet->nameField()->setText("Closing time");
            sheet->accept();
        });
        buttonOf(box, "Finish…")->click();
    });
    EXPECT_TRUE(window->close()) << "saved, the window closes";
    EXPECT_EQ(saved, "acme/onboarding/closing-time");
    EXPECT_EQ(sample.store.meta("acme/onboarding/closing-time").screens.size(), 2u);
    EXPECT_FALSE(window->session().isRecording());
}

TEST_F(CaptureWindowTest, ClosingCanDiscardTheSession) {
    auto window = openWith({"varnel-test-discard", "Phone", 120, 240, 30, "ball"});
    const auto flows = library.summaries().size();
    ASSERT_TRUE(window->captureStill());
    const auto staged = window->session().stagedThumbnails();
    ASSERT_EQ(staged.size(), 1u);
    QString text;
    whenModal<QMessageBox>(window.get(), [&](QMessageBox* box) {
        text = box->text();
        buttonOf(box, "Discard")->click();
    });
    EXPECT_TRUE(window->close());
    EXPECT_EQ(text, "1 captured screen is not saved");
    EXPECT_FALSE(window->session().isRecording());
    EXPECT_FALSE(std::filesystem::exists(staged.front())) << "the staged still is gone";
    EXPECT_EQ(library.summaries().size(), flows) << "nothing was saved";
}

// A red REC mark and the time recorded (mm:ss) sit on the live picture while a clip records.
TEST_F(CaptureWindowTest, WhileAClipRecordsThePictureShowsRecAndTheTime) {
    auto window = openWith({"varnel-test-rec", "Phone", 180, 360, 30, "ball"});
    LivePreview& preview = window->preview();
    auto now = std::chrono::steady_clock::time_point() + 1h;
    preview.clock = [&] { return now; };
    const QRect corner(preview.pictureRect().topLeft(), QSize(140, 60));
    EXPECT_EQ(redPixels(preview.grab().toImage(), corner), 0);
    EXPECT_TRUE(preview.recordedTime().isEmpty());

    window->toggleClip();
    ASSERT_TRUE(window->service().isRecordingVideo());
    EXPECT_TRUE(preview.isRecording());
    EXPECT_EQ(preview.recordedTime(), "00:00");
    EXPECT_GT(redPixels(preview.grab().toImage(), corner), 20) << "the red dot";
    now += 65s;
    EXPECT_EQ(preview.recordedTime(), "01:05");
    now += 10min;
    EXPECT_EQ(preview.recordedTime(), "11:05");

    window->toggleClip();
    ASSERT_TRUE(waitUntil([&] { return !preview.isRecording(); })) << "the mark goes with the clip";
    EXPECT_EQ(redPixels(preview.grab().toImage(), corner), 0);
    window->confirmDiscard = [](const QString&) { return true; };
    ASSERT_TRUE(waitUntil([&] { return !window->session().isRecordingVideo(); }));
    window->discard();
}

// An emulator window that is minimized gives no picture: the window says so instead of taking
// stale stills, and the picture comes back when the window is restored.
TEST_F(CaptureWindowTest, AMinimizedEmulatorWindowSaysSoInsteadOfTakingStaleStills) {
    XServer server("800x600x24");
    ASSERT_TRUE(server.running());
    setenv("DISPLAY", server.display().c_str(), 1);
    xcb_connection_t* x = xcb_connect(server.display().c_str(), nullptr);
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(x)).data;
    const xcb_window_t id = xcb_generate_id(x);
    const std::uint32_t green[] = {0x10a050};
    xcb_create_window(x, XCB_COPY_FROM_PARENT, id, screen->root, 0, 0, 120, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL, green);
    auto sync = [&] { std::free(xcb_get_input_focus_reply(x, xcb_get_input_focus(x), nullptr)); };
    sync(); // created, not mapped: as a window minimized before Varnel starts

    settings.setIncludeSimulator(true);
    const X11Window window{id, "Simulator", "Simulator", "Phone", 120, 200};
    devices = std::make_unique<DeviceManager>(
        settings,
        DeviceSources{[] { return std::vector<DeviceInfo>{}; },
                      [window] { return std::optional<std::vector<X11Window>>{{window}}; },
                      {},
                      {},
                      [] { return std::vector<std::string>{}; },
                      [](auto) {},
                      {}});
    devices->waitForWindowRefresh();
    CaptureWindow capture(library, settings, *devices);
    capture.show();
    ASSERT_TRUE(capture.service().isRunning());
    const QString minimized = "The window is minimized — restore it to capture";
    EXPECT_EQ(capture.preview().messageTitle(), minimized);
    EXPECT_FALSE(capture.captureStill());
    EXPECT_TRUE(capture.statusLabel()->text().startsWith(minimized));
    EXPECT_EQ(capture.session().screenCount(), 0);

    xcb_map_window(x, id);
    sync();
    ASSERT_TRUE(waitUntil([&] { return capture.preview().messageTitle().isEmpty(); }));
    ASSERT_TRUE(waitUntil([&] { return !capture.service().latestFrame().isNull(); }));
    EXPECT_TRUE(capture.captureStill());
    capture.confirmDiscard = [](const QString&) { return true; };
    capture.discard();
    capture.close();
    xcb_disconnect(x);
}

TEST_F(CaptureWindowTest, MainWindowOpensTheCaptureForANewFlowOrTheCurrentOne) {
    MainWindow main(library, settings);
    main.show();
    main.action("New Capture…")->trigger();
    ASSERT_TRUE(main.captureWindow());
    EXPECT_TRUE(main.captureWindow()->isVisible());
    EXPECT_TRUE(main.captureWindow()->targetLabel()->isHidden());
    main.captureWindow()->close();
    QApplication::processEvents();

    main.gallery().selectFlow(SampleLibrary::logIn);
    ASSERT_TRUE(main.action("Capture More…")->isEnabled());
    main.action("Capture More…")->trigger();
    ASSERT_TRUE(main.captureWindow());
    EXPECT_EQ(main.captureWindow()->targetLabel()->text(), "Adding screens to: Log in");
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
