#include "library/FlowStore.h"
#include "library/LibraryCheck.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class ScreenOperationsTest : public ::testing::Test {
protected:
    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowStore& store = sample.store;
    fs::path signUp = sample.root / SampleLibrary::signUp;
    fs::path logIn = sample.root / SampleLibrary::logIn;

    std::vector<std::string> names(const std::string& folder) {
        std::vector<std::string> out;
        for (const auto& s : store.meta(folder).screens)
            out.push_back(s.filename);
        return out;
    }
    std::string payloadOf(const fs::path& file) {
        const std::string bytes = readFile(file);
        return bytes.size() > 33 && bytes.starts_with("\x89PNG") ? bytes.substr(33) : bytes;
    }
    Json ocr() { return Json::parse(readFile(signUp / "ocr.json"))["screens"]; }
};

std::pair<ScreenID, ScreenID> rename(const std::string& folder, const std::string& from,
                                     const std::string& to) {
    return {{folder, from}, {folder, to}};
}

} // namespace

TEST_F(ScreenOperationsTest, RenumberClosesGapsAndStampsTheMeta) {
    sample.leaveGapInLogIn();
    const ThumbEdits edits = store.renumberScreens(SampleLibrary::logIn);
    EXPECT_EQ(names(SampleLibrary::logIn), (std::vector<std::string>{"01.png", "02.png"}));
    EXPECT_EQ(payloadOf(logIn / "02.png"), "log-in-2");
    EXPECT_FALSE(fs::exists(logIn / "03.png"));
    EXPECT_FALSE(fs::exists(logIn / ".renumber"));
    EXPECT_TRUE(store.meta(SampleLibrary::logIn).screensRenumberedAt);
    EXPECT_EQ(edits.renames, (std::vector{rename(SampleLibrary::logIn, "03.png", "02.png")}));
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(ScreenOperationsTest, ReorderSwapsFilesOriginalsAndRecognizedText) {
    const ThumbEdits edits =
        store.reorderScreens(SampleLibrary::signUp, {"02.png", "01.png", "03.mov"});
    EXPECT_EQ(payloadOf(signUp / "01.png"), "sign-up-2");
    EXPECT_EQ(payloadOf(signUp / "02.png"), "sign-up-1");
    EXPECT_EQ(payloadOf(signUp / "01.orig.png"), "sign-up-2-original");
    EXPECT_FALSE(fs::exists(signUp / "02.orig.png"));
    const FlowMeta meta = store.meta(SampleLibrary::signUp);
    // The patch file follows its screen's number, so that it stays that screen's own.
    const std::string patch = "01.patch-AAAAAAAA-0000-4000-8000-000000000001.png";
    EXPECT_EQ(meta.screens[0].patches->at(0).file, patch);
    EXPECT_EQ(readFile(signUp / patch), "sign-up-2-patch");
    EXPECT_FALSE(fs::exists(signUp / "02.patch-AAAAAAAA-0000-4000-8000-000000000001.png"));
    EXPECT_EQ(meta.screens[1].pins().size(), 2u);
    EXPECT_EQ(ocr()["01.png"]["text"], "password");
    EXPECT_EQ(ocr()["02.png"]["text"], "welcome");
    EXPECT_EQ(edits.renames.size(), 2u);
    EXPECT_TRUE(checkLibrary(store).empty());

    EXPECT_THROW(store.reorderScreens(SampleLibrary::signUp, {"01.png", "02.png"}), LibraryError);
    EXPECT_THROW(store.reorderScreens(SampleLibrary::signUp, {"01.png", "01.png", "03.mov"}),
                 LibraryError);
}

TEST_F(ScreenOperationsTest, RenumberOfAHundredScreensPadsToThreeDigits) {
    FlowSummary flow = store.createEmptyFlow("Big", "Flow", std::nullopt, Date{});
    std::vector<fs::path> files;
    for (int i = 0; i < 100; ++i) {
        files.push_back(dir / ("in/" + std::to_string(i) + ".png"));
        writeFile(files.back(), pngBytes(10, 10, "big-" + std::to_string(i)));
    }
    store.addScreens(flow.folderName, files, Date{});
    EXPECT_EQ(names(flow.folderName).front(), "01.png");
    EXPECT_EQ(names(flow.folderName).back(), "100.png");
    store.renumberScreens(flow.folderName);
    const auto renamed = names(flow.folderName);
    EXPECT_EQ(renamed.front(), "001.png");
    EXPECT_EQ(renamed[41], "042.png");
    EXPECT_EQ(payloadOf(sample.root / flow.folderName / "042.png"), "big-41");
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(ScreenOperationsTest, RenumberRefusesToOverwriteAnUnlistedFile) {
    sample.leaveGapInLogIn();
    writeFile(logIn / "02.png", "stray file");
    EXPECT_THROW(store.renumberScreens(SampleLibrary::logIn), LibraryError);
    EXPECT_EQ(readFile(logIn / "02.png"), "stray file");
    EXPECT_EQ(payloadOf(logIn / "03.png"), "log-in-2");
}

TEST_F(ScreenOperationsTest, DeleteScreensRemovesTheirFilesAndQueuesPublishedPins) {
    const ThumbEdits edits = store.deleteScreens(SampleLibrary::signUp, {"01.png", "02.png"});
    EXPECT_EQ(names(SampleLibrary::signUp), (std::vector<std::string>{"01.mov"}));
    EXPECT_EQ(readFile(signUp / "01.mov"), "sign-up-3");
    for (const char* gone : {"01.png", "02.png", "02.orig.png",
                             "02.patch-AAAAAAAA-0000-4000-8000-000000000001.png", "03.mov"})
        EXPECT_FALSE(fs::exists(signUp / gone)) << gone;
    const FlowMeta meta = store.meta(SampleLibrary::signUp);
    EXPECT_EQ(meta.figmaPendingDeletes, std::vector<std::string>{"P1"})
        << "the local pin adds nothing";
    EXPECT_TRUE(ocr().empty());
    EXPECT_EQ(store.readIndex().findFolder(SampleLibrary::signUp)->screenCount, 1);

    EXPECT_EQ(edits.removals.size(), 2u);
    EXPECT_EQ(edits.renames, (std::vector{rename(SampleLibrary::signUp, "03.mov", "01.mov")}));
    EXPECT_TRUE(checkLibrary(store).empty());

    store.deleteScreen(SampleLibrary::signUp, "01.mov");
    EXPECT_TRUE(names(SampleLibrary::signUp).empty());
    EXPECT_TRUE(store.deleteFlowIfEmpty(SampleLibrary::signUp)) << "not preserved when empty";
    EXPECT_THROW(store.deleteScreen(SampleLibrary::logIn, "09.png"), ScreenNotFoundError);
}

TEST_F(ScreenOperationsTest, EmptyFlowsMadeOnPurposeAreKept) {
    const FlowSummary made = store.createEmptyFlow("Acme", "Placeholder", std::nullopt, Date{});
    EXPECT_FALSE(store.deleteFlowIfEmpty(made.folderName));
    EXPECT_FALSE(store.deleteFlowIfEmpty(SampleLibrary::logIn));
    EXPECT_TRUE(fs::exists(sample.root / made.folderName));
}

TEST_F(ScreenOperationsTest, MoveScreensCarriesFilesAndLeavesPinsUnpublished) {
    const ThumbEdits edits =
        store.moveScreens(SampleLibrary::signUp, {"02.png", "01.png"}, SampleLibrary::logIn, 1);

    EXPECT_EQ(names(SampleLibrary::logIn),
              (std::vector<std::string>{"01.png", "02.png", "03.png", "04.png"}));
    EXPECT_EQ(payloadOf(logIn / "01.png"), "log-in-1");
    EXPECT_EQ(payloadOf(logIn / "02.png"), "sign-up-2");
    EXPECT_EQ(payloadOf(logIn / "02.orig.png"), "sign-up-2-original");
    EXPECT_EQ(payloadOf(logIn / "03.png"), "sign-up-1");
    EXPECT_EQ(payloadOf(logIn / "04.png"), "log-in-2");

    const FlowMeta target = store.meta(SampleLibrary::logIn);
    const std::string patch = target.screens[1].patches->at(0).file;
    EXPECT_TRUE(patch.starts_with("0")) << patch;
    EXPECT_EQ(readFile(logIn / patch), "sign-up-2-patch");
    for (const auto& pin : target.screens[2].pins())
        EXPECT_FALSE(pin.postedId) << "a moved pin is new on the other board";

    const FlowMeta source = store.meta(SampleLibrary::signUp);
    EXPECT_EQ(names(SampleLibrary::signUp), std::vector<std::string>{"01.mov"});
    EXPECT_EQ(source.figmaPendingDeletes, std::vector<std::string>{"P1"});

    // The thumbnail of each moved screen follows it to its final name.
    EXPECT_NE(std::find(edits.renames.begin(), edits.renames.end(),
                        std::pair<ScreenID, ScreenID>{{SampleLibrary::signUp, "02.png"},
                                                      {SampleLibrary::logIn, "02.png"}}),
              edits.renames.end());
    EXPECT_NE(std::find(edits.renames.begin(), edits.renames.end(),
                        std::pair<ScreenID, ScreenID>{{SampleLibrary::signUp, "01.png"},
                                                      {SampleLibrary::logIn, "03.png"}}),
              edits.renames.end());
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(ScreenOperationsTest, MoveScreensWithinOneFlowReorders) {
    store.moveScreens(SampleLibrary::signUp, {"03.mov"}, SampleLibrary::signUp, 0);
    EXPECT_EQ(names(SampleLibrary::signUp),
              (std::vector<std::string>{"01.mov", "02.png", "03.png"}));
    EXPECT_EQ(readFile(signUp / "01.mov"), "sign-up-3");
}

TEST_F(ScreenOperationsTest, DuplicateScreensCopiesEverythingBehindTheOriginal) {
    const ThumbEdits edits = store.duplicateScreens(SampleLibrary::signUp, {"02.png", "01.png"});
    const FlowMeta meta = store.meta(SampleLibrary::signUp);
    EXPECT_EQ(names(SampleLibrary::signUp),
              (std::vector<std::string>{"01.png", "02.png", "03.png", "04.png", "05.mov"}));
    EXPECT_EQ(payloadOf(signUp / "02.png"), "sign-up-1");
    EXPECT_EQ(payloadOf(signUp / "04.png"), "sign-up-2");
    EXPECT_EQ(payloadOf(signUp / "04.orig.png"), "sign-up-2-original");
    EXPECT_NE(meta.screens[3].patches->at(0).file, meta.screens[2].patches->at(0).file);
    EXPECT_EQ(readFile(signUp / meta.screens[3].patches->at(0).file), "sign-up-2-patch");
    EXPECT_EQ(meta.screens[0].pins()[0].postedId, "P1");
    EXPECT_FALSE(meta.screens[1].pins()[0].postedId);
    EXPECT_NE(meta.screens[1].pins()[0].id, meta.screens[0].pins()[0].id);
    EXPECT_EQ(edits.copies.size(), 2u);
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(ScreenOperationsTest, RenameScreenSetsTheDisplayNameOnly) {
    const std::string indexBefore = readFile(store.indexURL());
    store.renameScreen(SampleLibrary::signUp, "02.png", "  Pick a plan \n");
    EXPECT_EQ(store.meta(SampleLibrary::signUp).screen("02.png")->name, "Pick a plan");
    EXPECT_EQ(names(SampleLibrary::signUp),
              (std::vector<std::string>{"01.png", "02.png", "03.mov"}));
    EXPECT_EQ(readFile(store.indexURL()), indexBefore) << "the summary doesn't hold names";

    store.renameScreen(SampleLibrary::signUp, "02.png", "   ");
    EXPECT_FALSE(store.meta(SampleLibrary::signUp).screen("02.png")->name) << "blank removes it";
    EXPECT_THROW(store.renameScreen(SampleLibrary::signUp, "09.png", "x"), ScreenNotFoundError);
    EXPECT_THROW(store.renameScreen(SampleLibrary::signUp, "../meta.json", "x"), UnsafeNameError);
}

TEST(ThumbEditsTest, LaterRenamesComposeWithEarlierOnes) {
    ThumbEdits edits;
    edits.renames = {{{"a", "01.png"}, {"b", "05.png"}}};
    edits.followRenames({{{"b", "05.png"}, {"b", "02.png"}}, {{"b", "03.png"}, {"b", "01.png"}}});
    EXPECT_EQ(edits.renames.size(), 2u);
    EXPECT_EQ(edits.renames[0], (std::pair<ScreenID, ScreenID>{{"a", "01.png"}, {"b", "02.png"}}));
    edits.followRenames({{{"b", "02.png"}, {"a", "01.png"}}});
    EXPECT_EQ(edits.renames.size(), 1u) << "a rename back to where it started disappears";
}

TEST_F(ScreenOperationsTest, DeletedScreensThatCantBeRemovedWaitBesideTheFlowAndAreReported) {
    store.operations().folderRemover = [](const fs::path& folder) {
        if (folder.string().find("/.deleting-") != std::string::npos)
            throw FileError("remove", folder, std::make_error_code(std::errc::permission_denied));
        FileOps::remove(folder);
    };
    try {
        store.deleteScreens(SampleLibrary::signUp, {"01.png"});
        FAIL();
    } catch (const LibraryError& e) {
        EXPECT_NE(std::string(e.what()).find((sample.root / "acme/onboarding/.deleting-").string()),
                  std::string::npos)
            << e.what();
    }
    EXPECT_EQ(names(SampleLibrary::signUp), (std::vector<std::string>{"01.png", "02.mov"}));
    const auto leftovers = store.inspectLeftovers().leftoverQuarantines;
    ASSERT_EQ(leftovers.size(), 1u);
    EXPECT_EQ(leftovers[0].parent_path(), sample.root / "acme/onboarding");
    EXPECT_EQ(payloadOf(leftovers[0] / "01.png"), "sign-up-1");
}
