#pragma once

#include <optional>
#include <string>

namespace varnel::FigmaFileLink {

// The Figma web host; links may name it bare or with "www.".
inline constexpr const char* kWebHost = "www.figma.com";

// The file key of a figma.com /file/ or /design/ link.
std::optional<std::string> key(const std::string& link);
// The "node-id" of a link, with Figma's 12-34 form turned back into 12:34.
std::optional<std::string> nodeId(const std::string& link);
// https://www.figma.com/design/KEY, with the link's node id when it had one.
std::optional<std::string> canonicalURL(const std::string& link);

} // namespace varnel::FigmaFileLink
