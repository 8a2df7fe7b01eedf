#include "text/OCRSidecar.h"

#include "library/FileOps.h"
#include "library/LibraryLayout.h"

#include <chrono>

namespace varnel {

OCRSidecar OCRSidecar::fromJson(const Json& json) {
    coding::requireObject(json, "the text sidecar");
    OCRSidecar sidecar;
    sidecar.version.reset();
    if (const auto version = coding::optionalNumber(json, "version"))
        sidecar.version = static_cast<int>(*version);
    const Json& screens = coding::requireObject(coding::requireKey(json, "screens"), "screens");
    for (const auto& [file, value] : screens.items()) {
        sidecar.screens.emplace(
            file, Entry{coding::requireString(value, "text"), coding::requireNumber(value, "mtime"),
                        coding::optionalArray<TextLine>(value, "lines", TextLine::fromJson)
                            .value_or(std::vector<TextLine>{})});
    }
    return sidecar;
}

Json OCRSidecar::toJson() const {
    Json screensJson = Json::object();
    for (const auto& [file, entry] : screens) {
        screensJson[file] =
            Json{{"text", entry.text},
                 {"mtime", entry.mtime},
                 {"lines",
                  coding::writeArray(entry.lines, [](const TextLine& l) { return l.toJson(); })}};
    }
    Json json{{"screens", screensJson}};
    if (version)
        json["version"] = *version;
    return json;
}

std::optional<OCRSidecar> OCRSidecar::read(const std::filesystem::path& flowFolder) {
    try {
        const auto bytes = FileOps::readIfExists(flowFolder / LibraryLayout::kOCRFile);
        if (!bytes)
            return std::nullopt;
        return fromJson(parseLibraryJson(*bytes));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void OCRSidecar::write(const std::filesystem::path& flowFolder) const {
    FileOps::writeAtomically(flowFolder / LibraryLayout::kOCRFile, encodeLibraryJson(toJson()));
}

std::optional<double> modificationTime(const std::filesystem::path& file) {
    std::error_code error;
    const auto time = std::filesystem::last_write_time(file, error);
    if (error)
        return std::nullopt;
    const auto since1970 = std::chrono::file_clock::to_sys(time).time_since_epoch();
    return std::chrono::duration<double>(since1970).count();
}

} // namespace varnel
