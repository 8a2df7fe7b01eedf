#include "library/FlowMeta.h"

#include "figma/FigmaFileLink.h"
#include "library/ScreenFiles.h"

#include <algorithm>
#include <set>

namespace varnel {

namespace {

// A patch entry is kept only when it names a patch file that no screen, original copy or
// earlier entry of the flow claims: saving and reverting remove the files the entries name.
void settlePatchEntries(std::vector<ScreenRef>& screens) {
    std::set<std::string> claimed;
    for (const auto& screen : screens) {
        claimed.insert(screen.filename);
        claimed.insert(ScreenFiles::originalFilename(screen.filename));
    }
    for (auto& screen : screens) {
        if (!screen.patches)
            continue;
        std::erase_if(*screen.patches, [&](const RedactPatch& patch) {
            if (ScreenFiles::isPatchFileName(patch.file) && claimed.insert(patch.file).second)
                return false;
            screen.refusedPatches.push_back(patch.file);
            return true;
        });
        if (screen.patches->empty() && !screen.refusedPatches.empty())
            screen.patches.reset();
    }
}

} // namespace

FlowMeta FlowMeta::fromJson(const Json& json) {
    using namespace coding;
    requireObject(json, "the flow");
    FlowMeta m;
    m.id = requireString(json, "id");
    m.application = optionalString(json, "application");
    m.name = requireString(json, "name");
    m.categoryL1 = optionalString(json, "categoryL1");
    m.date = requireDate(json, "date");
    m.deviceName = optionalString(json, "deviceName");
    m.width = requireInteger(json, "width");
    m.height = requireInteger(json, "height");
    m.screens = requireArray<ScreenRef>(json, "screens", &ScreenRef::fromJson);
    settlePatchEntries(m.screens);
    m.preservesWhenEmpty = optionalBool(json, "preservesWhenEmpty");
    m.figmaFileURL = optionalString(json, "figmaFileURL");
    m.figmaPendingDeletes = optionalStrings(json, "figmaPendingDeletes");
    m.figmaLastPulledAt = optionalDate(json, "figmaLastPulledAt");
    m.screensRenumberedAt = optionalDate(json, "screensRenumberedAt");
    m.unknown =
        unknownKeys(json, {"id", "application", "name", "categoryL1", "date", "deviceName", "width",
                           "height", "screens", "preservesWhenEmpty", "figmaFileURL",
                           "figmaPendingDeletes", "figmaLastPulledAt", "screensRenumberedAt"});
    return m;
}

Json FlowMeta::toJson() const {
    Json json{{"id", id},
              {"name", name},
              {"date", date.seconds},
              {"width", width},
              {"height", height},
              {"screens", coding::writeArray(screens, [](auto& s) { return s.toJson(); })}};
    if (application)
        json["application"] = *application;
    if (categoryL1)
        json["categoryL1"] = *categoryL1;
    if (deviceName)
        json["deviceName"] = *deviceName;
    if (preservesWhenEmpty)
        json["preservesWhenEmpty"] = *preservesWhenEmpty;
    if (figmaFileURL)
        json["figmaFileURL"] = *figmaFileURL;
    if (figmaPendingDeletes)
        json["figmaPendingDeletes"] = *figmaPendingDeletes;
    if (figmaLastPulledAt)
        json["figmaLastPulledAt"] = figmaLastPulledAt->seconds;
    if (screensRenumberedAt)
        json["screensRenumberedAt"] = screensRenumberedAt->seconds;
    coding::mergeUnknownKeys(json, unknown);
    return json;
}

FlowSummary FlowMeta::summary(const std::string& folderName) const {
    return {id,
            application,
            name,
            folderName,
            categoryL1,
            date,
            static_cast<std::int64_t>(screens.size())};
}

std::set<std::string> FlowMeta::referencedFiles() const {
    std::set<std::string> names;
    for (const auto& screen : screens) {
        names.insert(screen.filename);
        names.insert(ScreenFiles::originalFilename(screen.filename));
        for (const auto& patch : screen.patches.value_or(std::vector<RedactPatch>{}))
            names.insert(patch.file);
    }
    return names;
}

ScreenRef* FlowMeta::screen(std::string_view filename) {
    auto it = std::find_if(screens.begin(), screens.end(),
                           [&](const ScreenRef& s) { return s.filename == filename; });
    return it == screens.end() ? nullptr : &*it;
}

const ScreenRef* FlowMeta::screen(std::string_view filename) const {
    return const_cast<FlowMeta*>(this)->screen(filename);
}

std::optional<std::string> FlowMeta::figmaFileKey() const {
    return figmaFileURL ? FigmaFileLink::key(*figmaFileURL) : std::nullopt;
}

bool FlowMeta::isPostedToLinkedFile(const ScreenComment& pin) const {
    return pin.postedId && (!pin.postedFileKey || pin.postedFileKey == figmaFileKey());
}

void FlowMeta::queuePendingDeletes(std::vector<std::string> postedIds) {
    if (postedIds.empty())
        return;
    std::sort(postedIds.begin(), postedIds.end());
    postedIds.erase(std::unique(postedIds.begin(), postedIds.end()), postedIds.end());
    auto& queue = figmaPendingDeletes ? *figmaPendingDeletes : figmaPendingDeletes.emplace();
    for (auto& id : postedIds) {
        if (std::find(queue.begin(), queue.end(), id) == queue.end())
            queue.push_back(std::move(id));
    }
}

} // namespace varnel
