#pragma once

#include <string>
#include <string_view>

namespace varnel::SearchFold {

// Text as search compares it, on both sides: lower case, accents dropped ("Bibliothèque" and
// "bibliotheque" meet), any run of white space one space, no white space at either end, and no
// space between two characters of Korean, Chinese or Japanese (the recognizer puts spaces
// between Hangul syllables that users type without: "계 속 하기" is "계속하기").
std::string fold(std::string_view text);

} // namespace varnel::SearchFold
