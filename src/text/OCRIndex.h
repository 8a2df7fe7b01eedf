#pragma once

#include "library/FlowStore.h"
#include "library/ScreenRef.h"
#include "text/TextLine.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// How many still screens and clips a flow has.
struct MediaCounts {
    int images = 0;
    int videos = 0;

    bool operator==(const MediaCounts&) const = default;

    static MediaCounts of(const std::vector<ScreenRef>& screens);
};

// The search blob of each recognized screen of one flow, by file name.
using FlowTextIndex = std::map<std::string, std::string>;

namespace OCRIndex {

// Reads the text of one picture; none when it can't be read.
using Recognizer =
    std::function<std::optional<std::vector<TextLine>>(const std::filesystem::path& file)>;

struct Derived {
    FlowTextIndex text;
    MediaCounts media;
    // Each still's picture time as it was when read (none: not read), to tell later whether a
    // picture changed without reading the sidecar again.
    std::map<std::string, std::optional<double>> stills;
    // Every screen's file name, stills and clips, in the flow's order.
    std::vector<std::string> order;
};

// The still screens of a flow whose recognized text is missing or older than their file.
std::vector<std::string> staleScreens(const FlowStore& store, std::string_view folder);

// Brings a flow's "ocr.json" up to date (recognizing only pictures whose modification time
// changed, dropping removed screens, rebuilding a sidecar of another version) and returns its
// indexes. `recognized` is called after each picture read; setting `cancel` stops before the
// next one, keeping what was read. `readOnly` reads what is recognized already and neither
// recognizes nor writes. Throws when the flow's meta can't be read.
Derived derive(const FlowStore& store, std::string_view folder, const Recognizer& recognize,
               const std::function<void()>& recognized = {},
               const std::atomic<bool>* cancel = nullptr, bool readOnly = false);

// The stored lines of one screen; empty when there are none.
std::vector<TextLine> textLines(const FlowStore& store, std::string_view folder,
                                const std::string& filename);

// Stores a screen's lines (with their translations) and their blob, stamped with the picture's
// current modification time. Throws a FileError when the sidecar can't be written.
void saveTextLines(const FlowStore& store, std::string_view folder, const std::string& filename,
                   const std::vector<TextLine>& lines);

} // namespace OCRIndex
} // namespace varnel
