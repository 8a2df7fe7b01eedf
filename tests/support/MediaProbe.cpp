#include "support/MediaProbe.h"

#include "media/GstSupport.h"

#include <gst/app/gstappsink.h>
#include <gst/pbutils/pbutils.h>
#include <gst/video/video.h>

#include <QCoreApplication>
#include <QThread>

#include <chrono>

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

bool writeTestClip(const std::filesystem::path& file, int width, int height, int frames,
                   bool withSound) {
    std::string description =
        "videotestsrc pattern=smpte horizontal-speed=4 num-buffers=" + std::to_string(frames) +
        " ! video/x-raw,framerate=30/1,width=" + std::to_string(width) +
        ",height=" + std::to_string(height) +
        " ! videoconvert ! video/x-raw,format=I420 ! x264enc speed-preset=ultrafast ! h264parse ! "
        "qtmux name=mux ! "
        "filesink name=out";
    if (withSound)
        description += " audiotestsrc num-buffers=" + std::to_string(frames * 48000 / 30 / 1024) +
                       " ! audio/x-raw,rate=48000 ! audioconvert ! avenc_aac ! aacparse ! mux.";
    auto pipeline = gst::parse(description.c_str());
    if (!pipeline)
        return false;
    g_object_set(gst::child(pipeline.get(), "out").get(), "location", file.c_str(), nullptr);
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    std::unique_ptr<GstBus, gst::ObjectUnref> bus(gst_element_get_bus(pipeline.get()));
    GstMessage* end = gst_bus_timed_pop_filtered(
        bus.get(), 60 * GST_SECOND,
        static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ok = end && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS;
    if (end)
        gst_message_unref(end);
    return ok;
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
