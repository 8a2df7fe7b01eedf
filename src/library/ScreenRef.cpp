#include "library/ScreenRef.h"

namespace varnel {

std::string_view toString(CaptureSource source) {
    return source == CaptureSource::automatic ? "auto" : "manual";
}

std::optional<CaptureSource> captureSource(std::string_view text) {
    if (text == "manual")
        return CaptureSource::manual;
    if (text == "auto")
        return CaptureSource::automatic;
    return std::nullopt;
}

ScreenRef ScreenRef::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "a screen");
    ScreenRef s;
    s.filename = requireString(json, "filename");
    s.capturedAt = requireDate(json, "capturedAt");
    const std::string sourceText = requireString(json, "source");
    const auto source = captureSource(sourceText);
    if (!source)
        throw CodingError("unknown capture source “" + sourceText + "”");
    s.source = *source;
    s.name = optionalString(json, "name");
    s.redactions = optionalArray<RedactShape>(json, "redactions", &RedactShape::fromJson);
    if (hasValue(json, "redactStyle"))
        s.redactStyle = RedactStyle::fromJson(json.at("redactStyle"));
    s.patches = optionalArray<RedactPatch>(json, "patches", &RedactPatch::fromJson);
    s.comments = optionalArray<ScreenComment>(json, "comments", &ScreenComment::fromJson);
    s.figmaThreads = optionalArray<FigmaThread>(json, "figmaThreads", &FigmaThread::fromJson);
    s.unknown = unknownKeys(json, {"filename", "capturedAt", "source", "name", "redactions",
                                   "redactStyle", "patches", "comments", "figmaThreads"});
    return s;
}

Json ScreenRef::toJson() const {
    Json json{{"filename", filename},
              {"capturedAt", capturedAt.seconds},
              {"source", std::string(toString(source))}};
    if (name)
        json["name"] = *name;
    if (redactions)
        json["redactions"] = coding::writeArray(*redactions, [](auto& v) { return v.toJson(); });
    if (redactStyle)
        json["redactStyle"] = redactStyle->toJson();
    if (patches)
        json["patches"] = coding::writeArray(*patches, [](auto& v) { return v.toJson(); });
    if (comments)
        json["comments"] = coding::writeArray(*comments, [](auto& v) { return v.toJson(); });
    if (figmaThreads)
        json["figmaThreads"] =
            coding::writeArray(*figmaThreads, [](auto& v) { return v.toJson(); });
    coding::mergeUnknownKeys(json, unknown);
    return json;
}

const std::vector<ScreenComment>& ScreenRef::pins() const {
    static const std::vector<ScreenComment> none;
    return comments ? *comments : none;
}

} // namespace varnel
