#include "capture/MovieWriter.h"

#include "media/GstSupport.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <string>
#include <string_view>
#include <system_error>

namespace varnel {

namespace {

constexpr GstClockTime kFinishTimeout = 120 * GST_SECOND;
constexpr GstClockTime kReadBackTimeout = 30 * GST_SECOND;

// The index is kept at the front of the file and rewritten every second for the first five
// minutes, so that a recording cut short (a full disk) still plays up to its last second.
constexpr const char* kMuxer =
    "qtmux reserved-max-duration=300000000000 reserved-moov-update-period=1000000000";

// Frames of another size than the first are scaled into it with their aspect kept, black bars
// filling the rest; frames of the first size pass untouched. H.264 in 4:2:0 has no odd sizes:
// an odd last column or row is left out.
std::string writerDescription(int width, int height) {
    // The conversion and the encoder each get a thread of their own, with a short queue between.
    return "appsrc name=source format=time is-live=true block=false ! "
           "videoscale add-borders=true ! video/x-raw,width=" +
           std::to_string(width) + ",height=" + std::to_string(height) +
           ",pixel-aspect-ratio=1/1 ! videoconvert n-threads=0 dither=none ! videocrop right=" +
           std::to_string(width % 2) + " bottom=" + std::to_string(height % 2) +
           " ! video/x-raw,format=I420 ! queue max-size-buffers=3 max-size-bytes=0 "
           "max-size-time=0 ! x264enc speed-preset=ultrafast pass=qual quantizer=20 "
           "key-int-max=60 ! video/x-h264,profile=constrained-baseline ! h264parse ! " +
           std::string(kMuxer) + " ! filesink name=sink";
}

// What a user can act on, from GStreamer's error and its debug text.
std::string describe(const GError* error, const char* debug) {
    const std::string_view details = debug ? debug : "";
    if ((error->domain == GST_RESOURCE_ERROR && error->code == GST_RESOURCE_ERROR_NO_SPACE_LEFT) ||
        details.find("No space left on device") != std::string_view::npos)
        return "The disk is full.";
    if (details.find("Permission denied") != std::string_view::npos)
        return "Varnel may not write to the library's folder.";
    if (details.find("Read-only file system") != std::string_view::npos)
        return "The library is on a read-only disk.";
    return error->message;
}

std::string describe(GstMessage* message) {
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    std::string text = describe(error, debug);
    g_error_free(error);
    g_free(debug);
    return text;
}

// Tells the owner as soon as the writer fails, rather than when the recording is stopped.
struct FailureWatch {
    unsigned recording;
    MovieWriter::Failing failing;
};

void watchForFailure(GstElement* writer, unsigned recording, MovieWriter::Failing failing) {
    GstBus* bus = gst_element_get_bus(writer);
    gst_bus_set_sync_handler(
        bus,
        [](GstBus*, GstMessage* message, gpointer data) -> GstBusSyncReply {
            auto* watch = static_cast<FailureWatch*>(data);
            if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR && watch->failing)
                watch->failing(watch->recording);
            return GST_BUS_PASS; // the finishing thread reads it too
        },
        new FailureWatch{recording, std::move(failing)},
        [](gpointer data) { delete static_cast<FailureWatch*>(data); });
    gst_object_unref(bus);
}

// Waits for the end of the movie on its own thread, so that the caller's thread keeps
// delivering frames, then reports it. A movie cut short by an error is kept when what was
// written plays.
void completeMovie(GstElement* writer, MovieWriter::Outcome outcome,
                   const MovieWriter::Finished& onFinish) {
    GstBus* bus = gst_element_get_bus(writer);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, kFinishTimeout, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (!message)
        outcome.failure = "The clip took too long to finish.";
    else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
        outcome.failure = describe(message);
    if (message)
        gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(writer, GST_STATE_NULL);
    gst_object_unref(writer);
    outcome.kept = outcome.failure.empty() || MovieWriter::playableFrames(outcome.file) > 0;
    if (!outcome.kept) {
        std::error_code ec;
        std::filesystem::remove(outcome.file, ec);
    }
    if (onFinish)
        onFinish(outcome);
}

} // namespace

MovieWriter::~MovieWriter() {
    if (writer_) {
        gst_app_src_end_of_stream(GST_APP_SRC(source_));
        gst_object_unref(source_);
        source_ = nullptr;
        completeMovie(writer_, {recording_, *pendingURL_, {}, false}, {});
        writer_ = nullptr;
    }
    reset();
    waitForFinished();
}

unsigned MovieWriter::begin(const std::filesystem::path& file) {
    reset();
    std::error_code ec;
    std::filesystem::remove(file, ec);
    pendingURL_ = file;
    active_ = true;
    appended_ = dropped_ = 0;
    return ++recording_;
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
    // A frame older than one written already (a source whose clock started again, such as a
    // phone's screen recorder restarted) would make the movie unplayable: it is left out.
    if (time < 0 || time <= lastTime_) {
        ++dropped_;
        return;
    }
    lastTime_ = time;
    // A new size (a window resized, a phone turned) reaches the scaler ahead of its frame.
    GstCaps* caps = gst_sample_get_caps(frame.sample());
    if (caps && !gst_caps_is_equal(caps, caps_)) {
        gst_caps_replace(&caps_, caps);
        gst_app_src_set_caps(GST_APP_SRC(source_), caps_);
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
    if (!pendingURL_)
        return false;
    if (first.width() < 2 || first.height() < 2) {
        report({recording_, *pendingURL_, "The picture is too small to record.", false});
        return false;
    }
    std::string error;
    gst::ElementPtr writer =
        gst::parse(writerDescription(first.width(), first.height()).c_str(), &error);
    if (!writer) {
        report({recording_, *pendingURL_, "The movie encoder is missing: " + error, false});
        return false;
    }
    GstElement* source = gst::child(writer.get(), "source").release();
    g_object_set(gst::child(writer.get(), "sink").get(), "location", pendingURL_->c_str(), nullptr);

    gst_caps_replace(&caps_, gst_sample_get_caps(first.sample()));
    GstVideoInfo info;
    frameDuration_ = GST_SECOND / 30;
    if (gst_video_info_from_caps(&info, caps_) && info.fps_n > 0 && info.fps_d > 0)
        frameDuration_ = static_cast<std::int64_t>(
            gst_util_uint64_scale_int(GST_SECOND, info.fps_d, info.fps_n));
    gst_app_src_set_caps(GST_APP_SRC(source), caps_);
    g_object_set(source, "max-bytes", G_GUINT64_CONSTANT(0), nullptr);

    if (gst_element_set_state(writer.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        std::string failure = "The clip file could not be created.";
        GstBus* bus = gst_element_get_bus(writer.get());
        if (GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR)) {
            failure = describe(message);
            gst_message_unref(message);
        }
        gst_object_unref(bus);
        gst_object_unref(source);
        writer.reset();
        std::error_code ec;
        std::filesystem::remove(*pendingURL_, ec);
        report({recording_, *pendingURL_, failure, false});
        return false;
    }
    watchForFailure(writer.get(), recording_, onFailing_);
    writer_ = writer.release();
    source_ = source;
    firstTime_ = first.presentationTime();
    lastTime_ = -1;
    firstClock_ = std::chrono::steady_clock::now();
    return true;
}

void MovieWriter::report(Outcome outcome) {
    if (onFinish_)
        onFinish_(outcome);
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
        finishers_.emplace_back(
            [writer = writer_, outcome = Outcome{recording_, *pendingURL_, {}, false},
             onFinish = onFinish_] { completeMovie(writer, outcome, onFinish); });
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
    gst_caps_replace(&caps_, nullptr);
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

int MovieWriter::playableFrames(const std::filesystem::path& file) {
    gst::ElementPtr reader = gst::parse("filesrc name=file ! qtdemux ! fakesink name=sink");
    if (!reader)
        return 0;
    g_object_set(gst::child(reader.get(), "file").get(), "location", file.c_str(), nullptr);
    std::atomic<int> frames{0};
    auto sink = gst::child(reader.get(), "sink");
    GstPad* pad = gst_element_get_static_pad(sink.get(), "sink");
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer data) {
            ++*static_cast<std::atomic<int>*>(data);
            return GST_PAD_PROBE_OK;
        },
        &frames, nullptr);
    gst_object_unref(pad);
    if (gst_element_set_state(reader.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return 0;
    GstBus* bus = gst_element_get_bus(reader.get());
    if (GstMessage* message = gst_bus_timed_pop_filtered(
            bus, kReadBackTimeout,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)))
        gst_message_unref(message);
    gst_object_unref(bus);
    reader.reset(); // stops the streaming thread before `frames` goes
    return frames;
}

} // namespace varnel
