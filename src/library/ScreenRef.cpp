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

namespace {

// An element without a usable rectangle is left out and counted, so that one bad zone doesn't
// make the whole flow unreadable; it never covered a pixel. Anything else unreadable (a zone kind
// of a newer version, say) still makes the flow unreadable: dropping it could unblur a screen.
template <typename T>
std::optional<std::vector<T>> leniently(const Json& json, const char* key, int& refused) {
    if (!coding::hasValue(json, key))
        return std::nullopt;
    if (!json.at(key).is_array())
        throw CodingError(std::string("key “") + key + "” is not an array");
    std::vector<T> out;
    for (const Json& element : json.at(key)) {
        try {
            out.push_back(T::fromJson(element));
        } catch (const UnusableRect&) {
            ++refused;
        }
    }
    return out;
}

} // namespace

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
    s.redactions = leniently<RedactShape>(json, "redactions", s.refusedZones);
    try {
        if (hasValue(json, "redactStyle"))
            s.redactStyle = RedactStyle::fromJson(json.at("redactStyle"));
    } catch (const CodingError&) {
        // Only says how the zones were last baked; the zones and the file don't depend on it.
    }
    int unreadablePatches = 0;
    s.patches = leniently<RedactPatch>(json, "patches", unreadablePatches);
    s.refusedPatches.resize(static_cast<std::size_t>(unreadablePatches)); // nameless entries
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
