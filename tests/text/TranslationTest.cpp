// Recognized lines translated: by real Apertium (Spanish to English, installed with the
// project), by a LibreTranslate server on 127.0.0.1, once per line and language.
#include "editing/ImageRedactor.h"
#include "library/FlowStore.h"
#include "model/FlowLibrary.h"
#include "support/CliRun.h"
#include "support/TestLibrary.h"
#include "text/ApertiumEngine.h"
#include "text/Languages.h"
#include "text/LibreTranslateEngine.h"
#include "text/OCRIndex.h"
#include "text/ScreenOCR.h"
#include "text/ScreenTranslator.h"
#include "text/SearchFold.h"

#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <thread>

using namespace varnel;
using namespace varnel::test;
using Json = nlohmann::json;

namespace {

TextLine line(const std::string& text, double y) {
    return {text, {0.1, y, 0.5, 0.04}, std::nullopt};
}

// Counts what reaches the engine it wraps.
class Counting : public TranslationEngine {
public:
    explicit Counting(const TranslationEngine& engine) : engine_(engine) {}
    std::string name() const override { return engine_.name(); }
    bool translates(const std::string& from, const std::string& to) const override {
        return engine_.translates(from, to);
    }
    std::vector<std::string> translate(const std::vector<std::string>& lines,
                                       const std::string& from,
                                       const std::string& to) const override {
        asked += static_cast<int>(lines.size());
        return engine_.translate(lines, from, to);
    }
    mutable int asked = 0;

private:
    const TranslationEngine& engine_;
};

// A LibreTranslate server: Korean to English from a small dictionary, an error for Japanese,
// and no answer in time for Chinese.
class FakeLibreTranslate {
public:
    FakeLibreTranslate() {
        server_.Get("/languages", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(
                Json::array({{{"code", "ko"}, {"name", "Korean"}, {"targets", {"en"}}},
                             {{"code", "ja"}, {"name", "Japanese"}, {"targets", {"en"}}},
                             {{"code", "zh"}, {"name", "Chinese"}, {"targets", {"en"}}}})
                    .dump(),
                "application/json");
        });
        server_.Post("/translate", [this](const httplib::Request& req, httplib::Response& res) {
            const Json body = Json::parse(req.body);
            ++requests;
            if (body["source"] == "ja") {
                res.status = 400;
                res.set_content(R"({"error":"ja is not available"})", "application/json");
                return;
            }
            if (body["source"] == "zh")
                std::this_thread::sleep_for(std::chrono::milliseconds(2500));
            const std::map<std::string, std::string> words{{"계속하기", "Continue"},
                                                           {"설정", "Settings"}};
            Json out = Json::array();
            for (const auto& q : body["q"])
                out.push_back(words.contains(q) ? words.at(q) : "?");
            res.set_content(Json{{"translatedText", out}}.dump(), "application/json");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) // so that stop() always finds it running
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~FakeLibreTranslate() {
        server_.stop();
        thread_.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::atomic<int> requests{0};

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

// A phone screen with lines of text drawn at the given heights, saved as a PNG.
void drawScreen(const fs::path& file, const std::vector<std::pair<int, QString>>& lines) {
    QImage screen(1179, 2556, QImage::Format_RGB32);
    screen.fill(QColor(250, 250, 252));
    {
        QPainter painter(&screen);
        QFont font("DejaVu Sans");
        font.setPixelSize(64);
        painter.setFont(font);
        painter.setPen(QColor(20, 20, 24));
        for (const auto& [y, text] : lines)
            painter.drawText(QPoint(90, y), text);
    }
    ASSERT_TRUE(screen.save(QString::fromStdString(file.string()), "PNG"));
}

class TranslationTest : public ::testing::Test {
protected:
    TranslationTest() {
        folder = store.createEmptyFlow("Acme", "Login", std::nullopt, Date{}).folderName;
        writePicture(dir / "a.png", 8, 8);
        store.addScreens(folder, {dir / "a.png"}, Date{});
    }
    TempDir dir;
    FlowStore store{dir / "library"};
    std::string folder;
};

} // namespace

TEST(LanguagesTest, ALinesLanguageShowsInItsScriptOrItsCommonWords) {
    EXPECT_EQ(Languages::guess("Olvidé mi contraseña"), "es");
    EXPECT_EQ(Languages::guess("Mot de passe oublié"), "fr");
    EXPECT_EQ(Languages::guess("Forgot your password?"), "en");
    EXPECT_EQ(Languages::guess("계속하기"), "ko");
    EXPECT_EQ(Languages::guess("ログインする"), "ja");
    EXPECT_EQ(Languages::guess("登录"), "zh");
    EXPECT_EQ(Languages::guess("12:30"), std::nullopt);
    EXPECT_EQ(Languages::guess("Acme"), std::nullopt) << "a name tells nothing";
    EXPECT_EQ(Languages::twoLetter("spa"), "es");
    EXPECT_EQ(Languages::threeLetter("en"), "eng");
}

TEST_F(TranslationTest, ApertiumTranslatesOnThisComputerOnceAndTheCommandLineShowsIt) {
    const ApertiumEngine apertium;
    ASSERT_TRUE(apertium.isInstalled());
    ASSERT_TRUE(apertium.translates("es", "en")) << "apertium-eng-spa is installed with Varnel";
    OCRIndex::saveTextLines(store, folder, "01.png",
                            {line("Olvidé mi contraseña", 0.1), line("Crear una cuenta nueva", 0.2),
                             line("Forgot your password?", 0.3), line("12:30", 0.4)});
    Counting counting(apertium);
    const auto first = ScreenTranslator::translate(store, folder, "01.png", "en", {&counting});
    EXPECT_TRUE(first.problems.empty());
    ASSERT_EQ(first.lines.size(), 4u);
    EXPECT_EQ(first.lines[0].translation, "I forgot my password");
    EXPECT_EQ(first.lines[1].translation, "Create a new account");
    EXPECT_FALSE(first.lines[2].translation) << "already English";
    EXPECT_FALSE(first.lines[3].translation) << "no language to tell";
    EXPECT_EQ(counting.asked, 2);
    const auto stored = OCRIndex::textLines(store, folder, "01.png");
    EXPECT_EQ(stored[0].translations->at("en"), "I forgot my password");

    // Asked again: from the sidecar, not the engine.
    const auto again = ScreenTranslator::translate(store, folder, "01.png", "en", {&counting});
    EXPECT_EQ(counting.asked, 2);
    EXPECT_TRUE(again.lines[0].reused);
    EXPECT_EQ(again.lines[1].translation, "Create a new account");

    const auto cli = runCli({"translate", folder, "--to", "en", "--json"}, store.root().string());
    ASSERT_EQ(cli.code, 0) << cli.err;
    const Json report = Json::parse(cli.out);
    EXPECT_EQ(report[0]["file"], "01.png");
    EXPECT_EQ(report[0]["lines"][0]["translation"], "I forgot my password");
    EXPECT_EQ(report[0]["lines"][0]["stored"], true);

    // No engine for the pair: said, with how to add one.
    const auto german = ScreenTranslator::translate(store, folder, "01.png", "de", {&apertium});
    ASSERT_EQ(german.problems.size(), 2u) << "English and Spanish lines to German";
    EXPECT_NE(german.problems[1].find("Nothing here translates Spanish to German: install its "
                                      "Apertium pair"),
              std::string::npos)
        << german.problems[1];
}

TEST_F(TranslationTest, ALibreTranslateServerAnswersFailsOrTakesTooLongAndEachIsSaid) {
    FakeLibreTranslate server;
    const LibreTranslateEngine libre(server.url(), {}, 1);
    OCRIndex::saveTextLines(store, folder, "01.png",
                            {line("계속하기", 0.1), line("설정", 0.2), line("ログインする", 0.3)});
    const auto result = ScreenTranslator::translate(store, folder, "01.png", "en", {&libre});
    EXPECT_EQ(result.lines[0].translation, "Continue");
    EXPECT_EQ(result.lines[1].translation, "Settings");
    EXPECT_FALSE(result.lines[2].translation);
    ASSERT_EQ(result.problems.size(), 1u);
    EXPECT_EQ(result.problems[0], "The translation server refused: ja is not available");
    EXPECT_EQ(OCRIndex::textLines(store, folder, "01.png")[0].translations->at("en"), "Continue")
        << "what was translated is stored even when another line failed";

    OCRIndex::saveTextLines(store, folder, "01.png", {line("登录", 0.1)});
    const auto slow = ScreenTranslator::translate(store, folder, "01.png", "en", {&libre});
    ASSERT_EQ(slow.problems.size(), 1u);
    EXPECT_NE(slow.problems[0].find("did not answer"), std::string::npos) << slow.problems[0];
    EXPECT_FALSE(OCRIndex::textLines(store, folder, "01.png")[0].translations);
}

// The text pass reads a changed picture again: a line read as before keeps its translations,
// a line that reads differently now loses them.
TEST_F(TranslationTest, ReadingAPictureAgainKeepsTheTranslationsOfUnchangedLinesOnly) {
    std::vector<TextLine> read{line("Iniciar sesión", 0.1), line("Crear cuenta", 0.2)};
    const auto recognizer = [&](const fs::path&) { return std::optional(read); };
    OCRIndex::derive(store, folder, recognizer);
    auto lines = OCRIndex::textLines(store, folder, "01.png");
    lines[0].translations = std::map<std::string, std::string>{{"en", "Log in"}};
    lines[1].translations = std::map<std::string, std::string>{{"en", "Create account"}};
    OCRIndex::saveTextLines(store, folder, "01.png", lines);

    const auto repaint = [&] {
        const fs::path picture = store.flowURL(folder) / "01.png";
        fs::last_write_time(picture, fs::last_write_time(picture) + std::chrono::seconds(5));
        OCRIndex::derive(store, folder, recognizer);
        return OCRIndex::textLines(store, folder, "01.png");
    };
    auto after = repaint();
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[0].translations->at("en"), "Log in");
    EXPECT_EQ(after[1].translations->at("en"), "Create account");

    read[1].text = "Crear una cuenta";
    after = repaint();
    EXPECT_EQ(after[0].translations->at("en"), "Log in");
    EXPECT_FALSE(after[1].translations) << "its text changed";
}

// A Spanish screen, drawn, read by the product's recognizer, then translated by Apertium.
TEST_F(TranslationTest, ASpanishScreenIsReadThenTranslatedOnThisComputer) {
    drawScreen(store.flowURL(folder) / "01.png",
               {{600, "Crear una cuenta nueva"}, {900, "Buscar amigos"}});
    ScreenOCR ocr;
    OCRIndex::derive(store, folder, [&](const fs::path& file) { return ocr.recognize(file); });

    const ApertiumEngine apertium;
    const auto result = ScreenTranslator::translate(store, folder, "01.png", "en", {&apertium});
    EXPECT_TRUE(result.problems.empty());
    std::map<std::string, std::string> translated;
    for (const auto& line : result.lines)
        if (line.translation)
            translated[line.text] = *line.translation;
    ASSERT_TRUE(translated.contains("Crear una cuenta nueva"))
        << (result.lines.empty() ? std::string("nothing read") : result.lines[0].text);
    EXPECT_EQ(translated["Crear una cuenta nueva"], "Create a new account");
    EXPECT_EQ(result.lines.size(), 2u);
}

// The words of a line under a zone: the model's search, the stored text, what the overlay draws
// and the command line's search.
struct WhereWordsShow {
    bool search = false, stored = false, overlay = false, commandLine = false;
};

WhereWordsShow whereShows(FlowLibrary& library, const std::string& folder,
                          const std::string& word) {
    WhereWordsShow found;
    found.search = !library.textSearchIndex().hits(SearchFold::fold(word), folder).empty();
    found.stored =
        readFile(library.store().flowURL(folder) / "ocr.json").find(word) != std::string::npos;
    for (const auto& line : library.textLines(folder, "01.png"))
        found.overlay |= line.text.find(word) != std::string::npos;
    found.commandLine =
        runCli({"search", word}, library.root().string()).out.find("01.png") != std::string::npos;
    return found;
}

// Blurring a line hides its words from every reader of the text, also after a translation of
// the screen and another text pass; reverting brings them back.
TEST_F(TranslationTest, WordsUnderAZoneAreGoneFromSearchStoredTextAndOverlay) {
    drawScreen(store.flowURL(folder) / "01.png",
               {{600, "Cuenta secreta"}, {1500, "Buscar amigos"}});

    FlowLibrary library(FlowStore(store.root()));
    library.open();
    library.setAutomaticTextRecognition(true);
    const auto pass = [&] {
        library.refreshOCRIndex();
        library.waitForTextRecognition();
    };
    pass();
    const auto before = whereShows(library, folder, "secreta");
    ASSERT_TRUE(before.search && before.stored && before.overlay && before.commandLine)
        << "the recognizer reads the line before it is blurred";

    std::optional<NormalizedRect> secret;
    for (const auto& line : library.textLines(folder, "01.png"))
        if (line.text.find("secreta") != std::string::npos)
            secret = line.box;
    ASSERT_TRUE(secret);
    RedactShape zone{"z", RedactShape::Kind::rect, *secret};
    ASSERT_TRUE(library.saveEdits(folder, "01.png", {zone}, defaultStyle(RedactPreset::light), {}));
    const auto baked = whereShows(library, folder, "secreta");
    EXPECT_FALSE(baked.search || baked.stored || baked.overlay || baked.commandLine)
        << "gone the moment the zone is saved, before any pass";

    // A translation of the screen stores what it translated without claiming a new reading.
    const ApertiumEngine apertium;
    ScreenTranslator::translate(library.store(), folder, "01.png", "en", {&apertium});
    pass();
    const auto after = whereShows(library, folder, "secreta");
    EXPECT_FALSE(after.search) << "search";
    EXPECT_FALSE(after.stored) << "ocr.json";
    EXPECT_FALSE(after.overlay) << "overlay";
    EXPECT_FALSE(after.commandLine) << "varnel-cli search";
    EXPECT_TRUE(whereShows(library, folder, "amigos").search) << "the line beside it stays";

    ASSERT_TRUE(library.revertScreen(folder, "01.png"));
    pass();
    EXPECT_TRUE(whereShows(library, folder, "secreta").search) << "reverting shows it again";
}

// A line read from an earlier picture is never shown, nor stored under the new picture's time.
TEST_F(TranslationTest, TextOfAnOlderPictureIsNotShownOrRestamped) {
    OCRIndex::saveTextLines(store, folder, "01.png", {line("Crear una cuenta nueva", 0.2)});
    const fs::path picture = store.flowURL(folder) / "01.png";
    fs::last_write_time(picture, fs::last_write_time(picture) + std::chrono::seconds(5));
    EXPECT_TRUE(OCRIndex::textLines(store, folder, "01.png").empty());
    const auto derived = OCRIndex::derive(
        store, folder, [](const fs::path&) { return std::vector<TextLine>{}; }, {}, nullptr, true);
    EXPECT_FALSE(derived.text.contains("01.png")) << "read-only: stale text is not searchable";
    EXPECT_FALSE(OCRIndex::saveTranslations(store, "nope/nope/nope", "01.png", {}));
    const auto stale = OCRIndex::staleScreens(store, folder);
    EXPECT_EQ(stale, std::vector<std::string>{"01.png"});
    const ApertiumEngine apertium;
    ScreenTranslator::translate(store, folder, "01.png", "en", {&apertium});
    EXPECT_EQ(OCRIndex::staleScreens(store, folder), stale)
        << "a translation does not make old text look freshly read";
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // fonts for drawing the screen
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
