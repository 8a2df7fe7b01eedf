#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varnel::Text {

// Trims white space and line breaks from both ends: every Unicode white space (U+00A0,
// U+2003, U+3000 …) and the byte order mark, not only ASCII's.
std::string trimmed(std::string_view text);

inline constexpr const char* kNotUtf8 =
    "The name holds bytes that aren’t UTF-8 text; give it in UTF-8.";
// Throws LibraryError(kNotUtf8) unless `text` is valid UTF-8.
void requireUtf8(std::string_view text);

// The trimmed text, or none when nothing is left.
std::optional<std::string> nonBlank(const std::optional<std::string>& text);

// A size for people: "820 bytes", "12 KB", "3.4 MB", "1.2 GB" (powers of 1000).
std::string byteCount(std::uint64_t bytes);

// Lower case by Unicode's rules (É becomes é), UTF-8 in and out.
std::string lowercased(std::string_view text);

} // namespace varnel::Text
