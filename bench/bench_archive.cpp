// Exporting and importing an application of 1,000 screens (about 1.5 GB of PNG-like,
// incompressible data), each against a plain recursive copy of the same flows in the same run.
// The counter "vs_copy" is the copy's time divided by the operation's: 1 is as fast as a copy.
#include "archive/AppArchive.h"
#include "archive/ArchiveImport.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"
#include "library/Uuid.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <random>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

constexpr int kFlows = 20;
constexpr int kScreensPerFlow = 50;
constexpr std::size_t kScreenBytes = 1536 * 1024;

struct Workspace {
    fs::path top = fs::temp_directory_path() / ("varnel-bench-archive-" + newUUIDString());
    fs::path library = top / "Library";
    std::uintmax_t bytes = 0;

    Workspace() {
        FlowStore store(library);
        std::mt19937_64 random(42);
        std::string screen(kScreenBytes, '\0');
        for (int f = 0; f < kFlows; ++f) {
            const auto flow = store.createEmptyFlow("Demo", "Flow " + std::to_string(f),
                                                    std::string("Category"), Date{});
            FlowMeta meta = store.meta(flow.folderName);
            for (int s = 1; s <= kScreensPerFlow; ++s) {
                for (std::size_t i = 0; i + 8 <= screen.size(); i += 8) {
                    const auto value = random();
                    std::memcpy(&screen[i], &value, 8);
                }
                ScreenRef ref;
                ref.filename = (s < 10 ? "0" : "") + std::to_string(s) + ".png";
                std::ofstream(library / flow.folderName / ref.filename, std::ios::binary) << screen;
                bytes += screen.size();
                meta.screens.push_back(ref);
            }
            store.writeMeta(flow.folderName, meta);
            store.appendToIndex(meta.summary(flow.folderName));
        }
    }
    ~Workspace() {
        std::error_code ec;
        fs::remove_all(top, ec);
    }

    double copySeconds() const {
        const fs::path copy = top / "copy";
        const auto start = std::chrono::steady_clock::now();
        fs::copy(library / "demo", copy, fs::copy_options::recursive);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        fs::remove_all(copy);
        return seconds;
    }
};

Workspace& workspace() {
    static Workspace w;
    return w;
}

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_ExportApplication(benchmark::State& state) {
    Workspace& w = workspace();
    FlowStore store(w.library);
    const fs::path zip = w.top / "Demo.varnel.zip";
    double copy = 0, exported = 0;
    for (auto _ : state) {
        copy += w.copySeconds();
        const auto start = std::chrono::steady_clock::now();
        AppArchive::exportApplication("Demo", store, store.readIndex(), zip);
        const double seconds = since(start);
        exported += seconds;
        state.SetIterationTime(seconds);
        fs::remove(zip);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(w.bytes * state.iterations()));
    state.counters["vs_copy"] = copy / exported;
}
BENCHMARK(BM_ExportApplication)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_ImportApplication(benchmark::State& state) {
    Workspace& w = workspace();
    FlowStore source(w.library);
    const fs::path zip = w.top / "Demo.varnel.zip";
    AppArchive::exportApplication("Demo", source, source.readIndex(), zip);
    double copy = 0, imported = 0;
    for (auto _ : state) {
        copy += w.copySeconds();
        const fs::path target = w.top / "Imported";
        FlowStore store(target);
        FileOps::createDirectory(target, true);
        const auto start = std::chrono::steady_clock::now();
        const auto extracted = AppArchive::extract(zip, target, true);
        const auto result = importExtracted(store, extracted, ImportConflictResolution::replace);
        extracted.cleanup();
        const double seconds = since(start);
        imported += seconds;
        state.SetIterationTime(seconds);
        if (result.folders.size() != kFlows)
            state.SkipWithError("not every flow was imported");
        fs::remove_all(target);
    }
    fs::remove(zip);
    state.SetBytesProcessed(static_cast<std::int64_t>(w.bytes * state.iterations()));
    state.counters["vs_copy"] = copy / imported;
}
BENCHMARK(BM_ImportApplication)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
