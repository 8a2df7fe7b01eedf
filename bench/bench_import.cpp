// Bringing 50 phone screenshots into the library as one flow: from the call to the flow listed.
#include "BenchScreen.h"

#include "model/FlowLibrary.h"
#include "model/ScreenImport.h"

#include <QGuiApplication>

#include <benchmark/benchmark.h>

#include <string>

using namespace varnel;
using namespace varnel::bench;

namespace {

constexpr int kScreens = 50;

// The same screen 50 times, each a little different, as a phone saves them.
const std::filesystem::path& screenshots(const char* format) {
    static TempFolder png, jpeg;
    TempFolder& folder = std::string(format) == "PNG" ? png : jpeg;
    const auto shots = folder.path / "Checkout";
    if (!std::filesystem::exists(shots)) {
        std::filesystem::create_directories(shots);
        QImage screen = phoneScreen();
        for (int i = 1; i <= kScreens; ++i) {
            screen.setPixel(i, i, qRgb(i, 255 - i, 0));
            const auto file =
                shots / ("IMG_" + std::to_string(i) + (format[0] == 'P' ? ".png" : ".jpg"));
            screen.save(QString::fromStdString(file.string()), format, 90);
        }
    }
    return folder.path;
}

void importFolder(benchmark::State& state, const char* format) {
    const auto source = screenshots(format) / "Checkout";
    for (auto _ : state) {
        state.PauseTiming();
        TempFolder library;
        FlowLibrary model{FlowStore(library.path / "Library")};
        model.open();
        state.ResumeTiming();
        ScreenImport::Plan plan = ScreenImport::plan({source});
        plan.application = "Acme";
        const auto report = ScreenImport::run(model, plan);
        if (report.createdFlows.size() != 1 || report.screens != kScreens)
            state.SkipWithError("the import did not make the flow");
    }
    state.counters["screens"] = kScreens;
}

// PNG screenshots are checked and copied as they are.
void BM_Import50PngScreenshots(benchmark::State& state) {
    importFolder(state, "PNG");
}
BENCHMARK(BM_Import50PngScreenshots)->Unit(benchmark::kMillisecond)->Iterations(3);

// JPEG screenshots are decoded and written as PNG.
void BM_Import50JpegScreenshots(benchmark::State& state) {
    importFolder(state, "JPEG");
}
BENCHMARK(BM_Import50JpegScreenshots)->Unit(benchmark::kMillisecond)->Iterations(2);

} // namespace

int main(int argc, char** argv) {
    // The image plugins need an application, not a display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
