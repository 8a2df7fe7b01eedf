#include "capture/MovieWriter.h"

#include "media/GstSupport.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <string>
#include <system_error>

namespace varnel {

namespace {

constexpr GstClockTime kFinishTimeout = 120 * GST_SECOND;

// H.264 in 4:2:0 has no odd sizes: an odd last column or row is left out.
std::string writerDescription(int width, int height) {
    // The conversion and the encoder each get a thread of their own, with a short queue between.
    return "appsrc name=source format=time is-live=true block=false ! "
           "videoconvert n-threads=0 dither=none ! videocrop right=" +
           std::to_string(width % 2) + " bottom=" + std::to_string(height % 2) +
           " ! video/x-raw,format=I420 ! queue max-size-buffers=3 max-size-bytes=0 "
           "max-size-time=0 ! x264enc speed-preset=ultrafast pass=qual quantizer=20 key-int-max=60 "
           "! "
           "video/x-h264,profile=constrained-baseline ! h264parse ! qtmux ! "
           "filesink name=sink";
}

// Waits for the end of the movie on its own thread, so that the caller's thread keeps
// delivering frames, then reports a complete file and removes a broken one.
void completeMovie(GstElement* writer, std::filesystem::path file,
                   const MovieWriter::Finished& onFinish) {
    GstBus* bus = gst_element_get_bus(writer);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, kFinishTimeout, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool complete = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message)
        gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(writer, GST_STATE_NULL);
    gst_object_unref(writer);
    if (!complete) {
        std::error_code ec;
        std::filesystem::remove(file, ec);
        return;
    }
    if (onFinish)
        onFinish(file);
}

} // namespace

MovieWriter::~MovieWriter() {
    if (writer_) {
        gst_app_src_end_of_stream(GST_APP_SRC(source_));
        gst_object_unref(source_);
        completeMovie(writer_, *pendingURL_, {});
        writer_ = nullptr;
    }
    waitForFinished();
}

void MovieWriter::begin(const std::filesystem::path& file) {
    reset();
    std::error_code ec;
    std::filesystem::remove(file, ec);
    pendingURL_ = file;
    active_ = true;
    appended_ = dropped_ = 0;
}

void MovieWriter::append(const VideoFrame& frame) {
    if (!active_ || frame.isNull())
        return;
    if (!writer_ && !createWriter(frame)) {
        active_ = false;
        return;
    }
    if (gst_app_src_get_current_level_buffers(GST_APP_SRC(source_)) >= kQueueLimit) {
        ++dropped_;
        return;
    }
    std::int64_t time = frame.presentationTime();
    if (time < 0 || firstTime_ < 0) {
        // A source without time stamps: the time of arrival stands in.
        time = std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now() - firstClock_)
                   .count();
    } else {
        time -= firstTime_;
    }
    if (time < 0) {
        ++dropped_;
        return;
    }
    // A shallow copy shares the pixels; only the time stamps are the movie's own.
    GstBuffer* buffer = gst_buffer_copy(gst_sample_get_buffer(frame.sample()));
    GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(time);
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) = static_cast<GstClockTime>(frameDuration_);
    if (gst_app_src_push_buffer(GST_APP_SRC(source_), buffer) == GST_FLOW_OK)
        ++appended_;
    else
        ++dropped_;
}

bool MovieWriter::createWriter(const VideoFrame& first) {
    if (first.width() < 2 || first.height() < 2 || !pendingURL_)
        return false;
    gst::ElementPtr writer = gst::parse(writerDescription(first.width(), first.height()).c_str());
    if (!writer)
        return false;
    GstElement* source = gst::child(writer.get(), "source").release();
    g_object_set(gst::child(writer.get(), "sink").get(), "location", pendingURL_->c_str(), nullptr);

    GstCaps* caps = gst_caps_copy(gst_sample_get_caps(first.sample()));
    GstVideoInfo info;
    frameDuration_ = GST_SECOND / 30;
    if (gst_video_info_from_caps(&info, caps) && info.fps_n > 0 && info.fps_d > 0)
        frameDuration_ = static_cast<std::int64_t>(
            gst_util_uint64_scale_int(GST_SECOND, info.fps_d, info.fps_n));
    gst_app_src_set_caps(GST_APP_SRC(source), caps);
    gst_caps_unref(caps);
    g_object_set(source, "max-bytes", G_GUINT64_CONSTANT(0), nullptr);

    if (gst_element_set_state(writer.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        gst_object_unref(source);
        std::error_code ec;
        std::filesystem::remove(*pendingURL_, ec);
        return false;
    }
    writer_ = writer.release();
    source_ = source;
    firstTime_ = first.presentationTime();
    firstClock_ = std::chrono::steady_clock::now();
    return true;
}

bool MovieWriter::finish() {
    active_ = false;
    if (!writer_) {
        reset();
        return false;
    }
    gst_app_src_end_of_stream(GST_APP_SRC(source_));
    {
        std::lock_guard lock(finishersMutex_);
        finishers_.emplace_back([writer = writer_, file = *pendingURL_, onFinish = onFinish_] {
            completeMovie(writer, file, onFinish);
        });
    }
    writer_ = nullptr; // the finishing thread owns it now
    reset();
    return true;
}

void MovieWriter::reset() {
    if (writer_) {
        // Abandoned while writing: the partial movie is not a clip.
        gst_element_set_state(writer_, GST_STATE_NULL);
        gst_object_unref(writer_);
        writer_ = nullptr;
        if (pendingURL_) {
            std::error_code ec;
            std::filesystem::remove(*pendingURL_, ec);
        }
    }
    if (source_) {
        gst_object_unref(source_);
        source_ = nullptr;
    }
    pendingURL_.reset();
    active_ = false;
    firstTime_ = -1;
}

void MovieWriter::waitForFinished() {
    std::vector<std::jthread> finishers;
    {
        std::lock_guard lock(finishersMutex_);
        finishers.swap(finishers_);
    }
    finishers.clear(); // joins
}

} // namespace varnel
