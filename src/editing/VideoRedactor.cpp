#include "editing/VideoRedactor.h"

#include "editing/ImageRedactor.h"
#include "library/FileOps.h"
#include "library/Uuid.h"
#include "media/GstSupport.h"
#include "media/MovieMatrix.h"

#include <gst/video/video.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

namespace varnel {

bool VideoRedactor::Filter::operator()(cv::Mat& bgra) {
    const auto mask = luma_.image(bgra.size());
    if (!mask)
        return false;
    return ImageRedactor::applyToPixels(luma_.shapes(), bgra, style_, &*mask);
}

bool VideoRedactor::Filter::yuv420(cv::Mat& y, cv::Mat& u, cv::Mat& v, double kr, double kb,
                                   bool fullRange) {
    const auto lumaMask = luma_.image(y.size());
    const auto chromaMask = chroma_.image(u.size());
    if (!lumaMask || !chromaMask || v.size() != u.size())
        return false;
    const double r = std::clamp(style_.red, 0.0, 1.0), g = std::clamp(style_.green, 0.0, 1.0),
                 b = std::clamp(style_.blue, 0.0, 1.0);
    const double luma = kr * r + (1 - kr - kb) * g + kb * b;
    const double pb = 0.5 * (b - luma) / (1 - kb), pr = 0.5 * (r - luma) / (1 - kr);
    const double lumaLevel = fullRange ? 255 * luma : 16 + 219 * luma;
    const double chromaScale = fullRange ? 255 : 224;
    const double opacity = std::clamp(style_.opacity, 0.0, 1.0);
    const auto& shapes = luma_.shapes();
    // Chroma has half the pixels each way, so the same blur spans half as many of them.
    using ImageRedactor::Frost;
    return ImageRedactor::applyFrost(shapes, y, Frost{style_.blur, {lumaLevel}, opacity},
                                     *lumaMask) &&
           ImageRedactor::applyFrost(
               shapes, u, Frost{style_.blur / 2, {128 + chromaScale * pb}, opacity}, *chromaMask) &&
           ImageRedactor::applyFrost(
               shapes, v, Frost{style_.blur / 2, {128 + chromaScale * pr}, opacity}, *chromaMask);
}

namespace {

namespace fs = std::filesystem;

// The coded stream is parsed before "decode" so that its colour description shows in the caps
// there. Decoded frames arrive as 8-bit 4:2:0 planes at "frames", are frosted in place there,
// and are encoded again at a quality where the re-encoding does not show. The encoder starts
// only once the coded stream has said how it is tagged. The queues let decoding, frosting and
// encoding run side by side.
constexpr const char* kVideoBranch =
    "queue name=in max-size-buffers=8 max-size-bytes=0 max-size-time=0 ! parsebin ! "
    "decodebin name=decode ! videoconvert n-threads=0 dither=none ! video/x-raw,format=I420 ! "
    "identity name=frames ! queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ! "
    "x264enc name=encode speed-preset=ultrafast pass=qual quantizer=16 insert-vui=false ! "
    "h264parse name=out";

// Sound is copied as it is. The demuxer hands out samples in time order and the muxer takes
// them in time order too, so while the video is held up in decoding and encoding the sound must
// wait somewhere: here, without a limit (a minute of sound is about a megabyte).
constexpr const char* kSoundBranch =
    "queue name=in max-size-buffers=0 max-size-bytes=0 max-size-time=0 ! identity name=out";

// x264's names for the codes of ISO/IEC 23091-2, indexed by code; "" where it has none.
constexpr std::array<const char*, 13> kPrimaries = {
    "",          "bt709", "undef",  "",         "bt470m",   "bt470bg", "smpte170m",
    "smpte240m", "film",  "bt2020", "smpte428", "smpte431", "smpte432"};
constexpr std::array<const char*, 19> kTransfers = {
    "",          "bt709",     "undef",     "",         "bt470m",       "bt470bg", "smpte170m",
    "smpte240m", "linear",    "log100",    "log316",   "iec61966-2-4", "bt1361e", "iec61966-2-1",
    "bt2020-10", "bt2020-12", "smpte2084", "smpte428", "arib-std-b67"};
constexpr std::array<const char*, 15> kMatrices = {"GBR",
                                                   "bt709",
                                                   "undef",
                                                   "",
                                                   "fcc",
                                                   "bt470bg",
                                                   "smpte170m",
                                                   "smpte240m",
                                                   "YCgCo",
                                                   "bt2020nc",
                                                   "bt2020c",
                                                   "smpte2085",
                                                   "chroma-derived-nc",
                                                   "chroma-derived-c",
                                                   "ICtCp"};

template <std::size_t N> std::string x264Name(const std::array<const char*, N>& names, guint code) {
    return code < N && *names[code] ? names[code] : "undef";
}

// The encoder's colour description: the same as the source's, field by field; what the source
// leaves unsaid stays unsaid.
std::string colourOptions(const std::optional<std::string>& colorimetry) {
    GstVideoColorimetry colour{};
    if (!colorimetry || !gst_video_colorimetry_from_string(&colour, colorimetry->c_str()))
        return "colorprim=undef:transfer=undef:colormatrix=undef";
    std::string options =
        "colorprim=" + x264Name(kPrimaries, gst_video_color_primaries_to_iso(colour.primaries)) +
        ":transfer=" + x264Name(kTransfers, gst_video_transfer_function_to_iso(colour.transfer)) +
        ":colormatrix=" + x264Name(kMatrices, gst_video_color_matrix_to_iso(colour.matrix));
    if (colour.range == GST_VIDEO_COLOR_RANGE_0_255)
        options += ":fullrange=on";
    else if (colour.range == GST_VIDEO_COLOR_RANGE_16_235)
        options += ":fullrange=off";
    return options;
}

// Clips joined from two recordings sometimes keep the second one's times as they were, so
// that they start again from the first's, or overlap them. Players go by the order of the
// frames; the decoder holds such times back and the encoder and the muxer give up on them.
// A recording starts on a key frame shown after everything decoded before it: one that isn't
// is moved, with all that follows it, to just after the last frame shown so far.
struct Join {
    GstClockTime offset = 0;
    GstClockTime latest = GST_CLOCK_TIME_NONE; // the latest time shown so far, moved
    GstClockTime latestDuration = 0;
    // The last frame duration the stream gave; until it gives one, a common frame rate's.
    GstClockTime frame = GST_SECOND / 30;
};

struct Bake {
    GstElement* pipeline = nullptr;
    GstElement* mux = nullptr;
    GstElement* video = nullptr; // the video branch
    const std::vector<RedactShape>* shapes = nullptr;
    const RedactStyle* style = nullptr;
    // Made when the coded stream starts, once its orientation is known.
    std::unique_ptr<VideoRedactor::Filter> ownFilter;
    std::atomic<VideoRedactor::Filter*> filter = nullptr;
    // The source's colour description; set before the encoder starts.
    std::optional<std::string> colorimetry;
    std::atomic<bool> sawVideo = false;
    std::atomic<bool> failed = false;
    std::atomic<std::uint64_t> written = 0; // buffers out of the muxer
    Join join;                              // only the coded video's streaming thread uses it
};

// A pipeline that writes nothing for this long is stuck; the save fails instead of waiting on.
constexpr auto kStallLimit = std::chrono::seconds(60);

std::string orientationOf(GstPad* pad) {
    std::string orientation;
    gst_pad_sticky_events_foreach(
        pad,
        [](GstPad*, GstEvent** event, gpointer data) -> gboolean {
            if (GST_EVENT_TYPE(*event) != GST_EVENT_TAG)
                return TRUE;
            GstTagList* tags = nullptr;
            gst_event_parse_tag(*event, &tags);
            gchar* value = nullptr;
            if (gst_tag_list_get_string(tags, GST_TAG_IMAGE_ORIENTATION, &value)) {
                *static_cast<std::string*>(data) = value;
                g_free(value);
            }
            return TRUE;
        },
        &orientation);
    return orientation;
}

// Runs as the first coded buffer reaches the decoder: every caps and tag event of the stream
// has passed by then, and no decoded frame has reached the filter or the encoder.
GstPadProbeReturn codedStreamStarts(GstPad* pad, GstPadProbeInfo*, gpointer data) {
    auto* bake = static_cast<Bake*>(data);
    if (GstCaps* caps = gst_pad_get_current_caps(pad)) {
        if (const char* colorimetry =
                gst_structure_get_string(gst_caps_get_structure(caps, 0), "colorimetry"))
            bake->colorimetry = colorimetry;
        gst_caps_unref(caps);
    }
    const std::string orientation = orientationOf(pad);
    bake->ownFilter = std::make_unique<VideoRedactor::Filter>(
        VideoRedactor::onStoredFrames(*bake->shapes, orientation), *bake->style);
    bake->filter.store(bake->ownFilter.get(), std::memory_order_release);
    auto encoder = gst::child(bake->video, "encode");
    g_object_set(encoder.get(), "option-string", colourOptions(bake->colorimetry).c_str(), nullptr);
    gst_element_set_locked_state(encoder.get(), FALSE);
    if (!gst_element_sync_state_with_parent(encoder.get()))
        bake->failed = true;
    return GST_PAD_PROBE_REMOVE;
}

GstPadProbeReturn followOnAtJoins(GstPad*, GstPadProbeInfo* info, gpointer data) {
    Join& join = static_cast<Bake*>(data)->join;
    if (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) {
        // Each segment (an edit of the clip) has times of its own.
        if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_SEGMENT)
            join = {};
        return GST_PAD_PROBE_OK;
    }
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (!GST_BUFFER_PTS_IS_VALID(buffer))
        return GST_PAD_PROBE_OK;
    if (GST_BUFFER_DURATION_IS_VALID(buffer) && GST_BUFFER_DURATION(buffer) > 0)
        join.frame = GST_BUFFER_DURATION(buffer);
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    if (GST_CLOCK_TIME_IS_VALID(join.latest) && pts + join.offset <= join.latest &&
        !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT))
        join.offset = join.latest + join.latestDuration - pts;
    if (join.offset > 0) {
        buffer = gst_buffer_make_writable(buffer);
        GST_PAD_PROBE_INFO_DATA(info) = buffer;
        GST_BUFFER_PTS(buffer) += join.offset;
        if (GST_BUFFER_DTS_IS_VALID(buffer))
            GST_BUFFER_DTS(buffer) += join.offset;
    }
    if (!GST_CLOCK_TIME_IS_VALID(join.latest) || GST_BUFFER_PTS(buffer) > join.latest) {
        join.latest = GST_BUFFER_PTS(buffer);
        join.latestDuration = join.frame;
    }
    return GST_PAD_PROBE_OK;
}

// The encoder copies the decoder's colour defaults into its caps, and the muxer writes what
// the caps say: they must say what the source said, or nothing.
void keepColourDescription(Bake& bake, GstElement* branch) {
    auto parser = gst::child(branch, "out");
    GstPad* src = gst_element_get_static_pad(parser.get(), "src");
    gst::rewriteCaps(src, [&bake](GstStructure* caps) {
        if (bake.colorimetry)
            gst_structure_set(caps, "colorimetry", G_TYPE_STRING, bake.colorimetry->c_str(),
                              nullptr);
        else
            gst_structure_remove_field(caps, "colorimetry");
    });
    gst_object_unref(src);
}

GstPadProbeReturn frostFrame(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
    auto* bake = static_cast<Bake*>(data);
    VideoRedactor::Filter* filter = bake->filter.load(std::memory_order_acquire);
    GstCaps* caps = gst_pad_get_current_caps(pad);
    GstVideoInfo video;
    const bool known = caps && gst_video_info_from_caps(&video, caps);
    if (caps)
        gst_caps_unref(caps);
    GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    GstVideoFrame frame;
    if (!filter || !known || !gst_video_frame_map(&frame, &video, buffer, GST_MAP_READWRITE)) {
        bake->failed = true;
        return GST_PAD_PROBE_DROP;
    }
    const auto plane = [&](int index) {
        return cv::Mat(GST_VIDEO_FRAME_COMP_HEIGHT(&frame, index),
                       GST_VIDEO_FRAME_COMP_WIDTH(&frame, index), CV_8UC1,
                       GST_VIDEO_FRAME_PLANE_DATA(&frame, index),
                       static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, index)));
    };
    cv::Mat y = plane(0), u = plane(1), v = plane(2);
    gdouble kr = 0.2126, kb = 0.0722; // BT.709 unless the stream says otherwise
    gst_video_color_matrix_get_Kr_Kb(video.colorimetry.matrix, &kr, &kb);
    const bool frosted =
        filter->yuv420(y, u, v, kr, kb, video.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255);
    gst_video_frame_unmap(&frame);
    if (!frosted) {
        bake->failed = true;
        return GST_PAD_PROBE_DROP;
    }
    return GST_PAD_PROBE_OK;
}

// Gives the bin a pad of the same direction that stands for its child's pad.
void exposePad(GstElement* bin, const char* child, const char* pad) {
    auto element = gst::child(bin, child);
    GstPad* target = gst_element_get_static_pad(element.get(), pad);
    gst_element_add_pad(bin, gst_ghost_pad_new(pad, target));
    gst_object_unref(target);
}

// Adds a branch from a demuxer pad into a request pad of the muxer. The branch's ends are
// named "in" and "out"; pads that decodebin will link later must not be taken for them.
bool addBranch(Bake& bake, GstPad* from, const char* description, const char* muxPad) {
    GError* error = nullptr;
    GstElement* branch = gst_parse_bin_from_description(description, FALSE, &error);
    if (error) {
        g_error_free(error);
        if (branch)
            gst_object_unref(branch);
        return false;
    }
    exposePad(branch, "in", "sink");
    exposePad(branch, "out", "src");
    gst_bin_add(GST_BIN(bake.pipeline), branch);
    if (auto frames = gst::child(branch, "frames")) {
        bake.video = branch;
        GstPad* src = gst_element_get_static_pad(frames.get(), "src");
        gst_pad_add_probe(src, GST_PAD_PROBE_TYPE_BUFFER, frostFrame, &bake, nullptr);
        gst_object_unref(src);
        GstPad* coded = gst_element_get_static_pad(gst::child(branch, "decode").get(), "sink");
        gst_pad_add_probe(coded, GST_PAD_PROBE_TYPE_BUFFER, codedStreamStarts, &bake, nullptr);
        gst_pad_add_probe(coded,
                          static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER |
                                                       GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                          followOnAtJoins, &bake, nullptr);
        gst_object_unref(coded);
        gst_element_set_locked_state(gst::child(branch, "encode").get(), TRUE);
        keepColourDescription(bake, branch);
    }
    GstPad* sink = gst_element_get_static_pad(branch, "sink");
    GstPad* src = gst_element_get_static_pad(branch, "src");
    GstPad* target = gst_element_request_pad_simple(bake.mux, muxPad);
    const bool linked = target && gst_pad_link(from, sink) == GST_PAD_LINK_OK &&
                        gst_pad_link(src, target) == GST_PAD_LINK_OK;
    gst_object_unref(sink);
    gst_object_unref(src);
    if (target)
        gst_object_unref(target);
    gst_element_sync_state_with_parent(branch);
    return linked;
}

// Streams the muxer can't take (or doesn't need) are drained, so the demuxer isn't stalled.
void drain(Bake& bake, GstPad* from) {
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    g_object_set(sink, "sync", FALSE, nullptr);
    gst_bin_add(GST_BIN(bake.pipeline), sink);
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    gst_pad_link(from, pad);
    gst_object_unref(pad);
    gst_element_sync_state_with_parent(sink);
}

void streamAdded(GstElement*, GstPad* pad, gpointer data) {
    auto* bake = static_cast<Bake*>(data);
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (!caps)
        caps = gst_pad_query_caps(pad, nullptr);
    const std::string kind = gst_structure_get_name(gst_caps_get_structure(caps, 0));
    gst_caps_unref(caps);
    if (kind.starts_with("video/") && !bake->sawVideo) {
        bake->sawVideo = true;
        if (!addBranch(*bake, pad, kVideoBranch, "video_%u"))
            bake->failed = true;
    } else if (kind.starts_with("audio/")) {
        if (!addBranch(*bake, pad, kSoundBranch, "audio_%u"))
            bake->failed = true;
    } else {
        drain(*bake, pad);
    }
}

std::optional<double> fractionDone(GstElement* pipeline) {
    gint64 position = 0, duration = 0;
    if (!gst_element_query_position(pipeline, GST_FORMAT_TIME, &position) ||
        !gst_element_query_duration(pipeline, GST_FORMAT_TIME, &duration) || duration <= 0)
        return std::nullopt;
    return std::clamp(static_cast<double>(position) / static_cast<double>(duration), 0.0, 1.0);
}

bool syncToDisk(const fs::path& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

std::string errorText(GstMessage* message) {
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    std::string text = error && error->message ? error->message : "the media framework failed";
    if (error)
        g_error_free(error);
    g_free(debug);
    return text;
}

std::optional<std::string> runBake(const std::vector<RedactShape>& shapes, const fs::path& output,
                                   const fs::path& source, const RedactStyle& style,
                                   const std::function<void(double)>& progress,
                                   const std::atomic<bool>* cancel) {
    if (!gst::initialize())
        return "GStreamer could not be started";
    if (!fs::is_regular_file(source))
        return "the clip to bake from, " + source.filename().string() + ", is missing";
    // The muxer writes no rotation of its own: the source's is copied into the new file.
    const auto matrix = MovieMatrix::ofVideoTrack(source);
    Bake bake;
    bake.shapes = &shapes;
    bake.style = &style;
    gst::ElementPtr pipeline(gst_pipeline_new("bake"));
    bake.pipeline = pipeline.get();
    GstElement* src = gst_element_factory_make("filesrc", nullptr);
    GstElement* demux = gst_element_factory_make("qtdemux", nullptr);
    bake.mux = gst_element_factory_make("qtmux", nullptr);
    GstElement* sink = gst_element_factory_make("filesink", nullptr);
    if (!src || !demux || !bake.mux || !sink)
        return "a GStreamer element for QuickTime files is missing";
    g_object_set(src, "location", source.c_str(), nullptr);
    g_object_set(sink, "location", output.c_str(), "sync", FALSE, nullptr);
    gst_bin_add_many(GST_BIN(bake.pipeline), src, demux, bake.mux, sink, nullptr);
    if (!gst_element_link(src, demux) || !gst_element_link(bake.mux, sink))
        return "the re-encoding could not be set up";
    g_signal_connect(demux, "pad-added", G_CALLBACK(streamAdded), &bake);
    GstPad* muxed = gst_element_get_static_pad(bake.mux, "src");
    gst_pad_add_probe(
        muxed, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer data) {
            ++static_cast<Bake*>(data)->written;
            return GST_PAD_PROBE_OK;
        },
        &bake, nullptr);
    gst_object_unref(muxed);

    if (gst_element_set_state(bake.pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return "the clip could not be opened";
    std::unique_ptr<GstBus, gst::ObjectUnref> bus(gst_element_get_bus(bake.pipeline));
    std::optional<std::string> failure;
    std::uint64_t written = 0;
    auto lastWrite = std::chrono::steady_clock::now();
    while (true) {
        if (cancel && cancel->load()) {
            failure = "the save was cancelled";
            break;
        }
        if (const auto now = std::chrono::steady_clock::now(); bake.written != written) {
            written = bake.written;
            lastWrite = now;
        } else if (now - lastWrite > kStallLimit) {
            failure = "the re-encoding stopped making progress";
            break;
        }
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus.get(), 100 * GST_MSECOND,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
        if (progress)
            if (const auto done = fractionDone(bake.pipeline))
                progress(*done);
        if (bake.failed) {
            failure = "a frame could not be blurred";
        } else if (message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            failure = errorText(message);
        }
        const bool eos = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
        if (message)
            gst_message_unref(message);
        if (failure || eos)
            break;
    }
    gst_element_set_state(bake.pipeline, GST_STATE_NULL);
    if (failure)
        return failure;
    if (!bake.sawVideo)
        return "the clip has no video";
    if (matrix && *matrix != MovieMatrix::kIdentity &&
        !MovieMatrix::setOnVideoTrack(output, *matrix))
        return "the clip's rotation could not be kept";
    if (!syncToDisk(output))
        return "the new clip could not be written to disk";
    return std::nullopt;
}

} // namespace

std::vector<RedactShape> VideoRedactor::onStoredFrames(std::vector<RedactShape> shapes,
                                                       std::string_view orientation) {
    // "flip-rotate-N" is a mirror image turned N degrees clockwise, "rotate-N" the turn alone.
    const bool flip = orientation.starts_with("flip-");
    if (flip)
        orientation.remove_prefix(5);
    int turns = 0;
    if (orientation == "rotate-90")
        turns = 1;
    else if (orientation == "rotate-180")
        turns = 2;
    else if (orientation == "rotate-270")
        turns = 3;
    else if (orientation != "rotate-0")
        return shapes;
    // A stored point (x, y) is shown at (1 - y, x) after a clockwise quarter turn; undo the
    // turns on both corners, then the mirror.
    const auto toStored = [&](double x, double y) {
        for (int i = 0; i < turns; ++i)
            std::tie(x, y) = std::pair(y, 1 - x);
        return std::pair(flip ? 1 - x : x, y);
    };
    for (auto& shape : shapes) {
        const auto& r = shape.rect;
        const auto [x0, y0] = toStored(r.x, r.y);
        const auto [x1, y1] = toStored(r.x + r.width, r.y + r.height);
        shape.rect = {std::min(x0, x1), std::min(y0, y1), std::abs(x1 - x0), std::abs(y1 - y0)};
    }
    return shapes;
}

std::optional<std::string> VideoRedactor::render(const std::vector<RedactShape>& shapes,
                                                 const fs::path& output, const fs::path& source,
                                                 const RedactStyle& style,
                                                 const std::function<void(double)>& progress,
                                                 const std::atomic<bool>* cancel) {
    auto failure = runBake(shapes, output, source, style, progress, cancel);
    if (failure) {
        std::error_code ignored;
        fs::remove(output, ignored);
    }
    return failure;
}

bool VideoRedactor::bake(const std::vector<RedactShape>& shapes, const fs::path& destination,
                         const fs::path& source, const RedactStyle& style,
                         const std::function<void(double)>& progress,
                         const std::atomic<bool>* cancel, std::string* why) {
    const fs::path output = destination.parent_path() / (".bake-" + newUUIDString() + ".mov");
    auto failure = render(shapes, output, source, style, progress, cancel);
    std::error_code error;
    if (!failure) {
        fs::rename(output, destination, error);
        if (error) {
            failure = "the new clip could not take the old one's place: " + error.message();
            fs::remove(output, error);
        } else {
            FileOps::syncFolder(destination.parent_path());
        }
    }
    if (failure) {
        if (why)
            *why = *failure;
        return false;
    }
    if (progress)
        progress(1.0);
    return true;
}

} // namespace varnel
