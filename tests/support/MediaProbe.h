#pragma once

#include <filesystem>
#include <functional>
#include <optional>

namespace varnel::test {

// What a movie file holds, read back by decoding it.
struct ClipInfo {
    int width = 0;
    int height = 0;
    int frames = 0;
    double durationSeconds = 0;
};

// Decodes every frame of the clip; none when it can't be read. `onFrame` sees each frame as
// BGRx rows.
std::optional<ClipInfo>
readClip(const std::filesystem::path& file,
         const std::function<void(int index, const unsigned char* bgrx, int stride)>& onFrame = {});

// Writes an H.264 QuickTime clip of a moving test picture (30 fps), with an AAC sound track
// when asked; false when the media framework failed.
bool writeTestClip(const std::filesystem::path& file, int width, int height, int frames,
                   bool withSound);

// How many sound tracks a movie file has; none when it can't be read.
std::optional<int> soundTracks(const std::filesystem::path& file);

// Runs the Qt event loop until `done` holds or `seconds` pass; returns `done()`.
bool waitUntil(const std::function<bool()>& done, double seconds = 20);

} // namespace varnel::test
