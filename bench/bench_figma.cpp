// Figma: how long quitting takes while a sync run waits on a request that never answers.
#include "figma/FigmaAPI.h"
#include "figma/FigmaAuth.h"
#include "figma/FigmaSyncService.h"
#include "model/FlowLibrary.h"
#include "support/FakeFigma.h"
#include "support/MemorySecrets.h"
#include "support/TestLibrary.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <chrono>
#include <thread>

using namespace varnel;
using namespace varnel::test;

namespace {

void BM_QuitDuringAHangingRequest(benchmark::State& state) {
    for (auto _ : state) {
        FakeFigma figma("BENCH", "token");
        TempDir dir;
        FlowLibrary library{FlowStore(dir / "library")};
        library.open();
        const std::string folder =
            library.createEmptyFlow("Acme", "Quit", std::nullopt, Date::now()).folderName;
        writePicture(dir / "a.png", 39, 84);
        library.store().addScreens(folder, {dir / "a.png"}, Date::now());
        library.reload();
        ScreenComment pin;
        pin.id = "p";
        pin.x = pin.y = 0.5;
        pin.text = "Hanging";
        library.saveComments(folder, "01.png", {pin});
        library.setFigmaFileURL(folder, figma.fileLink());
        figma.addBoard(figma.addPage("Flows"), library.meta(folder).id, "2026-11-22T09:00:00Z", 0,
                       0, {{"01.png", 0, 0, 390, 844}});
        MemorySecrets secrets;
        FigmaAuth::setToken("token", secrets);
        auto service = std::make_unique<FigmaSyncService>(
            library, secrets, [base = figma.baseURL()](const std::string& token) {
                return std::make_unique<FigmaAPI>(token, base);
            });
        figma.hangNext("POST", "/comments");
        service->publish(folder);
        while (!figma.hanging()) {
            QCoreApplication::processEvents();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        const auto start = std::chrono::steady_clock::now();
        service.reset(); // what quitting the app does
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count());
        figma.release();
    }
}
BENCHMARK(BM_QuitDuringAHangingRequest)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
