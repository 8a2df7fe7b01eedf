#pragma once

#include "library/ScreenFiles.h"
#include "model/FlowLibrary.h"
#include "support/TestLibrary.h"

#include <string>

namespace varnel::test {

// The library as the user sees it: each flow by id with where it is filed, its name, and its
// screens in order with their bytes, names, zones, patches' bytes and pins; the category order;
// and what the trash lists.
inline std::string visibleState(FlowLibrary& library) {
    std::string out;
    for (const auto& category : library.categoryOrder())
        out += "category " + category + "\n";
    std::vector<FlowSummary> flows = library.summaries();
    for (const auto& flow : flows) {
        const FlowMeta& meta = library.meta(flow.folderName);
        out += "flow " + meta.id + " " + meta.application.value_or("-") + "/" +
               meta.categoryL1.value_or("-") + "/" + meta.name + "\n";
        const fs::path folder = library.root() / flow.folderName;
        for (const auto& screen : meta.screens) {
            out += "  " + readFile(folder / screen.filename) + " “" + screen.name.value_or("") +
                   "” " + editsJson(screen).dump();
            const fs::path original = folder / ScreenFiles::originalFilename(screen.filename);
            if (fs::exists(original))
                out += " original " + readFile(original);
            for (const auto& patch : screen.patches.value_or(std::vector<RedactPatch>{}))
                out += " patch " + readFile(folder / patch.file);
            for (const auto& pin : screen.pins())
                out += " pin " + pin.id + " " + pin.text;
            out += "\n";
        }
    }
    for (const auto& entry : library.trashEntries())
        if (!entry.hidden)
            out += "trash " + entry.description() + "\n";
    return out;
}

} // namespace varnel::test
