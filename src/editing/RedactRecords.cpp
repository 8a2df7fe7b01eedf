#include "editing/RedactRecords.h"

#include "library/Errors.h"
#include "library/Uuid.h"

namespace varnel {

namespace {

NormalizedRect usableRect(const Json& json) {
    std::optional<NormalizedRect> rect;
    try {
        rect = clampedToPicture(coding::readRect(coding::requireKey(json, "rect"), "rect"));
    } catch (const CodingError& e) {
        throw UnusableRect(e.what());
    }
    if (!rect)
        throw UnusableRect("“rect” lies outside the picture");
    return *rect;
}

} // namespace

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
    return {newUUIDString(), *kind, usableRect(json)};
}

Json RedactShape::toJson() const {
    return Json{{"kind", std::string(toString(kind))}, {"rect", coding::writeRect(rect)}};
}

RedactPatch RedactPatch::fromJson(const Json& json) {
    coding::requireObject(json, "a clone patch");
    return {newUUIDString(), coding::requireString(json, "file"), usableRect(json)};
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

std::vector<RedactShape> zonesOnPicture(const std::vector<RedactShape>& shapes) {
    std::vector<RedactShape> zones;
    for (const auto& shape : shapes) {
        const NormalizedRect& r = shape.rect;
        for (double value : {r.x, r.y, r.width, r.height})
            if (!std::isfinite(value))
                throw LibraryError("A blur zone has a position or size that isn’t a number.");
        if (const auto rect = clampedToPicture(r))
            zones.push_back({shape.id, shape.kind, *rect});
    }
    return zones;
}

void requireFinite(const RedactStyle& style) {
    for (double value : {style.red, style.green, style.blue, style.opacity, style.blur})
        if (!std::isfinite(value))
            throw LibraryError("The blur style has a value that isn’t a number.");
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
