#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnel::FileOps {

namespace fs = std::filesystem;

// The whole file, or none when it does not exist; other failures throw FileError.
std::optional<std::string> readIfExists(const fs::path& file);
std::string read(const fs::path& file);

// Writes through a temporary file in the same folder that then replaces `file`.
void writeAtomically(const fs::path& file, std::string_view bytes);

// Moves a file or folder; never replaces an existing item. Falls back to copy and remove
// across file systems.
void move(const fs::path& from, const fs::path& to);

// Flushes a folder's entries (names made, renamed or removed) to disk; failures are ignored.
void syncFolder(const fs::path& folder);

// Copies a file or a folder tree; never replaces an existing item.
void copy(const fs::path& from, const fs::path& to);

// Copies a file through a temporary file that is flushed to disk before it takes the new
// name, so that a power cut leaves either no copy or a whole one. Never replaces `to`.
void copyDurably(const fs::path& from, const fs::path& to);
// A second name for the file (a hard link), or a durable copy where the file system has none.
void linkOrCopy(const fs::path& from, const fs::path& to);

// Removes a file or a folder tree; a missing item is not an error.
void remove(const fs::path& path);

void createDirectory(const fs::path& path, bool intermediates);

// Names of the entries of a folder, sorted.
std::vector<std::string> list(const fs::path& folder);

bool exists(const fs::path& path);
bool isDirectory(const fs::path& path);

// Whether `path`, once links are resolved, lies inside `root`.
bool isInside(const fs::path& root, const fs::path& path);

} // namespace varnel::FileOps
