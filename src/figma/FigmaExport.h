#pragma once

#include "library/FlowMeta.h"
#include "library/JsonCoding.h"

#include <filesystem>
#include <stdexcept>

namespace varnel::FigmaExport {

// The zip step failed; what() says why, for logs.
class ZipFailed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr const char* kExtension = ".figflow.zip";
inline constexpr const char* kManifestName = "flow.json";

// "flow.json" of the package: version 2, the flow's id, names and size, and its still screens.
Json manifest(const FlowMeta& meta);

// Writes the package for the import plugin: "flow.json" and the still screens at the zip's
// root. The file appears whole or not at all; an existing one is replaced.
void exportPackage(const FlowMeta& meta, const std::filesystem::path& sourceFolder,
                   const std::filesystem::path& destination);

// The package's file name: the flow's name with "/" as "-", or "flow" when it has none.
std::string packageName(const FlowMeta& meta);

} // namespace varnel::FigmaExport
