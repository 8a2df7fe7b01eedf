#pragma once

#include "library/Date.h"
#include "library/FlowSummary.h"
#include "library/JsonCoding.h"
#include "library/ScreenRef.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// What one deletion put in the library's trash: whole flows, or screens of one flow. Each
// entry is a folder of ".trash" holding its files and "entry.json", written before any file
// moves in, so that a folder without it never held anything the user deleted.
struct TrashEntry {
    static constexpr std::string_view kFolder = ".trash";
    static constexpr std::string_view kFile = "entry.json";
    // Deleted items are kept this long, then the trash is emptied of them.
    static constexpr double kKeptSeconds = 30 * 24 * 3600.0;

    struct Flow {
        std::string folderName;   // where it was
        std::string slot;         // its folder inside the entry
        std::size_t position = 0; // its place in the user's order of flows
        FlowSummary summary;
    };
    struct Screen {
        ScreenRef ref;            // its files keep their names inside the entry
        std::size_t position = 0; // its place in the flow's list
    };

    std::string id;
    Date deletedAt;
    // Made by undoing an addition: the user deleted nothing, so it isn't listed.
    bool hidden = false;
    std::vector<Flow> flows;
    // Screens of one flow, found again by its id wherever it moved since.
    std::string flowId;
    std::string folderName;
    std::string flowName;
    std::vector<Screen> screens;

    bool holdsFlows() const { return !flows.empty(); }
    // "2 screens of “Sign up”", "the flow “Sign up”", "3 flows of Acme".
    std::string description() const;

    Json toJson() const;
    // Throws DecodingError for an entry that can't be used; every name is validated.
    static TrashEntry fromJson(const Json& json);
};

} // namespace varnel
