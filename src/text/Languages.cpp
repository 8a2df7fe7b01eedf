#include "text/Languages.h"

#include "library/Utf8.h"
#include "text/SearchFold.h"

#include <array>
#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace varnel::Languages {

namespace {

struct Language {
    const char* two;
    const char* three;
    const char* name;
};

constexpr std::array<Language, 40> kLanguages{{
    {"en", "eng", "English"},   {"es", "spa", "Spanish"},    {"fr", "fra", "French"},
    {"de", "deu", "German"},    {"it", "ita", "Italian"},    {"pt", "por", "Portuguese"},
    {"ca", "cat", "Catalan"},   {"gl", "glg", "Galician"},   {"eu", "eus", "Basque"},
    {"nl", "nld", "Dutch"},     {"ro", "ron", "Romanian"},   {"oc", "oci", "Occitan"},
    {"eo", "epo", "Esperanto"}, {"an", "arg", "Aragonese"},  {"sv", "swe", "Swedish"},
    {"da", "dan", "Danish"},    {"nb", "nob", "Norwegian"},  {"nn", "nno", "Nynorsk"},
    {"is", "isl", "Icelandic"}, {"pl", "pol", "Polish"},     {"cs", "ces", "Czech"},
    {"sk", "slk", "Slovak"},    {"uk", "ukr", "Ukrainian"},  {"ru", "rus", "Russian"},
    {"bg", "bul", "Bulgarian"}, {"mk", "mkd", "Macedonian"}, {"sr", "srp", "Serbian"},
    {"hr", "hrv", "Croatian"},  {"sl", "slv", "Slovenian"},  {"cy", "cym", "Welsh"},
    {"br", "bre", "Breton"},    {"ga", "gle", "Irish"},      {"mt", "mlt", "Maltese"},
    {"ko", "kor", "Korean"},    {"ja", "jpn", "Japanese"},   {"zh", "zho", "Chinese"},
    {"ar", "ara", "Arabic"},    {"he", "heb", "Hebrew"},     {"el", "ell", "Greek"},
    {"th", "tha", "Thai"},
}};

const Language* find(std::string_view code) {
    for (const auto& language : kLanguages)
        if (code == language.two || code == language.three)
            return &language;
    return nullptr;
}

// Words that are common in one language and rare in the others.
const std::map<std::string, std::set<std::string>>& markers() {
    static const std::map<std::string, std::set<std::string>> words{
        {"en",
         {"the", "and", "your", "you", "with", "for", "sign", "in", "to", "of", "new", "my",
          "account", "settings", "next", "continue", "forgot", "password", "create"}},
        {"es",
         {"el",        "la",     "los", "las", "de",     "del",     "y",      "tu",         "su",
          "con",       "para",   "una", "un",  "cuenta", "iniciar", "sesion", "contrasena", "crear",
          "siguiente", "olvide", "mi",  "es",  "por",    "nueva",   "nuevo",  "que"}},
        {"fr",
         {"le",      "la",     "les", "de",  "des",     "du",        "et",  "votre",    "vous",
          "avec",    "pour",   "une", "un",  "compte",  "connexion", "mot", "passe",    "creer",
          "suivant", "oublie", "mon", "est", "nouveau", "nouvelle",  "se",  "connecter"}},
        {"de", {"der",    "die",       "das",  "und",   "ihr",      "ihre",     "mit",
                "fur",    "ein",       "eine", "konto", "anmelden", "passwort", "erstellen",
                "weiter", "vergessen", "mein", "ist",   "neues",    "neu",      "sie"}},
        {"it", {"il",      "lo",     "la",   "gli",    "le",          "di",  "del",
                "e",       "tuo",    "tua",  "con",    "per",         "un",  "una",
                "account", "accedi", "crea", "avanti", "dimenticato", "mio", "nuovo"}},
        {"pt", {"o",     "a",     "os",      "as",      "de",    "do",   "da",    "e",
                "seu",   "sua",   "com",     "para",    "um",    "uma",  "conta", "entrar",
                "senha", "criar", "proximo", "esqueci", "minha", "nova", "novo",  "voce"}},
    };
    return words;
}

} // namespace

std::optional<std::string> twoLetter(std::string_view code) {
    if (const auto* language = find(code))
        return std::string(language->two);
    return std::nullopt;
}

std::string threeLetter(std::string_view twoLetterCode) {
    const auto* language = find(twoLetterCode);
    return language ? language->three : std::string(twoLetterCode);
}

std::string name(std::string_view twoLetterCode) {
    const auto* language = find(twoLetterCode);
    return language ? language->name : std::string(twoLetterCode);
}

std::optional<std::string> guess(std::string_view line) {
    std::map<std::string, int> scripts;
    int latin = 0;
    for (std::size_t at = 0; at < line.size();) {
        const auto decoded = Utf8::next(line, at);
        if (!decoded)
            continue;
        const char32_t c = *decoded;
        if ((c >= 0xAC00 && c <= 0xD7A3) || (c >= 0x1100 && c <= 0x11FF))
            ++scripts["ko"];
        else if ((c >= 0x3040 && c <= 0x30FF))
            scripts["ja"] += 2; // kana says Japanese even among Han characters
        else if (c >= 0x4E00 && c <= 0x9FFF)
            ++scripts["zh"];
        else if (c >= 0x0400 && c <= 0x04FF)
            ++scripts["ru"];
        else if (c >= 0x0370 && c <= 0x03FF)
            ++scripts["el"];
        else if (c >= 0x0600 && c <= 0x06FF)
            ++scripts["ar"];
        else if (c >= 0x0590 && c <= 0x05FF)
            ++scripts["he"];
        else if (c >= 0x0E00 && c <= 0x0E7F)
            ++scripts["th"];
        else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0x24F))
            ++latin;
    }
    if (scripts.contains("ja") && scripts.contains("zh"))
        scripts["ja"] += scripts["zh"];
    std::string best;
    int most = 0;
    for (const auto& [language, count] : scripts)
        if (count > most)
            best = language, most = count;
    if (most > latin)
        return best;
    if (latin == 0)
        return std::nullopt;

    // Latin letters: count each language's common words; accents tip a tie.
    std::map<std::string, int> score;
    std::istringstream words(SearchFold::fold(line));
    std::string word;
    while (words >> word) {
        while (!word.empty() && !std::isalnum(static_cast<unsigned char>(word.back())))
            word.pop_back();
        for (const auto& [language, common] : markers())
            if (common.contains(word))
                score[language] += 2;
    }
    const std::string text(line);
    const auto has = [&](const char* s) { return text.find(s) != std::string::npos; };
    if (has("ñ") || has("¿") || has("¡") || has("ó") || has("í") || has("á"))
        ++score["es"];
    if (has("è") || has("ê") || has("ç") || has("à") || has("ù") || has("œ"))
        ++score["fr"];
    if (has("ä") || has("ö") || has("ü") || has("ß"))
        ++score["de"];
    if (has("ã") || has("õ") || has("ç"))
        ++score["pt"];
    best.clear();
    most = 0;
    bool tie = false;
    for (const auto& [language, points] : score) {
        if (points > most) {
            best = language, most = points, tie = false;
        } else if (points == most) {
            tie = true;
        }
    }
    if (most == 0 || tie)
        return std::nullopt;
    return best;
}

} // namespace varnel::Languages
