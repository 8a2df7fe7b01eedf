#include "library/FlowStore.h"
#include "library/LibraryCheck.h"
#include "library/StoreErrors.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class FlowStoreTest : public ::testing::Test {
protected:
    TempDir dir;
    fs::path root = dir / "Library";
};

FileOperations failingWriter(const std::string& onlyFile = "") {
    FileOperations ops = FileOperations::standard();
    ops.indexWriter = [onlyFile, standard = ops.indexWriter](const fs::path& file,
                                                             std::string_view bytes) {
        if (onlyFile.empty() || file.filename() == onlyFile)
            throw FileError("write", file, std::make_error_code(std::errc::no_space_on_device));
        standard(file, bytes);
    };
    return ops;
}

} // namespace

TEST_F(FlowStoreTest, MissingIndexIsAnEmptyLibraryAndTheFirstInsertWritesBothKeys) {
    FlowStore store(root);
    EXPECT_TRUE(store.readIndex().flows.empty());
    EXPECT_FALSE(store.indexSnapshot().bytes);

    store.appendToIndex(
        {"id-1", "App", "Flow", "app/uncategorized/flow", std::nullopt, Date{1}, 0});
    const Json written = Json::parse(readFile(root / "index.json"));
    EXPECT_TRUE(written.contains("flows"));
    EXPECT_TRUE(written.contains("categories"));
    EXPECT_EQ(written["flows"].size(), 1u);
}

TEST_F(FlowStoreTest, UnreadableIndexFailsEveryMutationAndIsNeverOverwritten) {
    SampleLibrary sample(root);
    sample.leaveGapInLogIn();
    writeFile(root / "index.json", "{ not json");
    const auto before = treeSnapshot(root);
    FlowStore& store = sample.store;

    EXPECT_THROW(store.appendToIndex({"x", {}, "X", "a/b/x", {}, Date{}, 0}), DecodingError);
    EXPECT_THROW(store.createEmptyFlow("Acme", "New", std::nullopt, Date{}), DecodingError);
    EXPECT_THROW(store.deleteFlow(SampleLibrary::transfer), DecodingError);
    EXPECT_THROW(store.renumberScreens(SampleLibrary::logIn), DecodingError);
    EXPECT_THROW(store.moveCategory("Onboarding", std::nullopt), DecodingError);
    EXPECT_THROW(store.renameFlow(SampleLibrary::logIn, "Login"), DecodingError);
    EXPECT_THROW(store.deleteScreens(SampleLibrary::signUp, {"01.png"}), DecodingError);
    EXPECT_THROW(store.reorderScreens(SampleLibrary::logIn, {"03.png", "01.png"}), DecodingError);
    EXPECT_THROW(store.moveScreens(SampleLibrary::signUp, {"01.png"}, SampleLibrary::logIn, 0),
                 DecodingError);
    EXPECT_THROW(store.duplicateScreens(SampleLibrary::signUp, {"01.png"}), DecodingError);
    EXPECT_EQ(treeSnapshot(root), before);
}

TEST_F(FlowStoreTest, UnreadableMetaIsAnErrorNamingTheFlow) {
    SampleLibrary sample(root);
    writeFile(root / SampleLibrary::logIn / "meta.json", R"({"id": "x"})");
    try {
        sample.store.meta(SampleLibrary::logIn);
        FAIL() << "expected a decoding error";
    } catch (const DecodingError& e) {
        EXPECT_NE(std::string(e.what()).find(SampleLibrary::logIn), std::string::npos);
    }
    EXPECT_THROW(sample.store.meta("acme/onboarding/nowhere"), FlowNotFoundError);
}

TEST_F(FlowStoreTest, CreateEmptyFlowWritesMetaAndSummary) {
    FlowStore store(root);
    const FlowSummary made = store.createEmptyFlow("  Acme Bank ", " Sign up ", "  ", Date{42});
    EXPECT_EQ(made.folderName, "acme-bank/uncategorized/sign-up");
    EXPECT_EQ(made.application, "Acme Bank");
    EXPECT_FALSE(made.categoryL1);
    EXPECT_EQ(made.screenCount, 0);

    const FlowMeta meta = store.meta(made.folderName);
    EXPECT_EQ(meta.id, made.id);
    EXPECT_TRUE(meta.preserves());
    EXPECT_EQ(meta.width, 0);
    EXPECT_EQ(store.readIndex().flows, std::vector<FlowSummary>{made});

    const FlowSummary second =
        store.createEmptyFlow("Acme Bank", "Sign up", std::nullopt, Date{43});
    EXPECT_EQ(second.folderName, "acme-bank/uncategorized/sign-up-2");
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(FlowStoreTest, CreateEmptyFlowRefusesBlankNamesBeforeWritingAnything) {
    FlowStore store(root);
    try {
        store.createEmptyFlow("Acme", " \n ", std::nullopt, Date{});
        FAIL();
    } catch (const EmptyFlowCreationError& e) {
        EXPECT_EQ(e.errorCase(), EmptyFlowCreationError::Case::missingName);
    }
    try {
        store.createEmptyFlow("", "Name", std::nullopt, Date{});
        FAIL();
    } catch (const EmptyFlowCreationError& e) {
        EXPECT_EQ(e.errorCase(), EmptyFlowCreationError::Case::missingApplication);
    }
    EXPECT_FALSE(fs::exists(root));
}

TEST_F(FlowStoreTest, CreateEmptyFlowRollsBackWhenTheIndexCannotBeWritten) {
    FlowStore store(root, failingWriter("index.json"));
    EXPECT_THROW(store.createEmptyFlow("Acme", "Flow", "Settings", Date{}), FileError);
    EXPECT_TRUE(fs::exists(root));
    EXPECT_TRUE(fs::is_empty(root)) << "the category and application folders it made are gone";
}

TEST_F(FlowStoreTest, CreateEmptyFlowReportsAFolderItCannotRemove) {
    FileOperations ops = failingWriter("index.json");
    ops.folderRemover = [](const fs::path& folder) {
        throw FileError("remove", folder, std::make_error_code(std::errc::permission_denied));
    };
    FlowStore store(root, ops);
    try {
        store.createEmptyFlow("Acme", "Flow", std::nullopt, Date{});
        FAIL();
    } catch (const EmptyFlowRollbackError& e) {
        EXPECT_EQ(e.folderURL, root / "acme/uncategorized/flow");
        const std::string text = e.what();
        EXPECT_NE(text.find("Save error: "), std::string::npos);
        EXPECT_NE(text.find("Cleanup error: "), std::string::npos);
    }

    FileOperations keeps = failingWriter("index.json");
    keeps.folderRemover = [](const fs::path&) {}; // claims success, removes nothing
    FlowStore stubborn(dir / "Other", keeps);
    EXPECT_THROW(stubborn.createEmptyFlow("Acme", "Flow", std::nullopt, Date{}),
                 EmptyFlowFolderStillExistsError);
}

TEST_F(FlowStoreTest, DeleteFlowRemovesFolderAndSummaryAndPrunesEmptyParents) {
    SampleLibrary sample(root);
    sample.store.deleteFlow(SampleLibrary::transfer);
    EXPECT_FALSE(fs::exists(root / "bank")) << "last flow of the application";
    EXPECT_FALSE(sample.store.readIndex().findFolder(SampleLibrary::transfer));

    sample.store.deleteFlow(SampleLibrary::logIn);
    EXPECT_TRUE(fs::exists(root / "acme/onboarding")) << "sign-up still lives there";
    EXPECT_TRUE(checkLibrary(sample.store).empty());
}

TEST_F(FlowStoreTest, DeleteFlowWhoseFolderIsGoneStillRemovesItsSummary) {
    SampleLibrary sample(root);
    fs::remove_all(root / SampleLibrary::transfer);
    sample.store.deleteFlow(SampleLibrary::transfer);
    EXPECT_FALSE(sample.store.readIndex().findFolder(SampleLibrary::transfer));
    EXPECT_FALSE(fs::exists(root / "bank"));
}

TEST_F(FlowStoreTest, DeleteFlowWithFailingIndexPutsTheFolderBack) {
    SampleLibrary sample(root);
    const auto before = treeSnapshot(root);
    sample.store.operations() = failingWriter("index.json");
    EXPECT_THROW(sample.store.deleteFlow(SampleLibrary::logIn), FileError);
    EXPECT_EQ(treeSnapshot(root), before);
}

TEST_F(FlowStoreTest, DeleteFlowRollbackFailureNamesBothPlaces) {
    SampleLibrary sample(root);
    FileOperations ops = failingWriter("index.json");
    int moves = 0;
    ops.folderMover = [&moves](const fs::path& from, const fs::path& to) {
        if (++moves == 2)
            throw FileError("move", from, std::make_error_code(std::errc::device_or_resource_busy));
        FileOps::move(from, to);
    };
    sample.store.operations() = ops;
    try {
        sample.store.deleteFlow(SampleLibrary::logIn);
        FAIL();
    } catch (const FlowDeletionRollbackError& e) {
        const std::string text = e.what();
        EXPECT_NE(text.find((root / SampleLibrary::logIn).string()), std::string::npos);
        EXPECT_NE(text.find(e.quarantineURL.string()), std::string::npos);
        EXPECT_TRUE(e.quarantineURL.filename().string().starts_with(".deleting-"));
        EXPECT_TRUE(fs::exists(e.quarantineURL / "01.png"));
    }
}

TEST_F(FlowStoreTest, DeleteFlowCleanupFailureLeavesDataInTheQuarantine) {
    SampleLibrary sample(root);
    sample.store.operations().folderRemover = [](const fs::path& folder) {
        throw FileError("remove", folder, std::make_error_code(std::errc::permission_denied));
    };
    try {
        sample.store.deleteFlow(SampleLibrary::logIn);
        FAIL();
    } catch (const FlowDeletionCleanupError& e) {
        EXPECT_FALSE(sample.store.readIndex().findFolder(SampleLibrary::logIn));
        EXPECT_NE(std::string(e.what()).find(e.quarantineURL.string()), std::string::npos);
        EXPECT_TRUE(fs::exists(e.quarantineURL / "meta.json"));
    }
    EXPECT_EQ(sample.store.inspectLeftovers().leftoverQuarantines.size(), 1u);
}

TEST_F(FlowStoreTest, UnsafeFolderNamesTouchNothing) {
    SampleLibrary sample(root);
    writeFile(dir / "outside/keep.txt", "precious");
    const auto before = treeSnapshot(dir.path());
    for (const char* bad : {"../outside", "/etc", "acme/../../outside", "", ".inprogress/x"})
        EXPECT_THROW(sample.store.deleteFlow(bad), UnsafeNameError) << bad;

    fs::create_directories(root / "evil/uncategorized");
    fs::create_symlink(dir / "outside", root / "evil/uncategorized/link");
    EXPECT_THROW(sample.store.deleteFlow("evil/uncategorized/link"), UnsafeNameError);
    EXPECT_THROW(sample.store.meta("evil/uncategorized/link"), UnsafeNameError);
    EXPECT_EQ(readFile(dir / "outside/keep.txt"), "precious");
    EXPECT_THROW(sample.store.deleteScreens(SampleLibrary::logIn, {"../meta.json"}),
                 UnsafeNameError);
    EXPECT_THROW(sample.store.deleteScreens(SampleLibrary::logIn, {"meta.json"}), UnsafeNameError);
}

TEST_F(FlowStoreTest, SaveMetaMovesTheFolderWhenApplicationCategoryOrNameChange) {
    SampleLibrary sample(root);
    FlowStore& store = sample.store;
    const auto positionBefore = store.readIndex().flows;

    const std::string moved = store.moveFlow(SampleLibrary::signUp, "Acme", " Auth ");
    EXPECT_EQ(moved, "acme/auth/sign-up");
    EXPECT_TRUE(fs::exists(root / moved / "02.orig.png"));
    EXPECT_FALSE(fs::exists(root / SampleLibrary::signUp));
    const LibraryIndex index = store.readIndex();
    EXPECT_EQ(index.flows[0].folderName, moved) << "the summary keeps its place";
    EXPECT_EQ(index.flows[0].categoryL1, "Auth");
    EXPECT_EQ(index.flows[0].id, positionBefore[0].id);

    const std::string renamed = store.renameFlow(moved, "Register");
    EXPECT_EQ(renamed, "acme/auth/register");

    const std::string recased = store.moveFlow(renamed, "ACME", "auth");
    EXPECT_EQ(recased, renamed) << "same slugs, so the folder stays";
    EXPECT_EQ(store.meta(recased).application, "ACME");

    const std::string emptied = store.moveFlow(SampleLibrary::transfer, "Acme", std::nullopt);
    EXPECT_EQ(emptied, "acme/uncategorized/transfer");
    EXPECT_FALSE(fs::exists(root / "bank")) << "the emptied application folder is pruned";
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(FlowStoreTest, SaveMetaIntoAnOccupiedNameGetsAUniqueFolder) {
    SampleLibrary sample(root);
    const std::string moved = sample.store.renameFlow(SampleLibrary::logIn, "Sign up");
    EXPECT_EQ(moved, "acme/onboarding/sign-up-2");
    EXPECT_THROW(sample.store.renameFlow(moved, "   "), EmptyFlowCreationError);
}

TEST_F(FlowStoreTest, SaveMetaThatFailsLeavesTheFlowWhereItWas) {
    SampleLibrary sample(root);
    const auto before = treeSnapshot(root);
    sample.store.operations() = failingWriter("index.json");
    EXPECT_THROW(sample.store.moveFlow(SampleLibrary::signUp, "Other", "Place"), FileError);
    EXPECT_EQ(treeSnapshot(root), before);
}

TEST_F(FlowStoreTest, MoveCategoryOrdersListedThenUnlistedCategories) {
    FlowStore store(root);
    store.createEmptyFlow("A", "One", "Payments", Date{});
    store.createEmptyFlow("A", "Two", "Onboarding", Date{});
    store.createEmptyFlow("A", "Three", "Settings", Date{});
    auto names = [&] {
        std::vector<std::string> out;
        for (const auto& c : store.readIndex().categories)
            out.push_back(c.name);
        return out;
    };
    store.moveCategory("Settings", std::string("Onboarding"));
    EXPECT_EQ(names(), (std::vector<std::string>{"Settings", "Onboarding", "Payments"}));
    store.moveCategory("Settings", std::nullopt);
    EXPECT_EQ(names(), (std::vector<std::string>{"Onboarding", "Payments", "Settings"}));
    store.moveCategory("Payments", std::string("Payments"));
    EXPECT_EQ(names(), (std::vector<std::string>{"Onboarding", "Payments", "Settings"}));
}

TEST_F(FlowStoreTest, RenameCategoryMovesEveryFlowOfItAndKeepsItsPlace) {
    SampleLibrary sample(root);
    FlowStore& store = sample.store;
    store.createEmptyFlow("Bank", "Open account", std::string("Onboarding"), Date{});
    store.moveCategory("Onboarding", std::nullopt);
    store.moveCategory("Payments", std::string("Onboarding"));

    store.renameCategory("Onboarding", "  First run ");
    EXPECT_TRUE(fs::exists(root / "acme/first-run/sign-up/02.orig.png"));
    EXPECT_TRUE(fs::exists(root / "acme/first-run/log-in"));
    EXPECT_TRUE(fs::exists(root / "bank/first-run/open-account"));
    EXPECT_FALSE(fs::exists(root / "acme/onboarding"));
    const LibraryIndex index = store.readIndex();
    EXPECT_EQ(index.categories, (std::vector<CategoryNode>{{"Payments"}, {"First run"}}));
    for (const auto& flow : index.flows)
        EXPECT_NE(flow.categoryL1, std::optional<std::string>("Onboarding"));
    EXPECT_TRUE(checkLibrary(store).empty());
    EXPECT_THROW(store.renameCategory("First run", " "), LibraryError);
}

TEST_F(FlowStoreTest, AddScreensNumbersAfterTheHighestAndTakesTheSizeOfTheFirstPng) {
    FlowStore store(root);
    const auto flow = store.createEmptyFlow("A", "Flow", std::nullopt, Date{});
    writeFile(dir / "in/shot.PNG", pngBytes(828, 1792, "x"));
    writeFile(dir / "in/clip.mov", "movie");
    writeFile(dir / "in/notes.txt", "no");
    EXPECT_THROW(store.addScreens(flow.folderName, {dir / "in/notes.txt"}, Date{}), LibraryError);
    EXPECT_THROW(store.addScreens(flow.folderName, {dir / "in/missing.png"}, Date{}), FileError);

    const auto names =
        store.addScreens(flow.folderName, {dir / "in/shot.PNG", dir / "in/clip.mov"}, Date{5});
    EXPECT_EQ(names, (std::vector<std::string>{"01.png", "02.mov"}));
    const FlowMeta meta = store.meta(flow.folderName);
    EXPECT_EQ(meta.width, 828);
    EXPECT_EQ(meta.height, 1792);
    EXPECT_EQ(store.readIndex().flows[0].screenCount, 2);
    EXPECT_TRUE(fs::exists(dir / "in/shot.PNG")) << "the user's files are copied, not moved";
}

TEST_F(FlowStoreTest, FlowsNamedInAnyScriptGetFoldersOfThoseNames) {
    FlowStore store(root);
    const FlowSummary made = store.createEmptyFlow("토스", "가입하기", std::nullopt, Date{1});
    EXPECT_EQ(made.folderName, "토스/uncategorized/가입하기");
    EXPECT_TRUE(fs::is_directory(root / "토스" / "uncategorized" / "가입하기"));
    EXPECT_EQ(store.meta(made.folderName).name, "가입하기");

    // Typed decomposed, the same name finds the same folder name.
    const FlowSummary decomposed = store.createEmptyFlow(
        "토스", "\u1100\u1161\u110B\u1175\u11B8\u1112\u1161\u1100\u1175", std::nullopt, Date{2});
    EXPECT_EQ(decomposed.folderName, "토스/uncategorized/가입하기-2");

    const FlowSummary japanese =
        store.createEmptyFlow("ホテル", "予約 🛎️", "ΣΟΦΙΑΣ", Date{3});
    EXPECT_EQ(japanese.folderName, "ホテル/σοφιας/予約");
    writePicture(dir / "shot.png", 20, 40);
    EXPECT_EQ(store.addScreens(japanese.folderName, {dir / "shot.png"}, Date{4}),
              std::vector<std::string>{"01.png"});
    EXPECT_TRUE(fs::exists(root / "ホテル" / "σοφιας" / "予約" / "01.png"));

    const std::string renamed = store.renameFlow(japanese.folderName, "Регистрация");
    EXPECT_EQ(renamed, "ホテル/σοφιας/регистрация");
    EXPECT_TRUE(fs::exists(root / renamed / "01.png"));
    const std::string moved = store.moveFlow(renamed, "متجر", "Ärger");
    EXPECT_EQ(moved, "متجر/ärger/регистрация");
    EXPECT_FALSE(fs::exists(root / "ホテル")) << "the emptied application folder is pruned";

    FlowStore reopened(root);
    EXPECT_TRUE(reopened.recover().problems.empty());
    std::set<std::string> listed;
    for (const auto& s : reopened.readIndex().flows)
        listed.insert(s.folderName);
    EXPECT_EQ(listed, (std::set<std::string>{made.folderName, decomposed.folderName, moved}));
    EXPECT_TRUE(checkLibrary(reopened).empty());
}

// A library from before names could hold every script keeps its folders; only a changed name
// moves one.
TEST_F(FlowStoreTest, FoldersNamedBeforeStayUntilTheirNamesChange) {
    FlowStore store(root);
    const std::string folder = "caf/uncategorized/r-sum";
    fs::create_directories(root / folder);
    writePicture(root / folder / "01.png", 20, 40);
    FlowMeta meta;
    meta.id = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    meta.application = "Café";
    meta.name = "Résumé";
    meta.date = Date{1};
    ScreenRef screen;
    screen.filename = "01.png";
    screen.capturedAt = Date{1};
    meta.screens.push_back(screen);
    meta.width = 20;
    meta.height = 40;
    store.writeMeta(folder, meta);
    store.appendToIndex(meta.summary(folder));

    EXPECT_TRUE(store.recover().problems.empty());
    EXPECT_TRUE(checkLibrary(store).empty());
    EXPECT_EQ(store.moveFlow(folder, "Café", std::nullopt), folder);
    FlowMeta linked = store.meta(folder);
    linked.figmaFileURL = "https://www.figma.com/design/KEY/Board";
    EXPECT_EQ(store.saveMeta(folder, linked), folder);
    EXPECT_EQ(store.renumberScreens(folder).renames.size(), 0u);
    EXPECT_TRUE(fs::exists(root / folder / "01.png"));

    const std::string renamed = store.renameFlow(folder, "Résumé 2");
    EXPECT_EQ(renamed, "caf/uncategorized/résumé-2") << "its application keeps its folder";
    const std::string moved = store.moveFlow(renamed, "Café", "Öl");
    EXPECT_EQ(moved, "café/öl/résumé-2");
    EXPECT_TRUE(fs::exists(root / moved / "01.png"));
    EXPECT_FALSE(fs::exists(root / "caf"));
    EXPECT_TRUE(checkLibrary(store).empty());
}
