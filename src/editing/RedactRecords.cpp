#include "editing/RedactRecords.h"

#include "library/Uuid.h"

namespace varnel {

std::string_view toString(RedactShape::Kind kind) {
    return kind == RedactShape::Kind::ellipse ? "ellipse" : "rect";
}

std::optional<RedactShape::Kind> redactShapeKind(std::string_view text) {
    if (text == "rect")
        return RedactShape::Kind::rect;
    if (text == "ellipse")
        return RedactShape::Kind::ellipse;
    return std::nullopt;
}

RedactShape RedactShape::fromJson(const Json& json) {
    coding::requireObject(json, "a blur zone");
    const std::string kindText = coding::requireString(json, "kind");
    const auto kind = redactShapeKind(kindText);
    if (!kind)
        throw CodingError("unknown blur zone kind “" + kindText + "”");
    return {newUUIDString(), *kind, coding::readRect(coding::requireKey(json, "rect"), "rect")};
}

Json RedactShape::toJson() const {
    return Json{{"kind", std::string(toString(kind))}, {"rect", coding::writeRect(rect)}};
}

RedactPatch RedactPatch::fromJson(const Json& json) {
    coding::requireObject(json, "a clone patch");
    return {newUUIDString(), coding::requireString(json, "file"),
            coding::readRect(coding::requireKey(json, "rect"), "rect")};
}

Json RedactPatch::toJson() const {
    return Json{{"file", file}, {"rect", coding::writeRect(rect)}};
}

RedactStyle RedactStyle::fromJson(const Json& json) {
    coding::requireObject(json, "a blur style");
    return {coding::requireNumber(json, "red"), coding::requireNumber(json, "green"),
            coding::requireNumber(json, "blue"), coding::requireNumber(json, "opacity"),
            coding::requireNumber(json, "blur")};
}

Json RedactStyle::toJson() const {
    return Json{
        {"red", red}, {"green", green}, {"blue", blue}, {"opacity", opacity}, {"blur", blur}};
}

std::string_view toString(RedactPreset preset) {
    return preset == RedactPreset::dark ? "dark" : "light";
}

RedactStyle defaultStyle(RedactPreset preset) {
    if (preset == RedactPreset::dark)
        return {0.0, 0.0, 0.0, 0.35, 50};
    return {1.0, 1.0, 1.0, 0.35, 50};
}

} // namespace varnel
