#include "library/Slug.h"

#include "library/Utf8.h"

namespace varnel::Slug {
namespace {

// Marks that join the character before them into one user-perceived character, which then is
// no longer plain ASCII.
bool extendsPrevious(char32_t cp) {
    return (cp >= 0x0300 && cp <= 0x036F) || (cp >= 0x1AB0 && cp <= 0x1AFF) ||
           (cp >= 0x1DC0 && cp <= 0x1DFF) || (cp >= 0x20D0 && cp <= 0x20FF) ||
           (cp >= 0xFE00 && cp <= 0xFE0F) || (cp >= 0xFE20 && cp <= 0xFE2F) || cp == 0x200D ||
           (cp >= 0x1F3FB && cp <= 0x1F3FF) || (cp >= 0xE0100 && cp <= 0xE01EF);
}

bool isAsciiAlnum(char32_t cp) {
    return (cp >= 'a' && cp <= 'z') || (cp >= '0' && cp <= '9');
}

} // namespace

std::string make(std::string_view text) {
    std::string mapped;
    mapped.reserve(text.size());
    std::size_t i = 0;
    char32_t previous = 0;
    while (i < text.size()) {
        // A malformed byte counts as one non-ASCII character.
        char32_t cp = Utf8::next(text, i).value_or(0xFFFD);
        if (cp >= 'A' && cp <= 'Z')
            cp = cp - 'A' + 'a';
        if (extendsPrevious(cp) || (cp == '\n' && previous == '\r')) {
            if (!mapped.empty())
                mapped.back() = '-';
        } else {
            mapped.push_back(isAsciiAlnum(cp) ? static_cast<char>(cp) : '-');
        }
        previous = cp;
    }

    std::string collapsed;
    collapsed.reserve(mapped.size());
    for (char c : mapped) {
        if (c == '-' && !collapsed.empty() && collapsed.back() == '-')
            continue;
        collapsed.push_back(c);
    }
    const auto first = collapsed.find_first_not_of('-');
    if (first == std::string::npos)
        return "untitled";
    const auto last = collapsed.find_last_not_of('-');
    return collapsed.substr(first, last - first + 1);
}

std::string uniqueFolderName(const std::string& base, const std::set<std::string>& existing) {
    if (!existing.contains(base))
        return base;
    for (unsigned n = 2;; ++n) {
        std::string candidate = base + "-" + std::to_string(n);
        if (!existing.contains(candidate))
            return candidate;
    }
}

std::string parentPath(const std::optional<std::string>& application,
                       const std::optional<std::string>& categoryL1) {
    const std::string app = application && !application->empty() ? *application : "uncategorized";
    const std::string category = categoryL1 && !categoryL1->empty() ? *categoryL1 : "uncategorized";
    return make(app) + "/" + make(category);
}

} // namespace varnel::Slug
