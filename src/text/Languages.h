#pragma once

#include <optional>
#include <string>
#include <string_view>

// Language codes as the settings keep them (ISO 639-1, "en") and as engines name their pairs
// (Apertium's "spa-eng", ISO 639-3), and a line's language as far as it shows.
namespace varnel::Languages {

// "spa" → "es", "es" → "es", "spa-eng"'s halves likewise; none for a code it does not know.
std::optional<std::string> twoLetter(std::string_view code);
std::string threeLetter(std::string_view twoLetterCode);
// "Spanish" for "es"; the code itself when unknown.
std::string name(std::string_view twoLetterCode);

// The language a line is written in, from its script (Hangul, kana, Han, Cyrillic, Greek,
// Arabic, Hebrew, Thai) and, for Latin letters, from its common words and accents; none when
// the line does not say (a name, a number, a single word of no telling language).
std::optional<std::string> guess(std::string_view line);

} // namespace varnel::Languages
