#pragma once

#include <filesystem>
#include <functional>
#include <opencv2/core.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

// A clip as phones record them: how it is encoded and tagged.
// Frames come at uneven intervals, as a phone records a screen that changes now and then.
inline const std::vector<double> kPhoneIntervals = {1.0 / 60, 1.0 / 20,  1.0 / 45, 1.0 / 8,
                                                    1.0 / 30, 1.0 / 120, 2.0};
struct ClipRecipe {
    int width = 160;
    int height = 240;
    int frames = 30;
    bool sound = false;
    // Seconds from each frame to the next, used in turn; none: every 1/30 s.
    std::vector<double> intervals;
    // 10-bit HEVC instead of 8-bit H.264.
    bool hevc10 = false;
    // How the file says to turn the picture: "rotate-90", "rotate-180", "rotate-270" or "".
    std::string orientation;
    // GStreamer's name of the colour description written into the stream and the file, such as
    // "bt709" or "bt601"; "" leaves the clip untagged.
    std::string colorimetry;
};

bool writeClip(const std::filesystem::path& file, const ClipRecipe& recipe);

// Two recordings joined into one clip without moving the second one's times: its frames follow
// the first's in the file, but their times start again `restart` seconds into the first (0:
// from its start), so they repeat what the first has shown. Each recording is `frames` frames
// of H.264 with B-frames at 30 fps, and the second's picture moves the other way.
bool writeJoinedClip(const std::filesystem::path& file, int width, int height, int frames,
                     double restart);

// What a movie file's video stream says of itself, before decoding.
struct StreamFacts {
    std::string codec;                      // "video/x-h264", "video/x-h265"
    std::optional<std::string> colorimetry; // none when the stream is untagged
    std::string orientation;                // "" when the file says nothing
    std::vector<std::int64_t> timestamps;   // each frame's time in the stream, in ns
};
std::optional<StreamFacts> streamFacts(const std::filesystem::path& file);

// Every frame's luma plane (8 bits, as displayed before any rotation).
std::vector<cv::Mat> lumaPlanes(const std::filesystem::path& file);

// How many sound tracks a movie file has; none when it can't be read.
std::optional<int> soundTracks(const std::filesystem::path& file);

// Runs the Qt event loop until `done` holds or `seconds` pass; returns `done()`.
bool waitUntil(const std::function<bool()>& done, double seconds = 20);

} // namespace varnel::test
