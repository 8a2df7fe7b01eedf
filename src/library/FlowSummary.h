#pragma once

#include "library/Date.h"
#include "library/JsonCoding.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varnel {

// One flow's entry in index.json: a cache of five fields of its meta plus its screen count.
struct FlowSummary {
    std::string id;
    std::optional<std::string> application;
    std::string name;
    std::string folderName;
    std::optional<std::string> categoryL1;
    Date date;
    std::int64_t screenCount = 0;

    bool operator==(const FlowSummary&) const = default;

    static FlowSummary fromJson(const Json& json);
    Json toJson() const;
};

} // namespace varnel
