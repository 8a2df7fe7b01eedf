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

// The stored lines of one screen as the picture shows them now: none when they were read from
// an older picture, and none that a zone or patch covers.
std::vector<TextLine> textLines(const FlowStore& store, std::string_view folder,
                                const std::string& filename);

// Stores lines just read from the picture as it is now, stamped with its modification time.
// Throws a FileError when the sidecar can't be written.
void saveTextLines(const FlowStore& store, std::string_view folder, const std::string& filename,
                   const std::vector<TextLine>& lines);

// Adds translations to the stored lines of the same text, keeping the time they were read:
// translating never makes text look freshly read. False when there was nothing to add them to.
bool saveTranslations(const FlowStore& store, std::string_view folder, const std::string& filename,
                      const std::vector<TextLine>& translated);

// Before a screen's picture changes under zones or patches (or back): the lines that touch
// `covered` go with their translations, and the rest waits to be read again from the new
// picture. Returns the screen's search blob afterwards; none when nothing was stored. Throws a
// FileError when the sidecar can't be written.
std::optional<std::string> forgetCovered(const FlowStore& store, std::string_view folder,
                                         const std::string& filename,
                                         const std::vector<NormalizedRect>& covered);

} // namespace OCRIndex
} // namespace varnel
