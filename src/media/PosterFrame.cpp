#include "media/PosterFrame.h"

#include "media/GstSupport.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

namespace varnel::PosterFrame {

namespace {

QImage toImage(GstSample* sample) {
    GstCaps* caps = gst_sample_get_caps(sample);
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    GstVideoInfo info;
    if (!caps || !buffer || !gst_video_info_from_caps(&info, caps))
        return {};
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ))
        return {};
    const QImage view(static_cast<const uchar*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
                      GST_VIDEO_FRAME_WIDTH(&frame), GST_VIDEO_FRAME_HEIGHT(&frame),
                      GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0), QImage::Format_RGB32);
    QImage image = view.copy(); // the buffer goes back to the pipeline
    gst_video_frame_unmap(&frame);
    return image;
}

} // namespace

QImage grab(const std::filesystem::path& clip, std::chrono::milliseconds timeout) {
    // BGRx in memory is Qt's RGB32 on little-endian machines. A clip recorded sideways is
    // turned as players turn it.
    gst::ElementPtr pipeline =
        gst::parse("filesrc name=source ! decodebin ! videoconvert ! "
                   "videoflip video-direction=auto ! video/x-raw,format=BGRx ! "
                   "appsink name=sink sync=false max-buffers=1");
    if (!pipeline)
        return {};
    g_object_set(gst::child(pipeline.get(), "source").get(), "location", clip.c_str(), nullptr);
    const auto sink = gst::child(pipeline.get(), "sink");
    QImage image;
    if (gst_element_set_state(pipeline.get(), GST_STATE_PAUSED) != GST_STATE_CHANGE_FAILURE) {
        // Prerolled means the first picture waits in the sink; an error ends the wait early.
        GstBus* bus = gst_element_get_bus(pipeline.get());
        const auto nanoseconds =
            std::chrono::duration_cast<std::chrono::nanoseconds>(timeout).count();
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, static_cast<GstClockTime>(nanoseconds),
            static_cast<GstMessageType>(GST_MESSAGE_ASYNC_DONE | GST_MESSAGE_ERROR |
                                        GST_MESSAGE_EOS));
        if (message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ASYNC_DONE) {
            if (GstSample* sample = gst_app_sink_try_pull_preroll(GST_APP_SINK(sink.get()), 0)) {
                image = toImage(sample);
                gst_sample_unref(sample);
            }
        }
        if (message)
            gst_message_unref(message);
        gst_object_unref(bus);
    }
    return image;
}

} // namespace varnel::PosterFrame
