#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace varnel::ScreenFiles {

// The extension after the last dot of a file name ("" when there is none).
std::string extension(std::string_view filename);
std::string stem(std::string_view filename);

// A clip is a screen whose lower-cased name ends in ".mov"; every other screen is a still.
bool isClip(std::string_view filename);

// 03.png -> 03.orig.png; a name without extension gets ".orig" appended.
std::string originalFilename(std::string_view filename);

// The number of a screen file such as 07.png or 12.mov; none for other names.
std::optional<long long> screenNumber(std::string_view filename);

// The number after the highest one in use among `names` (1 when none is).
long long nextScreenNumber(const std::vector<std::string>& names);

// A newly captured screen's name: at least two digits, then "." and the extension.
std::string capturedName(long long number, std::string_view extension);

// The i-th (from 1) of `count` screens after renumbering, keeping the old file's extension.
std::string renumberedName(std::size_t position, std::size_t count, std::string_view oldName);

// A screen name not in `claimed`, numbered after the highest in use there; it is claimed.
std::string claimScreenName(std::set<std::string>& claimed, std::string_view extension);

// A patch image's name: a screen's stem, ".patch-", a UUID and ".png".
bool isPatchFileName(std::string_view name);
// Patch images belong to their screen: "03.patch-<UUID>.png" belongs to 03.png.
bool isPatchOf(std::string_view patchFile, std::string_view screenFilename);
// A new patch file name for a screen.
std::string newPatchName(std::string_view screenFilename);
// The same patch under another screen: its UUID is kept.
std::string patchRenamed(std::string_view patchFile, std::string_view screenFilename);

} // namespace varnel::ScreenFiles
