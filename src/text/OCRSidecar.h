#pragma once

#include "text/TextLine.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnel {

// A flow's "ocr.json": the recognized lines of each still screen, with the search blob and the
// modification time of the picture they were read from.
struct OCRSidecar {
    static constexpr int kVersion = 2;

    struct Entry {
        std::string text; // the search blob
        double mtime = 0;
        std::vector<TextLine> lines;

        bool operator==(const Entry&) const = default;
    };

    std::optional<int> version = kVersion;
    std::map<std::string, Entry> screens;

    bool operator==(const OCRSidecar&) const = default;

    static OCRSidecar fromJson(const Json& json);
    Json toJson() const;

    // The flow's sidecar; none when it is missing or can't be decoded.
    static std::optional<OCRSidecar> read(const std::filesystem::path& flowFolder);
    // Throws a FileError when it can't be written.
    void write(const std::filesystem::path& flowFolder) const;
};

// The modification time of a file in seconds since 1970; none when it can't be read.
std::optional<double> modificationTime(const std::filesystem::path& file);

} // namespace varnel
