#include "library/Slug.h"

#include <QString>
#include <QStringView>
#include <QTextBoundaryFinder>

#include <array>
#include <vector>

namespace varnel::Slug {
namespace {

constexpr char32_t kCapitalSigma = 0x03A3;
constexpr char32_t kSmallSigma = 0x03C3;
constexpr char32_t kFinalSigma = 0x03C2;

std::vector<char32_t> codePoints(QStringView text) {
    std::vector<char32_t> out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            out.push_back(QChar::surrogateToUcs4(c, text[i + 1]));
            ++i;
        } else {
            out.push_back(c.unicode());
        }
    }
    return out;
}

void append(QString& out, char32_t cp) {
    if (QChar::requiresSurrogates(cp)) {
        out.append(QChar(QChar::highSurrogate(cp)));
        out.append(QChar(QChar::lowSurrogate(cp)));
    } else {
        out.append(QChar(static_cast<char16_t>(cp)));
    }
}

// Variation selectors (and the grapheme joiner) only pick a glyph: the word is the same
// without them.
bool isVariationSelector(char32_t cp) {
    return (cp >= 0xFE00 && cp <= 0xFE0F) || (cp >= 0xE0100 && cp <= 0xE01EF) ||
           (cp >= 0x180B && cp <= 0x180D) || cp == 0x180F || cp == 0x034F;
}

// What of a kept character goes into a name: its letters, digits and the marks that shape
// them (Hindi's vowel signs, Arabic's vowels); never a format, control or unassigned one.
bool keepsInName(char32_t cp) {
    switch (QChar::category(cp)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
        return !isVariationSelector(cp);
    default:
        return QChar::isLetterOrNumber(cp);
    }
}

// Names Windows refuses whatever their extension, for a library on a shared or removable disk.
bool isReserved(const QString& name) {
    static const std::array<const char16_t*, 28> reserved = {
        u"con",  u"prn",  u"aux",  u"nul",  u"com1", u"com2", u"com3", u"com4", u"com5", u"com6",
        u"com7", u"com8", u"com9", u"com¹", u"com²", u"com³", u"lpt1", u"lpt2", u"lpt3", u"lpt4",
        u"lpt5", u"lpt6", u"lpt7", u"lpt8", u"lpt9", u"lpt¹", u"lpt²", u"lpt³"};
    for (const char16_t* r : reserved)
        if (name == QStringView(r))
            return true;
    return false;
}

// The user-perceived characters of `text`, each with the marks and joiners that go with it.
std::vector<QString> graphemes(const QString& text) {
    std::vector<QString> out;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype start = 0;
    for (qsizetype end = finder.toNextBoundary(); end != -1 && start < text.size();
         end = finder.toNextBoundary()) {
        out.push_back(text.mid(start, end - start));
        start = end;
    }
    return out;
}

bool isWordCharacter(const QString& grapheme) {
    return !grapheme.isEmpty() && QChar::isLetterOrNumber(codePoints(grapheme).front());
}

} // namespace

std::string make(std::string_view text) {
    // A malformed byte becomes U+FFFD, which is no letter.
    const QString source = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
                               .normalized(QString::NormalizationForm_C);

    // A letter or digit keeps its marks; anything else, with whatever joins onto it (as in an
    // emoji sequence), separates words.
    const std::vector<QString> characters = graphemes(source);
    QString joined;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        if (!isWordCharacter(characters[i])) {
            if (!joined.isEmpty() && !joined.endsWith(u'-'))
                joined += u'-';
            continue;
        }
        QString lower;
        for (const char32_t cp : codePoints(characters[i].toLower()))
            if (keepsInName(cp))
                append(lower, cp);
        // Greek writes a capital sigma that ends a word as ς.
        const bool endsWord = i + 1 == characters.size() || !isWordCharacter(characters[i + 1]);
        const bool inWord = !joined.isEmpty() && !joined.endsWith(u'-');
        if (codePoints(characters[i]).front() == kCapitalSigma && inWord && endsWord &&
            lower.startsWith(QChar(static_cast<char16_t>(kSmallSigma))))
            lower[0] = QChar(static_cast<char16_t>(kFinalSigma));
        joined += lower;
    }
    joined = joined.normalized(QString::NormalizationForm_C);

    // Cut between characters so that the name fits, never inside one.
    std::string out;
    for (const QString& character : graphemes(joined)) {
        const QByteArray bytes = character.toUtf8();
        if (out.size() + static_cast<std::size_t>(bytes.size()) > kMaxBytes)
            break;
        out.append(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }
    while (!out.empty() && out.back() == '-')
        out.pop_back();
    if (out.empty())
        return "untitled";
    if (isReserved(QString::fromStdString(out)))
        out += "-1";
    return out;
}

std::string uniqueFolderName(const std::string& base, const std::set<std::string>& existing) {
    if (!existing.contains(base))
        return base;
    for (unsigned n = 2;; ++n) {
        std::string candidate = base + "-" + std::to_string(n);
        if (!existing.contains(candidate))
            return candidate;
    }
}

std::string parentPath(const std::optional<std::string>& application,
                       const std::optional<std::string>& categoryL1) {
    const std::string app = application && !application->empty() ? *application : "uncategorized";
    const std::string category = categoryL1 && !categoryL1->empty() ? *categoryL1 : "uncategorized";
    return make(app) + "/" + make(category);
}

} // namespace varnel::Slug
