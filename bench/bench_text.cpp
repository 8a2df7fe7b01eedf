// Text: one phone screenshot read by the app's recognizer against the `tesseract` command on
// the same picture with the same languages (P5, with word recall on the drawn set), and one
// search keystroke over 100,000 screens of text (P6).
#include "library/FileOps.h"
#include "library/Uuid.h"
#include "model/FlowLibrary.h"
#include "support/CliRun.h"
#include "support/RenderedScreens.h"
#include "support/TestLibrary.h"
#include "text/ApertiumEngine.h"
#include "text/LibreTranslateEngine.h"

#include "text/LibrarySearch.h"
#include "text/OCRSidecar.h"
#include "text/ScreenOCR.h"
#include "text/ScreenTranslator.h"
#include "text/SearchCache.h"
#include <httplib.h>

#include <QCoreApplication>
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

// A library of 100,000 screens on disk: 5,000 flows of 20 stills, each still with ten
// recognized lines in its flow's "ocr.json" (some 250 MB in all), read long enough ago for the
// search cache to trust what it saw.
struct LargeLibrary {
    TempDir dir;
    fs::path root = dir / "library";

    LargeLibrary() {
        std::mt19937 random(11);
        const char* words[] = {"account", "settings", "password", "payment", "order",    "profile",
                               "verify",  "shipping", "message",  "search",  "checkout", "privacy"};
        LibraryIndex index;
        const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
        for (int f = 0; f < 5000; ++f) {
            FlowMeta meta;
            meta.id = newUUIDString();
            meta.application = "App " + std::to_string(f % 50);
            meta.name = "Flow " + std::to_string(f);
            const std::string folder =
                "app-" + std::to_string(f % 50) + "/flow-" + std::to_string(f);
            const fs::path flow = root / folder;
            fs::create_directories(flow);
            OCRSidecar sidecar;
            sidecar.version = OCRSidecar::kVersion;
            for (int s = 1; s <= 20; ++s) {
                ScreenRef ref;
                ref.filename = (s < 10 ? "0" : "") + std::to_string(s) + ".png";
                writeFile(flow / ref.filename, "");
                fs::last_write_time(flow / ref.filename, old);
                std::vector<TextLine> lines;
                for (int l = 0; l < 10; ++l)
                    lines.push_back({std::string(words[random() % 12]) + " " +
                                         words[random() % 12] + " " +
                                         std::to_string(random() % 1000),
                                     {0.1, 0.02 * l, 0.6, 0.015},
                                     std::nullopt});
                sidecar.screens[ref.filename] = {ScreenOCR::searchBlob(lines),
                                                 *modificationTime(flow / ref.filename), lines};
                meta.screens.push_back(std::move(ref));
            }
            sidecar.write(flow);
            FileOps::writeAtomically(flow / "meta.json", encodeLibraryJson(meta.toJson()));
            fs::last_write_time(flow / "ocr.json", old);
            fs::last_write_time(flow / "meta.json", old);
            index.flows.push_back(meta.summary(folder));
        }
        FileOps::writeAtomically(root / "index.json", encodeLibraryJson(index.toJson()));
    }
};

const LargeLibrary& largeLibrary() {
    static const LargeLibrary library;
    return library;
}

// From opening the library to a search that knows every flow's text; the argument says
// whether the search cache is there (1) or was deleted (0).
void BM_SearchReadyAfterOpening(benchmark::State& state) {
    const fs::path& root = largeLibrary().root;
    std::uintmax_t sidecarBytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (entry.path().filename() == "ocr.json")
            sidecarBytes += entry.file_size();
    for (auto _ : state) {
        state.PauseTiming();
        if (state.range(0) == 0)
            fs::remove(root / SearchCache::kFileName);
        if (state.range(0) == 1 && !fs::exists(root / SearchCache::kFileName)) {
            FlowLibrary warming{FlowStore(root)};
            warming.refreshOCRIndex();
            warming.waitForTextRecognition();
        }
        state.ResumeTiming();
        FlowLibrary library{FlowStore(root)};
        library.setAutomaticTextRecognition(true);
        library.open();
        while (library.ocrIndex().size() < 5000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
        benchmark::DoNotOptimize(library.textSearchIndex().hits("password"));
        state.PauseTiming();
        library.waitForTextRecognition(); // the cache is whole for the next round
        state.ResumeTiming();
    }
    state.counters["sidecar_MB"] = static_cast<double>(sidecarBytes) / 1e6;
}
BENCHMARK(BM_SearchReadyAfterOpening)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

// A flow of one still, whose recognized lines the translation benchmarks store afresh.
struct OneScreenFlow {
    TempDir dir;
    FlowStore store{dir / "library"};
    std::string folder = store.createEmptyFlow("Acme", "Login", std::nullopt, Date{}).folderName;
    OneScreenFlow() {
        writePicture(dir / "a.png", 8, 8);
        store.addScreens(folder, {dir / "a.png"}, Date{});
    }
};

// Translating one screen's lines (twelve, in Spanish) into English with Apertium on this
// computer, nothing stored before.
void BM_TranslateScreenWithApertium(benchmark::State& state) {
    OneScreenFlow flow;
    auto& [dir, store, folder] = flow;
    const char* spanish[] = {"Iniciar sesión",
                             "Olvidé mi contraseña",
                             "Crear una cuenta nueva",
                             "Correo electrónico",
                             "Contraseña",
                             "Recordarme",
                             "Continuar con Google",
                             "¿No tienes cuenta? Regístrate",
                             "Términos y condiciones",
                             "Política de privacidad",
                             "Ayuda",
                             "Cambiar idioma"};
    std::vector<TextLine> lines;
    for (int i = 0; i < 12; ++i)
        lines.push_back({spanish[i], {0.1, 0.05 + 0.07 * i, 0.6, 0.03}, std::nullopt});
    const ApertiumEngine apertium;
    if (!apertium.translates("es", "en")) {
        state.SkipWithError("no Spanish-English pair");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        OCRIndex::saveTextLines(store, folder, "01.png", lines);
        state.ResumeTiming();
        const auto result = ScreenTranslator::translate(store, folder, "01.png", "en", {&apertium});
        benchmark::DoNotOptimize(result.lines.size());
    }
}
BENCHMARK(BM_TranslateScreenWithApertium)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same screen through the LibreTranslate client, against a server on 127.0.0.1 that
// answers at once: what Varnel adds to a real server's own time.
void BM_TranslateScreenWithLibreTranslateClient(benchmark::State& state) {
    httplib::Server server;
    server.Post("/translate", [](const httplib::Request& req, httplib::Response& res) {
        const Json body = Json::parse(req.body);
        Json out = Json::array();
        for (const auto& q : body["q"])
            out.push_back("EN " + q.get<std::string>());
        res.set_content(Json{{"translatedText", out}}.dump(), "application/json");
    });
    server.Get("/languages", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(R"([{"code":"es","name":"Spanish","targets":["en"]}])", "application/json");
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { server.listen_after_bind(); });
    while (!server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    {
        OneScreenFlow flow;
        auto& [dir, store, folder] = flow;
        std::vector<TextLine> lines;
        for (int i = 0; i < 12; ++i)
            lines.push_back({"Crear una cuenta nueva " + std::to_string(i),
                             {0.1, 0.05 + 0.07 * i, 0.6, 0.03},
                             std::nullopt});
        const LibreTranslateEngine libre("http://127.0.0.1:" + std::to_string(port));
        for (auto _ : state) {
            state.PauseTiming();
            OCRIndex::saveTextLines(store, folder, "01.png", lines);
            state.ResumeTiming();
            const auto result =
                ScreenTranslator::translate(store, folder, "01.png", "en", {&libre});
            benchmark::DoNotOptimize(result.lines.size());
        }
    }
    server.stop();
    thread.join();
}
BENCHMARK(BM_TranslateScreenWithLibreTranslateClient)->Unit(benchmark::kMillisecond)->UseRealTime();

// `varnel-cli search` over the same library, its cache in place.
void BM_CliSearch(benchmark::State& state) {
    const std::string root = largeLibrary().root.string();
    runCli({"search", "warm"}, root); // the cache is made once
    for (auto _ : state) {
        const auto result = runCli({"search", "password 7"}, root);
        benchmark::DoNotOptimize(result.out);
    }
}
BENCHMARK(BM_CliSearch)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // fonts for drawing the screens
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
