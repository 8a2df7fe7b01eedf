#include "library/Text.h"

#include <QString>

#include <algorithm>

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

std::string lowercased(std::string_view text) {
    // ASCII, the common case, without a round trip through UTF-16.
    const bool ascii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (ascii) {
        std::string lower(text);
        for (char& c : lower)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        return lower;
    }
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
        .toLower()
        .toStdString();
}

} // namespace varnel::Text
