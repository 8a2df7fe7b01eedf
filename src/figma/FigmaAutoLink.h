#pragma once

#include "library/FlowMeta.h"

#include <optional>
#include <string>

// Offers a Figma file link the user copied as the link of the selected flow.
namespace varnel::FigmaAutoLink {

// The link to offer: the copied text, when it is one Figma file link and nothing else, as its
// canonical form; none when the flow has a link already.
std::optional<std::string> offer(const std::string& clipboardText, const FlowMeta& meta);

} // namespace varnel::FigmaAutoLink
