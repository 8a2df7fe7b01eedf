#include "figma/FigmaAutoLink.h"

#include "figma/FigmaFileLink.h"
#include "library/Text.h"

#include <algorithm>
#include <cctype>

namespace varnel::FigmaAutoLink {

std::optional<std::string> offer(const std::string& clipboardText, const FlowMeta& meta) {
    if (meta.figmaFileURL)
        return std::nullopt;
    const std::string text = Text::trimmed(clipboardText);
    // A link inside a message is not a link the user copied for this.
    if (text.empty() ||
        std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c); }))
        return std::nullopt;
    return FigmaFileLink::canonicalURL(text);
}

} // namespace varnel::FigmaAutoLink
