#pragma once

#include "library/Date.h"
#include "library/JsonCoding.h"

#include <optional>
#include <string>

namespace varnel {

// A comment pin on a still screen; replies live in the pulled Figma threads.
struct ScreenComment {
    std::string id;
    double x = 0;
    double y = 0;
    std::string text;
    Date createdAt;
    std::optional<std::string> postedId;
    std::optional<std::string> postedSignature;

    bool operator==(const ScreenComment&) const = default;

    static ScreenComment fromJson(const Json& json);
    Json toJson() const;
};

} // namespace varnel
