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
#include "support/SmallDisk.h"
#include "support/TestCamera.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>
#include <QImage>
#include <QSettings>

#include <gst/gst.h>

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <iostream>
#include <mutex>
#include <thread>

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
    TestCameras::Spec twin{"varnel-test-same", "Second"};
    twin.key = "varnel-test-twin";
    TestCameras::connect(twin);
    TestCameras::connect({"varnel-test-other", "Other"});
    ASSERT_TRUE(waitUntil([&] { return ids(discovery.devices()).size() >= 2; }));
    auto listed = ids(discovery.devices());
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, (std::vector<std::string>{"varnel-test-other", "varnel-test-same"}))
        << "the second camera with the same id is left out";
    GstDevice* device = discovery.find("varnel-test-same");
    ASSERT_NE(device, nullptr);
    gst_object_unref(device);
    EXPECT_EQ(discovery.find("varnel-test-missing"), nullptr);
}

// A phone mirrored into a loopback device (which takes pictures as well as gives them) is
// left out by GStreamer's monitor; the nodes are read afresh on every refresh, and open with
// the V4L2 source like any camera.
TEST_F(CameraTest, LoopbackNodesTheMonitorSkipsAreListedAfreshAndOnce) {
    TempDir dev;
    std::vector<VideoNodes::CaptureNode> nodes{{dev / "video7", "Phone mirror"}};
    TestCameras::Spec listed{"varnel-test-v4l2", "Webcam"};
    listed.v4l2Path = (dev / "video0").string();
    TestCameras::connect(listed);
    CameraDiscovery discovery([&] { return nodes; });
    auto named = [&](const std::string& id) -> std::optional<std::string> {
        for (const auto& device : discovery.devices()) {
            if (device.id == id)
                return device.name;
        }
        return std::nullopt;
    };
    EXPECT_EQ(named((dev / "video7").string()), "Phone mirror");
    EXPECT_EQ(named((dev / "video0").string()), "Webcam");

    nodes.push_back({dev / "video8", "Second mirror"}); // started after Varnel
    nodes.push_back({dev / "video0", "Webcam (node)"}); // the monitor lists it already
    EXPECT_EQ(named((dev / "video8").string()), "Second mirror") << "a refresh looks again";
    int webcams = 0;
    for (const auto& device : discovery.devices())
        webcams += device.id == (dev / "video0").string();
    EXPECT_EQ(webcams, 1) << "a node the monitor lists is not listed twice";
    EXPECT_EQ(named((dev / "video0").string()), "Webcam");

    GstDevice* device = discovery.find((dev / "video8").string());
    ASSERT_NE(device, nullptr);
    GstElement* source = gst_device_create_element(device, nullptr);
    gst_object_unref(device);
    ASSERT_NE(source, nullptr);
    EXPECT_STREQ(GST_OBJECT_NAME(gst_element_get_factory(source)), "v4l2src");
    gchar* node = nullptr;
    g_object_get(source, "device", &node, nullptr);
    EXPECT_EQ(std::string(node ? node : ""), (dev / "video8").string());
    g_free(node);
    gst_object_unref(source);
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

// Many USB cameras (and capture cards) offer only JPEG pictures: they are decoded on the way.
TEST_F(RunningCamera, ACameraThatOffersOnlyJpegShowsAndRecords) {
    TestCameras::Spec spec{"varnel-test-mjpeg",
                           "JPEG camera",
                           320,
                           240,
                           30,
                           "solid-color foreground-color=0xff2060a0"};
    spec.mjpeg = true;
    startCamera(spec);
    EXPECT_EQ(service.latestFrame().width(), 320);
    const auto still = service.stillFrame();
    ASSERT_TRUE(still);
    QImage image;
    ASSERT_TRUE(image.loadFromData(reinterpret_cast<const uchar*>(still->pngData.data()),
                                   static_cast<int>(still->pngData.size()), "PNG"));
    const QRgb centre = image.pixel(160, 120);
    EXPECT_NEAR(qRed(centre), 0x20, 12);
    EXPECT_NEAR(qGreen(centre), 0x60, 12);
    EXPECT_NEAR(qBlue(centre), 0xa0, 12);

    bool finished = false;
    service.onRecordingFinished = [&](const fs::path&) { finished = true; };
    ASSERT_TRUE(service.startRecording(dir / "jpeg.mov"));
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= 5; }));
    service.stopRecording();
    ASSERT_TRUE(waitUntil([&] { return finished; }));
    const auto info = readClip(dir / "jpeg.mov");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->width, 320);
}

// The disk fills up mid-clip: the recording ends at once with the reason, and the part that
// was written before is kept because it plays.
TEST_F(RunningCamera, AFullDiskEndsTheRecordingAtOnceAndKeepsWhatPlays) {
    SmallDisk disk(4 << 20);
    if (!disk.mounted())
        GTEST_SKIP() << disk.skipReason();
    startCamera({"varnel-test-noise", "Noise", 640, 480, 30, "snow"});
    bool finished = false;
    service.onRecordingFinished = [&](const fs::path&) { finished = true; };
    std::optional<std::pair<QString, bool>> failed;
    QObject::connect(&service, &CaptureService::recordingFailed,
                     [&](const QString& reason, bool kept) { failed.emplace(reason, kept); });
    disk.fill(1200 << 10); // noise compresses badly: about a second of it fits

    const fs::path clip = disk / "01.mov";
    ASSERT_TRUE(service.startRecording(clip));
    ASSERT_TRUE(waitUntil([&] { return failed.has_value(); }, 30))
        << "the recording ends by itself, without waiting for the user's stop";
    EXPECT_FALSE(service.isRecordingVideo()) << "back to idle";
    EXPECT_FALSE(finished) << "a failed clip is not reported as a complete one";
    EXPECT_EQ(failed->first, "The disk is full.");
    ASSERT_TRUE(failed->second) << "a second was written before the disk filled up";
    EXPECT_GT(MovieWriter::playableFrames(clip), 0);
    const auto info = readClip(clip);
    ASSERT_TRUE(info) << "what was kept plays";
    EXPECT_EQ(info->width, 640);

    // Room again: the next clip records as ever.
    fs::remove(disk / ".filler");
    failed.reset();
    ASSERT_TRUE(service.startRecording(disk / "02.mov"));
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= 5; }));
    service.stopRecording();
    ASSERT_TRUE(waitUntil([&] { return finished; }));
    EXPECT_FALSE(failed);
}

// A source switched mid-clip (a phone unplugged, the selection moving on) finishes the clip
// with the first source's frames only.
TEST_F(RunningCamera, StartingAnotherSourceFinishesTheClipFirst) {
    startCamera(
        {"varnel-test-first", "First", 320, 240, 30, "solid-color foreground-color=0xffd02020"});
    std::optional<fs::path> finished;
    service.onRecordingFinished = [&](const fs::path& file) { finished = file; };
    ASSERT_TRUE(service.startRecording(dir / "01.mov"));
    ASSERT_TRUE(waitUntil([&] { return service.recordingCounts().appended >= 10; }));

    service.startDescription(
        "videotestsrc is-live=true pattern=solid-color "
        "foreground-color=0xff20c040 ! capsfilter caps=video/x-raw,width=160,height=320");
    ASSERT_TRUE(waitUntil([&] { return finished.has_value(); }));
    EXPECT_FALSE(service.isRecordingVideo());
    int green = 0;
    const auto info = readClip(*finished, [&](int, const unsigned char* bgrx, int stride) {
        const unsigned char* p = bgrx + 120 * stride + 160 * 4;
        green += p[1] > 150 && p[2] < 100;
    });
    ASSERT_TRUE(info);
    EXPECT_EQ(info->width, 320);
    EXPECT_GE(info->frames, 10);
    EXPECT_EQ(green, 0) << "no frame of the second source is in the clip";
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
    writer.setOnFinish([&](const MovieWriter::Outcome&) { ++reports; });
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

// One frame of a single colour, as a source delivers it.
VideoFrame solidFrame(int width, int height, std::uint32_t rgb, std::int64_t time) {
    gst::initialize();
    const std::size_t size = static_cast<std::size_t>(width) * height * 4;
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    for (std::size_t i = 0; i < size; i += 4) {
        map.data[i] = rgb & 0xff;
        map.data[i + 1] = (rgb >> 8) & 0xff;
        map.data[i + 2] = (rgb >> 16) & 0xff;
        map.data[i + 3] = 0xff;
    }
    gst_buffer_unmap(buffer, &map);
    GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(time);
    GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRA", "width",
                                        G_TYPE_INT, width, "height", G_TYPE_INT, height,
                                        "framerate", GST_TYPE_FRACTION, 30, 1, nullptr);
    GstSample* sample = gst_sample_new(buffer, caps, nullptr, nullptr);
    gst_buffer_unref(buffer);
    gst_caps_unref(caps);
    return VideoFrame(sample);
}

TEST(MovieWriterTest, AWriterThatCannotBeMadeEndsTheRecordingWithItsReason) {
    TempDir dir;
    MovieWriter writer;
    std::vector<MovieWriter::Outcome> outcomes;
    writer.setOnFinish([&](const MovieWriter::Outcome& outcome) { outcomes.push_back(outcome); });
    const unsigned recording = writer.begin(dir / "missing-folder" / "clip.mov");
    writer.append(solidFrame(64, 48, 0x808080, 0));
    EXPECT_FALSE(writer.isActive()) << "the folder does not exist: no writer, not active";
    EXPECT_FALSE(writer.finish());
    ASSERT_EQ(outcomes.size(), 1u) << "the failure is reported once, when it happens";
    EXPECT_EQ(outcomes[0].recording, recording);
    EXPECT_FALSE(outcomes[0].failure.empty());
    EXPECT_FALSE(outcomes[0].kept);
}

// A window resized or a phone turned mid-clip: every later frame is scaled into the first
// size, with bars, and the clip decodes from start to end.
TEST(MovieWriterTest, ASizeChangeMidClipIsScaledIntoTheFirstSizeWithBars) {
    TempDir dir;
    MovieWriter writer;
    std::optional<MovieWriter::Outcome> outcome;
    std::mutex mutex;
    writer.setOnFinish([&](const MovieWriter::Outcome& o) {
        std::lock_guard lock(mutex);
        outcome = o;
    });
    const fs::path file = dir / "turned.mov";
    writer.begin(file);
    constexpr std::int64_t frame = GST_SECOND / 30;
    // Frames come faster than real time here: one that the busy encoder turns away is offered
    // again, so that every frame goes in.
    auto offer = [&](int width, int height, std::uint32_t rgb, int index) {
        const VideoFrame picture = solidFrame(width, height, rgb, index * frame);
        const auto before = writer.counts().appended;
        while (writer.counts().appended == before) {
            writer.append(picture);
            if (writer.counts().appended == before)
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    };
    int offered = 0;
    for (; offered < 30; ++offered) // portrait, red
        offer(120, 240, 0xd02020, offered);
    for (; offered < 60; ++offered) // landscape, green
        offer(240, 120, 0x20c040, offered);
    for (; offered < 75; ++offered) // portrait again, a larger screen, blue
        offer(240, 480, 0x2040d0, offered);
    ASSERT_TRUE(writer.finish());
    writer.waitForFinished();
    ASSERT_TRUE(outcome);
    EXPECT_TRUE(outcome->failure.empty()) << outcome->failure;

    std::vector<std::array<std::uint32_t, 3>> samples; // top bar, centre, bottom bar
    const auto info = readClip(file, [&](int, const unsigned char* bgrx, int stride) {
        auto at = [&](int x, int y) {
            const unsigned char* p = bgrx + y * stride + x * 4;
            return (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[1]) << 8) | p[0];
        };
        samples.push_back({at(60, 10), at(60, 120), at(60, 230)});
    });
    ASSERT_TRUE(info) << "the clip decodes";
    EXPECT_EQ(info->width, 120);
    EXPECT_EQ(info->height, 240);
    EXPECT_EQ(info->frames, offered) << "every frame decodes (no decode errors)";
    std::cout << "frames in the clip with two size changes: " << info->frames << " of " << offered
              << " offered\n";

    auto near = [](std::uint32_t got, std::uint32_t want) {
        for (int shift : {0, 8, 16}) {
            if (std::abs(int((got >> shift) & 0xff) - int((want >> shift) & 0xff)) > 24)
                return false;
        }
        return true;
    };
    int red = 0, letterboxed = 0, blue = 0;
    for (const auto& [top, centre, bottom] : samples) {
        if (near(top, 0xd02020) && near(centre, 0xd02020) && near(bottom, 0xd02020))
            ++red;
        else if (near(top, 0x000000) && near(centre, 0x20c040) && near(bottom, 0x000000))
            ++letterboxed;
        else if (near(top, 0x2040d0) && near(centre, 0x2040d0) && near(bottom, 0x2040d0))
            ++blue;
        else
            ADD_FAILURE() << std::hex << "a garbled frame: " << top << " " << centre << " "
                          << bottom;
    }
    EXPECT_GT(red, 0);
    EXPECT_GT(letterboxed, 0) << "landscape frames sit between bars";
    EXPECT_GT(blue, 0) << "a frame of the same aspect fills the picture";
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
