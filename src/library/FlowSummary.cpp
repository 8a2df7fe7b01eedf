#include "library/FlowSummary.h"

namespace varnel {

FlowSummary FlowSummary::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "a flow summary");
    FlowSummary s;
    s.id = requireString(json, "id");
    s.application = optionalString(json, "application");
    s.name = requireString(json, "name");
    s.folderName = requireString(json, "folderName");
    s.categoryL1 = optionalString(json, "categoryL1");
    s.date = requireDate(json, "date");
    s.screenCount = requireInteger(json, "screenCount");
    return s;
}

Json FlowSummary::toJson() const {
    Json json{{"id", id},
              {"name", name},
              {"folderName", folderName},
              {"date", date.seconds},
              {"screenCount", screenCount}};
    if (application)
        json["application"] = *application;
    if (categoryL1)
        json["categoryL1"] = *categoryL1;
    return json;
}

} // namespace varnel
