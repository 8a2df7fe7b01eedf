#include "library/Errors.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Slug.h"
#include "library/Utf8.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace std::string_view_literals;

TEST(SlugTest, MakeKeepsLettersAndDigitsJoinedBySingleDashes) {
    EXPECT_EQ(Slug::make("Sign Up — Step 2!"), "sign-up-step-2");
    EXPECT_EQ(Slug::make("A  B"), "a-b");
    EXPECT_EQ(Slug::make("  --Hello--World--  "), "hello-world");
    EXPECT_EQ(Slug::make("Line\nbreak"), "line-break");
    EXPECT_EQ(Slug::make("Tab\tand\r\nCRLF"), "tab-and-crlf");
    EXPECT_EQ(Slug::make("a/b\\c:d*e?f\"g<h>i|j"), "a-b-c-d-e-f-g-h-i-j");
    EXPECT_EQ(Slug::make("nul\0byte"sv), "nul-byte");
    EXPECT_EQ(Slug::make(".hidden"), "hidden");
    EXPECT_EQ(Slug::make("bad\xC3(byte"), "bad-byte") << "a malformed byte is no letter";
}

TEST(SlugTest, MakeKeepsTheLettersOfEveryScript) {
    EXPECT_EQ(Slug::make("가입하기"), "가입하기");
    EXPECT_EQ(Slug::make("회원 가입 2단계"), "회원-가입-2단계");
    EXPECT_EQ(Slug::make("予約"), "予約");
    EXPECT_EQ(Slug::make("ログイン・画面"), "ログイン-画面");
    EXPECT_EQ(Slug::make("コーヒー"), "コーヒー") << "the prolonged sound mark is a letter";
    EXPECT_EQ(Slug::make("日本語"), "日本語");
    EXPECT_EQ(Slug::make("Регистрация Пользователя"), "регистрация-пользователя");
    EXPECT_EQ(Slug::make("Ärger über Öl"), "ärger-über-öl");
    EXPECT_EQ(Slug::make("Café"), "café");
    EXPECT_EQ(Slug::make("ÀÉÎ123"), "àéî123");
    EXPECT_EQ(Slug::make("تسجيل الدخول"), "تسجيل-الدخول");
    EXPECT_EQ(Slug::make("हिन्दी"), "हिन्दी") << "vowel signs and the virama stay with their letters";
    EXPECT_EQ(Slug::make("ภาษาไทย"), "ภาษาไทย");
    EXPECT_EQ(Slug::make("Ⅻ ١٢٣"), "ⅻ-١٢٣") << "numbers of any script";
}

TEST(SlugTest, MakeLowersCaseByUnicodeRules) {
    EXPECT_EQ(Slug::make("ΣΟΦΙΑ"), "σοφια");
    EXPECT_EQ(Slug::make("ΟΔΟΣ ΣΟΦΙΑΣ"), "οδος-σοφιας") << "a sigma that ends a word";
    EXPECT_EQ(Slug::make("Σ"), "σ");
    EXPECT_EQ(Slug::make("ǅemal"), "ǆemal") << "title case";
    EXPECT_EQ(Slug::make("ＡＢＣ"), "ａｂｃ");
    // İ lowers to i and a combining dot, which stays with it.
    EXPECT_EQ(Slug::make("İstanbul"), "i\u0307stanbul");
}

TEST(SlugTest, MakeDropsSymbolsEmojiAndInvisibleCharacters) {
    EXPECT_EQ(Slug::make("Rocket 🚀 launch"), "rocket-launch");
    EXPECT_EQ(Slug::make("가입🎉하기!"), "가입-하기");
    EXPECT_EQ(Slug::make("👨‍👩‍👧 family"), "family");
    EXPECT_EQ(Slug::make("1\uFE0F\u20E3 step"), "1-step") << "a keycap keeps only its digit";
    EXPECT_EQ(Slug::make("👍🏽ok"), "ok");
    // A zero-width space parts words; a joiner, as invisible, doesn't.
    EXPECT_EQ(Slug::make("zero\u200Bwidth\u200Djoin"), "zero-widthjoin");
    EXPECT_EQ(Slug::make("\u202Eevil\u202C name"), "evil-name") << "no bidi overrides";
    EXPECT_EQ(Slug::make("soft\u00ADhyphen"), "soft-hyphen");
    EXPECT_EQ(Slug::make("esc\x1B[31mred"), "esc-31mred");
    EXPECT_EQ(Slug::make("private\uE000use"), "private-use");
    EXPECT_EQ(Slug::make("葛\U000E0100飾"), "葛飾") << "a variation selector only picks a glyph";
}

TEST(SlugTest, MakeGivesNfcWhateverFormTheNameCameIn) {
    // The same names as macOS keyboards and file systems give them, decomposed.
    EXPECT_EQ(Slug::make("Cafe\u0301 Noir"), "café-noir");
    EXPECT_EQ(Slug::make("\u1100\u1161\u110B\u1175\u11B8\u1112\u1161\u1100\u1175"), "가입하기");
    EXPECT_EQ(Slug::make("\u30ED\u30AF\u3099"), "ログ");
    EXPECT_EQ(Slug::make("A\u030A\u0301"), "ǻ");
    EXPECT_EQ(Slug::make("\u0301accent first"), "accent-first") << "a mark with no letter";
}

TEST(SlugTest, MakeAvoidsNamesWindowsReserves) {
    EXPECT_EQ(Slug::make("CON"), "con-1");
    EXPECT_EQ(Slug::make("nul"), "nul-1");
    EXPECT_EQ(Slug::make("Com1"), "com1-1");
    EXPECT_EQ(Slug::make("LPT²"), "lpt²-1");
    EXPECT_EQ(Slug::make("console"), "console");
    EXPECT_EQ(Slug::make("com10"), "com10");
}

TEST(SlugTest, MakeCutsLongNamesBetweenCharactersToTheByteCap) {
    const auto fits = [](const std::string& slug) {
        EXPECT_LE(slug.size(), Slug::kMaxBytes) << slug;
        EXPECT_TRUE(Utf8::isValid(slug)) << slug;
        EXPECT_FALSE(slug.ends_with('-')) << slug;
        EXPECT_TRUE(LibraryLayout::isSafeFolderName(slug + "-99999-incomplete-99999")) << slug;
    };
    std::string ascii(400, 'a');
    EXPECT_EQ(Slug::make(ascii), std::string(Slug::kMaxBytes, 'a'));

    // 3 bytes each: the cap (180) holds exactly 60.
    std::string korean;
    for (int i = 0; i < 100; ++i)
        korean += "가";
    const std::string cutKorean = Slug::make(korean);
    fits(cutKorean);
    EXPECT_EQ(cutKorean.size(), 180u);

    // 2 bytes each and a 1-byte start: the last one that doesn't fit whole is left out.
    std::string cyrillic = "x";
    for (int i = 0; i < 100; ++i)
        cyrillic += "ж";
    const std::string cutCyrillic = Slug::make(cyrillic);
    fits(cutCyrillic);
    EXPECT_EQ(cutCyrillic.size(), 179u);

    // A letter with two marks is one character of 5 bytes; it goes whole or not at all.
    std::string marked(176, 'b');
    marked += "e\u0323\u0302\u0301"; // NFC: ệ (3 bytes) and an acute (2 bytes)
    const std::string cutMarked = Slug::make(marked);
    fits(cutMarked);
    EXPECT_EQ(cutMarked, std::string(176, 'b'));

    // A word boundary at the cap leaves no dash at the end.
    const std::string words = std::string(179, 'c') + " dd";
    EXPECT_EQ(Slug::make(words), std::string(179, 'c'));

    std::string emojiHeavy;
    for (int i = 0; i < 80; ++i)
        emojiHeavy += "예약🎉";
    fits(Slug::make(emojiHeavy));
}

TEST(SlugTest, MakeFallsBackToUntitled) {
    EXPECT_EQ(Slug::make(""), "untitled");
    EXPECT_EQ(Slug::make("-"), "untitled");
    EXPECT_EQ(Slug::make("!!!"), "untitled");
    EXPECT_EQ(Slug::make("🚀🎉"), "untitled");
    EXPECT_EQ(Slug::make("\u200B\u200D"), "untitled");
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
    EXPECT_NO_THROW(LibraryLayout::validateFolderName("회사/온보딩/가입하기"));
    EXPECT_NO_THROW(LibraryLayout::validateFolderName("予約/ログイン-画面/café-2"));
    for (const char* bad : {"", "/etc/passwd", "acme/../..", "acme//x", "acme/./x", "..",
                            "acme/.inprogress", ".deleting-1/x", "acme/x/"})
        EXPECT_THROW(LibraryLayout::validateFolderName(bad), UnsafeNameError) << bad;

    // A part may hold 255 bytes, however many characters they make.
    std::string longest;
    for (int i = 0; i < 85; ++i)
        longest += "가";
    EXPECT_NO_THROW(LibraryLayout::validateFolderName("acme/x/" + longest));
    EXPECT_THROW(LibraryLayout::validateFolderName("acme/x/" + longest + "a"), UnsafeNameError);
    EXPECT_THROW(LibraryLayout::validateFolderName("acme/가입\0하기"sv), UnsafeNameError);
    EXPECT_THROW(LibraryLayout::validateFolderName("가입/../../x"), UnsafeNameError);
    // Whatever the name, make() gives a part the store and the other file systems accept.
    for (const char* name : {"가입하기", "..", ".", "/", "\x01\x7F", "-", "CON", "a/../b"}) {
        const std::string slug = Slug::make(name);
        EXPECT_NO_THROW(LibraryLayout::validateFolderName("acme/x/" + slug)) << name;
        EXPECT_EQ(slug.find_first_of("/\\:*?\"<>|"), std::string::npos) << name;
    }
}

TEST(LibraryLayoutTest, FileNamesArePlainFilesOfTheFlow) {
    EXPECT_NO_THROW(LibraryLayout::validateFileName("01.png"));
    EXPECT_NO_THROW(LibraryLayout::validateFileName("01.patch-ABC.png"));
    for (const char* bad :
         {"", "a/b.png", "..", ".hidden.png", "meta.json", "ocr.json", "index.json", "/abs.png"})
        EXPECT_THROW(LibraryLayout::validateFileName(bad), UnsafeNameError) << bad;
}
