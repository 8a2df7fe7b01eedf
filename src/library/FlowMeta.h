#pragma once

#include "library/Date.h"
#include "library/FlowSummary.h"
#include "library/JsonCoding.h"
#include "library/ScreenRef.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// The content of a flow folder's meta.json.
struct FlowMeta {
    std::string id;
    std::optional<std::string> application;
    std::string name;
    std::optional<std::string> categoryL1;
    Date date;
    std::optional<std::string> deviceName;
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::vector<ScreenRef> screens;
    std::optional<bool> preservesWhenEmpty;
    std::optional<std::string> figmaFileURL;
    std::optional<std::vector<std::string>> figmaPendingDeletes;
    std::optional<Date> figmaLastPulledAt;
    std::optional<Date> screensRenumberedAt;
    Json unknown = Json::object(); // keys of newer versions, written back as read

    bool operator==(const FlowMeta&) const = default;

    static FlowMeta fromJson(const Json& json);
    Json toJson() const;

    FlowSummary summary(const std::string& folderName) const;
    bool preserves() const { return preservesWhenEmpty.value_or(false); }

    // Every file of the flow's folder that the record refers to: screens, their untouched
    // copies (whether kept or not) and patch images.
    std::set<std::string> referencedFiles() const;

    ScreenRef* screen(std::string_view filename);
    const ScreenRef* screen(std::string_view filename) const;

    // The key of the linked Figma file, if the link has one.
    std::optional<std::string> figmaFileKey() const;
    // The pin's post is a comment of the linked file; a pin recorded before posts named their
    // file counts as the linked file's.
    bool isPostedToLinkedFile(const ScreenComment& pin) const;
    // Appends the published pin ids to "figmaPendingDeletes" after those already queued, once.
    void queuePendingDeletes(std::vector<std::string> postedIds);
};

} // namespace varnel
