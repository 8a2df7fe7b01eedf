#include "archive/AppArchive.h"
#include "archive/Zip.h"
#include "library/LibraryCheck.h"
#include "model/FlowLibrary.h"
#include "support/TestLibrary.h"
#include "text/HiddenText.h"
#include "text/OCRSidecar.h"

#include <zip.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>

using namespace varnel;
using namespace varnel::test;

namespace {

class AppArchiveTest : public ::testing::Test {
protected:
    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    fs::path zipFile = dir / "Acme.varnel.zip";

    std::map<std::string, std::string> flowFiles(const fs::path& root, const std::string& folder) {
        return treeSnapshot(root / folder);
    }
};

// Builds a zip whose entries are given as name -> content; `links` become symbolic links.
void writeZip(const fs::path& file, const std::vector<std::pair<std::string, std::string>>& entries,
              const std::set<std::string>& links = {}) {
    int error = 0;
    zip_t* archive = zip_open(file.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    ASSERT_TRUE(archive);
    std::deque<std::string> keep;
    for (const auto& [name, content] : entries) {
        const std::string& data = keep.emplace_back(content);
        zip_source_t* source = zip_source_buffer(archive, data.data(), data.size(), 0);
        const zip_int64_t index = zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8);
        ASSERT_GE(index, 0) << name;
        if (links.contains(name))
            zip_file_set_external_attributes(archive, static_cast<zip_uint64_t>(index), 0,
                                             ZIP_OPSYS_UNIX, (S_IFLNK | 0777u) << 16);
    }
    ASSERT_EQ(zip_close(archive), 0);
}

std::string manifestFor(const std::string& application, const std::vector<FlowSummary>& flows) {
    return encodeLibraryJson(AppArchive::Manifest{1, application, flows}.toJson());
}

} // namespace

TEST_F(AppArchiveTest, RoundTripKeepsEditsCommentsFigmaFieldsAndRecognizedText) {
    FlowMeta meta = sample.store.meta(SampleLibrary::signUp);
    meta.figmaFileURL = "https://www.figma.com/design/KEY/Board";
    meta.figmaPendingDeletes = std::vector<std::string>{"9"};
    sample.store.writeMeta(SampleLibrary::signUp, meta);

    FlowLibrary source{FlowStore(sample.root)};
    double lastProgress = -1;
    EXPECT_EQ(source.exportApplication("Acme", zipFile, AppArchive::ExportContent::everything,
                                       [&](double p) { lastProgress = p; }),
              2u);
    EXPECT_EQ(lastProgress, 1.0);

    FlowLibrary target{FlowStore(dir / "Other")};
    auto inspection = target.inspectArchive(zipFile);
    EXPECT_EQ(inspection.conflicts, 0u);
    EXPECT_EQ(inspection.extracted.manifest.application, "Acme");
    EXPECT_EQ(inspection.extracted.manifest.flows.size(), 2u);
    const ImportResult result =
        target.importArchive(inspection.extracted, ImportConflictResolution::replace);
    EXPECT_TRUE(result.skipped.empty());
    EXPECT_FALSE(fs::exists(inspection.extracted.tempDir));

    for (const char* folder : {SampleLibrary::signUp, SampleLibrary::logIn})
        EXPECT_EQ(flowFiles(dir / "Other", folder), flowFiles(sample.root, folder)) << folder;
    EXPECT_EQ(target.meta(SampleLibrary::signUp).toJson(),
              sample.store.meta(SampleLibrary::signUp).toJson());
    EXPECT_EQ(target.applications(), std::vector<std::string>{"Acme"});
    EXPECT_TRUE(checkLibrary(target.store()).empty());
}

TEST_F(AppArchiveTest, NothingToExportWritesNothingAndSansApplicationGathersTheRest) {
    FlowLibrary library{FlowStore(sample.root)};
    EXPECT_EQ(library.exportApplication("Nobody", zipFile), 0u);
    EXPECT_FALSE(fs::exists(zipFile));

    FlowMeta meta = sample.store.meta(SampleLibrary::transfer);
    meta.application.reset();
    const std::string moved = library.saveMeta(SampleLibrary::transfer, meta);
    EXPECT_EQ(library.exportApplication("Sans application", zipFile), 1u);
    auto inspection = library.inspectArchive(zipFile);
    EXPECT_EQ(inspection.extracted.manifest.flows.at(0).folderName, moved);
    EXPECT_EQ(inspection.conflicts, 1u);
    inspection.extracted.cleanup();
}

TEST_F(AppArchiveTest, ReplaceTakesTheImportedVersionAndLeavesNoOldFolder) {
    FlowLibrary library{FlowStore(sample.root)};
    library.exportApplication("Acme", zipFile);
    const std::string renamed = library.renameFlow(SampleLibrary::signUp, "Register");
    library.deleteScreens(SampleLibrary::logIn, {"02.png"});

    auto inspection = library.inspectArchive(zipFile);
    EXPECT_EQ(inspection.conflicts, 2u);
    library.importArchive(inspection.extracted, ImportConflictResolution::replace);
    EXPECT_FALSE(fs::exists(sample.root / renamed));
    EXPECT_EQ(library.meta(SampleLibrary::signUp).name, "Sign up");
    EXPECT_EQ(library.meta(SampleLibrary::logIn).screens.size(), 2u);
    EXPECT_EQ(library.summaries().size(), 3u);
    EXPECT_TRUE(checkLibrary(library.store()).empty());
}

TEST_F(AppArchiveTest, DuplicateMakesANewApplicationEachTime) {
    FlowLibrary library{FlowStore(sample.root)};
    library.exportApplication("Acme", zipFile);
    for (const char* expected : {"Acme copy", "Acme copy 2"}) {
        auto inspection = library.inspectArchive(zipFile);
        const auto result =
            library.importArchive(inspection.extracted, ImportConflictResolution::duplicate);
        EXPECT_EQ(result.application, expected);
        EXPECT_EQ(result.folders.size(), 2u);
    }
    EXPECT_EQ(library.applications(),
              (std::vector<std::string>{"Acme", "Acme copy", "Acme copy 2", "Bank"}));
    std::set<std::string> ids;
    for (const auto& s : library.summaries())
        ids.insert(s.id);
    EXPECT_EQ(ids.size(), 7u) << "every duplicate has an id of its own";
    EXPECT_TRUE(checkLibrary(library.store()).empty());
}

TEST(UniqueApplicationNameTest, CountsFromTwoAndComparesExactly) {
    EXPECT_EQ(AppArchive::uniqueApplicationName("Demo", {}), "Demo");
    EXPECT_EQ(AppArchive::uniqueApplicationName("Demo", {"Demo"}), "Demo copy");
    EXPECT_EQ(AppArchive::uniqueApplicationName("Demo", {"Demo", "Demo copy"}), "Demo copy 2");
    EXPECT_EQ(AppArchive::uniqueApplicationName("Demo", {"demo"}), "Demo");
}

TEST_F(AppArchiveTest, ArchivesThatAreNoExportsSayWhy) {
    writeZip(zipFile, {{"photos/cat.png", "meow"}});
    try {
        AppArchive::extract(zipFile, dir.path());
        FAIL();
    } catch (const ArchiveError& e) {
        EXPECT_EQ(e.errorCase(), ArchiveError::Case::notAnExport);
        EXPECT_STREQ(e.what(), "This zip isn’t a Quillane application export.");
    }
    writeFile(zipFile, "this is not a zip at all");
    try {
        AppArchive::extract(zipFile, dir.path());
        FAIL();
    } catch (const ArchiveError& e) {
        EXPECT_STREQ(e.what(), "The file couldn’t be unzipped.");
    }
    writeZip(zipFile, {{"QuillaneExport/quillane-export.json", "{\"version\": 1}"}});
    EXPECT_THROW(AppArchive::extract(zipFile, dir.path()), ArchiveError);
    for (const auto& name : FileOps::list(dir.path()))
        EXPECT_FALSE(name.starts_with("quillane-import-")) << "extraction folders are removed";
}

TEST_F(AppArchiveTest, HostileArchivesAreRefusedWithNothingWrittenOutside) {
    const std::string manifest = manifestFor("Acme", {});
    const std::string zeros(64 << 20, '\0');
    const std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>>
        hostile{
            {"traversal", {{"quillane-export.json", manifest}, {"../evil.txt", "x"}}},
            {"deep traversal", {{"quillane-export.json", manifest}, {"a/../../evil.txt", "x"}}},
            {"absolute", {{"quillane-export.json", manifest}, {"/tmp/evil.txt", "x"}}},
            {"backslash", {{"quillane-export.json", manifest}, {"..\\evil.txt", "x"}}},
            {"bomb", {{"quillane-export.json", manifest}, {"zeros.png", zeros}}},
        };
    const fs::path work = dir / "work";
    fs::create_directories(work);
    for (const auto& [what, entries] : hostile) {
        writeZip(zipFile, entries);
        try {
            AppArchive::extract(zipFile, work);
            ADD_FAILURE() << what << " was extracted";
        } catch (const ArchiveError& e) {
            EXPECT_EQ(e.errorCase(), ArchiveError::Case::unzipFailed) << what;
        }
        EXPECT_TRUE(fs::is_empty(work)) << what;
        EXPECT_FALSE(fs::exists(dir / "evil.txt")) << what;
    }

    writeZip(zipFile, {{"quillane-export.json", manifest}, {"link", dir.path().string()}},
             {"link"});
    EXPECT_THROW(AppArchive::extract(zipFile, work), ArchiveError);
    EXPECT_TRUE(fs::is_empty(work));
}

TEST_F(AppArchiveTest, MacArchivesAndTopLevelManifestsImport) {
    FlowLibrary library{FlowStore(sample.root)};
    const FlowMeta meta = sample.store.meta(SampleLibrary::transfer);
    const std::string png = readFile(sample.root / SampleLibrary::transfer / "01.png");
    const std::string metaBytes = readFile(sample.root / SampleLibrary::transfer / "meta.json");
    writeZip(zipFile, {
                          {"quillane-export.json",
                           manifestFor("Bank", {meta.summary(SampleLibrary::transfer)})},
                          {"bank/uncategorized/transfer/meta.json", metaBytes},
                          {"bank/uncategorized/transfer/01.png", png},
                          {"bank/uncategorized/transfer/._01.png", "resource fork"},
                          {"bank/.DS_Store", "finder"},
                          {"__MACOSX/bank/uncategorized/transfer/._meta.json", "fork"},
                      });
    FlowLibrary other{FlowStore(dir / "Other")};
    auto inspection = other.inspectArchive(zipFile);
    const auto result =
        other.importArchive(inspection.extracted, ImportConflictResolution::replace);
    ASSERT_EQ(result.folders, std::vector<std::string>{SampleLibrary::transfer});
    EXPECT_EQ(FileOps::list(dir / "Other" / SampleLibrary::transfer),
              (std::vector<std::string>{"01.png", "meta.json"}));
}

TEST_F(AppArchiveTest, FlowsNamingUnsafeFilesAreSkippedAndTheRestImports) {
    FlowMeta bad = sample.store.meta(SampleLibrary::logIn);
    bad.screens[0].filename = "../../../escape.png";
    const FlowMeta good = sample.store.meta(SampleLibrary::transfer);
    // Saving or reverting edits of 01.png would remove the file its patch entry names.
    nlohmann::json claims = good.toJson();
    claims["id"] = "0F0E0D0C-0000-4000-8000-000000000001";
    claims["screens"][0]["patches"] =
        nlohmann::json::array({RedactPatch{"", "02.png", {0, 0, 0.5, 0.5}}.toJson()});
    writeZip(
        zipFile,
        {{"QuillaneExport/quillane-export.json",
          manifestFor("Mixed",
                      {bad.summary("acme/onboarding/log-in"),
                       good.summary("bank/uncategorized/transfer"), good.summary("../../outside"),
                       good.summary("bank/uncategorized/claims")})},
         {"QuillaneExport/acme/onboarding/log-in/meta.json", encodeLibraryJson(bad.toJson())},
         {"QuillaneExport/acme/onboarding/log-in/02.png", "x"},
         {"QuillaneExport/bank/uncategorized/transfer/meta.json", encodeLibraryJson(good.toJson())},
         {"QuillaneExport/bank/uncategorized/transfer/01.png", "transfer"},
         {"QuillaneExport/bank/uncategorized/claims/meta.json", encodeLibraryJson(claims)},
         {"QuillaneExport/bank/uncategorized/claims/01.png", "claims"},
         {"QuillaneExport/bank/uncategorized/claims/02.png", "another screen"}});
    FlowLibrary other{FlowStore(dir / "Other")};
    auto inspection = other.inspectArchive(zipFile);
    const auto result =
        other.importArchive(inspection.extracted, ImportConflictResolution::replace);
    EXPECT_EQ(result.folders, std::vector<std::string>{SampleLibrary::transfer});
    ASSERT_EQ(result.skipped.size(), 3u);
    EXPECT_NE(result.skipped[2].find("“02.png” as its patch"), std::string::npos)
        << result.skipped[2];
    EXPECT_FALSE(fs::exists(dir / "escape.png"));
    EXPECT_TRUE(checkLibrary(other.store()).empty());
}

TEST_F(AppArchiveTest, DeleteApplicationRemovesEveryFlowOfIt) {
    FlowLibrary library{FlowStore(sample.root)};
    EXPECT_EQ(library.deleteApplication("Acme"), 2u);
    EXPECT_EQ(library.applications(), std::vector<std::string>{"Bank"});
    EXPECT_FALSE(fs::exists(sample.root / "acme"));
}

TEST_F(AppArchiveTest, AnImportInterruptedByACrashIsClearedAtOpen) {
    FlowLibrary library{FlowStore(sample.root)};
    library.exportApplication("Acme", zipFile);
    const auto inspection = library.inspectArchive(zipFile);
    ASSERT_TRUE(fs::exists(inspection.extracted.tempDir));
    EXPECT_TRUE(inspection.extracted.tempDir.filename().string().starts_with(".quillane-import-"));
    const auto problems = checkLibrary(library.store());
    ASSERT_EQ(problems.size(), 1u) << "an extraction is no flow, but is reported";
    EXPECT_NE(problems[0].find(inspection.extracted.tempDir.string()), std::string::npos);

    FlowLibrary reopened{FlowStore(sample.root)};
    reopened.open();
    EXPECT_FALSE(fs::exists(inspection.extracted.tempDir));
}

TEST(HiddenTextTest, ALineLeavesWhenItsBoxOverlapsOrTouchesAnArea) {
    const NormalizedRect zone{0.2, 0.2, 0.3, 0.3};
    EXPECT_TRUE(HiddenText::touches({0.3, 0.3, 0.1, 0.1}, zone)) << "inside";
    EXPECT_TRUE(HiddenText::touches({0.0, 0.25, 1.0, 0.05}, zone)) << "across";
    EXPECT_TRUE(HiddenText::touches({0.5, 0.3, 0.2, 0.1}, zone)) << "on the right edge";
    EXPECT_TRUE(HiddenText::touches({0.0, 0.0, 0.2, 0.2}, zone)) << "at the corner";
    EXPECT_TRUE(HiddenText::touches({0.6, 0.6, -0.1, -0.1}, zone)) << "a box given backwards";
    EXPECT_FALSE(HiddenText::touches({0.5001, 0.3, 0.2, 0.1}, zone)) << "just beside";
    EXPECT_FALSE(HiddenText::touches({0.3, 0.0, 0.1, 0.19}, zone)) << "just above";
    EXPECT_TRUE(HiddenText::touches({0.8, 0.3, 0.1, 0.1}, {0.7, 0.3, 0.1, 0.1}))
        << "an edge at 0.7 + 0.1 is the edge at 0.8";
    EXPECT_TRUE(HiddenText::touches({std::nan(""), 0.9, 0.1, 0.05}, zone))
        << "a box that can't be placed can't be shown to be clear";

    ScreenRef screen;
    EXPECT_TRUE(HiddenText::coveredAreas(screen).empty());
    screen.redactions = std::vector<RedactShape>{{"", RedactShape::Kind::ellipse, zone}};
    screen.patches = std::vector<RedactPatch>{{"", "01.patch-x.png", {0.7, 0.7, 0.1, 0.1}}};
    const auto areas = HiddenText::coveredAreas(screen);
    EXPECT_EQ(areas, (std::vector<NormalizedRect>{zone, {0.7, 0.7, 0.1, 0.1}}));

    const std::vector<TextLine> lines{{"Title", {0.1, 0.05, 0.5, 0.05}, std::nullopt},
                                      {"IBAN FR76", {0.25, 0.3, 0.2, 0.05}, std::nullopt},
                                      {"Code 1234", {0.75, 0.75, 0.1, 0.03}, std::nullopt},
                                      {"Edge", {0.8, 0.6, 0.1, 0.1}, std::nullopt},
                                      {"Footer", {0.1, 0.9, 0.3, 0.05}, std::nullopt}};
    const auto visible = HiddenText::visibleLines(lines, areas);
    std::vector<std::string> texts;
    for (const auto& line : visible)
        texts.push_back(line.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"Title", "Footer"}));
    EXPECT_EQ(HiddenText::visibleLines(lines, {}), lines);
}

// A copy to share carries the screens as they look and nothing that brings back what their
// zones and patches hide; the library itself is left as it was.
TEST_F(AppArchiveTest, WithoutOriginalsLeavesOutUntouchedCopiesPatchesZonesAndHiddenText) {
    const fs::path signUpDir = sample.root / SampleLibrary::signUp;
    // 02.png: a zone over the top-left quarter, a patch at (0.1, 0.1, 0.2, 0.2).
    writeFile(signUpDir / "ocr.json", R"({"version": 2, "screens": {
        "01.png": {"mtime": 1.0, "text": "welcome", "lines": [
            {"text": "Welcome", "box": {"x": 0.1, "y": 0.1, "width": 0.3, "height": 0.05}}]},
        "02.png": {"mtime": 2.0, "text": "card 4970 1234 password mr smith continue", "lines": [
            {"text": "Card 4970 1234", "box": {"x": 0.05, "y": 0.2, "width": 0.3, "height": 0.05}},
            {"text": "Password", "box": {"x": 0.6, "y": 0.2, "width": 0.2, "height": 0.05},
             "translations": {"fr": "Mot de passe"}},
            {"text": "Mr Smith", "box": {"x": 0.5, "y": 0.45, "width": 0.3, "height": 0.05}},
            {"text": "Continue", "box": {"x": 0.3, "y": 0.8, "width": 0.4, "height": 0.06}}]},
        "09.png": {"mtime": 3.0, "text": "a deleted screen", "lines": []}}})");
    writeFile(signUpDir / ".thumbs" / "v1" / "02.jpg", "a thumbnail from before the edit");
    const auto before = treeSnapshot(sample.root);

    FlowLibrary library{FlowStore(sample.root)};
    EXPECT_EQ(
        library.exportApplication("Acme", zipFile, AppArchive::ExportContent::withoutOriginals),
        2u);
    EXPECT_EQ(treeSnapshot(sample.root), before) << "the library's own files are untouched";

    const fs::path unpacked = dir / "unpacked";
    fs::create_directories(unpacked);
    Zip::extract(zipFile, unpacked);
    const fs::path shared = unpacked / AppArchive::kPayloadFolder / SampleLibrary::signUp;
    EXPECT_EQ(FileOps::list(shared),
              (std::vector<std::string>{"01.png", "02.png", "03.mov", "meta.json", "ocr.json"}));
    EXPECT_EQ(readFile(shared / "02.png"), readFile(signUpDir / "02.png"));
    EXPECT_EQ(FileOps::list(unpacked / AppArchive::kPayloadFolder / SampleLibrary::logIn),
              (std::vector<std::string>{"01.png", "02.png", "meta.json"}));

    const Json meta = parseLibraryJson(readFile(shared / "meta.json"));
    for (const auto& screen : meta.at("screens")) {
        for (const char* key : {"redactions", "redactStyle", "patches"})
            EXPECT_FALSE(screen.contains(key)) << screen.dump();
    }
    EXPECT_EQ(meta.at("screens").at(0).at("comments").size(), 2u) << "the rest is kept";
    EXPECT_EQ(meta.at("id"), library.meta(SampleLibrary::signUp).id);

    const OCRSidecar text = OCRSidecar::fromJson(parseLibraryJson(readFile(shared / "ocr.json")));
    ASSERT_EQ(text.screens.size(), 2u) << "no text of screens the archive doesn't hold";
    const auto& edited = text.screens.at("02.png");
    ASSERT_EQ(edited.lines.size(), 2u);
    EXPECT_EQ(edited.lines[0].text, "Password");
    EXPECT_EQ(edited.lines[0].translations->at("fr"), "Mot de passe");
    EXPECT_EQ(edited.lines[1].text, "Continue");
    EXPECT_EQ(edited.text, "password continue");
    EXPECT_EQ(edited.mtime, 2.0);
    EXPECT_EQ(text.screens.at("01.png").text, "welcome") << "a screen with nothing hidden";
    EXPECT_EQ(text.screens.at("01.png").lines.size(), 1u);

    // The copy imports as a library of its own, with nothing to revert to.
    FlowLibrary other{FlowStore(dir / "Other")};
    auto inspection = other.inspectArchive(zipFile);
    const auto result =
        other.importArchive(inspection.extracted, ImportConflictResolution::replace);
    EXPECT_TRUE(result.skipped.empty());
    EXPECT_FALSE(other.hasOriginal(SampleLibrary::signUp, "02.png"));
    EXPECT_TRUE(checkLibrary(other.store()).empty());

    // Without a line to tell them apart, the text of a screen with hidden areas goes whole.
    writeFile(signUpDir / "ocr.json", R"({"version": 2, "screens": {
        "02.png": {"mtime": 2.0, "text": "card 4970 1234", "lines": []}}})");
    library.exportApplication("Acme", zipFile, AppArchive::ExportContent::withoutOriginals);
    fs::remove_all(unpacked);
    fs::create_directories(unpacked);
    Zip::extract(zipFile, unpacked);
    EXPECT_EQ(OCRSidecar::fromJson(parseLibraryJson(readFile(shared / "ocr.json")))
                  .screens.at("02.png")
                  .text,
              "");

    // The full archive still carries everything.
    library.exportApplication("Acme", zipFile);
    fs::remove_all(unpacked);
    fs::create_directories(unpacked);
    Zip::extract(zipFile, unpacked);
    EXPECT_TRUE(fs::exists(shared / "02.orig.png"));
    EXPECT_TRUE(fs::exists(shared / "02.patch-AAAAAAAA-0000-4000-8000-000000000001.png"));
}

// A screen, or any file of a flow, that is a link stops the export, naming it, rather than
// being left out of an archive reported as made.
TEST_F(AppArchiveTest, ALinkedScreenIsRefusedByNameAndNothingIsWritten) {
    const fs::path outside = dir / "elsewhere.png";
    writeFile(outside, readFile(sample.root / SampleLibrary::logIn / "02.png"));
    for (const char* file : {"02.png", "02.orig.png"}) {
        SCOPED_TRACE(file);
        const fs::path link = sample.root / SampleLibrary::logIn / file;
        fs::remove(link);
        fs::create_symlink(outside, link);
        for (auto content :
             {AppArchive::ExportContent::everything, AppArchive::ExportContent::withoutOriginals}) {
            try {
                AppArchive::exportApplication("Acme", sample.store, sample.store.readIndex(),
                                              zipFile, content);
                ADD_FAILURE() << "exported";
            } catch (const ArchiveError& e) {
                EXPECT_EQ(e.errorCase(), ArchiveError::Case::zipFailed);
                EXPECT_NE(std::string(e.what()).find("“" + link.string() + "” is a symbolic link"),
                          std::string::npos)
                    << e.what();
            }
            EXPECT_FALSE(fs::exists(zipFile));
            for (const auto& name : FileOps::list(dir.path()))
                EXPECT_FALSE(name.ends_with(".tmp")) << name;
        }
        EXPECT_TRUE(fs::is_symlink(link)) << "left as it is";
        fs::remove(link);
    }
    writeFile(sample.root / SampleLibrary::logIn / "02.png", readFile(outside));
    EXPECT_EQ(
        AppArchive::exportApplication("Acme", sample.store, sample.store.readIndex(), zipFile), 2u);
}

// Replacing by id would let one flow of the archive overwrite another.
TEST_F(AppArchiveTest, AnArchiveWithTwoFlowsOfOneIdIsRefusedBeforeAnythingChanges) {
    const FlowMeta first = sample.store.meta(SampleLibrary::transfer);
    FlowMeta second = first;
    second.name = "Transfer again";
    const std::string png = readFile(sample.root / SampleLibrary::transfer / "01.png");
    writeZip(zipFile, {{"QuillaneExport/quillane-export.json",
                        manifestFor("Bank", {first.summary("bank/uncategorized/transfer"),
                                             second.summary("bank/uncategorized/transfer-again")})},
                       {"QuillaneExport/bank/uncategorized/transfer/meta.json",
                        encodeLibraryJson(first.toJson())},
                       {"QuillaneExport/bank/uncategorized/transfer/01.png", png},
                       {"QuillaneExport/bank/uncategorized/transfer-again/meta.json",
                        encodeLibraryJson(second.toJson())},
                       {"QuillaneExport/bank/uncategorized/transfer-again/01.png", png}});
    FlowLibrary library{FlowStore(sample.root)};
    FlowLibrary empty{FlowStore(dir / "Other")};
    for (FlowLibrary* target : {&library, &empty}) {
        const auto before = treeSnapshot(target->root());
        try {
            target->inspectArchive(zipFile);
            ADD_FAILURE() << "inspected";
        } catch (const ArchiveError& e) {
            EXPECT_EQ(e.errorCase(), ArchiveError::Case::inconsistent);
            const std::string what = e.what();
            EXPECT_NE(what.find("“Transfer” (bank/uncategorized/transfer) and “Transfer again” "
                                "(bank/uncategorized/transfer-again) have the same id " +
                                first.id),
                      std::string::npos)
                << what;
        }
        EXPECT_EQ(treeSnapshot(target->root()), before);
    }

    // Those who import without asking first are refused the same way.
    const auto extracted = AppArchive::extract(zipFile, dir.path());
    const auto before = treeSnapshot(sample.root);
    for (auto resolution : {ImportConflictResolution::replace, ImportConflictResolution::duplicate})
        EXPECT_THROW(importExtracted(sample.store, extracted, resolution), ArchiveError);
    EXPECT_EQ(treeSnapshot(sample.root), before);
    extracted.cleanup();
}

// Folder names in any script go into the zip as UTF-8 and come back byte for byte.
TEST_F(AppArchiveTest, NamesInEveryScriptRoundTrip) {
    FlowLibrary source{FlowStore(sample.root)};
    const std::string app = "카카오 ÉPICERIE";
    const std::vector<std::pair<std::string, std::string>> flows = {
        {"가입하기", "카카오-épicerie/uncategorized/가입하기"},
        {"予約 🛎️", "카카오-épicerie/uncategorized/予約"},
        {"Cafe\u0301 Noir", "카카오-épicerie/uncategorized/café-noir"},
        {"تسجيل الدخول", "카카오-épicerie/uncategorized/تسجيل-الدخول"}};
    writePicture(dir / "shot.png", 20, 40);
    for (const auto& [name, folder] : flows) {
        const FlowSummary made = source.createEmptyFlow(app, name, std::nullopt, Date{1});
        EXPECT_EQ(made.folderName, folder);
        source.addScreens(made.folderName, {dir / "shot.png"});
    }
    EXPECT_EQ(source.exportApplication(app, zipFile), flows.size());
    EXPECT_TRUE(Zip::isSafeEntryName("QuillaneExport/카카오-épicerie/uncategorized/予約/01.png"));
    EXPECT_FALSE(Zip::isSafeEntryName("QuillaneExport/予約/../../../x.png"));

    FlowLibrary target{FlowStore(dir / "Other")};
    auto inspection = target.inspectArchive(zipFile);
    EXPECT_EQ(inspection.extracted.manifest.application, app);
    const ImportResult result =
        target.importArchive(inspection.extracted, ImportConflictResolution::replace);
    EXPECT_TRUE(result.skipped.empty());
    for (const auto& [name, folder] : flows) {
        EXPECT_EQ(flowFiles(dir / "Other", folder), flowFiles(sample.root, folder)) << folder;
        EXPECT_TRUE(fs::exists(dir / "Other" / folder / "01.png")) << folder;
    }
    EXPECT_TRUE(checkLibrary(target.store()).empty());

    auto again = source.inspectArchive(zipFile);
    const ImportResult copy =
        source.importArchive(again.extracted, ImportConflictResolution::duplicate);
    EXPECT_EQ(copy.application, app + " copy");
    EXPECT_TRUE(copy.skipped.empty());
    EXPECT_NE(std::find(copy.folders.begin(), copy.folders.end(),
                        "카카오-épicerie-copy/uncategorized/가입하기"),
              copy.folders.end());
    EXPECT_TRUE(checkLibrary(source.store()).empty());
}
