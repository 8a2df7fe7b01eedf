#include "figma/FigmaExport.h"

#include "archive/Zip.h"
#include "library/Errors.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/ScreenFiles.h"
#include "library/Uuid.h"

#include <algorithm>

namespace varnel::FigmaExport {

Json manifest(const FlowMeta& meta) {
    Json screens = Json::array();
    for (const auto& screen : meta.screens) {
        if (ScreenFiles::isClip(screen.filename))
            continue;
        Json entry{{"file", screen.filename}};
        if (screen.name && !screen.name->empty())
            entry["caption"] = *screen.name;
        screens.push_back(std::move(entry));
    }
    // "flowId" is what the plugin tags the board with, so that the board can be found again.
    Json json{{"version", 2},
              {"flowId", meta.id},
              {"title", meta.name},
              {"application", meta.application.value_or("")},
              {"width", meta.width},
              {"height", meta.height},
              {"screens", std::move(screens)}};
    if (meta.categoryL1 && !meta.categoryL1->empty())
        json["category"] = *meta.categoryL1;
    return json;
}

std::string packageName(const FlowMeta& meta) {
    std::string name = meta.name.empty() ? "flow" : meta.name;
    std::replace(name.begin(), name.end(), '/', '-');
    return name + kExtension;
}

void exportPackage(const FlowMeta& meta, const std::filesystem::path& sourceFolder,
                   const std::filesystem::path& destination) {
    const Json m = manifest(meta);
    // Checked before anything is written, so a bad name never leaves a half package behind.
    for (const auto& screen : m["screens"]) {
        const std::string file = screen["file"].get<std::string>();
        LibraryLayout::validateFileName(file);
        if (!FileOps::exists(sourceFolder / file))
            throw FileError("export", sourceFolder / file, "the screen's file is missing");
    }
    const auto partial = destination.parent_path() /
                         ("." + destination.filename().string() + "." + newUUIDString() + ".part");
    try {
        Zip::Writer writer(partial);
        writer.addBytes(kManifestName, m.dump(2) + "\n", true);
        for (const auto& screen : m["screens"]) {
            const std::string file = screen["file"].get<std::string>();
            writer.addFile(file, sourceFolder / file, false);
        }
        writer.close();
    } catch (const Zip::ZipError& error) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw ZipFailed(error.what());
    }
    std::error_code ec;
    std::filesystem::rename(partial, destination, ec);
    if (ec) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw FileError("write", destination, ec);
    }
}

} // namespace varnel::FigmaExport
