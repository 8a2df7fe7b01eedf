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
    // The key of the Figma file it was posted to; a pin posted to another file is unpublished
    // in the linked one.
    std::optional<std::string> postedFileKey;

    bool operator==(const ScreenComment&) const = default;

    static ScreenComment fromJson(const Json& json);
    Json toJson() const;

    // "x,y|text" with the shortest decimal form that reads back as the same double; the
    // publisher stores it as postedSignature, so both sides must format alike.
    std::string signature() const;
    // Published, and moved or edited since.
    bool isDirty() const;
};

// The shortest decimal text that reads back as exactly `value`.
std::string shortestDecimal(double value);

} // namespace varnel
