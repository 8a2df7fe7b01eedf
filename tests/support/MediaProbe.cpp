#include "support/MediaProbe.h"

#include "media/GstSupport.h"
#include "media/MovieMatrix.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/pbutils/pbutils.h>
#include <gst/video/video.h>

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <map>

namespace varnel::test {

std::optional<ClipInfo>
readClip(const std::filesystem::path& file,
         const std::function<void(int, const unsigned char*, int)>& onFrame) {
    auto pipeline = gst::parse("filesrc name=source ! qtdemux ! decodebin ! videoconvert ! "
                               "video/x-raw,format=BGRx ! appsink name=sink sync=false");
    if (!pipeline)
        return std::nullopt;
    g_object_set(gst::child(pipeline.get(), "source").get(), "location", file.c_str(), nullptr);
    auto sink = gst::child(pipeline.get(), "sink");
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return std::nullopt;
    ClipInfo info;
    // A decoding error stalls the sink rather than ending it: wait at most ten seconds a frame.
    while (GstSample* sample =
               gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), 10 * GST_SECOND)) {
        GstVideoInfo video;
        if (gst_video_info_from_caps(&video, gst_sample_get_caps(sample))) {
            info.width = GST_VIDEO_INFO_WIDTH(&video);
            info.height = GST_VIDEO_INFO_HEIGHT(&video);
            GstVideoFrame frame;
            if (onFrame &&
                gst_video_frame_map(&frame, &video, gst_sample_get_buffer(sample), GST_MAP_READ)) {
                onFrame(info.frames,
                        static_cast<const unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
                        GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0));
                gst_video_frame_unmap(&frame);
            }
        }
        ++info.frames;
        gst_sample_unref(sample);
    }
    gint64 duration = 0;
    if (gst_element_query_duration(pipeline.get(), GST_FORMAT_TIME, &duration))
        info.durationSeconds = static_cast<double>(duration) / GST_SECOND;
    if (info.frames == 0)
        return std::nullopt;
    return info;
}

namespace {

bool runToEnd(GstElement* pipeline) {
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    std::unique_ptr<GstBus, gst::ObjectUnref> bus(gst_element_get_bus(pipeline));
    GstMessage* end = gst_bus_timed_pop_filtered(
        bus.get(), 60 * GST_SECOND,
        static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ok = end && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS;
    if (end)
        gst_message_unref(end);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    return ok;
}

GstPadProbeReturn retime(GstPad*, GstPadProbeInfo* info, gpointer data) {
    const auto& intervals = *static_cast<const std::vector<double>*>(data);
    GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    const auto index = GST_BUFFER_OFFSET(buffer);
    const auto interval = [&](guint64 i) {
        return static_cast<GstClockTime>(intervals[i % intervals.size()] * GST_SECOND);
    };
    GstClockTime start = 0;
    for (guint64 i = 0; i < index; ++i)
        start += interval(i);
    GST_BUFFER_PTS(buffer) = start;
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) = interval(index);
    return GST_PAD_PROBE_OK;
}

} // namespace

bool writeClip(const std::filesystem::path& file, const ClipRecipe& recipe) {
    const bool tagged = !recipe.colorimetry.empty();
    std::string description =
        "videotestsrc pattern=smpte horizontal-speed=4 num-buffers=" +
        std::to_string(recipe.frames) +
        " ! video/x-raw,framerate=30/1,width=" + std::to_string(recipe.width) +
        ",height=" + std::to_string(recipe.height) +
        " ! identity name=retime ! videoconvert ! video/x-raw,format=" +
        (recipe.hevc10 ? "I420_10LE" : "I420") +
        (tagged ? ",colorimetry=" + recipe.colorimetry : std::string()) + " ! " +
        (recipe.hevc10 ? "x265enc speed-preset=ultrafast ! h265parse name=parse"
                       : std::string("x264enc speed-preset=ultrafast bframes=2 insert-vui=") +
                             (tagged ? "true" : "false") + " ! h264parse name=parse") +
        " ! ";
    description += "qtmux name=mux ! filesink name=out";
    if (recipe.sound)
        description +=
            " audiotestsrc num-buffers=" + std::to_string(recipe.frames * 48000 / 30 / 1024) +
            " ! audio/x-raw,rate=48000 ! audioconvert ! avenc_aac ! aacparse ! mux.";
    auto pipeline = gst::parse(description.c_str());
    if (!pipeline)
        return false;
    g_object_set(gst::child(pipeline.get(), "out").get(), "location", file.c_str(), nullptr);
    if (!recipe.intervals.empty()) {
        GstPad* pad = gst_element_get_static_pad(gst::child(pipeline.get(), "retime").get(), "src");
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, retime,
                          const_cast<std::vector<double>*>(&recipe.intervals), nullptr);
        gst_object_unref(pad);
    }
    if (!tagged) {
        // The encoder copies the decoder-side defaults into its caps; the file must not say them.
        GstPad* pad = gst_element_get_static_pad(gst::child(pipeline.get(), "parse").get(), "src");
        gst::rewriteCaps(pad,
                         [](GstStructure* s) { gst_structure_remove_field(s, "colorimetry"); });
        gst_object_unref(pad);
    }
    if (!runToEnd(pipeline.get()))
        return false;
    // GStreamer's muxer writes no rotation; phones write it into the track header.
    using MovieMatrix::Matrix;
    static const std::map<std::string, Matrix> turns = {
        {"rotate-90", {0, 0x10000, 0, -0x10000, 0, 0, 0, 0, 0x40000000}},
        {"rotate-180", {-0x10000, 0, 0, 0, -0x10000, 0, 0, 0, 0x40000000}},
        {"rotate-270", {0, -0x10000, 0, 0x10000, 0, 0, 0, 0, 0x40000000}},
    };
    if (recipe.orientation.empty())
        return true;
    const auto turn = turns.find(recipe.orientation);
    return turn != turns.end() && MovieMatrix::setOnVideoTrack(file, turn->second);
}

namespace {

// One recording's coded frames in decoding order, with the caps that describe them.
struct Recording {
    GstCaps* caps = nullptr;
    std::vector<GstBuffer*> frames;
    Recording() = default;
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording() {
        if (caps)
            gst_caps_unref(caps);
        for (GstBuffer* frame : frames)
            gst_buffer_unref(frame);
    }
};

bool record(Recording& recording, int width, int height, int frames, int speed) {
    const std::string description =
        "videotestsrc pattern=smpte horizontal-speed=" + std::to_string(speed) +
        " num-buffers=" + std::to_string(frames) +
        " ! video/x-raw,framerate=30/1,width=" + std::to_string(width) +
        ",height=" + std::to_string(height) +
        " ! videoconvert ! video/x-raw,format=I420 ! x264enc speed-preset=ultrafast bframes=2 "
        "insert-vui=false ! h264parse ! video/x-h264,stream-format=avc,alignment=au ! "
        "appsink name=sink sync=false";
    auto pipeline = gst::parse(description.c_str());
    if (!pipeline)
        return false;
    auto sink = gst::child(pipeline.get(), "sink");
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return false;
    while (GstSample* sample =
               gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), 10 * GST_SECOND)) {
        if (!recording.caps)
            recording.caps = gst_caps_ref(gst_sample_get_caps(sample));
        recording.frames.push_back(gst_buffer_ref(gst_sample_get_buffer(sample)));
        gst_sample_unref(sample);
    }
    return recording.caps && recording.frames.size() == static_cast<std::size_t>(frames);
}

} // namespace

bool writeJoinedClip(const std::filesystem::path& file, int width, int height, int frames,
                     double restart) {
    Recording first, second;
    if (!record(first, width, height, frames, 4) || !record(second, width, height, frames, -4))
        return false;
    // Both come from the same encoder settings, so one description serves the whole track.
    if (!gst_caps_is_equal(first.caps, second.caps))
        return false;
    auto pipeline = gst::parse("appsrc name=source format=time ! mux.video_0 "
                               "qtmux name=mux ! filesink name=out sync=false");
    if (!pipeline)
        return false;
    auto source = gst::child(pipeline.get(), "source");
    g_object_set(source.get(), "caps", first.caps, nullptr);
    g_object_set(gst::child(pipeline.get(), "out").get(), "location", file.c_str(), nullptr);
    const auto length = static_cast<GstClockTimeDiff>(frames) * GST_SECOND / 30;
    const auto moved = [](GstBuffer* frame, GstClockTimeDiff pts, GstClockTimeDiff dts) {
        GstBuffer* copy = gst_buffer_copy(frame);
        GST_BUFFER_PTS(copy) = static_cast<GstClockTime>(GST_BUFFER_PTS(frame) + pts);
        GST_BUFFER_DTS(copy) = static_cast<GstClockTime>(GST_BUFFER_DTS(frame) + dts);
        return copy;
    };
    // appsrc turns buffers away until it runs.
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return false;
    for (GstBuffer* frame : first.frames)
        gst_app_src_push_buffer(GST_APP_SRC(source.get()), gst_buffer_ref(frame));
    // The second recording is stored, and decoded, after the first, but shown from `restart`
    // on again.
    const auto shift = static_cast<GstClockTimeDiff>(GST_BUFFER_PTS(first.frames[0])) -
                       static_cast<GstClockTimeDiff>(GST_BUFFER_PTS(second.frames[0]));
    const auto shown = static_cast<GstClockTimeDiff>(restart * GST_SECOND);
    for (GstBuffer* frame : second.frames)
        gst_app_src_push_buffer(GST_APP_SRC(source.get()),
                                moved(frame, shift + shown, shift + length));
    gst_app_src_end_of_stream(GST_APP_SRC(source.get()));
    return runToEnd(pipeline.get());
}

bool writeTestClip(const std::filesystem::path& file, int width, int height, int frames,
                   bool withSound) {
    ClipRecipe recipe;
    recipe.width = width;
    recipe.height = height;
    recipe.frames = frames;
    recipe.sound = withSound;
    recipe.colorimetry = "bt601";
    return writeClip(file, recipe);
}

std::optional<StreamFacts> streamFacts(const std::filesystem::path& file) {
    auto pipeline = gst::parse("filesrc name=source ! qtdemux name=demux demux.video_0 ! "
                               "parsebin ! appsink name=sink sync=false");
    if (!pipeline)
        return std::nullopt;
    g_object_set(gst::child(pipeline.get(), "source").get(), "location", file.c_str(), nullptr);
    auto sink = gst::child(pipeline.get(), "sink");
    StreamFacts facts;
    GstPad* pad = gst_element_get_static_pad(sink.get(), "sink");
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
            gchar* orientation = nullptr;
            if (GST_EVENT_TYPE(event) == GST_EVENT_TAG) {
                GstTagList* tags = nullptr;
                gst_event_parse_tag(event, &tags);
                if (gst_tag_list_get_string(tags, GST_TAG_IMAGE_ORIENTATION, &orientation)) {
                    static_cast<StreamFacts*>(data)->orientation = orientation;
                    g_free(orientation);
                }
            }
            return GST_PAD_PROBE_OK;
        },
        &facts, nullptr);
    gst_object_unref(pad);
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return std::nullopt;
    while (GstSample* sample =
               gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), 10 * GST_SECOND)) {
        if (facts.codec.empty()) {
            const GstStructure* s = gst_caps_get_structure(gst_sample_get_caps(sample), 0);
            facts.codec = gst_structure_get_name(s);
            if (const char* colorimetry = gst_structure_get_string(s, "colorimetry"))
                facts.colorimetry = colorimetry;
        }
        // Edit lists and reordering delays shift the raw times; the stream time is what plays.
        facts.timestamps.push_back(static_cast<std::int64_t>(
            gst_segment_to_stream_time(gst_sample_get_segment(sample), GST_FORMAT_TIME,
                                       GST_BUFFER_PTS(gst_sample_get_buffer(sample)))));
        gst_sample_unref(sample);
    }
    if (facts.timestamps.empty())
        return std::nullopt;
    std::sort(facts.timestamps.begin(), facts.timestamps.end());
    return facts;
}

std::vector<cv::Mat> lumaPlanes(const std::filesystem::path& file) {
    std::vector<cv::Mat> planes;
    auto pipeline = gst::parse("filesrc name=source ! qtdemux ! decodebin ! videoconvert ! "
                               "video/x-raw,format=GRAY8 ! appsink name=sink sync=false");
    if (!pipeline)
        return planes;
    g_object_set(gst::child(pipeline.get(), "source").get(), "location", file.c_str(), nullptr);
    auto sink = gst::child(pipeline.get(), "sink");
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return planes;
    while (GstSample* sample =
               gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), 10 * GST_SECOND)) {
        GstVideoInfo video;
        GstVideoFrame frame;
        if (gst_video_info_from_caps(&video, gst_sample_get_caps(sample)) &&
            gst_video_frame_map(&frame, &video, gst_sample_get_buffer(sample), GST_MAP_READ)) {
            planes.push_back(
                cv::Mat(GST_VIDEO_FRAME_HEIGHT(&frame), GST_VIDEO_FRAME_WIDTH(&frame), CV_8UC1,
                        GST_VIDEO_FRAME_PLANE_DATA(&frame, 0),
                        static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0)))
                    .clone());
            gst_video_frame_unmap(&frame);
        }
        gst_sample_unref(sample);
    }
    return planes;
}

std::optional<int> soundTracks(const std::filesystem::path& file) {
    if (!gst::initialize())
        return std::nullopt;
    GstDiscoverer* discoverer = gst_discoverer_new(20 * GST_SECOND, nullptr);
    if (!discoverer)
        return std::nullopt;
    gchar* uri = gst_filename_to_uri(file.c_str(), nullptr);
    GstDiscovererInfo* info = gst_discoverer_discover_uri(discoverer, uri, nullptr);
    g_free(uri);
    std::optional<int> count;
    if (info && gst_discoverer_info_get_result(info) == GST_DISCOVERER_OK) {
        GList* streams = gst_discoverer_info_get_audio_streams(info);
        count = static_cast<int>(g_list_length(streams));
        gst_discoverer_stream_info_list_free(streams);
    }
    if (info)
        g_object_unref(info);
    g_object_unref(discoverer);
    return count;
}

bool waitUntil(const std::function<bool()>& done, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

} // namespace varnel::test
