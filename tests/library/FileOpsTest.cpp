#include "library/FileOps.h"
#include "media/PngSize.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

TEST(FileOpsTest, MoveAndCopyNeverReplaceAnExistingItem) {
    TempDir dir;
    writeFile(dir / "a.png", "a");
    writeFile(dir / "b.png", "b");
    EXPECT_THROW(FileOps::move(dir / "a.png", dir / "b.png"), FileError);
    EXPECT_THROW(FileOps::copy(dir / "a.png", dir / "b.png"), FileError);
    EXPECT_EQ(readFile(dir / "b.png"), "b");
    EXPECT_EQ(readFile(dir / "a.png"), "a");

    fs::create_directories(dir / "folder/inner");
    writeFile(dir / "folder/inner/x", "x");
    FileOps::copy(dir / "folder", dir / "copy");
    EXPECT_EQ(readFile(dir / "copy/inner/x"), "x");
    FileOps::move(dir / "copy", dir / "moved");
    EXPECT_FALSE(fs::exists(dir / "copy"));
    EXPECT_THROW(FileOps::move(dir / "missing", dir / "elsewhere"), FileError);
}

TEST(FileOpsTest, AtomicWriteReplacesWholeAndLeavesNoTemporaryFile) {
    TempDir dir;
    writeFile(dir / "index.json", "old");
    FileOps::writeAtomically(dir / "index.json", "new content");
    EXPECT_EQ(readFile(dir / "index.json"), "new content");
    EXPECT_EQ(FileOps::list(dir.path()), std::vector<std::string>{"index.json"});
    EXPECT_THROW(FileOps::writeAtomically(dir / "missing/index.json", "x"), FileError);
}

TEST(FileOpsTest, ReadDistinguishesMissingFromUnreadable) {
    TempDir dir;
    EXPECT_FALSE(FileOps::readIfExists(dir / "none"));
    fs::create_directories(dir / "a-folder");
    EXPECT_THROW(FileOps::read(dir / "a-folder"), FileError);
}

TEST(FileOpsTest, InsideTheRootResolvesLinks) {
    TempDir dir;
    fs::create_directories(dir / "root/app");
    fs::create_directories(dir / "outside");
    fs::create_symlink(dir / "outside", dir / "root/app/link");
    EXPECT_TRUE(FileOps::isInside(dir / "root", dir / "root/app"));
    EXPECT_TRUE(FileOps::isInside(dir / "root/", dir / "root/app/new"));
    EXPECT_FALSE(FileOps::isInside(dir / "root", dir / "root/app/link"));
    EXPECT_FALSE(FileOps::isInside(dir / "root", dir / "root/../outside"));
    EXPECT_FALSE(FileOps::isInside(dir / "root", dir / "rootless"));
}

TEST(PngSizeTest, ReadsTheHeaderAndRejectsOtherFiles) {
    TempDir dir;
    writeFile(dir / "ok.png", pngBytes(1179, 2556, "rest"));
    writeFile(dir / "short.png", "\x89PNG");
    writeFile(dir / "text.png", std::string(40, 'x'));
    EXPECT_EQ(pngSize(dir / "ok.png"), (std::pair{1179, 2556}));
    EXPECT_FALSE(pngSize(dir / "short.png"));
    EXPECT_FALSE(pngSize(dir / "text.png"));
    EXPECT_FALSE(pngSize(dir / "missing.png"));
}
