#include "figma/FigmaPluginDownload.h"

#include "figma/HttpClient.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"

#include <stdexcept>

namespace varnel::FigmaPluginDownload {

std::string packageURL(const std::string& base, const std::string& version) {
    if (version.empty())
        return base + "Varnel-figma-plugin.zip";
    return base + "Varnel-figma-plugin-v" + version + ".zip";
}

std::filesystem::path download(const std::string& url, const std::filesystem::path& folder) {
    const auto slash = url.find_last_of('/');
    const std::string name = slash == std::string::npos ? url : url.substr(slash + 1);
    LibraryLayout::validateFileName(name);
    Http::Request request;
    request.url = url;
    request.timeoutSeconds = 120;
    // Download hosts often redirect; each hop must be https, and no header ever goes along.
    request.maxRedirects = 5;
    request.maxBytes = kMaxBytes;
    const Http::Response response = Http::perform(request);
    if (response.status < 200 || response.status > 299)
        throw std::runtime_error("server returned HTTP " + std::to_string(response.status));
    FileOps::createDirectory(folder, true);
    const auto file = folder / name;
    FileOps::writeAtomically(file, response.body);
    return file;
}

} // namespace varnel::FigmaPluginDownload
