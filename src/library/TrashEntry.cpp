#include "library/TrashEntry.h"

#include "library/Errors.h"
#include "library/LibraryLayout.h"

namespace varnel {

namespace {

DecodingError unusable(const std::string& detail) {
    return DecodingError(std::string("a trash entry"), detail);
}

std::size_t requirePosition(const Json& json) {
    if (!json.contains("position") || !json["position"].is_number_unsigned())
        throw unusable("a position is missing");
    return json["position"].get<std::size_t>();
}

} // namespace

std::string TrashEntry::description() const {
    if (holdsFlows()) {
        if (flows.size() == 1)
            return "the flow “" + flows.front().summary.name + "”";
        const auto& app = flows.front().summary.application;
        return std::to_string(flows.size()) + " flows" + (app ? " of " + *app : std::string());
    }
    const std::string what =
        screens.size() == 1 ? "a screen" : std::to_string(screens.size()) + " screens";
    return what + " of “" + flowName + "”";
}

Json TrashEntry::toJson() const {
    Json json{{"id", id}, {"deletedAt", deletedAt.seconds}};
    if (hidden)
        json["hidden"] = true;
    if (holdsFlows()) {
        Json list = Json::array();
        for (const auto& flow : flows)
            list.push_back({{"folderName", flow.folderName},
                            {"slot", flow.slot},
                            {"position", flow.position},
                            {"summary", flow.summary.toJson()}});
        json["flows"] = list;
        return json;
    }
    Json list = Json::array();
    for (const auto& screen : screens)
        list.push_back({{"position", screen.position}, {"screen", screen.ref.toJson()}});
    json["flowId"] = flowId;
    json["folderName"] = folderName;
    json["flowName"] = flowName;
    json["screens"] = list;
    return json;
}

TrashEntry TrashEntry::fromJson(const Json& json) {
    if (!json.is_object())
        throw unusable("it is not an object");
    TrashEntry entry;
    entry.id = coding::requireString(json, "id");
    if (!LibraryLayout::isSafeFileName(entry.id))
        throw UnsafeNameError(entry.id, "it is not a trash entry of this library");
    entry.deletedAt = coding::requireDate(json, "deletedAt");
    entry.hidden = json.value("hidden", false);
    if (json.contains("flows")) {
        for (const auto& item : json.at("flows")) {
            Flow flow;
            flow.folderName = coding::requireString(item, "folderName");
            LibraryLayout::validateFolderName(flow.folderName);
            flow.slot = coding::requireString(item, "slot");
            LibraryLayout::validateFileName(flow.slot);
            flow.position = requirePosition(item);
            flow.summary = FlowSummary::fromJson(item.at("summary"));
            entry.flows.push_back(std::move(flow));
        }
        if (entry.flows.empty())
            throw unusable("it lists no flow");
        return entry;
    }
    entry.flowId = coding::requireString(json, "flowId");
    entry.folderName = coding::requireString(json, "folderName");
    LibraryLayout::validateFolderName(entry.folderName);
    entry.flowName = coding::requireString(json, "flowName");
    if (!json.contains("screens") || !json["screens"].is_array() || json["screens"].empty())
        throw unusable("it lists no screen");
    for (const auto& item : json["screens"]) {
        Screen screen;
        screen.position = requirePosition(item);
        screen.ref = ScreenRef::fromJson(item.at("screen"));
        LibraryLayout::validateFileName(screen.ref.filename);
        entry.screens.push_back(std::move(screen));
    }
    return entry;
}

} // namespace varnel
