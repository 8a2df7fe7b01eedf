#include "archive/AppArchive.h"

#include "archive/Zip.h"
#include "library/FileOps.h"
#include "library/LibraryLayout.h"
#include "library/Text.h"
#include "library/Uuid.h"
#include "text/HiddenText.h"
#include "text/OCRSidecar.h"
#include "text/ScreenOCR.h"

#include <algorithm>
#include <optional>
#include <set>

namespace varnel {

namespace {

const char* message(ArchiveError::Case c) {
    switch (c) {
    case ArchiveError::Case::zipFailed:
        return "The archive couldn’t be created.";
    case ArchiveError::Case::unzipFailed:
        return "The file couldn’t be unzipped.";
    case ArchiveError::Case::inconsistent:
        return "This archive can’t be imported.";
    case ArchiveError::Case::notAnExport:
        break;
    }
    return "This zip isn’t a Quillane application export.";
}

} // namespace

ArchiveError::ArchiveError(Case c, std::string detail, const std::string& reason)
    : LibraryError(reason.empty() ? std::string(message(c)) : message(c) + (" " + reason)),
      case_(c), detail_(std::move(detail)) {}

namespace AppArchive {

namespace {

bool isStoredAsIs(const fs::path& file) {
    std::string ext = file.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext == ".png" || ext == ".mov" || ext == ".jpg" || ext == ".jpeg" || ext == ".mp4";
}

// Every file and folder of a flow folder, as paths relative to it; the store's transient
// folders are left out. A link is refused: leaving it out would lose a screen unnoticed, and
// following it could pack files from outside the library.
void collect(const fs::path& folder, const fs::path& relative, std::vector<fs::path>& dirs,
             std::vector<fs::path>& files) {
    for (const auto& name : FileOps::list(folder / relative)) {
        if (name == LibraryLayout::kRenumberFolder ||
            name.starts_with(LibraryLayout::kQuarantinePrefix))
            continue;
        const fs::path item = relative / name;
        const auto status = fs::symlink_status(folder / item);
        if (fs::is_symlink(status))
            throw LibraryError("“" + (folder / item).string() +
                               "” is a symbolic link. Put the file itself in its place, then "
                               "export again.");
        if (fs::is_directory(status)) {
            dirs.push_back(item);
            collect(folder, item, dirs, files);
        } else if (fs::is_regular_file(status)) {
            files.push_back(item);
        }
    }
}

// Why the archive can't go to `destination`, when something other than a regular file is there.
std::optional<std::string> destinationProblem(const fs::path& destination) {
    std::error_code ec;
    const auto status = fs::symlink_status(destination, ec);
    if (ec || !fs::exists(status) || fs::is_regular_file(status))
        return std::nullopt;
    const std::string kind = fs::is_directory(status) ? "a folder"
                             : fs::is_symlink(status) ? "a link"
                                                      : "not a regular file";
    return "“" + destination.string() + "” is " + kind + "; choose a file name instead.";
}

} // namespace

Json Manifest::toJson() const {
    return Json{{"version", version},
                {"application", application},
                {"flows", coding::writeArray(flows, [](auto& f) { return f.toJson(); })}};
}

Manifest Manifest::decode(std::string_view bytes) {
    try {
        const Json json = parseLibraryJson(bytes);
        coding::requireObject(json, "the manifest");
        Manifest m;
        m.version = coding::requireInteger(json, "version");
        m.application = coding::requireString(json, "application");
        m.flows = coding::requireArray<FlowSummary>(json, "flows", &FlowSummary::fromJson);
        return m;
    } catch (const CodingError& e) {
        throw ArchiveError(ArchiveError::Case::notAnExport, e.what());
    }
}

void Extracted::cleanup() const {
    std::error_code ec;
    fs::remove_all(tempDir, ec);
}

std::vector<FlowSummary> flowsOf(const LibraryIndex& index, const std::string& application) {
    std::vector<FlowSummary> flows;
    for (const auto& s : index.flows) {
        const bool matches =
            s.application ? *s.application == application : application == kSansApplication;
        if (matches)
            flows.push_back(s);
    }
    return flows;
}

namespace {

// What of one flow goes into the archive: folders and files as they are, and records
// rewritten for the archive.
struct FlowEntries {
    fs::path folder;
    std::vector<fs::path> dirs;
    std::vector<fs::path> files;
    std::vector<std::pair<std::string, std::string>> records; // file name -> bytes
};

// The recognized text of the screens as they look once their zones and patches are gone from
// the meta: lines under them leave, and so does a search blob that can't be told apart by line.
OCRSidecar visibleText(const OCRSidecar& sidecar, const FlowMeta& meta) {
    OCRSidecar out;
    out.version = sidecar.version;
    for (const auto& screen : meta.screens) {
        const auto entry = sidecar.screens.find(screen.filename);
        if (entry == sidecar.screens.end())
            continue;
        OCRSidecar::Entry kept = entry->second;
        const auto areas = HiddenText::coveredAreas(screen);
        if (!areas.empty()) {
            kept.lines = HiddenText::visibleLines(std::move(kept.lines), areas);
            kept.text = ScreenOCR::searchBlob(kept.lines);
        }
        out.screens.emplace(screen.filename, std::move(kept));
    }
    return out;
}

// Only the screens, their meta without zones and patches, and the text still visible on them.
void keepWithoutOriginals(FlowEntries& entries, const FlowStore& store, const FlowSummary& flow) {
    FlowMeta meta = store.meta(flow.folderName);
    std::set<fs::path> screens;
    for (const auto& screen : meta.screens)
        screens.insert(fs::path(screen.filename));
    entries.dirs.clear();
    std::erase_if(entries.files, [&](const fs::path& file) { return !screens.contains(file); });
    if (const auto sidecar = OCRSidecar::read(entries.folder))
        entries.records.emplace_back(std::string(LibraryLayout::kOCRFile),
                                     encodeLibraryJson(visibleText(*sidecar, meta).toJson()));
    for (auto& screen : meta.screens) {
        screen.redactions.reset();
        screen.redactStyle.reset();
        screen.patches.reset();
    }
    entries.records.emplace(entries.records.begin(), std::string(LibraryLayout::kMetaFile),
                            encodeLibraryJson(meta.toJson()));
}

} // namespace

std::size_t exportApplication(const std::string& application, const FlowStore& store,
                              const LibraryIndex& index, const fs::path& destination,
                              ExportContent content, const std::function<void(double)>& progress) {
    const auto flows = flowsOf(index, application);
    if (flows.empty())
        return 0;
    if (auto problem = destinationProblem(destination))
        throw ArchiveError(ArchiveError::Case::zipFailed, *problem, *problem);
    // Every flow is looked through before anything is written, so that a refusal leaves nothing.
    std::vector<FlowEntries> planned;
    try {
        for (const auto& flow : flows) {
            FlowEntries& entries = planned.emplace_back();
            entries.folder = store.flowURL(flow.folderName);
            collect(entries.folder, {}, entries.dirs, entries.files);
            if (content == ExportContent::withoutOriginals)
                keepWithoutOriginals(entries, store, flow);
        }
    } catch (const std::exception& e) {
        throw ArchiveError(ArchiveError::Case::zipFailed, e.what(), e.what());
    }
    const fs::path temp = destination.parent_path() /
                          ("." + destination.filename().string() + "." + newUUIDString() + ".tmp");
    try {
        Zip::Writer writer(temp);
        const std::string payload = std::string(kPayloadFolder) + "/";
        writer.addDirectory(payload);
        for (std::size_t i = 0; i < flows.size(); ++i) {
            const FlowEntries& entries = planned[i];
            const std::string base = payload + flows[i].folderName + "/";
            writer.addDirectory(base);
            for (const auto& dir : entries.dirs)
                writer.addDirectory(base + dir.generic_string() + "/");
            for (const auto& file : entries.files)
                writer.addFile(base + file.generic_string(), entries.folder / file,
                               !isStoredAsIs(file));
            for (const auto& [name, bytes] : entries.records)
                writer.addBytes(base + name, bytes, true);
        }
        const Manifest manifest{1, application, flows};
        writer.addBytes(payload + std::string(kManifestFile), encodeLibraryJson(manifest.toJson()),
                        true);
        writer.close(progress);
        // Checked again: something may have appeared there while the zip was written. A rename
        // replaces a file atomically and never a folder.
        if (auto problem = destinationProblem(destination))
            throw LibraryError(*problem);
        std::error_code ec;
        fs::rename(temp, destination, ec);
        if (ec)
            throw FileError("write", destination, ec);
    } catch (const std::exception& e) {
        std::error_code ignored;
        fs::remove(temp, ignored);
        throw ArchiveError(ArchiveError::Case::zipFailed, e.what(), e.what());
    }
    return flows.size();
}

Extracted extract(const fs::path& zipFile, const fs::path& workFolder, bool hidden) {
    Extracted out;
    out.tempDir =
        workFolder / ((hidden ? "." : "") + std::string(kExtractionPrefix) + newUUIDString());
    try {
        FileOps::createDirectory(out.tempDir, true);
        Zip::extract(zipFile, out.tempDir);
    } catch (const Zip::InsufficientSpaceError& e) {
        out.cleanup();
        throw ArchiveError(ArchiveError::Case::unzipFailed, e.what(),
                           "It needs " + Text::byteCount(e.needed) +
                               " of free space on the library’s disk, and " +
                               Text::byteCount(e.available) + " are free.");
    } catch (const std::exception& e) {
        out.cleanup();
        throw ArchiveError(ArchiveError::Case::unzipFailed, e.what());
    }

    std::optional<fs::path> payload;
    if (FileOps::exists(out.tempDir / kManifestFile)) {
        payload = out.tempDir;
    } else {
        for (const auto& name : FileOps::list(out.tempDir)) {
            if (FileOps::isDirectory(out.tempDir / name) &&
                FileOps::exists(out.tempDir / name / kManifestFile)) {
                payload = out.tempDir / name;
                break;
            }
        }
    }
    try {
        if (!payload)
            throw ArchiveError(ArchiveError::Case::notAnExport, "no manifest");
        out.payloadDir = *payload;
        out.manifest = Manifest::decode(FileOps::read(out.payloadDir / kManifestFile));
    } catch (const ArchiveError&) {
        out.cleanup();
        throw;
    } catch (const std::exception& e) {
        out.cleanup();
        throw ArchiveError(ArchiveError::Case::notAnExport, e.what());
    }
    return out;
}

std::string conflictQuestion(std::size_t conflicts) {
    return conflicts == 1 ? "1 flow already exists in your library"
                          : std::to_string(conflicts) + " flows already exist in your library";
}

std::string uniqueApplicationName(const std::string& base,
                                  const std::vector<std::string>& existing) {
    auto taken = [&](const std::string& name) {
        return std::find(existing.begin(), existing.end(), name) != existing.end();
    };
    if (!taken(base))
        return base;
    if (!taken(base + " copy"))
        return base + " copy";
    for (unsigned n = 2;; ++n) {
        std::string candidate = base + " copy " + std::to_string(n);
        if (!taken(candidate))
            return candidate;
    }
}

} // namespace AppArchive
} // namespace varnel
