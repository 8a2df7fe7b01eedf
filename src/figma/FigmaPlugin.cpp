#include "figma/FigmaPlugin.h"

#include "library/FileOps.h"

#include <cstddef>

extern const char varnelFigmaPlugin[];
extern const std::size_t varnelFigmaPluginSize;

namespace varnel::FigmaPlugin {

std::string fileName() {
    return std::string("Varnel-figma-plugin-v") + VARNEL_VERSION + ".zip";
}

std::string_view package() {
    return {varnelFigmaPlugin, varnelFigmaPluginSize};
}

std::filesystem::path save(const std::filesystem::path& folder) {
    FileOps::createDirectory(folder, true);
    const auto file = folder / fileName();
    FileOps::writeAtomically(file, package());
    return file;
}

} // namespace varnel::FigmaPlugin
