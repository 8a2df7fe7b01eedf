#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace varnel::Text {

// Trims white space and line breaks from both ends.
std::string trimmed(std::string_view text);

// The trimmed text, or none when nothing is left.
std::optional<std::string> nonBlank(const std::optional<std::string>& text);

// Lower case by Unicode's rules (É becomes é), UTF-8 in and out.
std::string lowercased(std::string_view text);

} // namespace varnel::Text
