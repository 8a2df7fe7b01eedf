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

// Throw UnsafeNameError unless `folderName` is a relative path of plain segments (no "..",
// no empty, hidden or absolute segments) that stays inside the library root.
void validateFolderName(std::string_view folderName);

// Throw UnsafeNameError unless `filename` names a plain file inside a flow folder: no "/",
// not hidden, and not one of the flow's own bookkeeping files.
void validateFileName(std::string_view filename);

bool isSafeFolderName(std::string_view folderName);
bool isSafeFileName(std::string_view filename);

} // namespace varnel::LibraryLayout
