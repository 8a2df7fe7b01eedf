// The text sidecar and its indexes with a stand-in recognizer, and the gallery's search rules.
#include "model/FlowLibrary.h"
#include "support/CliRun.h"
#include "support/TestLibrary.h"
#include "text/LibrarySearch.h"
#include "text/OCRIndex.h"
#include "text/OCRSidecar.h"
#include "text/ScreenOCR.h"
#include "text/SearchCache.h"
#include "text/SearchFold.h"

#include <QCoreApplication>
#include <QSemaphore>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

// Reads "text" from a picture by its file name, and counts what it was asked to read.
struct FakeRecognizer {
    std::map<std::string, int> calls;
    std::map<std::string, std::string> words; // by file name; missing: unreadable

    OCRIndex::Recognizer function() {
        return [this](const fs::path& file) -> std::optional<std::vector<TextLine>> {
            const std::string name = file.filename().string();
            ++calls[name];
            const auto it = words.find(name);
            if (it == words.end())
                return std::nullopt;
            return std::vector<TextLine>{{it->second, {0.1, 0.2, 0.3, 0.05}, std::nullopt},
                                         {"Étape", {0.1, 0.3, 0.3, 0.05}, std::nullopt}};
        };
    }
    int total() const {
        int sum = 0;
        for (const auto& [name, count] : calls)
            sum += count;
        return sum;
    }
};

class TextIndexTest : public ::testing::Test {
protected:
    TextIndexTest() {
        folder = store.createEmptyFlow("Acme", "Sign up", std::nullopt, Date{}).folderName;
        writePicture(dir / "a.png", 8, 8);
        writePicture(dir / "b.png", 8, 8);
        writeClip(dir / "c.mov", 64, 64);
        store.addScreens(folder, {dir / "a.png", dir / "b.png", dir / "c.mov"}, Date{});
        recognizer.words = {{"01.png", "Create Account"}, {"02.png", "Verify E-mail"}};
    }
    fs::path flow() const { return store.flowURL(folder); }
    // A second flow of one still, with the first flow's first picture readable.
    std::string addOtherFlow() {
        const std::string other =
            store.createEmptyFlow("Acme", "Other", std::nullopt, Date{}).folderName;
        writePicture(dir / "e.png", 8, 8);
        store.addScreens(other, {dir / "e.png"}, Date{});
        recognizer.words["01.png"] = "Create Account";
        return other;
    }
    OCRIndex::Derived derive() { return OCRIndex::derive(store, folder, recognizer.function()); }
    void touch(const std::string& file) {
        const auto path = flow() / file;
        fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(5));
    }

    TempDir dir;
    FlowStore store{dir / "library"};
    std::string folder;
    FakeRecognizer recognizer;
};

} // namespace

TEST(ScreenOCRRulesTest, ConfidenceThresholdBoxFlipAndBlob) {
    const auto lines = ScreenOCR::lines({{"Kept", 0.41, {0.1, 0.7, 0.5, 0.2}},
                                         {"Dropped", 0.4, {0, 0, 1, 1}},
                                         {"Also dropped", 0.1, {0, 0, 1, 1}}});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "Kept");
    EXPECT_DOUBLE_EQ(lines[0].box.x, 0.1);
    EXPECT_NEAR(lines[0].box.y, 0.1, 1e-12) << "1 - (0.7 + 0.2)";
    EXPECT_DOUBLE_EQ(lines[0].box.width, 0.5);
    EXPECT_DOUBLE_EQ(lines[0].box.height, 0.2);
    const Json box = lines[0].toJson()["box"]; // [[x, y], [width, height]]
    ASSERT_TRUE(box.is_array() && box.size() == 2 && box[0].size() == 2);
    EXPECT_NEAR(box[0][1].get<double>(), 0.1, 1e-12);
    EXPECT_DOUBLE_EQ(box[1][0].get<double>(), 0.5);

    EXPECT_EQ(ScreenOCR::searchBlob({{"Réglages DU Compte", {}, {}}, {"ÉTÉ", {}, {}}}),
              "réglages du compte été");
    EXPECT_EQ(ScreenOCR::searchBlob({}), "");
}

TEST_F(TextIndexTest, RecognizesStillsOnceAndCountsClips) {
    const auto first = derive();
    EXPECT_EQ(first.media, (MediaCounts{2, 1}));
    EXPECT_EQ(first.text.at("01.png"), "create account étape");
    EXPECT_EQ(first.text.size(), 2u) << "the clip gets no entry";
    EXPECT_EQ(recognizer.calls.count("03.mov"), 0u);

    const auto sidecar = OCRSidecar::read(flow());
    ASSERT_TRUE(sidecar);
    EXPECT_EQ(sidecar->version, 2);
    EXPECT_EQ(sidecar->screens.at("02.png").lines.size(), 2u);
    EXPECT_EQ(sidecar->screens.at("02.png").mtime, *modificationTime(flow() / "02.png"));

    const std::string bytes = readFile(flow() / "ocr.json");
    EXPECT_EQ(derive().text, first.text);
    EXPECT_EQ(recognizer.total(), 2) << "unchanged pictures are not read again";
    EXPECT_EQ(readFile(flow() / "ocr.json"), bytes) << "nor is the sidecar rewritten";
    EXPECT_TRUE(OCRIndex::staleScreens(store, folder).empty());

    touch("02.png");
    EXPECT_EQ(OCRIndex::staleScreens(store, folder), std::vector<std::string>{"02.png"});
    recognizer.words["02.png"] = "Verified";
    EXPECT_EQ(derive().text.at("02.png"), "verified étape") << "an edit is read again";
    EXPECT_EQ(recognizer.calls["02.png"], 2);
}

TEST_F(TextIndexTest, OtherVersionsAndBrokenSidecarsAreRebuilt) {
    writeFile(flow() / "ocr.json",
              R"({"version": 1, "screens": {"01.png": {"text": "old", "mtime": 1}}})");
    EXPECT_EQ(derive().text.at("01.png"), "create account étape");
    EXPECT_EQ(OCRSidecar::read(flow())->version, 2);

    writeFile(flow() / "ocr.json", R"({"screens": {}})");
    derive();
    EXPECT_EQ(OCRSidecar::read(flow())->version, 2) << "no version is another version";

    writeFile(flow() / "ocr.json", "{ not json");
    recognizer.calls.clear();
    EXPECT_EQ(derive().text.size(), 2u);
    EXPECT_EQ(recognizer.total(), 2);

    // An unreadable picture gets no entry and is tried again next time.
    recognizer.words.erase("01.png");
    touch("01.png");
    EXPECT_FALSE(derive().text.contains("01.png"));
    derive();
    EXPECT_EQ(recognizer.calls["01.png"], 3);
}

TEST_F(TextIndexTest, RemovedAndRenumberedScreensFollowTheFlow) {
    derive();
    const std::string secondBlob = derive().text.at("02.png");
    store.deleteScreens(folder, {"01.png"});
    recognizer.calls.clear();
    const auto after = derive();
    // Renumbering renamed 02.png to 01.png, and its entry with it: nothing is read again.
    EXPECT_EQ(recognizer.total(), 0);
    ASSERT_EQ(after.text.size(), 1u);
    EXPECT_EQ(after.text.at("01.png"), secondBlob);
    EXPECT_EQ(after.media, (MediaCounts{1, 1}));
}

TEST_F(TextIndexTest, SavedLinesKeepTheirTranslations) {
    std::vector<TextLine> lines{{"Bonjour", {0.1, 0.1, 0.2, 0.05}, {{{"en", "Hello"}}}}};
    OCRIndex::saveTextLines(store, folder, "02.png", lines);
    EXPECT_EQ(OCRIndex::textLines(store, folder, "02.png"), lines);
    EXPECT_EQ(OCRIndex::textLines(store, folder, "01.png"), std::vector<TextLine>{});
    EXPECT_EQ(derive().text.at("02.png"), "bonjour") << "stamped with the picture's time";
    EXPECT_EQ(recognizer.calls.count("02.png"), 0u);
}

TEST_F(TextIndexTest, RequestsDuringAPassMakeExactlyOneMore) {
    FlowLibrary library{FlowStore(dir / "library")};
    library.open();
    QSemaphore entered;
    QSemaphore release;
    std::atomic<int> passes = 0;
    library.setRecognizerFactory([&] {
        ++passes;
        return OCRIndex::Recognizer([&](const fs::path&) -> std::optional<std::vector<TextLine>> {
            entered.release();
            release.acquire();
            return std::vector<TextLine>{{"Hello", {}, std::nullopt}};
        });
    });
    library.refreshOCRIndex();
    EXPECT_TRUE(library.isIndexingText());
    entered.acquire(); // the pass is reading its first picture
    library.refreshOCRIndex();
    library.refreshOCRIndex();
    release.release(2);
    // The second pass finds everything read already.
    library.waitForTextRecognition();
    EXPECT_EQ(passes, 2);
    EXPECT_FALSE(library.isIndexingText());
    EXPECT_EQ(library.ocrIndex().at(folder).at("01.png"), "hello");
    EXPECT_EQ(library.mediaIndex().at(folder), (MediaCounts{2, 1}));
}

// A screen blurred while a pass reads it: what the pass read of the old picture is never
// searchable, even before another pass reads the new one.
TEST_F(TextIndexTest, AScreenBlurredWhileAPassReadsItIsNotSearchable) {
    FlowLibrary library{FlowStore(dir / "library")};
    library.open();
    QSemaphore entered;
    QSemaphore release;
    std::atomic<bool> first = true;
    library.setRecognizerFactory([&] {
        return OCRIndex::Recognizer(
            [&](const fs::path& file) -> std::optional<std::vector<TextLine>> {
                if (first.exchange(false)) {
                    entered.release();
                    release.acquire();
                }
                const bool secret = file.filename() == "01.png";
                return std::vector<TextLine>{
                    {secret ? "Secret Balance" : "Other", {0.1, 0.2, 0.3, 0.05}, std::nullopt}};
            });
    });
    library.refreshOCRIndex();
    entered.acquire(); // the pass reads the first picture as it is now
    const std::vector<RedactShape> zone{{"z", RedactShape::Kind::rect, {0, 0.15, 1, 0.2}}};
    ASSERT_TRUE(library.saveEdits(folder, "01.png", zone, defaultStyle(RedactPreset::light), {}));
    release.release();
    library.waitForTextRecognition();
    EXPECT_TRUE(library.textSearchIndex().hits(SearchFold::fold("secret"), folder).empty());
    EXPECT_FALSE(library.ocrIndex().at(folder).contains("01.png"));
    EXPECT_EQ(library.ocrIndex().at(folder).at("02.png"), "other") << "the rest is searchable";
    EXPECT_EQ(runCli({"search", "secret"}, library.root().string()).out.find("01.png"),
              std::string::npos)
        << "nor does the command line's search cache hold it";
}

// A pass that finds a flow as it was touches nothing: no rebuilt search, no redrawn gallery.
// Only the flow whose text changed is announced.
TEST_F(TextIndexTest, APassOverUnchangedFlowsAnnouncesNothing) {
    addOtherFlow();
    FlowLibrary library{FlowStore(dir / "library")};
    library.open();
    library.setRecognizerFactory([&] { return recognizer.function(); });
    library.refreshOCRIndex();
    library.waitForTextRecognition();
    int changes = 0;
    QObject::connect(&library, &FlowLibrary::ocrIndexChanged, [&] { ++changes; });

    library.refreshOCRIndex();
    library.waitForTextRecognition();
    EXPECT_EQ(changes, 0) << "nothing changed, nothing announced";

    touch("02.png");
    recognizer.words["02.png"] = "Verify phone";
    library.refreshOCRIndex();
    library.waitForTextRecognition();
    EXPECT_EQ(changes, 1) << "one flow changed: one announcement";
    EXPECT_NE(library.ocrIndex().at(folder).at("02.png").find("verify phone"), std::string::npos);
}

// After opening, a change reads again the flows it touched, and only those; a reload that
// changed nothing starts no pass at all. The search sees each flow's new text at once.
TEST_F(TextIndexTest, AChangeReadsAgainOnlyTheFlowsItTouched) {
    const std::string other = addOtherFlow();
    FlowLibrary library{FlowStore(dir / "library")};
    library.setRecognizerFactory([&] { return recognizer.function(); });
    library.setAutomaticTextRecognition(true);
    library.open();
    library.waitForTextRecognition();
    const int read = recognizer.total();
    EXPECT_EQ(read, 3) << "opening reads every flow";

    library.reload();
    EXPECT_FALSE(library.isIndexingText()) << "nothing changed: no pass";

    // Both flows' first pictures change behind the library's back; then the user renames one.
    touch("01.png");
    const auto otherFirst = store.flowURL(other) / "01.png";
    fs::last_write_time(otherFirst, fs::last_write_time(otherFirst) + std::chrono::seconds(5));
    recognizer.words["01.png"] = "Welcome back";
    std::vector<std::string> announced;
    QObject::connect(&library, &FlowLibrary::ocrIndexChanged,
                     [&](const QString& changed) { announced.push_back(changed.toStdString()); });
    FlowMeta meta = store.meta(folder);
    meta.name = "Sign in";
    const std::string renamed = library.saveMeta(folder, meta);
    library.waitForTextRecognition();
    EXPECT_EQ(recognizer.total(), read + 1) << "only the renamed flow was read again";
    EXPECT_EQ(announced, std::vector<std::string>{renamed});
    EXPECT_FALSE(library.ocrIndex().contains(folder)) << "the old folder left the index";
    LibrarySearch search(library.textSearchIndex(), library.mediaIndex());
    search.setQuery("welcome");
    EXPECT_EQ(search.screenHits(library.summaries().front()).size() +
                  search.screenHits(library.summaries().back()).size(),
              1u);

    // Deleting a flow takes its text out of the search without a pass.
    library.deleteFlow(renamed);
    EXPECT_FALSE(library.isIndexingText());
    EXPECT_TRUE(library.textSearchIndex().hits("welcome").empty());
    EXPECT_FALSE(library.ocrIndex().contains(renamed));

    // Asking for a full pass reads the other flow's changed picture too.
    library.refreshOCRIndex();
    library.waitForTextRecognition();
    EXPECT_EQ(recognizer.total(), read + 2);
}

// The search cache answers for a flow only while its files are as the cache saw them; stale,
// deleted or foreign, it is rebuilt from the sidecars and the search stays right.
TEST_F(TextIndexTest, TheSearchCacheAnswersOnlyForFilesAsItSawThem) {
    const fs::path root = dir / "library";
    const auto opened = [&] {
        auto library = std::make_unique<FlowLibrary>(FlowStore(root));
        library->setRecognizerFactory([&] { return recognizer.function(); });
        library->setAutomaticTextRecognition(true);
        library->open();
        library->waitForTextRecognition();
        return library;
    };
    const auto found = [&](FlowLibrary& library, const std::string& query) {
        return !library.textSearchIndex().hits(query).empty();
    };
    const auto cliFinds = [&](const std::string& query) {
        const auto result = runCli({"search", query}, root.string());
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.find("01.png") != std::string::npos;
    };
    const auto age = [&](const fs::path& file) {
        fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
    };
    opened();
    EXPECT_EQ(recognizer.total(), 2);
    // Files written a moment ago may change again within the clock's step: the cache trusts
    // only older ones.
    age(flow() / "meta.json");
    age(flow() / "ocr.json");
    opened();
    EXPECT_EQ(recognizer.total(), 2) << "the sidecar was up to date";
    EXPECT_TRUE(fs::exists(root / SearchCache::kFileName));

    // The sidecar is changed behind the cache's back, its time and size kept: the cache
    // answers (nothing else was read), in the window and on the command line.
    const std::string sidecar = readFile(flow() / "ocr.json");
    std::string forged = sidecar;
    for (std::size_t at = 0; (at = forged.find("create account", at)) != std::string::npos;)
        forged.replace(at, 14, "create accoumt");
    const auto time = fs::last_write_time(flow() / "ocr.json");
    writeFile(flow() / "ocr.json", forged);
    fs::last_write_time(flow() / "ocr.json", time);
    EXPECT_TRUE(found(*opened(), "create account"));
    EXPECT_TRUE(cliFinds("create account"));
    EXPECT_TRUE(cliFinds(" Account   ETAPE")) << "the cache holds the text as search folds it";
    EXPECT_FALSE(cliFinds("accoumt"));

    // Its time moves: the cache's rows for it are stale, the sidecar is read.
    age(flow() / "ocr.json");
    auto library = opened();
    EXPECT_TRUE(found(*library, "create accoumt"));
    EXPECT_FALSE(found(*library, "create account"));
    EXPECT_TRUE(cliFinds("accoumt"));
    EXPECT_EQ(recognizer.total(), 2) << "stale cache rows cost a read, not a recognition";

    // Deleted, or not a cache at all: everything still works, and it is made again.
    library.reset();
    fs::remove(root / SearchCache::kFileName);
    EXPECT_TRUE(cliFinds("accoumt"));
    EXPECT_TRUE(found(*opened(), "accoumt"));
    writeFile(root / SearchCache::kFileName, std::string(4096, 'x'));
    fs::remove(root / (std::string(SearchCache::kFileName) + "-wal"));
    fs::remove(root / (std::string(SearchCache::kFileName) + "-shm"));
    EXPECT_TRUE(found(*opened(), "accoumt"));
    EXPECT_TRUE(cliFinds("accoumt"));

    // A picture edited since it was read is read again even though the cache knew the flow.
    age(flow() / "ocr.json");
    opened();
    touch("01.png");
    recognizer.words["01.png"] = "Welcome back";
    library = opened();
    EXPECT_EQ(recognizer.total(), 3);
    EXPECT_TRUE(found(*library, "welcome back"));
}

TEST_F(TextIndexTest, AReadOnlyLibraryIsSearchedAndBrowsedWithoutAChange) {
    derive(); // 01 and 02 are read; then a third still arrives unread
    writePicture(dir / "d.png", 8, 8);
    store.addScreens(folder, {dir / "d.png"}, Date{});
    recognizer.words["04.png"] = "Later";
    writeFile(store.root() / ".inprogress/S/01.png", pngBytes(10, 10, "staged"));
    const auto before = treeSnapshot(store.root());

    FlowLibrary library{FlowStore(store.root())};
    library.setReadOnly("another program (such as varnel-cli) is changing this library.");
    library.setRecognizerFactory([&] { return recognizer.function(); });
    library.setAutomaticTextRecognition(true);
    library.open();
    library.waitForTextRecognition();
    EXPECT_TRUE(library.recoveryReport().empty()) << "no repairs behind another program's back";
    EXPECT_EQ(library.ocrIndex().at(folder).at("01.png"), "create account étape");
    EXPECT_FALSE(library.ocrIndex().at(folder).contains("04.png")) << "read later, not now";
    EXPECT_EQ(recognizer.calls.count("04.png"), 0u);

    try {
        library.deleteFlow(folder);
        FAIL();
    } catch (const LibraryError& e) {
        EXPECT_EQ(std::string(e.what()), "The library is open read-only: another program (such "
                                         "as varnel-cli) is changing this library.");
    }
    EXPECT_THROW(library.deleteScreens(folder, {"01.png"}), LibraryError);
    EXPECT_THROW(library.renameFlow(folder, "Other"), LibraryError);
    bool saved = true;
    library.saveVideoEdits(folder, "03.mov", {{"", RedactShape::Kind::rect, {0, 0, 1, 1}}},
                           RedactStyle{}, {}, [&](bool ok) { saved = ok; });
    EXPECT_FALSE(saved);
    EXPECT_EQ(treeSnapshot(store.root()), before);
}

TEST(LibrarySearchTest, FlowsByNameCategoryOrScreenText) {
    const std::map<std::string, FlowTextIndex> text{
        {"a", {{"01.png", "welcome back"}, {"03.png", "reset password"}}},
        {"b", {{"01.png", "password"}}}};
    const std::map<std::string, MediaCounts> media{{"a", {2, 1}}, {"b", {1, 0}}};
    FlowSummary a{"1", "Acme", "Log In", "a", "Onboarding", {}, 3};
    FlowSummary b{"2", "Acme", "Settings", "b", std::nullopt, {}, 1};
    FlowSummary fresh{"3", "Acme", "New", "c", std::nullopt, {}, 1}; // not indexed yet

    const TextSearchIndex index(text);
    LibrarySearch search(index, media);
    search.setQuery("   ");
    EXPECT_TRUE(search.matches(a) && search.matches(b) && search.matches(fresh));
    EXPECT_TRUE(search.screenHits(a).empty());

    search.setQuery(" LOG ");
    EXPECT_EQ(search.query(), "log");
    EXPECT_TRUE(search.matches(a)) << "by name";
    EXPECT_FALSE(search.matches(b));
    search.setQuery("boarding");
    EXPECT_TRUE(search.matches(a)) << "by category";
    search.setQuery("acme");
    EXPECT_FALSE(search.matches(a)) << "the application is not searched";

    search.setQuery("Password");
    EXPECT_TRUE(search.matches(a));
    EXPECT_EQ(search.screenHits(a), std::set<std::string>{"03.png"});
    EXPECT_EQ(search.screenHits(fresh), std::set<std::string>{});

    search.setMedia(MediaFilter::videos);
    EXPECT_FALSE(search.matches(b)) << "no clips at all";
    EXPECT_FALSE(search.matches(a)) << "its only hit is a still";
    search.setQuery("");
    EXPECT_TRUE(search.matches(a));
    EXPECT_TRUE(search.matches(fresh)) << "not counted yet: passes the gate";
    search.setMedia(MediaFilter::images);
    EXPECT_TRUE(search.matches(b));
}

// What users type meets what was read: case, accents, runs of spaces, and Korean typed without
// the spaces the recognizer puts between syllables.
TEST(LibrarySearchTest, QueriesMatchAsTypedAcrossAccentsSpacesAndHangul) {
    const std::map<std::string, FlowTextIndex> text{
        {"fr", {{"01.png", "ma bibliothèque"}, {"02.png", "dés demain"}}},
        {"ko", {{"01.png", "계 속 하기"}, {"02.png", "설정 열기"}}},
        {"en", {{"01.png", "sign   in\tnow"}}}};
    const std::map<std::string, MediaCounts> media;
    FlowSummary fr{"1", "Acme", "Réglages", "fr", std::nullopt, {}, 2};
    FlowSummary ko{"2", "Acme", "Home", "ko", std::nullopt, {}, 2};
    FlowSummary en{"3", "Acme", "Login", "en", std::nullopt, {}, 1};
    const TextSearchIndex index(text);
    LibrarySearch search(index, media);
    auto hits = [&](std::string_view query, const FlowSummary& flow) {
        search.setQuery(query);
        return search.screenHits(flow);
    };
    using Files = std::set<std::string>;
    EXPECT_EQ(hits("bibliotheque", fr), Files{"01.png"}) << "no accent typed";
    EXPECT_EQ(hits("Bibliothèque", fr), Files{"01.png"}) << "the accent typed";
    EXPECT_EQ(hits("BIBLIOTHÈQUE", fr), Files{"01.png"});
    EXPECT_EQ(hits("dès", fr), Files{"02.png"}) << "an accent misread";
    search.setQuery("reglages");
    EXPECT_TRUE(search.matches(fr)) << "names too";

    EXPECT_EQ(hits("계속하기", ko), Files{"01.png"}) << "typed without the recognizer's spaces";
    EXPECT_EQ(hits("계속 하기", ko), Files{"01.png"});
    EXPECT_EQ(hits("설정 열기", ko), Files{"02.png"});
    EXPECT_EQ(hits("설정열기", ko), Files{"02.png"});

    EXPECT_EQ(hits("sign in now", en), Files{"01.png"}) << "runs of white space are one";
    EXPECT_EQ(hits("\u00a0 sign  in \u3000", en), Files{"01.png"}) << "Unicode spaces trimmed";
    EXPECT_EQ(search.query(), "sign in");
    EXPECT_TRUE(hits("signin", en).empty()) << "Latin words stay apart";
}

TEST(TextSearchIndexTest, FindsEveryScreenOnceAndNeverAcrossTwo) {
    // Long enough for the sixteen-at-a-time scan, with matches at its block edges and at the end.
    const std::string filler(37, 'x');
    const std::map<std::string, FlowTextIndex> text{
        {"a", {{"01.png", filler + "needle" + filler}, {"02.png", "nee"}, {"03.png", "dle"}}},
        {"b", {{"01.png", "needle needle"}, {"02.png", filler + "needle"}}},
        {"c", {{"01.png", "ab"}, {"02.png", ""}}}};
    const TextSearchIndex index(text);
    const auto files = [&](std::string_view query, const std::string& folder) {
        const auto found = index.filesIn(index.hits(query), folder);
        return std::vector<std::string>(found.begin(), found.end());
    };
    EXPECT_EQ(files("needle", "a"), std::vector<std::string>{"01.png"})
        << "not from the end of one screen into the next";
    EXPECT_EQ(files("needle", "b"), (std::vector<std::string>{"01.png", "02.png"}));
    EXPECT_EQ(index.hits("needle").size(), 3u) << "a screen with two matches counts once";
    EXPECT_EQ(files("dle", "a"), (std::vector<std::string>{"01.png", "03.png"}));
    EXPECT_EQ(files("b", "c"), std::vector<std::string>{"01.png"}) << "one byte, at the end";
    EXPECT_EQ(files(filler + "needle" + filler, "a"), std::vector<std::string>{"01.png"});
    EXPECT_TRUE(index.hits(filler + filler + filler).empty()) << "longer than any screen";
    EXPECT_TRUE(index.hits("").empty());
    EXPECT_TRUE(TextSearchIndex().hits("x").empty());
    EXPECT_TRUE(index.filesIn(index.hits("needle"), "missing").empty());
}

// A flow read again replaces its own text; the others keep theirs, and a removed flow's place
// is taken by the next one added without mixing their screens.
TEST(TextSearchIndexTest, AFlowsTextIsReplacedAloneAndItsPlaceReused) {
    TextSearchIndex index({{"a", {{"01.png", "sign in"}, {"02.png", "password"}}},
                           {"b", {{"01.png", "sign up"}}},
                           {"c", {{"01.png", "sign out"}}}});
    const auto files = [&](std::string_view query, const std::string& folder) {
        const auto found = index.filesIn(index.hits(query), folder);
        return std::vector<std::string>(found.begin(), found.end());
    };
    index.setFlow("b", {{"01.png", "checkout"}, {"02.png", "sign up again"}});
    EXPECT_EQ(files("sign", "a"), std::vector<std::string>{"01.png"});
    EXPECT_EQ(files("sign", "b"), std::vector<std::string>{"02.png"});
    EXPECT_EQ(files("sign", "c"), std::vector<std::string>{"01.png"});
    EXPECT_EQ(index.hits("sign").size(), 3u);
    EXPECT_EQ(index.hits("checkout", "b").size(), 1u);
    EXPECT_TRUE(index.hits("checkout", "a").empty());

    index.removeFlow("a");
    EXPECT_TRUE(files("password", "a").empty());
    EXPECT_TRUE(index.hits("password").empty());
    index.setFlow("d", {{"09.png", "Mot de passe oublié"}});
    EXPECT_EQ(files("oublie", "d"), std::vector<std::string>{"09.png"}) << "folded like the rest";
    EXPECT_TRUE(files("oublie", "a").empty()) << "the reused place is the new flow's alone";
    EXPECT_EQ(files("sign", "c"), std::vector<std::string>{"01.png"});
    // The rarest-byte choice follows the text that is there now.
    index.removeFlow("b");
    index.removeFlow("c");
    index.removeFlow("d");
    EXPECT_TRUE(index.hits("sign").empty());
    index.setFlow("e", {{"01.png", "zzzz y"}});
    EXPECT_EQ(index.hits("zy").size(), 0u);
    EXPECT_EQ(index.hits("z y").size(), 1u);
}

TEST(GalleryScreenFilterTest, HitsFallBackAndKeepTheirPositions) {
    std::vector<ScreenRef> screens(4);
    screens[0].filename = "01.png";
    screens[1].filename = "02.png";
    screens[2].filename = "03.png";
    screens[3].filename = "04.MOV";
    const auto positions = [](const std::vector<VisibleScreen>& shown) {
        std::vector<std::size_t> out;
        for (const auto& s : shown)
            out.push_back(s.position);
        return out;
    };
    using GalleryScreenFilter::visible;
    const std::set<ScreenID> third{{"f", "03.png"}};
    EXPECT_EQ(positions(visible(screens, "f", {}, MediaFilter::all)),
              (std::vector<std::size_t>{0, 1, 2, 3}));
    EXPECT_EQ(positions(visible(screens, "f", third, MediaFilter::all)),
              (std::vector<std::size_t>{2}))
        << "only the hit, still numbered 3";
    EXPECT_EQ(positions(visible(screens, "g", third, MediaFilter::all)),
              (std::vector<std::size_t>{0, 1, 2, 3}))
        << "hits of another flow don't narrow this one";
    EXPECT_EQ(positions(visible(screens, "f", third, MediaFilter::videos)),
              (std::vector<std::size_t>{3}))
        << "no hit of the kind: all of that kind";
    EXPECT_EQ(positions(visible(screens, "f", {}, MediaFilter::images)),
              (std::vector<std::size_t>{0, 1, 2}));

    const auto shown = visible(screens, "f", {}, MediaFilter::images);
    EXPECT_EQ(GalleryScreenFilter::insertionIndex(0, shown, {}), 0u);
    EXPECT_EQ(GalleryScreenFilter::insertionIndex(3, shown, {}), 3u);
    EXPECT_EQ(GalleryScreenFilter::insertionIndex(3, shown, {"01.png"}), 2u)
        << "the dragged screens leave the list first";
    EXPECT_EQ(
        GalleryScreenFilter::insertionIndex(2, visible(screens, "f", third, MediaFilter::all), {}),
        0u);
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv); // the library posts a pass's results to this thread
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
