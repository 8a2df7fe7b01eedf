#pragma once

#include <filesystem>
#include <string>
#include <string_view>

// The Varnel Import plugin for Figma, built with this version of Varnel and shipped inside it:
// a zip holding the plugin's folder (manifest, code, window).
namespace varnel::FigmaPlugin {

// "Varnel-figma-plugin-v<version>.zip".
std::string fileName();
std::string_view package();

// Writes the plugin into `folder` under fileName(), whole or not at all, replacing an older
// copy, and returns the file. Throws the file system's error.
std::filesystem::path save(const std::filesystem::path& folder);

// How to add the plugin to Figma once saved.
inline constexpr const char* kInstructions =
    "Unzip it, then in the Figma desktop app choose Plugins ▸ Development ▸ Import plugin from "
    "manifest… and pick manifest.json in the unzipped varnel-figma-plugin folder. Then export a "
    "flow with File ▸ Export for Figma… and drag the package onto the Varnel Import plugin "
    "window.";

} // namespace varnel::FigmaPlugin
