// The library store on a generated library of 10,000 flows and 100,000 screens.
#include "cli/Cli.h"
#include "library/FileOps.h"
#include "library/FlowStore.h"
#include "library/Uuid.h"
#include "model/FlowLibrary.h"
#include "model/LibraryChanges.h"
#include "model/LibraryHistory.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

constexpr int kFlows = 10000;
constexpr int kScreensPerFlow = 10;
constexpr int kRenumberScreens = 300;

struct GeneratedLibrary {
    fs::path root;
    std::string renumberFolder = "bench/big/three-hundred";
    std::string fiftyFolder = "bench/big/fifty";

    GeneratedLibrary() {
        root = fs::temp_directory_path() / ("varnel-bench-" + newUUIDString());
        LibraryIndex index;
        for (int f = 0; f < kFlows; ++f) {
            FlowMeta meta;
            meta.id = newUUIDString();
            meta.application = "App " + std::to_string(f % 50);
            meta.categoryL1 = "Category " + std::to_string(f % 20);
            meta.name = "Flow " + std::to_string(f);
            meta.date = Date{700000000.0 + f};
            meta.width = 1179;
            meta.height = 2556;
            const std::string folder = "app-" + std::to_string(f % 50) + "/category-" +
                                       std::to_string(f % 20) + "/flow-" + std::to_string(f);
            addScreens(meta, folder, kScreensPerFlow);
            index.flows.push_back(meta.summary(folder));
        }
        FlowMeta big;
        big.id = newUUIDString();
        big.name = "Three hundred";
        addScreens(big, renumberFolder, kRenumberScreens);
        index.flows.push_back(big.summary(renumberFolder));
        FlowMeta fifty;
        fifty.id = newUUIDString();
        fifty.application = "Bench";
        fifty.name = "Fifty";
        addScreens(fifty, fiftyFolder, 50);
        index.flows.push_back(fifty.summary(fiftyFolder));
        FileOps::writeAtomically(root / "index.json", encodeLibraryJson(index.toJson()));
    }

    ~GeneratedLibrary() {
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    void addScreens(FlowMeta& meta, const std::string& folder, int count) {
        const fs::path dir = root / folder;
        fs::create_directories(dir);
        for (int s = 1; s <= count; ++s) {
            ScreenRef ref;
            ref.filename = (s < 10 ? "0" : "") + std::to_string(s) + ".png";
            ref.capturedAt = Date{700000000.0 + s};
            std::ofstream(dir / ref.filename) << "screen";
            meta.screens.push_back(std::move(ref));
        }
        FileOps::writeAtomically(dir / "meta.json", encodeLibraryJson(meta.toJson()));
    }
};

GeneratedLibrary& library() {
    static GeneratedLibrary generated;
    return generated;
}

// A cold start: a new store has no decoded index to reuse.
void BM_LoadIndexAndBuildModel(benchmark::State& state) {
    const fs::path root = library().root;
    std::size_t flows = 0;
    for (auto _ : state) {
        FlowLibrary model{FlowStore(root)};
        flows = model.summaries().size();
        benchmark::DoNotOptimize(model.summaries().data());
    }
    state.counters["flows"] = static_cast<double>(flows);
}
BENCHMARK(BM_LoadIndexAndBuildModel)->Unit(benchmark::kMillisecond);

// What opening a library adds before the model loads: looking for what a crash left behind.
void BM_RecoverAtOpen(benchmark::State& state) {
    FlowStore store(library().root);
    for (auto _ : state) {
        const RecoveryReport report = store.recover();
        benchmark::DoNotOptimize(report.problems.data());
    }
}
BENCHMARK(BM_RecoverAtOpen)->Unit(benchmark::kMillisecond);

// `varnel-cli recover` with nothing to repair, as a new process runs it: the lock, the index
// decoded cold, the survey of every application and category folder.
void BM_CliRecoverNothingToRepair(benchmark::State& state) {
    const std::string root = library().root.string();
    for (auto _ : state) {
        std::ostringstream out, err;
        if (cli::run({"--library", root, "recover"}, out, err) != cli::kSuccess)
            state.SkipWithError(err.str().c_str());
    }
    state.counters["flows"] = kFlows + 1;
}
BENCHMARK(BM_CliRecoverNothingToRepair)->Unit(benchmark::kMillisecond);

void BM_AppendToIndex(benchmark::State& state) {
    FlowStore store(library().root);
    FlowSummary summary = store.readIndex().flows[kFlows / 2];
    for (auto _ : state) {
        summary.screenCount += 1;
        store.appendToIndex(summary);
    }
}
BENCHMARK(BM_AppendToIndex)->Unit(benchmark::kMillisecond);

void BM_Renumber300ScreenFlow(benchmark::State& state) {
    FlowStore store(library().root);
    const std::string& folder = library().renumberFolder;
    for (auto _ : state) {
        state.PauseTiming();
        // Reverse the order so that every file moves.
        FlowMeta meta = store.meta(folder);
        std::reverse(meta.screens.begin(), meta.screens.end());
        store.writeMeta(folder, meta);
        state.ResumeTiming();
        store.renumberScreens(folder);
    }
}
BENCHMARK(BM_Renumber300ScreenFlow)->Unit(benchmark::kMillisecond);

// Edit ▸ Undo of deleting a flow of 50 screens, in the window's model of a library of 10,000
// flows: the flow comes back from the trash and the model reloads.
void BM_UndoDeleteOfFlowOf50Screens(benchmark::State& state) {
    FlowLibrary model{FlowStore(library().root)};
    LibraryHistory history(model);
    history.record(LibraryChanges::deleteFlows(model, {library().fiftyFolder}, "Delete Flow"));
    for (auto _ : state) {
        history.undo();
        state.PauseTiming();
        history.redo();
        state.ResumeTiming();
    }
    history.undo();
}
BENCHMARK(BM_UndoDeleteOfFlowOf50Screens)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
