#include "library/Text.h"

namespace varnel::Text {

std::string trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\n\r\v\f";
    const auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(kSpace);
    return std::string(text.substr(first, last - first + 1));
}

std::optional<std::string> nonBlank(const std::optional<std::string>& text) {
    if (!text)
        return std::nullopt;
    std::string t = trimmed(*text);
    if (t.empty())
        return std::nullopt;
    return t;
}

} // namespace varnel::Text
