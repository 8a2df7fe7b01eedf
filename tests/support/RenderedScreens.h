#pragma once

#include <QImage>

#include <string>
#include <vector>

namespace varnel::test {

// A made-up phone screen (1179×2556) drawn with Qt's text engine: a title, list rows, small grey
// labels and a coloured button, in English, French or Korean, in light or dark colours.
struct RenderedScreen {
    enum class Language { english, french, korean };

    QImage image;
    // Every word drawn, as drawn.
    std::vector<std::string> words;
    // Where the title was drawn, normalized with a top-left origin.
    QRectF titleBox;
};

RenderedScreen renderScreen(RenderedScreen::Language language, bool dark, int variant = 0);

// A phone screen of page titles all drawn at one pixel size (English and French, one per line),
// as many as fit; `words` holds those drawn.
RenderedScreen renderTitles(int pixelSize, bool bold, bool dark);

// The words of `expected` that a search for each, typed as drawn, finds in the text, 0..1.
double wordRecall(const std::vector<std::string>& expected, const std::string& text);

} // namespace varnel::test
