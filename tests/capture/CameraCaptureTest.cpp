// The camera path through a GStreamer device that the product's device monitor finds like any
// camera: discovery, plugging in and out, live frames, stills and recorded clips.
#include "app/AppSettings.h"
#include "capture/CameraDiscovery.h"
#include "capture/CaptureService.h"
#include "capture/DeviceManager.h"
#include "capture/MovieWriter.h"
#include "media/GstSupport.h"
#include "media/PngWriter.h"
#include "support/MediaProbe.h"
#include "support/TestCamera.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QImage>
#include <QSettings>

#include <gst/gst.h>
#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

std::vector<std::string> ids(const std::vector<DeviceInfo>& devices) {
    std::vector<std::string> out;
    for (const auto& device : devices) {
        if (device.id.starts_with("varnel-test-"))
            out.push_back(device.id);
    }
    return out;
}

class CameraTest : public ::testing::Test {
protected:
    CameraTest()
        : settings(std::make_unique<QSettings>(
              QString::fromStdString((dir / "settings.ini").string()), QSettings::IniFormat)) {}
    ~CameraTest() override { TestCameras::disconnectAll(); }

    TempDir dir;
    AppSettings settings;
};

TEST_F(CameraTest, MonitorListsCamerasAsTheyComeAndGo) {
    TestCameras::connect({"varnel-test-a", "Phone A"});
    DeviceManager manager(settings);
    EXPECT_EQ(ids(manager.devices()), (std::vector<std::string>{"varnel-test-a"}));
    EXPECT_EQ(manager.selectedID(), "varnel-test-a") << "the only one is selected";
    for (const auto& device : manager.devices()) {
        if (device.id == "varnel-test-a") {
            EXPECT_EQ(device.name, "Phone A");
        }
    }

    TestCameras::connect({"varnel-test-b", "Phone B"});
    ASSERT_TRUE(waitUntil([&] { return ids(manager.devices()).size() == 2; }))
        << "a camera plugged in is listed without a refresh";
    EXPECT_EQ(manager.selectedID(), "varnel-test-a") << "the selection stays";

    manager.select("varnel-test-b");
    EXPECT_EQ(settings.preferredDeviceID(), "varnel-test-b");
    TestCameras::disconnect("varnel-test-b");
    ASSERT_TRUE(waitUntil([&] { return ids(manager.devices()).size() == 1; }));
    EXPECT_EQ(manager.selectedID(), "varnel-test-a") << "falls back when the pick is gone";

    // Plugged in again, the remembered camera takes the selection back from the automatic one.
    DeviceManager restarted(settings);
    EXPECT_EQ(restarted.selectedID(), "varnel-test-a");
    TestCameras::connect({"varnel-test-b", "Phone B"});
    ASSERT_TRUE(waitUntil([&] { return restarted.selectedID() == "varnel-test-b"; }));
}

TEST_F(CameraTest, TwoCamerasWithOneIdAreListedOnce) {
    TestCameras::connect({"varnel-test-same", "First"});
    CameraDiscovery discovery;
    TestCameras::connect({"varnel-test-other", "Other"});
    const auto before = ids(discovery.devices());
    EXPECT_EQ(before.size(), 2u);
    GstDevice* device = discovery.find("varnel-test-same");
    ASSERT_NE(device, nullptr);
    gst_object_unref(device);
    EXPECT_EQ(discovery.find("varnel-test-missing"), nullptr);
}

class RunningCamera : public CameraTest {
protected:
    void startCamera(const TestCameras::Spec& spec) {
        TestCameras::connect(spec);
        CameraDiscovery discovery;
        GstDevice* device = discovery.find(spec.serial);
        ASSERT_NE(device, nullptr);
        service.start(device);
        gst_object_unref(device);
        ASSERT_TRUE(service.isRunning());
        ASSERT_TRUE(waitUntil([&] { return !service.latestFrame().isNull(); }));
    }

    CaptureService service;
};

TEST_F(RunningCamera, FramesArriveWithTheirSizePublishedOnce) {
    int resolutionSignals = 0;
    QObject::connect(&service, &CaptureService::resolutionChanged, [&] { ++resolutionSignals; });
    int frames = 0;
    QObject::connect(&service, &CaptureService::frameArrived, [&] { ++frames; });
    startCamera(
        {"varnel-test-solid", "Solid", 320, 240, 30, "solid-color foreground-color=0xff2060a0"});
    ASSERT_TRUE(waitUntil([&] { return frames >= 10; }));
    EXPECT_EQ(service.resolution(), (PixelSize{320, 240}));
    EXPECT_EQ(resolutionSignals, 1) << "the same size is not published again";

    // A still made from the latest frame holds the camera's picture.
    const VideoFrame frame = service.latestFrame();
    std::string png;
    ASSERT_TRUE(frame.withPixels([&](const std::uint8_t* pixels, std::size_t stride) {
        png = PngWriter::encode(pixels, frame.width(), frame.height(), stride);
    }));
    QImage image;
    ASSERT_TRUE(image.loadFromData(reinterpret_cast<const uchar*>(png.data()),
                                   static_cast<int>(png.size()), "PNG"));
    EXPECT_EQ(image.size(), QSize(320, 240));
    EXPECT_EQ(image.pixel(160, 120), qRgb(0x20, 0x60, 0xa0));

    service.stop();
    EXPECT_FALSE(service.isRunning());
    EXPECT_TRUE(service.latestFrame().isNull());
}

TEST_F(RunningCamera, RecordsAClipThatReadsBack) {
    startCamera({"varnel-test-ball", "Ball", 320, 240, 30, "ball"});
    const fs::path clip = dir / "01.mov";
    std::optional<fs::path> finished;
    service.onRecordingFinished = [&](const fs::path& file) { finished = file; };
    writeFile(clip, "an old file in the way");

    ASSERT_TRUE(service.startRecording(clip));
    EXPECT_TRUE(service.isRecordingVideo());
    EXPECT_FALSE(service.startRecording(dir / "other.mov")) << "one recording at a time";
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= 45; }));
    service.stopRecording();
    ASSERT_TRUE(waitUntil([&] { return finished.has_value(); }));
    EXPECT_EQ(*finished, clip);
    EXPECT_FALSE(service.isRecordingVideo());

    const auto counts = service.recordingCounts();
    const auto info = readClip(clip);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->width, 320);
    EXPECT_EQ(info->height, 240);
    EXPECT_GE(info->frames, 45);
    EXPECT_EQ(static_cast<std::uint64_t>(info->frames), counts.appended)
        << "every frame handed to the writer is in the file";
    // The clip's time line is the camera's: frames at 30 per second.
    EXPECT_NEAR(info->durationSeconds, info->frames / 30.0, 0.1);
    EXPECT_FALSE(fs::exists(dir / "other.mov"));
}

TEST_F(RunningCamera, OddSizesLoseTheirLastColumnAndRow) {
    startCamera({"varnel-test-odd", "Odd", 321, 241, 30, "smpte"});
    const fs::path clip = dir / "odd.mov";
    bool finished = false;
    service.onRecordingFinished = [&](const fs::path&) { finished = true; };
    ASSERT_TRUE(service.startRecording(clip));
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= 5; }));
    service.stopRecording();
    ASSERT_TRUE(waitUntil([&] { return finished; }));
    const auto info = readClip(clip);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->width, 320);
    EXPECT_EQ(info->height, 240);
}

TEST_F(CameraTest, RecordingNeedsARunningSource) {
    CaptureService service;
    EXPECT_FALSE(service.startRecording(dir / "clip.mov"));
    EXPECT_FALSE(service.isRecordingVideo());
    EXPECT_FALSE(fs::exists(dir / "clip.mov"));
}

TEST_F(CameraTest, ACameraThatIsGoneCannotStart) {
    CaptureService service;
    try {
        service.start(nullptr);
        FAIL() << "no device, no start";
    } catch (const CaptureError& error) {
        EXPECT_EQ(error.kind(), CaptureError::Kind::cannotAddInput);
    }
    EXPECT_THROW(service.startDescription("v4l2src device=/nonexistent/video99"), CaptureError);
    EXPECT_FALSE(service.isRunning());
}

// The writer on its own: the states of one recording.
TEST(MovieWriterTest, NoFrameAfterBeginWritesNothingAndReportsNothing) {
    TempDir dir;
    MovieWriter writer;
    int reports = 0;
    writer.setOnFinish([&](const fs::path&) { ++reports; });
    writeFile(dir / "clip.mov", "stale");
    writer.begin(dir / "clip.mov");
    EXPECT_TRUE(writer.isActive());
    EXPECT_FALSE(fs::exists(dir / "clip.mov")) << "whatever was there is cleared";
    EXPECT_FALSE(writer.finish());
    EXPECT_FALSE(writer.isActive());
    writer.waitForFinished();
    EXPECT_EQ(reports, 0);
    EXPECT_FALSE(fs::exists(dir / "clip.mov"));
    writer.append(VideoFrame()); // idle: ignored
    EXPECT_FALSE(writer.isWriting());
}

TEST(MovieWriterTest, AWriterThatCannotBeMadeDropsBackToIdle) {
    TempDir dir;
    MovieWriter writer;
    writer.begin(dir / "missing-folder" / "clip.mov");
    // One real frame, from a test source.
    auto pipeline = gst::parse("videotestsrc num-buffers=1 ! video/x-raw,format=BGRA,width=64,"
                               "height=48 ! appsink name=sink");
    ASSERT_TRUE(pipeline);
    auto sink = gst::child(pipeline.get(), "sink");
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    GstSample* sample = nullptr;
    g_signal_emit_by_name(sink.get(), "pull-sample", &sample);
    ASSERT_NE(sample, nullptr);
    writer.append(VideoFrame(sample));
    EXPECT_FALSE(writer.isActive()) << "the folder does not exist: no writer, not active";
    EXPECT_FALSE(writer.finish());
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
