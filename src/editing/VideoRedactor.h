#pragma once

#include "editing/MaskCache.h"
#include "editing/RedactRecords.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnel {

// Zones on clips: the same frosting and mask as stills, on every frame.
class VideoRedactor {
public:
    // What the player and the bake run on each frame: the zones frosted into the BGRA frame in
    // place. Safe to call from several threads at once.
    class Filter {
    public:
        Filter(const std::vector<RedactShape>& shapes, const RedactStyle& style)
            : luma_(shapes), chroma_(shapes), style_(style) {}
        // False when no mask can be made for the frame's size.
        bool operator()(cv::Mat& bgra);
        // The same on a decoded 4:2:0 frame's planes, so that what lies outside the zones
        // passes through without a round trip to RGB. The tint is converted with the frame's
        // colour matrix (Kr, Kb) and range.
        bool yuv420(cv::Mat& y, cv::Mat& u, cv::Mat& v, double kr, double kb, bool fullRange);

    private:
        MaskCache luma_;   // full-size planes and RGB frames
        MaskCache chroma_; // the half-size planes
        RedactStyle style_;
    };

    // Zones are drawn on the picture as it is shown. A clip whose frames are stored turned
    // (`orientation` is an image-orientation tag such as "rotate-90") gets them moved onto the
    // stored frames; an unknown or empty orientation leaves them as they are.
    static std::vector<RedactShape> onStoredFrames(std::vector<RedactShape> shapes,
                                                   std::string_view orientation);

    // Re-encodes `source` into `destination` with the zones frosted on every frame; sound is
    // copied as it is, and each frame's time, the rotation and the colour description (or its
    // absence) are kept; only where joined recordings' times repeat do the later frames follow
    // on from the earlier ones, in the order they are stored. The new clip is written beside the
    // destination as ".bake-<UUID>.mov" and replaces it only when complete; otherwise that file is
    // removed and the destination stays as it was. Blocks until done; `progress` gets 0..1, and
    // setting `cancel` stops the bake. `why` gets the reason of a failure.
    static bool bake(const std::vector<RedactShape>& shapes,
                     const std::filesystem::path& destination, const std::filesystem::path& source,
                     const RedactStyle& style, const std::function<void(double)>& progress = {},
                     const std::atomic<bool>* cancel = nullptr, std::string* why = nullptr);

    // The re-encoding alone: writes the new clip to `output` (a new file, flushed to disk) and
    // returns none, or removes it and returns why it failed.
    static std::optional<std::string> render(const std::vector<RedactShape>& shapes,
                                             const std::filesystem::path& output,
                                             const std::filesystem::path& source,
                                             const RedactStyle& style,
                                             const std::function<void(double)>& progress = {},
                                             const std::atomic<bool>* cancel = nullptr);
};

} // namespace varnel
