// Capture: a still from the latest frame (P1), recording a long clip (P2) and the memory of a
// long live preview (P8).
#include "BenchScreen.h"
#include "capture/AdbClient.h"
#include "capture/CaptureService.h"
#include "capture/SessionController.h"
#include "library/FlowStore.h"
#include "library/Uuid.h"
#include "media/GstSupport.h"
#include "media/PngWriter.h"
#include "support/FakeAdb.h"
#include "support/MediaProbe.h"
#include "support/XServer.h"
#include "ui/LivePreview.h"

#include <QApplication>
#include <QBuffer>
#include <QFont>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>

#include <benchmark/benchmark.h>
#include <gst/gst.h>
#include <opencv2/imgcodecs.hpp>

#include <xcb/xcb.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

using bench::kHeight;
using bench::kWidth;
using bench::phoneScreen;
using bench::TempFolder;

// The picture as a capture source hands it over: a GStreamer sample of BGRx pixels.
VideoFrame frameOf(const QImage& image) {
    gst::initialize();
    auto* copy = new QImage(image);
    GstBuffer* buffer = gst_buffer_new_wrapped_full(
        GST_MEMORY_FLAG_READONLY, const_cast<uchar*>(copy->constBits()),
        static_cast<gsize>(copy->sizeInBytes()), 0, static_cast<gsize>(copy->sizeInBytes()), copy,
        [](gpointer data) { delete static_cast<QImage*>(data); });
    GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRx", "width",
                                        G_TYPE_INT, kWidth, "height", G_TYPE_INT, kHeight,
                                        "framerate", GST_TYPE_FRACTION, 30, 1, nullptr);
    GstSample* sample = gst_sample_new(buffer, caps, nullptr, nullptr);
    gst_buffer_unref(buffer);
    gst_caps_unref(caps);
    return VideoFrame(sample);
}

// P1: the product's path from the latest frame to a staged PNG file.
void BM_StillToPngFile(benchmark::State& state) {
    const VideoFrame frame = frameOf(phoneScreen());
    TempFolder folder;
    FlowStore store(folder.path);
    SessionController session(store, [&]() -> std::optional<CapturedFrame> {
        std::optional<CapturedFrame> still;
        frame.withPixels([&](const std::uint8_t* pixels, std::size_t stride) {
            still = CapturedFrame{PngWriter::encode(pixels, frame.width(), frame.height(), stride),
                                  frame.width(),
                                  frame.height(),
                                  {}};
        });
        return still;
    });
    session.start();
    for (auto _ : state) {
        if (!session.add(CaptureSource::manual))
            state.SkipWithError("capture failed");
    }
    const auto last = session.stagedThumbnails().back();
    state.counters["png_kib"] = static_cast<double>(fs::file_size(last)) / 1024;
    session.cancel();
}
BENCHMARK(BM_StillToPngFile)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

// The encoding alone, without the file.
void BM_StillEncodeOnly(benchmark::State& state) {
    const QImage image = phoneScreen();
    for (auto _ : state)
        benchmark::DoNotOptimize(PngWriter::encode(image.constBits(), kWidth, kHeight,
                                                   static_cast<std::size_t>(image.bytesPerLine())));
}
BENCHMARK(BM_StillEncodeOnly)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

// The baseline: OpenCV's PNG writer with its default parameters, same picture.
void BM_OpenCvImwrite(benchmark::State& state) {
    const QImage image = phoneScreen();
    const cv::Mat mat(kHeight, kWidth, CV_8UC4, const_cast<uchar*>(image.constBits()),
                      static_cast<std::size_t>(image.bytesPerLine()));
    TempFolder folder;
    int i = 0;
    for (auto _ : state)
        cv::imwrite((folder.path / (std::to_string(i++) + ".png")).string(), mat);
    state.counters["png_kib"] = static_cast<double>(fs::file_size(folder.path / "0.png")) / 1024;
}
BENCHMARK(BM_OpenCvImwrite)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

double seconds(const char* variable, double fallback) {
    const char* value = std::getenv(variable);
    return value ? std::atof(value) : fallback;
}

// One clip of `length` seconds from a running source, and what became of its frames.
struct Recorded {
    double seconds = 0;
    double offered = 0; // frames the source made while recording
    double inFile = 0;
    MovieWriter::Counts counts;
};

Recorded record(CaptureService& service, const fs::path& clip, double length) {
    bool finished = false;
    service.onRecordingFinished = [&](const fs::path&) { finished = true; };
    const auto producedBefore = service.framesProduced();
    const auto start = std::chrono::steady_clock::now();
    service.startRecording(clip);
    test::waitUntil([] { return false; }, length);
    service.stopRecording();
    Recorded out;
    out.offered = static_cast<double>(service.framesProduced() - producedBefore);
    out.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    test::waitUntil([&] { return finished; }, 600);
    service.stop();
    out.counts = service.recordingCounts();
    const auto info = test::readClip(clip);
    out.inFile = info ? info->frames : 0;
    return out;
}

// P2: a clip of a phone-sized live source at 30 frames a second; how many frames miss the file.
void BM_RecordClip(benchmark::State& state) {
    const double length = seconds("VARNEL_CLIP_SECONDS", 30);
    TempFolder folder;
    for (auto _ : state) {
        CaptureService service;
        service.startDescription(
            "videotestsrc is-live=true pattern=smpte horizontal-speed=8 ! capsfilter "
            "caps=video/x-raw,format=BGRA,width=1179,height=2556,"
            "framerate=30/1");
        test::waitUntil([&] { return !service.latestFrame().isNull(); });
        const Recorded run = record(service, folder.path / "clip.mov", length);
        // Dropped: made by the source while recording, yet not in the file. (A moving test
        // pattern: the ball pattern alone would take most of a core at this size.)
        state.counters["frames_at_30fps"] = run.seconds * 30;
        state.counters["frames_made"] = run.offered;
        state.counters["frames_in_file"] = run.inFile;
        state.counters["dropped_by_writer"] = static_cast<double>(run.counts.dropped);
        state.counters["dropped_pct"] =
            100.0 * std::max(0.0, run.offered - run.inFile) / run.offered;
    }
}
BENCHMARK(BM_RecordClip)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

// An emulator-sized X window whose picture changes 30 times a second, drawn by a client of
// its own on a private X server.
class DrawnWindow {
public:
    DrawnWindow(const std::string& display, int width, int height)
        : c_(xcb_connect(display.c_str(), nullptr)), width_(width), height_(height) {
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
        id_ = xcb_generate_id(c_);
        const std::uint32_t background[] = {0x204080};
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, id_, screen->root, 0, 0,
                          static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL,
                          background);
        xcb_map_window(c_, id_);
        gc_ = xcb_generate_id(c_);
        xcb_create_gc(c_, gc_, id_, 0, nullptr);
        xcb_flush(c_);
        painter_ = std::jthread([this](std::stop_token stop) { paint(stop); });
    }
    ~DrawnWindow() {
        painter_ = {};
        xcb_disconnect(c_);
    }
    std::uint32_t id() const { return id_; }

private:
    void paint(std::stop_token stop) {
        for (int frame = 0; !stop.stop_requested(); ++frame) {
            // A band scrolling down and a block of changing colour, as a list scrolls.
            const std::uint32_t colours[] = {0x204080, 0xf0f0f0, 0x10a050, 0xd02020};
            const std::uint32_t band[] = {colours[frame % 4]};
            xcb_change_gc(c_, gc_, XCB_GC_FOREGROUND, band);
            const xcb_rectangle_t rect{0, static_cast<std::int16_t>((frame * 37) % height_),
                                       static_cast<std::uint16_t>(width_), 180};
            xcb_poly_fill_rectangle(c_, id_, gc_, 1, &rect);
            xcb_flush(c_);
            std::this_thread::sleep_for(std::chrono::milliseconds(33));
        }
    }

    xcb_connection_t* c_;
    int width_, height_;
    std::uint32_t id_ = 0;
    xcb_gcontext_t gc_ = 0;
    std::jthread painter_;
};

// A 1179 × 2556 emulator window recorded at 30 frames a second while the live preview shows
// it, as in the capture window: frames in the file against frames the window source offered.
void BM_RecordWindowClipWithPreview(benchmark::State& state) {
    const double length = seconds("VARNEL_CLIP_SECONDS", 30);
    test::XServer server("1280x1024x24");
    if (!server.running()) {
        state.SkipWithError("no X server");
        return;
    }
    setenv("DISPLAY", server.display().c_str(), 1);
    TempFolder folder;
    for (auto _ : state) {
        DrawnWindow window(server.display(), kWidth, kHeight);
        CaptureService service;
        LivePreview preview;
        preview.resize(420, 900);
        preview.show();
        QObject::connect(&service, &CaptureService::frameArrived, [&] {
            preview.showFrame(service.latestFrame());
            preview.repaint();
        });
        service.startWindow(
            X11Window{window.id(), "Simulator", "Simulator", "Bench", kWidth, kHeight});
        test::waitUntil([&] { return !service.latestFrame().isNull(); });
        test::waitUntil([] { return false; }, 2); // warm up
        const Recorded run = record(service, folder.path / "window.mov", length);
        state.counters["frames_at_30fps"] = run.seconds * 30;
        state.counters["frames_offered"] = run.offered;
        state.counters["frames_in_file"] = run.inFile;
        state.counters["dropped_by_writer"] = static_cast<double>(run.counts.dropped);
        state.counters["in_file_pct"] = 100.0 * run.inFile / run.offered;
    }
}
BENCHMARK(BM_RecordWindowClipWithPreview)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

// An Android phone behind a local adb server: a 1080 × 2400 screen, its recorder's H.264 at
// 30 frames a second, and its screenshot.
struct BenchPhone {
    test::FakeAdb adb;
    AdbClient client{AdbAddress::parse(adb.address())};

    explicit BenchPhone(int frames) {
        test::FakeAdb::Device phone;
        phone.serial = "BENCH1";
        phone.model = "Pixel_7";
        QImage screen = phoneScreen().scaled(1080, 2400);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        screen.save(&buffer, "PNG");
        phone.png = png.toStdString();
        auto [h264, starts] = test::FakeAdb::h264Stream(1080, 2400, frames, 30);
        phone.h264 = std::move(h264);
        phone.frames = std::move(starts);
        adb.plug(phone);
    }
};

// From the capture key to the still on disk, when the still is the phone's own screenshot.
void BM_AdbStillToDisk(benchmark::State& state) {
    BenchPhone phone(30);
    TempFolder folder;
    FlowStore store(folder.path);
    CaptureService service;
    service.startAdb("BENCH1", phone.client);
    test::waitUntil([&] { return !service.latestFrame().isNull(); });
    SessionController session(store, [&] { return service.stillFrame(); });
    session.start();
    for (auto _ : state) {
        if (!session.add(CaptureSource::manual))
            state.SkipWithError(session.addFailure().c_str());
    }
    state.counters["png_MB"] = static_cast<double>(service.stillFrame()->pngData.size()) / 1e6;
    session.cancel();
}
BENCHMARK(BM_AdbStillToDisk)->Unit(benchmark::kMillisecond)->Iterations(20)->UseRealTime();

// The live preview of a 1080 × 2400 phone stream, and a clip recorded from it meanwhile:
// frames shown a second, and frames in the file against the 30 a second the phone sent.
void BM_AdbPreviewAndClip(benchmark::State& state) {
    const double length = seconds("VARNEL_CLIP_SECONDS", 10);
    BenchPhone phone(90);
    TempFolder folder;
    for (auto _ : state) {
        CaptureService service;
        LivePreview preview;
        preview.resize(420, 900);
        preview.show();
        std::atomic<int> shown{0};
        QObject::connect(&service, &CaptureService::frameArrived, [&] {
            preview.showFrame(service.latestFrame());
            preview.repaint();
            ++shown;
        });
        service.startAdb("BENCH1", phone.client);
        test::waitUntil([&] { return !service.latestFrame().isNull(); });
        test::waitUntil([] { return false; }, 2); // warm up
        shown = 0;
        const Recorded run = record(service, folder.path / "phone.mov", length);
        state.counters["preview_fps"] = shown / run.seconds;
        state.counters["frames_sent"] = run.seconds * 30;
        state.counters["frames_in_file"] = run.inFile;
        state.counters["kept_pct"] = 100.0 * run.inFile / (run.seconds * 30);
    }
}
BENCHMARK(BM_AdbPreviewAndClip)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

long residentKiB() {
    std::ifstream status("/proc/self/status");
    std::string key;
    while (status >> key) {
        long value = 0;
        if (key == "VmRSS:" && status >> value)
            return value;
        status.ignore(1 << 16, '\n');
    }
    return 0;
}

// P8: resident memory during a long live preview at 60 frames a second.
void BM_PreviewMemory(benchmark::State& state) {
    const double length = seconds("VARNEL_PREVIEW_SECONDS", 600);
    for (auto _ : state) {
        CaptureService service;
        LivePreview preview;
        preview.resize(420, 900);
        preview.show();
        long shown = 0;
        QObject::connect(&service, &CaptureService::frameArrived, [&] {
            preview.showFrame(service.latestFrame());
            preview.repaint();
            ++shown;
        });
        service.startDescription(
            "videotestsrc is-live=true pattern=smpte horizontal-speed=8 ! capsfilter "
            "caps=video/x-raw,format=BGRA,width=1179,height=2556,"
            "framerate=60/1");
        test::waitUntil([] { return false; }, std::min(10.0, length / 10)); // warm up
        const long start = residentKiB();
        long peak = start;
        const auto begin = std::chrono::steady_clock::now();
        const long shownBefore = shown;
        while (std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() <
               length) {
            test::waitUntil([] { return false; }, 1);
            peak = std::max(peak, residentKiB());
        }
        const long end = residentKiB();
        service.stop();
        state.counters["rss_start_mib"] = start / 1024.0;
        state.counters["rss_end_mib"] = end / 1024.0;
        state.counters["rss_growth_mib"] = (end - start) / 1024.0;
        state.counters["rss_peak_growth_mib"] = (peak - start) / 1024.0;
        state.counters["frames_shown_per_s"] = (shown - shownBefore) / length;
    }
}
BENCHMARK(BM_PreviewMemory)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
