#include "library/Text.h"

#include "library/Errors.h"
#include "library/Utf8.h"

#include <QString>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace varnel::Text {

namespace {

bool isSpace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
           c == 0x205F || c == 0x3000 || c == 0xFEFF;
}

} // namespace

std::string trimmed(std::string_view text) {
    std::size_t first = text.size();
    std::size_t end = 0;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t at = i;
        const auto c = Utf8::next(text, i);
        if (c && isSpace(*c))
            continue;
        first = std::min(first, at);
        end = i; // a malformed byte is kept, for the caller's check to refuse
    }
    if (first >= end)
        return {};
    return std::string(text.substr(first, end - first));
}

std::string byteCount(std::uint64_t bytes) {
    if (bytes < 1000)
        return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    const char* units[] = {"KB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    while (value >= 999.95 && unit + 1 < std::size(units)) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, value < 10 ? "%.1f %s" : "%.0f %s", value, units[unit]);
    return text;
}

void requireUtf8(std::string_view text) {
    if (!Utf8::isValid(text))
        throw LibraryError(kNotUtf8);
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
