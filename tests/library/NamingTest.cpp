#include "library/Errors.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Slug.h"

#include <gtest/gtest.h>

using namespace varnel;

TEST(SlugTest, MakeKeepsAsciiLettersAndDigitsJoinedBySingleDashes) {
    EXPECT_EQ(Slug::make("Sign Up — Step 2!"), "sign-up-step-2");
    EXPECT_EQ(Slug::make("Café"), "caf");
    EXPECT_EQ(Slug::make("Cafe\u0301 Noir"), "caf-noir"); // decomposed é is one character
    EXPECT_EQ(Slug::make("A  B"), "a-b");
    EXPECT_EQ(Slug::make("  --Hello--World--  "), "hello-world");
    EXPECT_EQ(Slug::make("Line\nbreak"), "line-break");
    EXPECT_EQ(Slug::make("Rocket 🚀 launch"), "rocket-launch");
    EXPECT_EQ(Slug::make("ÀÉÎ123"), "123");
    EXPECT_EQ(Slug::make("bad\xC3(byte"), "bad-byte") << "a malformed byte is not ASCII";
}

TEST(SlugTest, MakeFallsBackToUntitled) {
    EXPECT_EQ(Slug::make(""), "untitled");
    EXPECT_EQ(Slug::make("-"), "untitled");
    EXPECT_EQ(Slug::make("!!!"), "untitled");
    EXPECT_EQ(Slug::make("日本語"), "untitled");
}

TEST(SlugTest, UniqueFolderNameSkipsOne) {
    EXPECT_EQ(Slug::uniqueFolderName("x", {}), "x");
    EXPECT_EQ(Slug::uniqueFolderName("x", {"x"}), "x-2");
    EXPECT_EQ(Slug::uniqueFolderName("x", {"x", "x-2"}), "x-3");
    EXPECT_EQ(Slug::uniqueFolderName("x", {"x-2"}), "x");
}

TEST(SlugTest, ParentPathUsesUncategorizedForMissingParts) {
    EXPECT_EQ(Slug::parentPath("Acme Bank", "On-boarding"), "acme-bank/on-boarding");
    EXPECT_EQ(Slug::parentPath(std::nullopt, std::nullopt), "uncategorized/uncategorized");
    EXPECT_EQ(Slug::parentPath("", "Settings"), "uncategorized/settings");
}

TEST(ScreenFilesTest, NextNumberCountsOnlyNumberedPngAndMov) {
    EXPECT_EQ(ScreenFiles::nextScreenNumber({"01.png", "02.mov", "notes.txt", "07.orig.png"}), 3);
    EXPECT_EQ(ScreenFiles::nextScreenNumber({}), 1);
    EXPECT_EQ(ScreenFiles::nextScreenNumber({"99.png"}), 100);
    EXPECT_EQ(ScreenFiles::nextScreenNumber({"5.PNG", "x5.png", ".png", "12.jpg"}), 1);
    EXPECT_EQ(ScreenFiles::capturedName(1, "png"), "01.png");
    EXPECT_EQ(ScreenFiles::capturedName(100, "mov"), "100.mov");
}

TEST(ScreenFilesTest, RenumberedNamesWidenWithTheCount) {
    EXPECT_EQ(ScreenFiles::renumberedName(1, 9, "07.png"), "01.png");
    EXPECT_EQ(ScreenFiles::renumberedName(99, 99, "x.mov"), "99.mov");
    EXPECT_EQ(ScreenFiles::renumberedName(1, 100, "5.png"), "001.png");
    EXPECT_EQ(ScreenFiles::renumberedName(100, 100, "5.png"), "100.png");
    EXPECT_EQ(ScreenFiles::renumberedName(3, 5, "noext"), "03");
}

TEST(ScreenFilesTest, OriginalAndPatchNames) {
    EXPECT_EQ(ScreenFiles::originalFilename("03.png"), "03.orig.png");
    EXPECT_EQ(ScreenFiles::originalFilename("03.mov"), "03.orig.mov");
    EXPECT_EQ(ScreenFiles::originalFilename("03"), "03.orig");
    const std::string uuid = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    EXPECT_TRUE(ScreenFiles::isPatchOf("03.patch-" + uuid + ".png", "03.png"));
    EXPECT_TRUE(ScreenFiles::isPatchOf("03.patch-" + uuid + ".png", "03.mov"));
    EXPECT_FALSE(ScreenFiles::isPatchOf("031.patch-" + uuid + ".png", "03.png"));
    EXPECT_FALSE(ScreenFiles::isPatchOf("03.patch-ABC.png", "03.png"));
    for (const char* notPatch : {"02.png", "02.orig.mov", "03.mov", "03.patch-.png", "../x.png"})
        EXPECT_FALSE(ScreenFiles::isPatchFileName(notPatch)) << notPatch;
    EXPECT_EQ(ScreenFiles::patchRenamed("03.patch-" + uuid + ".png", "07.png"),
              "07.patch-" + uuid + ".png");
    EXPECT_TRUE(ScreenFiles::isPatchOf(ScreenFiles::newPatchName("05.png"), "05.png"));

    std::set<std::string> claimed{"01.png", "02.mov", "03.orig.png"};
    EXPECT_EQ(ScreenFiles::claimScreenName(claimed, "png"), "03.png");
    EXPECT_EQ(ScreenFiles::claimScreenName(claimed, "mov"), "04.mov");
    EXPECT_TRUE(claimed.contains("04.mov"));
}

TEST(ScreenFilesTest, ClipsAreMovFilesInAnyCase) {
    EXPECT_TRUE(ScreenFiles::isClip("02.mov"));
    EXPECT_TRUE(ScreenFiles::isClip("02.MOV"));
    EXPECT_FALSE(ScreenFiles::isClip("02.png"));
    EXPECT_FALSE(ScreenFiles::isClip("02.mov.png"));
    EXPECT_FALSE(ScreenFiles::isClip("mov"));
}

TEST(LibraryLayoutTest, FolderNamesMustStayInsideTheLibrary) {
    EXPECT_NO_THROW(LibraryLayout::validateFolderName("acme/onboarding/sign-up"));
    for (const char* bad : {"", "/etc/passwd", "acme/../..", "acme//x", "acme/./x", "..",
                            "acme/.inprogress", ".deleting-1/x", "acme/x/"})
        EXPECT_THROW(LibraryLayout::validateFolderName(bad), UnsafeNameError) << bad;
}

TEST(LibraryLayoutTest, FileNamesArePlainFilesOfTheFlow) {
    EXPECT_NO_THROW(LibraryLayout::validateFileName("01.png"));
    EXPECT_NO_THROW(LibraryLayout::validateFileName("01.patch-ABC.png"));
    for (const char* bad :
         {"", "a/b.png", "..", ".hidden.png", "meta.json", "ocr.json", "index.json", "/abs.png"})
        EXPECT_THROW(LibraryLayout::validateFileName(bad), UnsafeNameError) << bad;
}
