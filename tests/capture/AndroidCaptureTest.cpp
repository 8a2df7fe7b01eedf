// Android devices through an adb server on 127.0.0.1 that speaks the host protocol: listing and
// tracking, screenshots for stills, the screen recorder's H.264 stream for the picture and
// clips, a recorder that stops and is started again, and devices that wait for the user's leave.
#include "app/AppSettings.h"
#include "capture/AdbClient.h"
#include "capture/AdbSources.h"
#include "capture/CaptureService.h"
#include "capture/DeviceManager.h"
#include "support/CliRun.h"
#include "support/FakeAdb.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QThread>

#include <cstdlib>

using namespace varnel;
using namespace varnel::test;

namespace {

// Runs the event loop until `done` or 20 s; whether it came.
bool waitFor(const std::function<bool()>& done) {
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > 20000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(5);
    }
    return true;
}

void waitSeconds(double seconds) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < seconds * 1000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(5);
    }
}

class AndroidCaptureTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { stream = new std::pair(FakeAdb::h264Stream(180, 400, 60, 30)); }
    static void TearDownTestSuite() { delete stream; }

    AndroidCaptureTest() {
        setenv("ADB_SERVER_SOCKET", adb.address().c_str(), 1);
        adb.plug(phone());
        FakeAdb::Device emulator = phone("emulator-5554", "sdk_gphone64_x86_64");
        emulator.avdName = "Pixel_8_API_34";
        adb.plug(emulator);
        FakeAdb::Device waiting;
        waiting.serial = "0A1B2C";
        waiting.state = "unauthorized";
        adb.plug(waiting);
    }
    FakeAdb::Device phone(std::string serial = "R5CT90", std::string model = "Pixel_7") {
        FakeAdb::Device device;
        device.serial = std::move(serial);
        device.model = std::move(model);
        device.png = screenshot;
        device.h264 = stream->first;
        device.frames = stream->second;
        return device;
    }
    std::unique_ptr<AppSettings> settings() {
        return std::make_unique<AppSettings>(std::make_unique<QSettings>(
            QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat));
    }
    AdbClient client() const { return AdbClient(AdbAddress::parse(adb.address())); }

    static inline std::pair<std::string, std::vector<std::size_t>>* stream = nullptr;
    TempDir dir;
    FakeAdb adb;
    // Its payload makes every screenshot different from any frame of the stream.
    const std::string screenshot = pngBytes(1080, 2400, "exact pixels of the phone");
};

} // namespace

TEST_F(AndroidCaptureTest, TheServerListsPhonesEmulatorsAndPhonesThatWaitForLeave) {
    EXPECT_EQ(AdbAddress::parse("tcp:5038").port, 5038);
    EXPECT_EQ(AdbAddress::parse("tcp:10.0.2.2:5039").host, "10.0.2.2");
    EXPECT_EQ(AdbAddress::parse("localfilesystem:/run/adb.sock").unixPath, "/run/adb.sock");
    EXPECT_THROW(AdbAddress::parse("tcp:host:0"), AdbError);

    EXPECT_EQ(client().version(), 0x29);
    const auto sources = AdbSources(client()).list();
    ASSERT_EQ(sources.size(), 3u);
    EXPECT_EQ(sources[0].id, "adb:R5CT90");
    EXPECT_EQ(sources[0].name, "Android — Pixel 7");
    EXPECT_EQ(sources[1].id, "adb:emulator-5554");
    EXPECT_EQ(sources[1].name, "Android Emulator — Pixel 8 API 34");
    EXPECT_EQ(sources[2].name, "Android — 0A1B2C (allow USB debugging)");

    EXPECT_EQ(client().exec("R5CT90", "screencap -p"), screenshot);
    try {
        client().exec("NOPE", "screencap -p");
        FAIL() << "no error";
    } catch (const AdbError& error) {
        EXPECT_STREQ(error.what(), "device 'NOPE' not found");
    }
    EXPECT_TRUE(AdbSources(AdbClient(AdbAddress::parse("tcp:127.0.0.1:9"))).list().empty())
        << "no server, no sources";
}

TEST_F(AndroidCaptureTest, DevicesThatComeAndGoAreTrackedAndTheChoiceIsKept) {
    auto appSettings = settings();
    DeviceSources sources;
    sources.cameras = [] { return std::vector<DeviceInfo>{}; };
    sources.windows = [] { return std::vector<X11Window>{}; };
    sources.unreadableCameras = [] { return std::vector<std::string>{}; };
    sources.adb = AdbAddress::parse(adb.address());
    DeviceManager manager(*appSettings, sources);
    ASSERT_TRUE(waitFor([&] { return manager.devices().size() == 3; }));
    manager.select("adb:emulator-5554");

    adb.unplug("emulator-5554");
    ASSERT_TRUE(waitFor([&] { return manager.devices().size() == 2; }));
    EXPECT_EQ(manager.selectedID(), "adb:R5CT90") << "another source while it is away";
    adb.plug(phone("emulator-5554", "sdk_gphone64_x86_64"));
    ASSERT_TRUE(waitFor([&] { return manager.devices().size() == 3; }));
    EXPECT_EQ(appSettings->preferredDeviceID(), "adb:emulator-5554");
    // Started again, Varnel goes back to the device the user chose.
    DeviceManager restarted(*appSettings, sources);
    ASSERT_TRUE(waitFor([&] { return restarted.devices().size() == 3; }));
    EXPECT_EQ(restarted.selectedID(), "adb:emulator-5554");

    adb.setState("0A1B2C", "device");
    const auto nameOf = [&](const std::string& id) {
        for (const auto& device : manager.devices())
            if (device.id == id)
                return device.name;
        return std::string();
    };
    ASSERT_TRUE(waitFor([&] { return nameOf("adb:0A1B2C") == "Android — 0A1B2C"; }))
        << "allowed on the phone: listed as ready";
    adb.setState("0A1B2C", "offline");
    ASSERT_TRUE(waitFor([&] { return nameOf("adb:0A1B2C").empty(); })) << "offline: not listed";
}

TEST_F(AndroidCaptureTest, StillsAreThePhonesScreenshotsAndTheStreamGoesOnAcrossRestarts) {
    FakeAdb::Device quick = phone();
    quick.framesPerStream = 20; // the recorder stops every two thirds of a second
    adb.plug(quick);
    CaptureService service;
    service.startAdb("R5CT90", client());
    ASSERT_TRUE(waitFor([&] { return service.resolution().width > 0; }));
    EXPECT_EQ(service.resolution(), (PixelSize{180, 400}));

    // A still is the screenshot, byte for byte, not a frame of the stream.
    const auto still = service.stillFrame();
    ASSERT_TRUE(still);
    EXPECT_EQ(still->pngData, screenshot);
    EXPECT_EQ(still->width, 1080);
    EXPECT_EQ(still->height, 2400);
    EXPECT_TRUE(still->note.empty());

    // A clip across several recorder runs: decoded back at the stream's size, as long as it
    // was recorded, with no run missing.
    const fs::path clip = dir / "clip.mov";
    std::optional<fs::path> finished;
    service.onRecordingFinished = [&](const fs::path& file) { finished = file; };
    QObject::connect(&service, &CaptureService::recordingFailed,
                     [](const QString& why) { ADD_FAILURE() << why.toStdString(); });
    QObject::connect(&service, &CaptureService::recordingAbandoned,
                     [] { ADD_FAILURE() << "abandoned"; });
    ASSERT_TRUE(service.startRecording(clip));
    QElapsedTimer recorded;
    recorded.start();
    const int streamsBefore = service.adbStreams();
    waitSeconds(2.5);
    service.stopRecording();
    const double seconds = recorded.elapsed() / 1000.0;
    ASSERT_TRUE(waitFor([&] { return finished.has_value(); }));
    EXPECT_GE(service.adbStreams() - streamsBefore, 3) << "the recorder was started again";
    const auto info = readClip(clip);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->width, 180);
    EXPECT_EQ(info->height, 400);
    EXPECT_GT(info->durationSeconds, seconds - 0.8);
    // 30 frames a second are sent; a restart that lost its stream's frames would lose a third.
    EXPECT_GT(info->frames, static_cast<int>(info->durationSeconds * 30 * 0.75))
        << info->frames << " frames in " << info->durationSeconds << " s";

    // The phone turned: the next stream is landscape, and the picture follows.
    FakeAdb::Device turned = quick;
    const auto landscape = FakeAdb::h264Stream(400, 180, 30, 30);
    turned.h264 = landscape.first;
    turned.frames = landscape.second;
    adb.plug(turned);
    ASSERT_TRUE(waitFor([&] { return service.resolution() == PixelSize{400, 180}; }));

    // A screenshot that fails gives the latest frame, and says so.
    FakeAdb::Device broken = quick;
    broken.png.clear();
    adb.plug(broken);
    const auto fallback = service.stillFrame();
    ASSERT_TRUE(fallback);
    EXPECT_EQ(fallback->width, 400);
    EXPECT_NE(fallback->note.find("The phone's screenshot failed"), std::string::npos);

    // The phone unplugged: the source ends and says why.
    QString reason;
    QObject::connect(&service, &CaptureService::streamStopped,
                     [&](const QString& why) { reason = why; });
    adb.unplug("R5CT90");
    ASSERT_TRUE(waitFor([&] { return !reason.isEmpty(); }));
    EXPECT_TRUE(reason.contains("not found")) << reason.toStdString();
    EXPECT_FALSE(service.isRunning());
}

TEST_F(AndroidCaptureTest, APhoneWaitingForLeaveSaysHowToGiveIt) {
    CaptureService service;
    try {
        service.startAdb("0A1B2C", client());
        FAIL() << "started";
    } catch (const CaptureError& error) {
        EXPECT_EQ(error.kind(), CaptureError::Kind::accessDenied);
        EXPECT_STREQ(error.what(), kAdbUnauthorizedHint);
    }
    EXPECT_THROW(service.startAdb("GONE", client()), CaptureError);
}

TEST_F(AndroidCaptureTest, TheCommandLineListsAndCapturesAndroidSources) {
    const auto listed = runCli({"sources"});
    ASSERT_EQ(listed.code, 0) << listed.err;
    EXPECT_NE(listed.out.find("adb:R5CT90\tAndroid — Pixel 7\n"), std::string::npos) << listed.out;
    EXPECT_NE(listed.out.find("adb:emulator-5554\tAndroid Emulator — Pixel 8 API 34\n"),
              std::string::npos);

    const fs::path root = dir / "library";
    const auto captured =
        runCli({"capture", "--source", "adb:R5CT90", "--stills", "2", "--interval", "0.1", "--clip",
                "1", "--app", "Acme", "--name", "Tour"},
               root.string());
    ASSERT_EQ(captured.code, 0) << captured.err;
    const std::string folder = captured.out.substr(0, captured.out.find('\n'));
    const fs::path flow = root / folder;
    EXPECT_EQ(readFile(flow / "01.png"), screenshot);
    EXPECT_EQ(readFile(flow / "02.png"), screenshot);
    const auto clip = readClip(flow / "03.mov");
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->width, 180);
    EXPECT_GT(clip->durationSeconds, 0.5);
}

int main(int argc, char** argv) {
    return runWithOwnSettings(argc, argv);
}
