// How long varnel-cli takes to start and answer the commands that only read a small library,
// against the program that runs every command (what varnel-cli was before it handed the others
// on), and what handing a command on adds.
#include "BenchProcess.h"
#include "BenchScreen.h"
#include "library/Date.h"
#include "library/FlowStore.h"

#include <QGuiApplication>

#include <benchmark/benchmark.h>

using namespace varnel;
namespace fs = std::filesystem;

namespace {

// Three flows of five small screens.
struct SmallLibrary {
    bench::TempFolder folder;
    fs::path root = folder.path / "library";

    SmallLibrary() {
        QImage picture(390, 844, QImage::Format_RGB32);
        picture.fill(Qt::white);
        const fs::path png = folder.path / "screen.png";
        picture.save(QString::fromStdString(png.string()));
        FlowStore store{root};
        for (const char* name : {"Sign up", "Checkout", "Settings"}) {
            const FlowSummary flow = store.createEmptyFlow("Shop", name, "Commerce", Date::now());
            store.addScreens(flow.folderName, std::vector<fs::path>(5, png), Date::now());
        }
    }
};

void runCommand(benchmark::State& state, const char* program, std::vector<std::string> command) {
    static SmallLibrary library;
    std::vector<std::string> arguments = {program, "--library", library.root.string()};
    arguments.insert(arguments.end(), command.begin(), command.end());
    for (auto _ : state)
        if (bench::runProgram(arguments) != 0)
            state.SkipWithError("the command failed");
}

void BM_CliHelp(benchmark::State& state) {
    runCommand(state, VARNEL_CLI, {"--help"});
}
void BM_CliList(benchmark::State& state) {
    runCommand(state, VARNEL_CLI, {"list"});
}
void BM_CliCheck(benchmark::State& state) {
    runCommand(state, VARNEL_CLI, {"check"});
}
// A command varnel-cli hands on: what the hand-over adds.
void BM_CliSearch(benchmark::State& state) {
    runCommand(state, VARNEL_CLI, {"search", "sign"});
}
void BM_WholeProgramSearch(benchmark::State& state) {
    runCommand(state, VARNEL_CLI_COMMANDS, {"search", "sign"});
}
void BM_WholeProgramHelp(benchmark::State& state) {
    runCommand(state, VARNEL_CLI_COMMANDS, {"--help"});
}
void BM_WholeProgramList(benchmark::State& state) {
    runCommand(state, VARNEL_CLI_COMMANDS, {"list"});
}
void BM_WholeProgramCheck(benchmark::State& state) {
    runCommand(state, VARNEL_CLI_COMMANDS, {"check"});
}
BENCHMARK(BM_CliHelp)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CliList)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CliCheck)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CliSearch)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeProgramSearch)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeProgramHelp)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeProgramList)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeProgramCheck)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv); // the pictures of the library are drawn with Qt
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
