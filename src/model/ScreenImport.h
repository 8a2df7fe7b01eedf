#pragma once

#include "library/Date.h"

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace varnel {

class FlowLibrary;

// Bringing picture and clip files from outside into the library as screens. Varnel's screens
// are PNG stills and H.264 QuickTime clips: PNG and such clips are copied as they are, JPEG and
// HEIC pictures become PNG with their pixels (turned as their EXIF or HEIF orientation says),
// H.264 MP4 clips are rewrapped as QuickTime without re-encoding, and clips of other codecs are
// re-encoded as H.264. Files are ordered by name as people read numbers: IMG_2 before IMG_10.
namespace ScreenImport {

namespace fs = std::filesystem;

// A file that does not become a screen, and why, in words for the user.
struct SkippedFile {
    fs::path file;
    std::string reason;
    bool operator==(const SkippedFile&) const = default;
};

// "IMG_7.jpg: the picture is cut short or damaged", the name made readable.
std::string describe(const SkippedFile& skipped);

struct PlannedFlow {
    std::string name;
    std::vector<fs::path> files; // in screen order
    fs::path origin;             // the folder it was made from; empty for loose files
};

// What an import will do, shown to the user before anything is written. A folder of pictures
// is one flow named after it; a folder of folders is one flow per folder (a folder's own files
// in a flow of their own, named after it, before its subfolders' flows; files deeper down
// belong to the flow of the folder they lie under). Loose files are one flow named after the
// date of the first.
struct Plan {
    std::vector<PlannedFlow> flows;
    std::string application;
    std::optional<std::string> category;
    // Every planned file goes into this existing flow instead of new flows.
    std::optional<std::string> targetFlow;
    std::vector<SkippedFile> skipped; // found while planning
    std::size_t fileCount() const;
};

Plan plan(const std::vector<fs::path>& paths);

// What an import did: a plain value, enough to undo it (remove the flows it made and the
// screens it added) and to tell the user.
struct Report {
    std::vector<std::string> createdFlows;                        // folder names
    std::map<std::string, std::vector<std::string>> addedScreens; // existing flow → new files
    std::vector<SkippedFile> skipped;
    std::size_t screens = 0; // in created flows and added to existing ones
    bool cancelled = false;
    // Why the import stopped before its end, when a write failed.
    std::optional<std::string> failure;

    // "Imported 48 screens into 3 flows; 2 files skipped."
    std::string summary() const;
    // "IMG_7.jpg: the picture is cut short or damaged", one a skipped file.
    std::vector<std::string> skippedLines() const;
};

struct Progress {
    std::size_t done = 0; // files handled, imported or skipped
    std::size_t total = 0;
    std::size_t flowsMade = 0;
};
// Called on the caller's thread while the work runs; false cancels the import.
using ProgressCallback = std::function<bool(const Progress&)>;

// Runs the plan. Files are read and converted on a worker thread, into a hidden folder of the
// library; each flow then comes in whole in one store change on the caller's thread (the
// library's), and screens for an existing flow are appended in one journaled change. A
// cancel or a failure keeps the flows already made and makes nothing of the rest; what a
// crash interrupts is removed when the library opens. Throws when the plan names no
// application for new flows.
Report run(FlowLibrary& library, const Plan& plan, const ProgressCallback& progress = {});

// The kind of file by its first bytes, whatever its name says.
enum class Kind { png, jpeg, heic, quickTime, mpeg4, other };
Kind kindOf(const fs::path& file);

// A finished screen file made from `source` in `folder` as `stem` plus ".png" or ".mov";
// the file's path, or why the source can't become a screen. Safe on any thread.
std::variant<fs::path, std::string> convert(const fs::path& source, const fs::path& folder,
                                            const std::string& stem,
                                            const std::atomic<bool>* cancel = nullptr);

// Whether `a` comes before `b` with digit runs compared as numbers, letters without case.
bool naturalLess(const std::string& a, const std::string& b);

// A flow's name for loose files: "Imported 2026-11-25", from the local date.
std::string importedName(Date date);

} // namespace ScreenImport

} // namespace varnel
