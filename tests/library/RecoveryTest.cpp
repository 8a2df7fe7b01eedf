#include "library/FlowStore.h"
#include "library/LibraryCheck.h"
#include "library/LibraryLayout.h"
#include "model/FlowLibrary.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

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

// What cut-short writes leave, wherever they are: the check names each, the repairs at opening
// remove them all, and nothing stays wedged (the flow renumbers, the capture is recovered).
TEST_F(RecoveryTest, LeftoversOfCutShortWritesAreFoundAndRemovedWhereverTheyAre) {
    const std::string uuid = "0A1B2C3D-0000-4000-8000-000000000001";
    const fs::path logIn = sample.root / SampleLibrary::logIn;
    fs::create_directories(logIn / ".renumber");
    writeFile(logIn / ".renumber" / (".journal.json." + uuid + ".tmp"), "{\"af");
    writeFile(signUp / (".meta.json." + uuid + ".tmp"), "{");
    writeFile(signUp / (".bake-" + uuid + ".mov"), "half a clip");
    writeFile(sample.root / (".bake-" + uuid + ".mov"), "half a clip");
    writeFile(sample.root / (".previous-" + uuid + ".mov"), "a clip kept aside");
    const fs::path staging = sample.root / ".inprogress" / uuid;
    fs::create_directories(staging);
    writeFile(staging / (".03.png." + uuid + ".tmp"), "half a still");
    const fs::path assembly = signUp.parent_path() / (".adopting-" + uuid);
    fs::create_directories(assembly);
    writeFile(assembly / (".meta.json." + uuid + ".tmp"), "{");

    const auto found = checkLibrary(store);
    for (const auto& where : {logIn / ".renumber", signUp, sample.root, staging, assembly}) {
        EXPECT_TRUE(std::any_of(found.begin(), found.end(),
                                [&](const std::string& p) {
                                    return p.find(where.string() + "/.") != std::string::npos;
                                }))
            << "the check names what is left in " << where;
    }

    const RecoveryReport report = store.recover();
    EXPECT_TRUE(report.problems.empty()) << report.problems.front();
    EXPECT_EQ(checkLibrary(store), std::vector<std::string>{});
    for (const auto& entry : fs::recursive_directory_iterator(sample.root))
        EXPECT_FALSE(LibraryLayout::isWriteLeftover(entry.path().filename().string()))
            << entry.path();
    EXPECT_FALSE(fs::exists(staging));
    EXPECT_FALSE(fs::exists(assembly));
    EXPECT_NO_THROW(store.reorderScreens(SampleLibrary::logIn, {"02.png", "01.png"}));
    EXPECT_NO_THROW(store.reorderScreens(SampleLibrary::logIn, {"02.png", "01.png"}));
    EXPECT_FALSE(fs::exists(logIn / ".renumber"));
}

// A flow folder whose name isn't UTF-8 can't be listed, but the folders after it still are.
TEST_F(RecoveryTest, AFolderNameThatIsNotTextDoesNotStopTheOthersBeingListed) {
    FlowMeta meta = store.meta(SampleLibrary::transfer);
    const fs::path category = sample.root / "bank" / "uncategorized";
    for (const std::string name : {"caf\xe9-bad", "zz-later"}) {
        meta.id = name == "zz-later" ? "4E2A3A0C-1111-4000-8000-000000000002"
                                     : "4E2A3A0C-1111-4000-8000-000000000003";
        meta.name = name == "zz-later" ? "Later" : "Bad";
        fs::create_directories(category / name);
        writeFile(category / name / "meta.json", encodeLibraryJson(meta.toJson()));
        fs::copy_file(category / "transfer" / "01.png", category / name / "01.png");
    }
    const RecoveryReport report = store.recover();
    EXPECT_NE(store.readIndex().findFolder("bank/uncategorized/zz-later"), nullptr);
    ASSERT_EQ(report.problems.size(), 1u);
    EXPECT_NE(report.problems[0].find("caf?-bad"), std::string::npos) << report.problems[0];
}

// An import (or a capture's save) cut short while adding a flow is undone into the folder its
// files came from, also after the library folder was moved or renamed.
TEST_F(RecoveryTest, AnInterruptedAdditionIsUndoneAfterTheLibraryMoved) {
    const fs::path staging = sample.root / ".inprogress" / "5B6C";
    fs::create_directories(staging);
    writeFile(staging / "01.png", pngBytes(30, 60, "captured"));
    FlowStore failing(sample.root);
    FlowMeta meta;
    meta.id = "5B6C0000-2222-4000-8000-000000000004";
    meta.name = "Captured";
    meta.application = "Acme";
    ScreenRef ref;
    ref.filename = "01.png";
    meta.screens.push_back(ref);
    // Killed as it writes the flow's record: the files wait in the assembly, which names where
    // they came from.
    auto writes = std::make_shared<int>(0);
    failing.operations().indexWriter = [writes](const fs::path& file, std::string_view bytes) {
        if (++*writes == 2)
            ::raise(SIGKILL);
        FileOps::writeAtomically(file, bytes);
    };
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            failing.adopt(meta, staging);
        } catch (...) {
        }
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_FALSE(fs::exists(staging / "01.png")) << "the file is in the assembly";

    const fs::path moved = dir / "Moved Library";
    fs::rename(sample.root, moved);
    FlowStore there(moved);
    const RecoveryReport report = there.recover();
    EXPECT_TRUE(report.problems.empty()) << report.problems.front();
    ASSERT_EQ(report.recoveredFlows.size(), 1u) << "the capture is whole again, and recovered";
    const auto recovered = there.meta(report.recoveredFlows[0]);
    ASSERT_EQ(recovered.screens.size(), 1u);
    EXPECT_EQ(readFile(moved / report.recoveredFlows[0] / "01.png"), pngBytes(30, 60, "captured"));
    EXPECT_EQ(checkLibrary(there), std::vector<std::string>{});
}

// Screens, originals or patches that a flow's folder holds but its record doesn't list, and
// flow folders without a record, are never called consistent.
TEST_F(RecoveryTest, TheCheckNamesUnlistedScreensAndFoldersWithoutARecord) {
    ASSERT_EQ(checkLibrary(store), std::vector<std::string>{});
    writeFile(signUp / "04.png", pngBytes(30, 60, "stray"));
    fs::create_directories(sample.root / "acme" / "onboarding" / "orphan");
    writeFile(sample.root / "acme" / "onboarding" / "orphan" / "01.png", "x");
    const auto problems = checkLibrary(store);
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_NE(problems[0].find("“04.png”"), std::string::npos) << problems[0];
    EXPECT_NE(problems[1].find("orphan"), std::string::npos) << problems[1];
}
