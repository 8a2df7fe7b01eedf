#pragma once

#include <string>
#include <string_view>

namespace varnel::LibraryLayout {

inline constexpr std::string_view kMetaFile = "meta.json";
inline constexpr std::string_view kIndexFile = "index.json";
inline constexpr std::string_view kOCRFile = "ocr.json";
inline constexpr std::string_view kThumbsFolder = ".thumbs";
inline constexpr std::string_view kStagingFolder = ".inprogress";
inline constexpr std::string_view kQuarantinePrefix = ".deleting-";
inline constexpr std::string_view kRenumberFolder = ".renumber";
// Changes under way, one file each, so that opening the library after a crash finds what they
// touched without looking into every flow.
inline constexpr std::string_view kJournalFolder = ".journal";
// A flow being put together beside its place before it appears under its name, and the file
// in it that names where its files came from.
inline constexpr std::string_view kAssemblyPrefix = ".adopting-";
inline constexpr std::string_view kAssemblySource = ".source.json";
// An archive unpacked inside the library for an import.
inline constexpr std::string_view kExtractionPrefix = ".quillane-import-";

// Throw UnsafeNameError unless `folderName` is a relative path of plain segments (no "..",
// no empty, hidden or absolute segments) that stays inside the library root.
void validateFolderName(std::string_view folderName);

// Throw UnsafeNameError unless `filename` names a plain file inside a flow folder: no "/",
// not hidden, and not one of the flow's own bookkeeping files.
void validateFileName(std::string_view filename);

bool isSafeFolderName(std::string_view folderName);

// What a write leaves when it is cut short: an atomic write's ".<name>.<UUID>.tmp", a clip
// being baked (".bake-<UUID>.mov") and the clip kept while a bake replaces it (the baked one's
// original copy still holds what it had). None was ever in place.
bool isWriteLeftover(std::string_view name);
bool isSafeFileName(std::string_view filename);

} // namespace varnel::LibraryLayout
