#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

// The Varnel Import plugin for Figma, downloaded from the app's web site.
namespace varnel::FigmaPluginDownload {

inline constexpr const char* kBaseURL = "https://varnel.app/downloads/figma/";
// A plugin package is a few hundred kilobytes; more is not one.
inline constexpr std::size_t kMaxBytes = 64 << 20;

// base + "Varnel-figma-plugin-v<version>.zip", or "Varnel-figma-plugin.zip" without a version.
std::string packageURL(const std::string& base, const std::string& version);

// Downloads `url` into `folder` under its last path segment, written whole or not at all, and
// returns the file. https redirects are followed; nothing identifying the user is sent. Throws
// std::runtime_error: "server returned HTTP <code>", or what failed.
std::filesystem::path download(const std::string& url, const std::filesystem::path& folder);

} // namespace varnel::FigmaPluginDownload
