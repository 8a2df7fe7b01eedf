// Blur zones: a still baked with three zones against a full-picture blur (P3), in memory, file
// to file through the library with the original kept and its colour chunks, and end to end as
// `varnel-cli redact`; phone-sized clips baked with two zones, against real time (P4), one as
// the capture makes them and one as a phone records (turned, at a variable frame rate).
#include "BenchProcess.h"
#include "BenchScreen.h"
#include "editing/GaussianBlur.h"
#include "editing/ImageRedactor.h"
#include "editing/ScreenEdits.h"
#include "editing/VideoRedactor.h"
#include "library/FlowStore.h"
#include "media/GstSupport.h"
#include "support/MediaProbe.h"
#include "support/TestLibrary.h"

#include <QGuiApplication>

#include <benchmark/benchmark.h>
#include <gst/app/gstappsrc.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cmath>
#include <cstring>
#include <unistd.h>
#include <zlib.h>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

RedactShape zone(RedactShape::Kind kind, double x, double y, double w, double h) {
    RedactShape shape;
    shape.kind = kind;
    shape.rect = {x, y, w, h};
    return shape;
}

// A name, an account number and a face: three places people blur.
const std::vector<RedactShape> kZones = {
    zone(RedactShape::Kind::rect, 0.05, 0.08, 0.6, 0.05),
    zone(RedactShape::Kind::rect, 0.1, 0.5, 0.8, 0.1),
    zone(RedactShape::Kind::ellipse, 0.3, 0.2, 0.4, 0.18),
};

RedactStyle style() {
    RedactStyle s; // light: white at 0.35
    s.blur = 50;
    return s;
}

cv::Mat screenPixels() {
    const QImage image = bench::phoneScreen().convertToFormat(QImage::Format_ARGB32);
    return cv::Mat(image.height(), image.width(), CV_8UC4, const_cast<uchar*>(image.constBits()),
                   static_cast<std::size_t>(image.bytesPerLine()))
        .clone();
}

// The bake done the obvious way: blur and tint everything, then blend through the mask.
cv::Mat naiveBake(const cv::Mat& input) {
    const cv::Mat frosted = ImageRedactor::tinted(exactGaussianBlur(input, style().blur), style());
    const cv::Mat mask = *ImageRedactor::maskImage(kZones, input.cols, input.rows);
    return ImageRedactor::blend(input, frosted, mask);
}

double psnrInsideZones(const cv::Mat& a, const cv::Mat& b) {
    const cv::Mat mask = *ImageRedactor::maskImage(kZones, a.cols, a.rows) > 0;
    cv::Mat diff;
    cv::absdiff(a, b, diff);
    diff.convertTo(diff, CV_64F);
    diff = diff.mul(diff);
    double total = 0;
    std::size_t count = 0;
    for (int y = 0; y < a.rows; ++y)
        for (int x = 0; x < a.cols; ++x) {
            if (!mask.at<uchar>(y, x))
                continue;
            const auto d = diff.at<cv::Vec4d>(y, x);
            total += d[0] + d[1] + d[2];
            count += 3;
        }
    const double mse = total / static_cast<double>(count);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

void BM_NaiveBakeOf1179x2556Still(benchmark::State& state) {
    const cv::Mat input = screenPixels();
    for (auto _ : state)
        benchmark::DoNotOptimize(naiveBake(input).data);
}
BENCHMARK(BM_NaiveBakeOf1179x2556Still)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BakeOf1179x2556StillWith3Zones(benchmark::State& state) {
    const cv::Mat input = screenPixels();
    cv::Mat out;
    for (auto _ : state) {
        out = input.clone();
        ImageRedactor::applyToPixels(kZones, out, style());
        benchmark::DoNotOptimize(out.data);
    }
    state.counters["psnr_in_zones_dB"] = psnrInsideZones(out, naiveBake(input));
}
BENCHMARK(BM_BakeOf1179x2556StillWith3Zones)->Unit(benchmark::kMillisecond)->UseRealTime();

// A PNG chunk: length, type, data, CRC.
std::string pngChunk(const std::string& type, const std::string& data) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8)
        out += static_cast<char>((data.size() >> shift) & 0xff);
    const std::string body = type + data;
    out += body;
    const auto crc =
        crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
    for (int shift = 24; shift >= 0; shift -= 8)
        out += static_cast<char>((crc >> shift) & 0xff);
    return out;
}

// The phone screen as an iPhone saves it: tagged Display P3 (an ICC profile of 548 bytes, as
// Apple's is), with cHRM and gAMA beside it.
std::string taggedScreenPng() {
    std::string png = ImageRedactor::encodePng(screenPixels());
    std::string profile(548, '\0');
    for (std::size_t i = 0; i < profile.size(); ++i)
        profile[i] = static_cast<char>(i * 7);
    std::string packed(compressBound(static_cast<uLong>(profile.size())), '\0');
    uLongf packedSize = static_cast<uLongf>(packed.size());
    compress(reinterpret_cast<Bytef*>(packed.data()), &packedSize,
             reinterpret_cast<const Bytef*>(profile.data()), static_cast<uLong>(profile.size()));
    packed.resize(packedSize);
    const std::string colour = pngChunk("iCCP", std::string("Display P3") + '\0' + '\0' + packed) +
                               pngChunk("cHRM", std::string(32, '\1')) +
                               pngChunk("gAMA", std::string("\0\0\xb1\x8f", 4));
    png.insert(8 + 25, colour); // after the signature and IHDR
    return png;
}

bool keepsColourChunks(const fs::path& file) {
    const std::string png = test::readFile(file);
    return png.find("iCCPDisplay P3") != std::string::npos &&
           png.find("cHRM") != std::string::npos && png.find("gAMA") != std::string::npos;
}

// A library with one flow holding the tagged phone screen as 01.png.
struct StillLibrary {
    bench::TempFolder folder;
    fs::path root = folder.path / "library";
    FlowStore store{root};
    std::string flow = store.createEmptyFlow("Acme", "Profile", std::nullopt, Date{}).folderName;
    fs::path screen = root / flow / "01.png";
    StillLibrary() {
        test::writeFile(folder.path / "01.png", taggedScreenPng());
        store.addScreens(flow, {folder.path / "01.png"}, Date{});
    }
};

// The naive bake from the PNG file to a PNG file.
void BM_NaiveBakeFileToFile(benchmark::State& state) {
    StillLibrary library;
    const fs::path target = library.folder.path / "baked.png";
    for (auto _ : state)
        if (!ImageRedactor::writePng(naiveBake(ImageRedactor::load(library.screen)), target))
            state.SkipWithError("write failed");
}
BENCHMARK(BM_NaiveBakeFileToFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// Saving a screen's zones as the editor does: decoded and baked from the kept original, the
// screen, the original and meta.json written durably.
void BM_BakeFileToFile(benchmark::State& state) {
    StillLibrary library;
    for (auto _ : state)
        ScreenEdits::save(library.store, library.flow, "01.png", kZones, style(), {});
    state.counters["colour_chunks_kept"] = keepsColourChunks(library.screen) ? 1 : 0;
}
BENCHMARK(BM_BakeFileToFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CliRedactOf1179x2556ScreenWith3Zones(benchmark::State& state) {
    StillLibrary library;
    const std::vector<std::string> command = {VARNEL_CLI_PATH,
                                              "--library",
                                              library.root.string(),
                                              "redact",
                                              library.flow,
                                              "01.png",
                                              "--zone",
                                              "rect:0.05,0.08,0.6,0.05",
                                              "--zone",
                                              "rect:0.1,0.5,0.8,0.1",
                                              "--zone",
                                              "ellipse:0.3,0.2,0.4,0.18"};
    // A new `varnel-cli redact` process for each save, as a user runs it.
    for (auto _ : state)
        if (bench::runProgram(command) != 0)
            state.SkipWithError("varnel-cli redact failed");
    state.counters["colour_chunks_kept"] = keepsColourChunks(library.screen) ? 1 : 0;
    state.counters["original_kept"] = fs::exists(library.root / library.flow / "01.orig.png");
}
BENCHMARK(BM_CliRedactOf1179x2556ScreenWith3Zones)->Unit(benchmark::kMillisecond)->UseRealTime();

// Mean SSIM of the luma of two frames over the pixels where `where` is set (Gaussian window of
// 11 with sigma 1.5, the usual constants).
double ssim(const cv::Mat& a, const cv::Mat& b, const cv::Mat& where) {
    cv::Mat x, y;
    cv::cvtColor(a, x, cv::COLOR_BGRA2GRAY);
    cv::cvtColor(b, y, cv::COLOR_BGRA2GRAY);
    x.convertTo(x, CV_64F);
    y.convertTo(y, CV_64F);
    const double c1 = 6.5025, c2 = 58.5225;
    const auto blur = [](const cv::Mat& m) {
        cv::Mat out;
        cv::GaussianBlur(m, out, cv::Size(11, 11), 1.5);
        return out;
    };
    const cv::Mat mx = blur(x), my = blur(y);
    const cv::Mat sxx = blur(x.mul(x)) - mx.mul(mx), syy = blur(y.mul(y)) - my.mul(my);
    const cv::Mat sxy = blur(x.mul(y)) - mx.mul(my);
    cv::Mat numerator = (2 * mx.mul(my) + c1).mul(2 * sxy + c2);
    cv::Mat denominator = (mx.mul(mx) + my.mul(my) + c1).mul(sxx + syy + c2);
    cv::Mat map;
    cv::divide(numerator, denominator, map);
    return cv::mean(map, where)[0];
}

std::vector<cv::Mat> decodeEvery(const fs::path& clip, int step) {
    std::vector<cv::Mat> frames;
    test::readClip(clip, [&](int index, const unsigned char* bgrx, int stride) {
        if (index % step == 0)
            frames.push_back(cv::Mat(bench::kHeight, bench::kWidth - 1, CV_8UC4,
                                     const_cast<unsigned char*>(bgrx),
                                     static_cast<std::size_t>(stride))
                                 .clone());
    });
    return frames;
}

// A header bar with a name and a card lower down.
const std::vector<RedactShape> kClipZones = {
    zone(RedactShape::Kind::rect, 0.05, 0.05, 0.9, 0.08),
    zone(RedactShape::Kind::ellipse, 0.2, 0.45, 0.6, 0.2),
};

// A 10 s screen recording as the capture makes them (H.264 4:2:0, 1178 x 2556, 30 fps): the
// phone screen still for a second, then scrolled up and back, the way people record flows.
bool writeScrollingClip(const fs::path& file) {
    const QImage screen = bench::phoneScreen().convertToFormat(QImage::Format_RGB32);
    auto pipeline =
        gst::parse("appsrc name=in format=time block=true caps=video/x-raw,format=BGRx,width=1178,"
                   "height=2556,framerate=30/1 ! videoconvert ! video/x-raw,format=I420 ! "
                   "x264enc speed-preset=ultrafast pass=qual quantizer=20 ! h264parse ! qtmux ! "
                   "filesink name=out");
    if (!pipeline)
        return false;
    g_object_set(gst::child(pipeline.get(), "out").get(), "location", file.c_str(), nullptr);
    auto source = gst::child(pipeline.get(), "in");
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    const int rowBytes = 1178 * 4;
    for (int i = 0; i < 300; ++i) {
        const double phase = i < 30 ? 0 : std::sin((i - 30) * M_PI / 270);
        const int scroll = static_cast<int>(phase * 900);
        GstBuffer* buffer =
            gst_buffer_new_allocate(nullptr, std::size_t(rowBytes) * bench::kHeight, nullptr);
        GstMapInfo map;
        gst_buffer_map(buffer, &map, GST_MAP_WRITE);
        for (int y = 0; y < bench::kHeight; ++y) {
            const int from = std::min(bench::kHeight - 1, y < 150 ? y : y + scroll);
            std::memcpy(map.data + std::size_t(y) * rowBytes, screen.constScanLine(from), rowBytes);
        }
        gst_buffer_unmap(buffer, &map);
        GST_BUFFER_PTS(buffer) = gst_util_uint64_scale(i, GST_SECOND, 30);
        GST_BUFFER_DURATION(buffer) = gst_util_uint64_scale(1, GST_SECOND, 30);
        if (gst_app_src_push_buffer(GST_APP_SRC(source.get()), buffer) != GST_FLOW_OK)
            return false;
    }
    gst_app_src_end_of_stream(GST_APP_SRC(source.get()));
    std::unique_ptr<GstBus, gst::ObjectUnref> bus(gst_element_get_bus(pipeline.get()));
    GstMessage* end = gst_bus_timed_pop_filtered(
        bus.get(), 120 * GST_SECOND,
        static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ok = end && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS;
    if (end)
        gst_message_unref(end);
    return ok;
}

void BM_BakeOf10sPhoneClipWith2Zones(benchmark::State& state) {
    bench::TempFolder folder;
    const fs::path source = folder.path / "01.orig.mov";
    const fs::path target = folder.path / "01.mov";
    if (!writeScrollingClip(source)) {
        state.SkipWithError("could not make the clip");
        return;
    }
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        if (!VideoRedactor::bake(kClipZones, target, source, style()))
            state.SkipWithError("bake failed");
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    // Clip seconds baked per second of work: 1.0 is real time.
    state.counters["realtime_ratio"] = 10.0 * static_cast<double>(state.iterations()) / seconds;
    const auto before = decodeEvery(source, 30);
    const auto after = decodeEvery(target, 30);
    if (before.size() != after.size() || before.empty()) {
        state.SkipWithError("the clips decode to different frame counts");
        return;
    }
    const cv::Mat outside =
        *ImageRedactor::maskImage(kClipZones, before[0].cols, before[0].rows) == 0;
    double lowest = 1;
    for (std::size_t i = 0; i < before.size(); ++i)
        lowest = std::min(lowest, ssim(before[i], after[i], outside));
    state.counters["ssim_outside_min"] = lowest;
}
BENCHMARK(BM_BakeOf10sPhoneClipWith2Zones)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

// A 10 s clip as a phone records it: stored turned a quarter (the matrix says so), frames at
// 60, 30 and 20 per second in turn as the screen changes, sound beside it.
void BM_BakeOf10sRotatedVariableRateClipWith2Zones(benchmark::State& state) {
    bench::TempFolder folder;
    const fs::path source = folder.path / "01.orig.mov";
    const fs::path target = folder.path / "01.mov";
    test::ClipRecipe recipe;
    recipe.width = bench::kHeight - 4; // stored sideways, 4:2:0 needs even sizes
    recipe.height = bench::kWidth - 1;
    recipe.intervals = {1.0 / 60, 1.0 / 60, 1.0 / 30, 1.0 / 20, 1.0 / 60, 1.0 / 30};
    recipe.frames = 6 * 10 * 6; // 1/6 s each round of six

    recipe.orientation = "rotate-90";
    recipe.sound = true;
    if (!test::writeClip(source, recipe)) {
        state.SkipWithError("could not make the clip");
        return;
    }
    const auto facts = test::streamFacts(source);
    const double length = facts ? facts->timestamps.back() / 1e9 : 0;
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        std::string why;
        if (!VideoRedactor::bake(kClipZones, target, source, style(), {}, nullptr, &why))
            state.SkipWithError(why.c_str());
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["clip_seconds"] = length;
    state.counters["realtime_ratio"] = length * static_cast<double>(state.iterations()) / seconds;
    const auto after = test::streamFacts(target);
    state.counters["times_and_turn_kept"] = after && facts && after->orientation == "rotate-90" &&
                                            after->timestamps.size() == facts->timestamps.size();
}
BENCHMARK(BM_BakeOf10sRotatedVariableRateClipWith2Zones)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
