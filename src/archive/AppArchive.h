#pragma once

#include "library/Errors.h"
#include "library/FlowStore.h"
#include "library/FlowSummary.h"
#include "library/LibraryIndex.h"
#include "library/LibraryLayout.h"

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

class ArchiveError : public LibraryError {
public:
    enum class Case { zipFailed, unzipFailed, notAnExport, inconsistent };
    // `detail` says what went wrong underneath, for the log. The description is the case's
    // fixed message, followed by `reason` when the user can act on it.
    explicit ArchiveError(Case c, std::string detail = {}, const std::string& reason = {});
    Case errorCase() const { return case_; }
    const std::string& detail() const { return detail_; }

private:
    Case case_;
    std::string detail_;
};

enum class ImportConflictResolution { replace, duplicate };

namespace AppArchive {

namespace fs = std::filesystem;

inline constexpr std::string_view kPayloadFolder = "QuillaneExport";
inline constexpr std::string_view kManifestFile = "quillane-export.json";
inline constexpr std::string_view kSansApplication = "Sans application";
inline constexpr std::string_view kExtension = ".varnel.zip";
inline constexpr std::string_view kExtractionPrefix = LibraryLayout::kExtractionPrefix.substr(1);

struct Manifest {
    std::int64_t version = 1;
    std::string application;
    std::vector<FlowSummary> flows;

    Json toJson() const;
    // Throws ArchiveError(notAnExport).
    static Manifest decode(std::string_view bytes);
};

// An unpacked archive: the private folder, the folder holding the manifest, and the manifest.
struct Extracted {
    fs::path tempDir;
    fs::path payloadDir;
    Manifest manifest;

    void cleanup() const;
};

// The flows of an application in index order; flows without one belong to "Sans application".
std::vector<FlowSummary> flowsOf(const LibraryIndex& index, const std::string& application);

// What an archive carries of each flow.
enum class ExportContent {
    everything,
    // A copy to share: the screens as they look, with nothing that could bring back what their
    // zones and patches hide (untouched copies, patch images, thumbnails, the zones themselves,
    // recognized text there).
    withoutOriginals,
};

// Writes the archive of one application to `destination`, atomically replacing a regular file
// there; anything else at the destination (a folder, a link) is refused and left as it is. A
// link inside a flow folder is refused too, naming it, rather than left out. Returns how many
// flows it holds; with none, nothing is written. `progress` gets 0..1. The library is only read.
std::size_t exportApplication(const std::string& application, const FlowStore& store,
                              const LibraryIndex& index, const fs::path& destination,
                              ExportContent content = ExportContent::everything,
                              const std::function<void(double)>& progress = {});

// Unpacks an archive into a new private folder inside `workFolder`. A folder whose name
// starts with a dot is used when `workFolder` is a library root, to keep it out of sight.
Extracted extract(const fs::path& zipFile, const fs::path& workFolder, bool hidden = false);

// "1 flow already exists in your library", or the number and "flows already exist …".
std::string conflictQuestion(std::size_t conflicts);
inline constexpr std::string_view kConflictExplanation =
    "Replace overwrites the existing flows with the imported versions. Duplicate imports "
    "everything as a new application.";

// The base name, else base + " copy", else base + " copy 2", " copy 3", …
std::string uniqueApplicationName(const std::string& base,
                                  const std::vector<std::string>& existing);

} // namespace AppArchive
} // namespace varnel
