#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace varnel::Slug {

// The most bytes make() gives: a file name holds 255 on ext4 and most others, and folder
// names get "-2" from uniqueFolderName and "-incomplete" from recovery appended.
inline constexpr std::size_t kMaxBytes = 180;

// The letters and digits of every script, lower case, NFC, joined by single dashes and cut
// between characters to kMaxBytes of UTF-8; "untitled" when nothing is left.
std::string make(std::string_view text);

// `base`, or the first of base-2, base-3, … that is not in `existing`.
std::string uniqueFolderName(const std::string& base, const std::set<std::string>& existing);

// The application slug / category slug part of a flow's folder name.
std::string parentPath(const std::optional<std::string>& application,
                       const std::optional<std::string>& categoryL1);

} // namespace varnel::Slug
