// Real recognition on screens drawn here with Qt: the words come back, in their places, in
// English, French and Korean, on light and dark screens and on coloured buttons.
#include "text/ScreenOCR.h"
#include "support/RenderedScreens.h"
#include "support/TestLibrary.h"

#include <QGuiApplication>

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

using Language = RenderedScreen::Language;

cv::Mat pixels(const QImage& image) {
    return cv::Mat(image.height(), image.width(), CV_8UC4, const_cast<uchar*>(image.bits()),
                   static_cast<std::size_t>(image.bytesPerLine()))
        .clone();
}

class ScreenOCRTest : public ::testing::TestWithParam<std::tuple<Language, bool>> {
protected:
    static ScreenOCR& ocr() {
        static ScreenOCR engine;
        return engine;
    }
};

} // namespace

TEST_P(ScreenOCRTest, ReadsTheWordsWhereTheyAre) {
    const auto [language, dark] = GetParam();
    const RenderedScreen screen = renderScreen(language, dark);
    const auto lines = ocr().recognize(pixels(screen.image));
    const std::string blob = ScreenOCR::searchBlob(lines);
    EXPECT_GE(wordRecall(screen.words, blob), 0.9) << blob;

    // The button's white-on-colour label is read (the last words drawn).
    EXPECT_EQ(wordRecall({screen.words.back()}, blob), 1.0) << blob;

    // Some line lies where the title was drawn, in normalized top-left coordinates.
    const QRectF title = screen.titleBox;
    const bool placed = std::any_of(lines.begin(), lines.end(), [&](const TextLine& line) {
        const QRectF box(line.box.x, line.box.y, line.box.width, line.box.height);
        return box.intersects(title) && std::abs(box.center().y() - title.center().y()) < 0.01;
    });
    EXPECT_TRUE(placed) << "title at " << title.y();
    for (const auto& line : lines) {
        EXPECT_GE(line.box.x, 0);
        EXPECT_LE(line.box.maxY(), 1.0 + 1e-9);
    }
}

INSTANTIATE_TEST_SUITE_P(LanguagesAndThemes, ScreenOCRTest,
                         ::testing::Combine(::testing::Values(Language::english, Language::french,
                                                              Language::korean),
                                            ::testing::Bool()));

// Titles from 10 pt print to large page titles, regular and bold, on light and dark screens:
// large bold text is where a background estimate narrower than its strokes reads hollow glyphs
// ("literary"), and small bold print is where half scale runs strokes together ("accuell").
TEST(ScreenOCRSizeTest, ReadsEveryTitleFromSmallPrintToLargeTitles) {
    ScreenOCR ocr;
    for (const int size : {30, 100, 130, 160})
        for (const bool bold : {false, true})
            for (const bool dark : {false, true}) {
                SCOPED_TRACE(std::to_string(size) + (bold ? " px bold" : " px") +
                             (dark ? " on dark" : " on light"));
                const RenderedScreen screen = renderTitles(size, bold, dark);
                ASSERT_GE(screen.words.size(), 8u);
                const std::string blob = ScreenOCR::searchBlob(ocr.recognize(pixels(screen.image)));
                EXPECT_EQ(wordRecall(screen.words, blob), 1.0) << blob;
            }
}

TEST(ScreenOCRFileTest, UnreadableFilesGiveNothing) {
    TempDir dir;
    writeFile(dir / "broken.png", "not a picture");
    ScreenOCR ocr;
    EXPECT_FALSE(ocr.recognize(dir / "broken.png"));
    EXPECT_FALSE(ocr.recognize(dir / "missing.png"));
    writePicture(dir / "blank.png", 200, 400, 0xffffffffu);
    const auto blank = ocr.recognize(dir / "blank.png");
    ASSERT_TRUE(blank);
    EXPECT_TRUE(blank->empty());
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv); // fonts for drawing the screens
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
