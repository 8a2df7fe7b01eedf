#include "comments/ScreenComment.h"

#include <array>
#include <charconv>

namespace varnel {

ScreenComment ScreenComment::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "a comment");
    ScreenComment c;
    c.id = requireString(json, "id");
    c.x = requireNumber(json, "x");
    c.y = requireNumber(json, "y");
    c.text = requireString(json, "text");
    c.createdAt = requireDate(json, "createdAt");
    c.postedId = optionalString(json, "postedId");
    c.postedSignature = optionalString(json, "postedSignature");
    c.postedFileKey = optionalString(json, "postedFileKey");
    return c;
}

Json ScreenComment::toJson() const {
    Json json{{"id", id}, {"x", x}, {"y", y}, {"text", text}, {"createdAt", createdAt.seconds}};
    if (postedId)
        json["postedId"] = *postedId;
    if (postedSignature)
        json["postedSignature"] = *postedSignature;
    if (postedFileKey)
        json["postedFileKey"] = *postedFileKey;
    return json;
}

std::string ScreenComment::signature() const {
    return shortestDecimal(x) + "," + shortestDecimal(y) + "|" + text;
}

bool ScreenComment::isDirty() const {
    return postedId && postedSignature != signature();
}

std::string shortestDecimal(double value) {
    std::array<char, 64> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

} // namespace varnel
