#pragma once

#include "library/JsonCoding.h"
#include "library/NormalizedRect.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// One recognized line of a screen: its text and where it is (normalized, top-left origin).
struct TextLine {
    std::string text;
    NormalizedRect box;
    std::optional<std::map<std::string, std::string>> translations;

    bool operator==(const TextLine&) const = default;

    static TextLine fromJson(const Json& json);
    Json toJson() const;
};

} // namespace varnel
