// Text: one phone screenshot read by the app's recognizer against the `tesseract` command on
// the same picture with the same languages (P5, with word recall on the drawn set), and one
// search keystroke over 100,000 screens of text (P6).
#include "support/RenderedScreens.h"
#include "support/TestLibrary.h"
#include "text/LibrarySearch.h"
#include "text/ScreenOCR.h"

#include <QGuiApplication>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>

using namespace varnel;
using namespace varnel::test;
namespace fs = std::filesystem;

namespace {

using Language = RenderedScreen::Language;

struct DrawnSet {
    TempDir dir;
    std::vector<fs::path> files;
    std::vector<std::vector<std::string>> words;

    DrawnSet() {
        for (const auto language : {Language::english, Language::french, Language::korean})
            for (const bool dark : {false, true})
                for (const int variant : {0, 1}) {
                    const RenderedScreen screen = renderScreen(language, dark, variant);
                    files.push_back(dir / ("s" + std::to_string(files.size()) + ".png"));
                    screen.image.save(QString::fromStdString(files.back().string()));
                    words.push_back(screen.words);
                }
    }
};

const DrawnSet& drawn() {
    static const DrawnSet set;
    return set;
}

std::string tesseractCommand(const fs::path& file) {
    std::string text;
    const std::string command =
        "tesseract '" + file.string() + "' - -l " + ScreenOCR::kLanguages + " 2>/dev/null";
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        while (const std::size_t n = fread(buffer, 1, sizeof buffer, pipe))
            text.append(buffer, n);
        pclose(pipe);
    }
    return text;
}

// P5: one 1179×2556 screenshot, engine already loaded (as in a refresh pass).
void BM_RecognizeScreenshot(benchmark::State& state) {
    ScreenOCR ocr;
    const fs::path& file = drawn().files[0];
    for (auto _ : state)
        benchmark::DoNotOptimize(ocr.recognize(file));
}
BENCHMARK(BM_RecognizeScreenshot)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same with the engine loaded for it, as the command must.
void BM_RecognizeScreenshotLoadingTheEngine(benchmark::State& state) {
    const fs::path& file = drawn().files[0];
    for (auto _ : state) {
        ScreenOCR ocr;
        benchmark::DoNotOptimize(ocr.recognize(file));
    }
}
BENCHMARK(BM_RecognizeScreenshotLoadingTheEngine)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_TesseractCommand(benchmark::State& state) {
    const fs::path& file = drawn().files[0];
    for (auto _ : state)
        benchmark::DoNotOptimize(tesseractCommand(file));
}
BENCHMARK(BM_TesseractCommand)->Unit(benchmark::kMillisecond)->UseRealTime();

// Word recall over the drawn set: English, French, Korean; light and dark; two layouts each.
void BM_WordRecallOnDrawnScreens(benchmark::State& state) {
    ScreenOCR ocr;
    double ours = 0;
    double command = 0;
    for (auto _ : state) {
        ours = command = 0;
        for (std::size_t i = 0; i < drawn().files.size(); ++i) {
            const auto lines = ocr.recognize(drawn().files[i]);
            ours += wordRecall(drawn().words[i],
                               ScreenOCR::searchBlob(lines.value_or(std::vector<TextLine>{})));
            command += wordRecall(drawn().words[i], tesseractCommand(drawn().files[i]));
        }
    }
    const double count = static_cast<double>(drawn().files.size());
    state.counters["recall_percent"] = 100 * ours / count;
    state.counters["command_recall_percent"] = 100 * command / count;
}
BENCHMARK(BM_WordRecallOnDrawnScreens)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

// Word recall of page titles at one text size (the argument, in pixels of a 3x screen), over
// regular and bold, light and dark, against the command on the same pictures.
void BM_WordRecallByTextSize(benchmark::State& state) {
    ScreenOCR ocr;
    TempDir dir;
    double ours = 0;
    double command = 0;
    int screens = 0;
    for (auto _ : state) {
        ours = command = 0;
        screens = 0;
        for (const bool bold : {false, true})
            for (const bool dark : {false, true}) {
                const RenderedScreen screen =
                    renderTitles(static_cast<int>(state.range(0)), bold, dark);
                const fs::path file = dir / "titles.png";
                screen.image.save(QString::fromStdString(file.string()));
                const auto lines = ocr.recognize(file);
                ours += wordRecall(screen.words,
                                   ScreenOCR::searchBlob(lines.value_or(std::vector<TextLine>{})));
                command += wordRecall(screen.words, tesseractCommand(file));
                ++screens;
            }
    }
    state.counters["recall_percent"] = 100 * ours / screens;
    state.counters["command_recall_percent"] = 100 * command / screens;
}
BENCHMARK(BM_WordRecallByTextSize)
    ->DenseRange(30, 160, 10)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1);

// P6: 5,000 flows of 20 screens (18 stills with text, 2 clips), each still about 40 words of
// app vocabulary. A keystroke searches the text once and decides every flow.
struct TextModel {
    std::map<std::string, FlowTextIndex> text;
    TextSearchIndex index;
    std::map<std::string, MediaCounts> media;
    std::vector<FlowSummary> flows;

    TextModel() {
        std::mt19937 random(7);
        const char* syllables[] = {
            "ac",   "count", "set",    "ting", "pay",   "ment", "or",  "der",  "sign", "in",   "up",
            "pro",  "file",  "pass",   "word", "ver",   "i",    "fy",  "ship", "ping", "card", "de",
            "tail", "home",  "search", "cart", "check", "out",  "mes", "sage", "no",   "tif"};
        std::vector<std::string> vocabulary;
        for (int i = 0; i < 3000; ++i) {
            std::string word;
            const int parts = 1 + static_cast<int>(random() % 3);
            for (int p = 0; p < parts; ++p)
                word += syllables[random() % std::size(syllables)];
            vocabulary.push_back(word);
        }
        for (int f = 0; f < 5000; ++f) {
            const std::string folder =
                "app" + std::to_string(f % 50) + "/flow-" + std::to_string(f);
            flows.push_back({std::to_string(f),
                             "App",
                             "Flow " + std::to_string(f),
                             folder,
                             "Category " + std::to_string(f % 12),
                             {},
                             20});
            media[folder] = {18, 2};
            for (int s = 1; s <= 18; ++s) {
                std::string blob;
                for (int w = 0; w < 40; ++w)
                    blob += (w ? " " : "") + vocabulary[random() % vocabulary.size()];
                text[folder][(s < 10 ? "0" : "") + std::to_string(s) + ".png"] = blob;
            }
        }
        index = TextSearchIndex(text);
    }
};

void BM_SearchKeystrokeOver100kScreens(benchmark::State& state) {
    static const TextModel model;
    const char* queries[] = {"p", "pa", "pas", "pass", "passw", "password", "zzq"};
    const std::string query = queries[state.range(0)];
    std::size_t shown = 0;
    for (auto _ : state) {
        LibrarySearch search(model.index, model.media);
        search.setQuery(query);
        shown = 0;
        for (const auto& flow : model.flows)
            if (search.matches(flow))
                ++shown;
        benchmark::DoNotOptimize(shown);
    }
    state.SetLabel("\"" + query + "\"");
    state.counters["flows_shown"] = static_cast<double>(shown);
}
BENCHMARK(BM_SearchKeystrokeOver100kScreens)
    ->DenseRange(0, 6)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // fonts for drawing the screens
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
