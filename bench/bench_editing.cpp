// Blur zones: a still baked with three zones against a full-picture blur (P3).
#include "BenchScreen.h"
#include "editing/GaussianBlur.h"
#include "editing/ImageRedactor.h"

#include <QGuiApplication>

#include <benchmark/benchmark.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>

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
    const cv::Mat frosted =
        ImageRedactor::tinted(exactGaussianBlur(input, style().blur), style());
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

// The same two bakes from a PNG file to a PNG file, as saving a screen does.
void bakeFiles(benchmark::State& state, bool naive) {
    bench::TempFolder folder;
    const fs::path source = folder.path / "01.orig.png";
    const fs::path target = folder.path / "01.png";
    cv::imwrite(source.string(), screenPixels());
    for (auto _ : state) {
        if (naive) {
            if (!ImageRedactor::writePng(naiveBake(ImageRedactor::load(source)), target))
                state.SkipWithError("write failed");
        } else if (!ImageRedactor::apply(kZones, target, source, style())) {
            state.SkipWithError("apply failed");
        }
    }
}
void BM_NaiveBakeFileToFile(benchmark::State& state) { bakeFiles(state, true); }
void BM_BakeFileToFile(benchmark::State& state) { bakeFiles(state, false); }
BENCHMARK(BM_NaiveBakeFileToFile)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BakeFileToFile)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
