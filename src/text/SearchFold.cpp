#include "text/SearchFold.h"

#include <QList>
#include <QString>

#include <algorithm>

namespace varnel::SearchFold {

namespace {

bool isAsciiSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// Already folded: no capitals, and spaces only single ones between words (search blobs are
// lower-cased when stored, so most text is).
bool foldedAscii(std::string_view text) {
    if (!text.empty() && (text.front() == ' ' || text.back() == ' '))
        return false;
    char previous = 0;
    for (const char c : text) {
        if ((c >= 'A' && c <= 'Z') || (isAsciiSpace(c) && (c != ' ' || previous == ' ')))
            return false;
        previous = c;
    }
    return true;
}

std::string foldAscii(std::string_view text) {
    if (foldedAscii(text))
        return std::string(text);
    std::string out;
    out.reserve(text.size());
    bool pendingSpace = false;
    for (char c : text) {
        if (isAsciiSpace(c)) {
            pendingSpace = !out.empty();
            continue;
        }
        if (pendingSpace)
            out += ' ';
        pendingSpace = false;
        out += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return out;
}

// Scripts written without spaces between words (or, for Hangul, typed without the spaces the
// recognizer puts between syllables).
bool isCjk(char32_t c) {
    return (c >= 0x1100 && c <= 0x11FF) || // Hangul Jamo
           (c >= 0x3040 && c <= 0x30FF) || // Hiragana, Katakana
           (c >= 0x3130 && c <= 0x318F) || // Hangul compatibility Jamo
           (c >= 0x3400 && c <= 0x4DBF) || // CJK extension A
           (c >= 0x4E00 && c <= 0x9FFF) || // CJK unified ideographs
           (c >= 0xAC00 && c <= 0xD7A3) || // Hangul syllables
           (c >= 0xFF66 && c <= 0xFF9F) || // half-width Katakana
           (c >= 0x20000 && c <= 0x2FFFF); // CJK extensions B and on
}

} // namespace

std::string fold(std::string_view text) {
    const bool ascii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (ascii)
        return foldAscii(text);

    // Accents come apart from their letters, go, and the rest is put back together (Hangul
    // syllables come apart too, and are recomposed).
    const QString decomposed = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
                                   .normalized(QString::NormalizationForm_D);
    std::u32string letters;
    letters.reserve(static_cast<std::size_t>(decomposed.size()));
    for (char32_t c : decomposed.toUcs4()) {
        if (QChar::category(c) == QChar::Mark_NonSpacing)
            continue;
        letters += c;
    }
    const QString bare = QString::fromUcs4(letters.data(), static_cast<qsizetype>(letters.size()))
                             .normalized(QString::NormalizationForm_C)
                             .toLower();

    std::u32string out;
    const auto chars = bare.toUcs4();
    out.reserve(static_cast<std::size_t>(chars.size()));
    bool pendingSpace = false;
    for (char32_t c : chars) {
        if (QChar::isSpace(c)) {
            pendingSpace = !out.empty();
            continue;
        }
        if (pendingSpace && !(isCjk(out.back()) && isCjk(c)))
            out += U' ';
        pendingSpace = false;
        out += c;
    }
    return QString::fromUcs4(out.data(), static_cast<qsizetype>(out.size())).toStdString();
}

} // namespace varnel::SearchFold
