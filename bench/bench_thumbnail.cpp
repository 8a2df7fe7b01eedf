// Thumbnail generation for phone-sized screenshots, on one thread.
#include "library/Uuid.h"
#include "thumbnails/ThumbnailFiles.h"

#include <QCoreApplication>
#include <QImage>
#include <QPainter>

#include <benchmark/benchmark.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

// A screenshot-like image: flat bands, text-like stripes and a photo-like gradient.
fs::path makeScreen(const fs::path& folder) {
    QImage image(1179, 2556, QImage::Format_ARGB32);
    image.fill(QColor(245, 245, 247));
    QPainter painter(&image);
    for (int y = 200; y < 2400; y += 120) {
        painter.fillRect(60, y, 1059, 90, QColor(255, 255, 255));
        for (int x = 90; x < 900; x += 37)
            painter.fillRect(x, y + 30, 25, 30, QColor(40, 40, 45));
    }
    QLinearGradient gradient(0, 0, 1179, 600);
    gradient.setColorAt(0, QColor(30, 120, 220));
    gradient.setColorAt(1, QColor(220, 60, 120));
    painter.fillRect(0, 0, 1179, 180, gradient);
    painter.end();
    const fs::path file = folder / "01.png";
    image.save(QString::fromStdString(file.string()), "PNG");
    return file;
}

void BM_ThumbnailOf1179x2556Png(benchmark::State& state) {
    const fs::path folder =
        fs::temp_directory_path() / ("varnel-bench-thumb-" + varnel::newUUIDString());
    fs::create_directories(folder);
    const fs::path screen = makeScreen(folder);
    for (auto _ : state) {
        if (!varnel::ThumbnailFiles::render(screen, folder / ".thumbs/v1/01.jpg"))
            state.SkipWithError("render failed");
    }
    state.counters["screens_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    fs::remove_all(folder);
}
BENCHMARK(BM_ThumbnailOf1179x2556Png)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
