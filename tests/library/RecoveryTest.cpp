#include "model/FlowLibrary.h"
#include "library/FlowStore.h"
#include "library/LibraryCheck.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

class RecoveryTest : public ::testing::Test {
protected:
    TempDir dir;
    SampleLibrary sample{dir / "Library"};
    FlowStore& store = sample.store;
    fs::path signUp = sample.root / SampleLibrary::signUp;

    // A mover that fails on its n-th call, then works again.
    void failMoveNumber(int n) {
        auto count = std::make_shared<int>(0);
        store.operations().folderMover = [count, n](const fs::path& from, const fs::path& to) {
            if (++*count == n)
                throw FileError("move", from, std::make_error_code(std::errc::io_error));
            FileOps::move(from, to);
        };
    }
};

} // namespace

TEST_F(RecoveryTest, RenumberingInterruptedInItsSecondPhaseIsFinishedByTheNextOne) {
    // Phase one moves three files (02, its original, 01); the fifth move is in phase two.
    failMoveNumber(5);
    EXPECT_THROW(store.reorderScreens(SampleLibrary::signUp, {"02.png", "01.png", "03.mov"}),
                 LibraryError);
    EXPECT_TRUE(fs::exists(signUp / ".renumber"));
    EXPECT_FALSE(checkLibrary(store).empty());

    store.operations() = FileOperations::standard();
    store.renumberScreens(SampleLibrary::signUp);
    EXPECT_FALSE(fs::exists(signUp / ".renumber"));
    EXPECT_EQ(readFile(signUp / "01.png").substr(33), "sign-up-2");
    EXPECT_EQ(readFile(signUp / "01.orig.png").substr(33), "sign-up-2-original");
    EXPECT_EQ(readFile(signUp / "02.png").substr(33), "sign-up-1");
    EXPECT_FALSE(checkLibrary(store).empty()) << "the reorder's note waits for the next opening";
    EXPECT_TRUE(store.recover().problems.empty());
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(RecoveryTest, RenumberingWhoseUndoFailedIsUndoneByTheNextOne) {
    // Phase one fails on its second move, and the undo of the first move fails too.
    failMoveNumber(2);
    auto standardMover = FileOperations::standard().folderMover;
    auto failing = store.operations().folderMover;
    int calls = 0;
    store.operations().folderMover = [&](const fs::path& from, const fs::path& to) {
        if (++calls == 3)
            throw FileError("move back", from, std::make_error_code(std::errc::io_error));
        failing(from, to);
    };
    try {
        store.reorderScreens(SampleLibrary::signUp, {"02.png", "01.png", "03.mov"});
        FAIL();
    } catch (const RollbackError& e) {
        EXPECT_NE(std::string(e.what()).find(signUp.string()), std::string::npos);
    }
    store.operations() = FileOperations::standard();
    // The meta was rewritten in its new order before renumbering started, so the next
    // renumbering completes that order.
    store.renumberScreens(SampleLibrary::signUp);
    EXPECT_EQ(readFile(signUp / "01.png").substr(33), "sign-up-2");
    EXPECT_EQ(readFile(signUp / "02.png").substr(33), "sign-up-1");
    EXPECT_TRUE(store.recover().problems.empty());
    EXPECT_TRUE(checkLibrary(store).empty());
}

TEST_F(RecoveryTest, CrashLeftStagingFolderBecomesAFlowAtOpen) {
    const fs::path staging = sample.root / ".inprogress/5B0E2F0A-1111-2222-3333-444455556666";
    writeFile(staging / "01.png", pngBytes(1290, 2796, "staged-1"));
    writeFile(staging / "03.mov", "staged-clip");
    writeFile(sample.root / ".inprogress/EMPTY-SESSION/.keep-out", "");
    fs::remove(sample.root / ".inprogress/EMPTY-SESSION/.keep-out");

    EXPECT_FALSE(checkLibrary(store).empty()) << "check reports the waiting capture";
    FlowLibrary library{FlowStore(sample.root)};
    library.open();

    ASSERT_EQ(library.recoveryReport().recoveredFlows.size(), 1u);
    const std::string folder = library.recoveryReport().recoveredFlows[0];
    EXPECT_TRUE(folder.starts_with("recovered-captures/uncategorized/capture-of-")) << folder;
    const FlowMeta meta = library.meta(folder);
    EXPECT_EQ(meta.application, "Recovered captures");
    EXPECT_EQ(meta.width, 1290);
    ASSERT_EQ(meta.screens.size(), 2u);
    EXPECT_EQ(meta.screens[1].filename, "02.mov");
    EXPECT_EQ(readFile(sample.root / folder / "02.mov"), "staged-clip");
    EXPECT_FALSE(fs::exists(sample.root / ".inprogress"));
    EXPECT_NE(std::find(library.applications().begin(), library.applications().end(),
                        "Recovered captures"),
              library.applications().end());
    EXPECT_TRUE(checkLibrary(library.store()).empty());
}

TEST_F(RecoveryTest, OpenFinishesInterruptedRenumberingAndReportsQuarantines) {
    failMoveNumber(5);
    EXPECT_THROW(store.reorderScreens(SampleLibrary::signUp, {"02.png", "01.png", "03.mov"}),
                 LibraryError);
    fs::create_directories(sample.root / "acme/onboarding/.deleting-OLD");
    writeFile(sample.root / "acme/onboarding/.deleting-OLD/01.png", "left behind");

    FlowLibrary library{FlowStore(sample.root)};
    library.open();
    EXPECT_EQ(library.recoveryReport().finishedRenumbering,
              std::vector<std::string>{SampleLibrary::signUp});
    ASSERT_EQ(library.recoveryReport().leftoverQuarantines.size(), 1u);
    EXPECT_TRUE(fs::exists(library.recoveryReport().leftoverQuarantines[0] / "01.png"))
        << "reported, never silently deleted";
}

TEST_F(RecoveryTest, AdoptPlacesTheFlowByItsMetaAndMovesItsFiles) {
    const fs::path payload = dir / "payload/acme/onboarding/sign-up";
    fs::create_directories(payload.parent_path());
    fs::copy(signUp, payload, fs::copy_options::recursive);
    FlowMeta meta = store.meta(SampleLibrary::signUp);
    meta.id = "ADOPTED-ID";
    meta.categoryL1 = "Imported";

    const std::string folder = store.adopt(meta, payload);
    EXPECT_EQ(folder, "acme/imported/sign-up");
    EXPECT_EQ(readFile(sample.root / folder / "02.patch-AAAAAAAA-0000-4000-8000-000000000001.png"),
              "sign-up-2-patch");
    EXPECT_TRUE(fs::exists(sample.root / folder / "ocr.json"));
    EXPECT_EQ(store.readIndex().findFolder(folder)->id, "ADOPTED-ID");
    EXPECT_TRUE(checkLibrary(store).empty());

    EXPECT_THROW(store.adopt(meta, payload), LibraryError) << "the same id twice";
    FlowMeta unsafe = meta;
    unsafe.id = "OTHER";
    unsafe.screens[0].filename = "../../escape.png";
    EXPECT_THROW(store.adopt(unsafe, payload), UnsafeNameError);
    FlowMeta incomplete = meta;
    incomplete.id = "THIRD";
    EXPECT_THROW(store.adopt(incomplete, dir / "payload/nothing"), LibraryError);
}

TEST_F(RecoveryTest, AdoptThatFailsPutsTheFilesBack) {
    const fs::path payload = dir / "payload/flow";
    fs::create_directories(payload.parent_path());
    fs::copy(signUp, payload, fs::copy_options::recursive);
    const auto payloadBefore = treeSnapshot(payload);
    const auto libraryBefore = treeSnapshot(sample.root);
    FlowMeta meta = store.meta(SampleLibrary::signUp);
    meta.id = "NEW";
    store.operations().indexWriter = [](const fs::path& file, std::string_view bytes) {
        if (file.filename() == "index.json")
            throw FileError("write", file, std::make_error_code(std::errc::no_space_on_device));
        FileOps::writeAtomically(file, bytes);
    };
    EXPECT_THROW(store.adopt(meta, payload), FileError);
    EXPECT_EQ(treeSnapshot(payload), payloadBefore);
    EXPECT_EQ(treeSnapshot(sample.root), libraryBefore);
}
