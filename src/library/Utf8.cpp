#include "library/Utf8.h"

namespace varnel::Utf8 {

std::optional<char32_t> next(std::string_view text, std::size_t& i) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80           ? 1
                               : (lead >> 5) == 0x6  ? 2
                               : (lead >> 4) == 0xE  ? 3
                               : (lead >> 3) == 0x1E ? 4
                                                     : 0;
    if (length == 0 || i + length > text.size()) {
        ++i;
        return std::nullopt;
    }
    char32_t cp = length == 1 ? lead : lead & (0xFF >> (length + 1));
    for (std::size_t k = 1; k < length; ++k) {
        const auto byte = static_cast<unsigned char>(text[i + k]);
        if ((byte & 0xC0) != 0x80) {
            ++i;
            return std::nullopt;
        }
        cp = (cp << 6) | (byte & 0x3F);
    }
    const bool overlong =
        (length == 2 && cp < 0x80) || (length == 3 && cp < 0x800) || (length == 4 && cp < 0x10000);
    if (overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++i;
        return std::nullopt;
    }
    i += length;
    return cp;
}

bool isValid(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        if (!next(text, i))
            return false;
    }
    return true;
}

} // namespace varnel::Utf8
