#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace varnel::Slug {

// Lower-case ASCII letters and digits joined by single dashes; "untitled" when nothing is left.
std::string make(std::string_view text);

// `base`, or the first of base-2, base-3, … that is not in `existing`.
std::string uniqueFolderName(const std::string& base, const std::set<std::string>& existing);

// The application slug / category slug part of a flow's folder name.
std::string parentPath(const std::optional<std::string>& application,
                       const std::optional<std::string>& categoryL1);

} // namespace varnel::Slug
