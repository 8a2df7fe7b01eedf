#pragma once

#include <optional>
#include <string_view>

namespace varnel::Utf8 {

// Decodes the code point that starts at text[i] and moves i past it. A malformed sequence
// (bad lead or continuation byte, overlong form, surrogate, beyond U+10FFFF, cut short) gives
// none and moves i past its first byte only.
std::optional<char32_t> next(std::string_view text, std::size_t& i);

bool isValid(std::string_view text);

} // namespace varnel::Utf8
