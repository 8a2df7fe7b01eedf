#include "library/LibraryCheck.h"
#include "library/ScreenFiles.h"
#include "model/FlowLibrary.h"
#include "model/LibraryChanges.h"
#include "support/LibraryState.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class LibraryHistoryTest : public ::testing::Test {
protected:
    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowLibrary library{FlowStore(sample.root)};
    LibraryHistory history{library};

    std::string folderNamed(const std::string& name) {
        for (const auto& flow : library.summaries())
            if (flow.name == name)
                return flow.folderName;
        ADD_FAILURE() << "no flow " << name;
        return {};
    }
};

} // namespace

TEST_F(LibraryHistoryTest, EveryChangeIsUndoneAndRedoneExactly) {
    const std::string signUp = SampleLibrary::signUp, logIn = SampleLibrary::logIn;
    writeFile(dir / "new.png", pngBytes(1179, 2556, "added-file"));
    const std::vector<std::pair<std::string, std::function<LibraryChanges::Change()>>> changes{
        {"reorder",
         [&] {
             return LibraryChanges::reorder(library, signUp, {"03.mov", "01.png", "02.png"});
         }},
        {"move two screens apart from each other",
         [&] {
             return LibraryChanges::move(library, signUp, {"03.mov", "01.png"}, logIn, 1);
         }},
        {"move the last screen of a flow",
         [&] {
             return LibraryChanges::move(library, SampleLibrary::transfer, {"01.png"}, logIn, 2);
         }},
        {"delete screens",
         [&] {
             return LibraryChanges::deleteScreens(library, signUp, {"01.png", "03.mov"});
         }},
        {"delete every screen of a flow",
         [&] {
             return LibraryChanges::deleteScreens(library, logIn, {"02.png", "01.png"});
         }},
        {"delete an application",
         [&] {
             return LibraryChanges::deleteFlows(library, {signUp, logIn}, "Delete Acme");
         }},
        {"rename a screen",
         [&] { return LibraryChanges::renameScreen(library, signUp, "02.png", "Password"); }},
        {"rename a flow", [&] { return LibraryChanges::renameFlow(library, signUp, "Register"); }},
        {"categorize a flow",
         [&] {
             return LibraryChanges::refile(library, SampleLibrary::transfer, "Acme", "Payments");
         }},
        {"move a category",
         [&] { return LibraryChanges::moveCategory(library, "Payments", "Onboarding"); }},
        {"rename a category",
         [&] { return LibraryChanges::renameCategory(library, "Onboarding", "First run"); }},
        {"duplicate",
         [&] {
             const auto edits = library.duplicateScreens(signUp, {"02.png"});
             return LibraryChanges::addedScreens(library, signUp, LibraryChanges::copiesMade(edits),
                                                 "Duplicate");
         }},
        {"add a file",
         [&] {
             const auto added = library.addScreens(logIn, {dir / "new.png"});
             return LibraryChanges::addedScreens(library, logIn, added, "Add Screen");
         }},
        {"a flow made with screens",
         [&] {
             const auto flow = library.createEmptyFlow("Zeta", "Imported", std::nullopt, Date{});
             std::vector<LibraryChanges::Change> made;
             made.push_back(LibraryChanges::createdFlow(library, flow.folderName, "New Flow"));
             const auto added = library.addScreens(flow.folderName, {dir / "new.png"});
             made.push_back(
                 LibraryChanges::addedScreens(library, flow.folderName, added, "Add Screen"));
             return LibraryChanges::together("Import Screens", std::move(made));
         }},
    };
    for (const auto& [what, make] : changes) {
        SCOPED_TRACE(what);
        TempDir scratch;
        fs::copy(sample.root, scratch / "Library", fs::copy_options::recursive);
        library.setRoot(scratch / "Library");
        library.createEmptyFlow("Bank", "Top up", std::string("Payments"), Date{});
        history.clear();
        const std::string before = visibleState(library);
        history.record(make());
        const std::string after = visibleState(library);
        ASSERT_NE(before, after);
        for (int round = 0; round < 2; ++round) {
            history.undo();
            EXPECT_EQ(visibleState(library), before);
            EXPECT_TRUE(checkLibrary(library.store()).empty()) << checkLibrary(library.store())[0];
            history.redo();
            EXPECT_EQ(visibleState(library), after);
            EXPECT_TRUE(checkLibrary(library.store()).empty()) << checkLibrary(library.store())[0];
        }
        history.undo();
        EXPECT_FALSE(history.canUndo());
        EXPECT_TRUE(history.canRedo());
    }
}

TEST_F(LibraryHistoryTest, DeletedScreensComeBackWithTheirFilesAndFigmaComments) {
    const std::string signUp = SampleLibrary::signUp;
    history.record(LibraryChanges::deleteScreens(library, signUp, {"01.png", "02.png"}));
    EXPECT_EQ(history.undoName(), "Delete 2 Screens");
    ASSERT_EQ(library.trashEntries().size(), 1u);
    EXPECT_EQ(library.trashEntries()[0].description(), "2 screens of “Sign up”");
    EXPECT_EQ(library.meta(signUp).figmaPendingDeletes, std::vector<std::string>{"P1"});

    const auto& undone = history.undo();
    EXPECT_EQ(undone.touched(), (std::vector<ScreenID>{{signUp, "01.png"}, {signUp, "02.png"}}));
    const FlowMeta& meta = library.meta(signUp);
    EXPECT_EQ(meta.screens[0].pins()[0].postedId, "P1") << "its comment stays in Figma";
    EXPECT_FALSE(meta.figmaPendingDeletes) << "and is no longer to be deleted there";
    EXPECT_EQ(readFile(sample.root / signUp / "02.orig.png").substr(33), "sign-up-2-original");
    EXPECT_TRUE(library.trashEntries().empty());

    // Deleted again, and the queued comment deleted in Figma meanwhile: the pin is posted anew.
    history.redo();
    FlowMeta synced = library.meta(signUp);
    synced.figmaPendingDeletes.reset();
    library.store().writeMeta(signUp, synced);
    library.reload();
    history.undo();
    EXPECT_FALSE(library.meta(signUp).screens[0].pins()[0].postedId);
}

TEST_F(LibraryHistoryTest, AChangeMadeImpossibleSaysWhyAndLeavesTheHistory) {
    const std::string signUp = SampleLibrary::signUp, logIn = SampleLibrary::logIn;
    history.record(LibraryChanges::renameFlow(library, logIn, "Sign in"));
    history.record(LibraryChanges::deleteScreens(library, signUp, {"01.png"}));
    // Outside the history: the flow the screen came from is deleted for good.
    library.deleteFlow(signUp);
    try {
        history.undo();
        FAIL() << "undo must fail";
    } catch (const LibraryError& e) {
        EXPECT_NE(std::string(e.what()).find("“Sign up”"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("no longer in the library"), std::string::npos);
    }
    EXPECT_FALSE(history.canUndo()) << "what came before depends on it";
    ASSERT_EQ(library.trashEntries().size(), 1u) << "the deleted screen stays in the trash";
    EXPECT_NE(folderNamed("Sign in"), "");
}

TEST_F(LibraryHistoryTest, WhatUndoSetAsideGoesWhenItCanNoLongerBeRedone) {
    const std::string signUp = SampleLibrary::signUp;
    const auto edits = library.duplicateScreens(signUp, {"01.png"});
    history.record(LibraryChanges::addedScreens(library, signUp, LibraryChanges::copiesMade(edits),
                                                "Duplicate"));
    history.undo();
    EXPECT_TRUE(library.trashEntries().size() == 1u && library.trashEntries()[0].hidden);
    EXPECT_EQ(visibleState(library).find("trash"), std::string::npos) << "the user deleted nothing";
    history.record(LibraryChanges::renameScreen(library, signUp, "01.png", "Welcome"));
    EXPECT_FALSE(history.canRedo());
    EXPECT_TRUE(library.trashEntries().empty());
    EXPECT_FALSE(fs::exists(sample.root / ".trash") && !fs::is_empty(sample.root / ".trash"));

    // Nor does it outlive the run: the next opening finds no history to redo it.
    const auto again = library.duplicateScreens(signUp, {"01.png"});
    history.record(LibraryChanges::addedScreens(library, signUp, LibraryChanges::copiesMade(again),
                                                "Duplicate"));
    history.undo();
    ASSERT_EQ(library.trashEntries().size(), 1u);
    library.store().trashFlows({SampleLibrary::transfer});
    FlowLibrary reopened{FlowStore(sample.root)};
    reopened.open();
    ASSERT_EQ(reopened.trashEntries().size(), 1u) << "what the user deleted stays";
    EXPECT_FALSE(reopened.trashEntries()[0].hidden);
}

TEST_F(LibraryHistoryTest, PutBackFromTheTrashIsAChangeToo) {
    const std::string transfer = SampleLibrary::transfer;
    const FlowSummary flow = library.summaries().back();
    history.record(LibraryChanges::deleteFlows(library, {transfer}, "Delete Flow"));
    history.clear(); // as after a restart: only the trash remembers
    ASSERT_EQ(library.trashEntries().size(), 1u);
    history.record(LibraryChanges::putBack(library, library.trashEntries()[0]));
    EXPECT_EQ(history.undoName(), "Put Back Flow");
    EXPECT_EQ(library.summaries().back(), flow) << "at its place, with its folder";
    history.undo();
    EXPECT_EQ(library.trashEntries().size(), 1u);
    EXPECT_EQ(library.summaries().size(), 2u);
    history.redo();
    EXPECT_EQ(library.summaries().back(), flow);
}
