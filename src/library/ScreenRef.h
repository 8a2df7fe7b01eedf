#pragma once

#include "comments/ScreenComment.h"
#include "editing/RedactRecords.h"
#include "figma/FigmaThread.h"
#include "library/CaptureSource.h"
#include "library/Date.h"
#include "library/JsonCoding.h"

#include <optional>
#include <string>
#include <vector>

namespace varnel {

// One screen of a flow, an element of "screens" in meta.json.
struct ScreenRef {
    std::string filename;
    Date capturedAt;
    CaptureSource source = CaptureSource::manual;
    std::optional<std::string> name;
    std::optional<std::vector<RedactShape>> redactions;
    std::optional<RedactStyle> redactStyle;
    std::optional<std::vector<RedactPatch>> patches;
    std::optional<std::vector<ScreenComment>> comments;
    std::optional<std::vector<FigmaThread>> figmaThreads;
    Json unknown = Json::object(); // keys of newer versions, written back as read
    // What reading left out because acting on it could harm other files or the flow: patch
    // entries that don't name a patch file of their own, zones without a usable rectangle.
    // Never written back.
    std::vector<std::string> refusedPatches;
    int refusedZones = 0;

    bool operator==(const ScreenRef&) const = default;

    static ScreenRef fromJson(const Json& json);
    Json toJson() const;

    // The comment pins, empty when there are none.
    const std::vector<ScreenComment>& pins() const;
};

} // namespace varnel
