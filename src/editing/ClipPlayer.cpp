#include "editing/ClipPlayer.h"

#include "media/GstSupport.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <QMetaObject>
#include <QUrl>

namespace varnel {

namespace {

constexpr GstClockTime kOpenTimeout = 20 * GST_SECOND;

struct BusContext {
    std::function<void(int, QString)> post;
};

GstBusSyncReply onBusMessage(GstBus*, GstMessage* message, gpointer data) {
    auto* context = static_cast<BusContext*>(data);
    const auto type = GST_MESSAGE_TYPE(message);
    if (type == GST_MESSAGE_EOS) {
        context->post(GST_MESSAGE_EOS, {});
    } else if (type == GST_MESSAGE_ERROR) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        context->post(GST_MESSAGE_ERROR, QString::fromUtf8(error->message));
        g_error_free(error);
    }
    return GST_BUS_DROP;
}

// A copy of the sample's pixels, so that GStreamer gets its buffer back at once; takes over
// the sample.
cv::Mat pixelsOf(GstSample* sample) {
    if (!sample)
        return {};
    std::unique_ptr<GstSample, decltype(&gst_sample_unref)> owned(sample, gst_sample_unref);
    GstVideoInfo info;
    GstCaps* caps = gst_sample_get_caps(sample);
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (!caps || !buffer || !gst_video_info_from_caps(&info, caps))
        return {};
    GstVideoFrame mapped;
    if (!gst_video_frame_map(&mapped, &info, buffer, GST_MAP_READ))
        return {};
    const cv::Mat view(GST_VIDEO_FRAME_HEIGHT(&mapped), GST_VIDEO_FRAME_WIDTH(&mapped), CV_8UC4,
                       GST_VIDEO_FRAME_PLANE_DATA(&mapped, 0),
                       static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&mapped, 0)));
    cv::Mat copy = view.clone();
    gst_video_frame_unmap(&mapped);
    return copy;
}

} // namespace

ClipPlayer::ClipPlayer(QObject* parent) : QObject(parent) {}

ClipPlayer::~ClipPlayer() {
    close();
}

bool ClipPlayer::open(const std::filesystem::path& file) {
    close();
    error_.clear();
    if (!gst::initialize()) {
        error_ = tr("GStreamer could not start.");
        return false;
    }
    GstElement* playbin = gst_element_factory_make("playbin", nullptr);
    GstElement* sink = gst_element_factory_make("appsink", nullptr);
    if (!playbin || !sink) {
        error_ = tr("GStreamer's playback elements are missing.");
        if (playbin)
            gst_object_unref(playbin);
        if (sink)
            gst_object_unref(sink);
        return false;
    }
    GstCaps* caps = gst_caps_from_string("video/x-raw,format=BGRA");
    g_object_set(sink, "caps", caps, "sync", TRUE, "max-buffers", 2, "drop", TRUE, nullptr);
    gst_caps_unref(caps);
    const QByteArray uri = QUrl::fromLocalFile(QString::fromStdString(file.string())).toEncoded();
    g_object_set(playbin, "uri", uri.constData(), "video-sink", sink, nullptr);
    // Zones are drawn on the picture as players show it: a clip recorded sideways is turned.
    if (GstElement* turn = gst_element_factory_make("videoflip", nullptr)) {
        gst_util_set_object_arg(G_OBJECT(turn), "video-direction", "auto");
        g_object_set(playbin, "video-filter", turn, nullptr);
    }

    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* appsink, gpointer data) {
        static_cast<ClipPlayer*>(data)->receive(pixelsOf(gst_app_sink_pull_sample(appsink)));
        return GST_FLOW_OK;
    };
    callbacks.new_preroll = [](GstAppSink* appsink, gpointer data) {
        static_cast<ClipPlayer*>(data)->receive(pixelsOf(gst_app_sink_pull_preroll(appsink)));
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);

    alive_ = std::make_shared<std::atomic<bool>>(true);
    auto* context = new BusContext{};
    context->post = [this, alive = alive_](int type, QString text) {
        QMetaObject::invokeMethod(
            this,
            [this, alive, type, text] {
                if (*alive)
                    busMessage(type, text);
            },
            Qt::QueuedConnection);
    };
    GstBus* bus = gst_element_get_bus(playbin);
    gst_bus_set_sync_handler(bus, onBusMessage, context,
                             [](gpointer data) { delete static_cast<BusContext*>(data); });
    gst_object_unref(bus);

    pipeline_ = playbin;
    gst_element_set_state(pipeline_, GST_STATE_PAUSED);
    GstState state = GST_STATE_NULL;
    if (gst_element_get_state(pipeline_, &state, nullptr, kOpenTimeout) ==
            GST_STATE_CHANGE_FAILURE ||
        state != GST_STATE_PAUSED) {
        error_ = tr("The clip can't be played.");
        close();
        return false;
    }
    return true;
}

void ClipPlayer::close() {
    if (!pipeline_)
        return;
    *alive_ = false;
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
    pipeline_ = nullptr;
    playing_ = false;
    std::lock_guard lock(mutex_);
    raw_ = cv::Mat();
    frame_ = cv::Mat();
}

void ClipPlayer::play() {
    if (!pipeline_ || playing_)
        return;
    const double length = duration();
    if (length > 0 && position() >= length - 0.001)
        seek(0);
    playing_ = gst_element_set_state(pipeline_, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
}

void ClipPlayer::pause() {
    if (!pipeline_)
        return;
    gst_element_set_state(pipeline_, GST_STATE_PAUSED);
    playing_ = false;
}

void ClipPlayer::seek(double seconds) {
    if (!pipeline_)
        return;
    const auto at = static_cast<gint64>(std::max(0.0, seconds) * GST_SECOND);
    gst_element_seek_simple(pipeline_, GST_FORMAT_TIME,
                            static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                            at);
    if (!playing_) // wait for the new frame, so that a paused seek is complete when it returns
        gst_element_get_state(pipeline_, nullptr, nullptr, kOpenTimeout);
}

double ClipPlayer::position() const {
    gint64 at = 0;
    if (!pipeline_ || !gst_element_query_position(pipeline_, GST_FORMAT_TIME, &at))
        return 0;
    return static_cast<double>(at) / GST_SECOND;
}

double ClipPlayer::duration() const {
    gint64 length = 0;
    if (!pipeline_ || !gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &length))
        return 0;
    return static_cast<double>(length) / GST_SECOND;
}

void ClipPlayer::setZones(const std::vector<RedactShape>& shapes, const RedactStyle& style) {
    auto filter = shapes.empty() ? nullptr : std::make_shared<VideoRedactor::Filter>(shapes, style);
    cv::Mat raw;
    {
        std::lock_guard lock(mutex_);
        filter_ = filter;
        raw = raw_;
    }
    if (!playing_ && !raw.empty())
        receive(raw);
}

cv::Mat ClipPlayer::frame() const {
    std::lock_guard lock(mutex_);
    return frame_;
}

cv::Mat ClipPlayer::rawFrame() const {
    std::lock_guard lock(mutex_);
    return raw_;
}

void ClipPlayer::receive(cv::Mat raw) {
    if (raw.empty())
        return;
    std::shared_ptr<VideoRedactor::Filter> filter;
    {
        std::lock_guard lock(mutex_);
        filter = filter_;
    }
    cv::Mat shown = raw;
    if (filter) {
        shown = raw.clone();
        if (!(*filter)(shown))
            shown = raw;
    }
    {
        std::lock_guard lock(mutex_);
        raw_ = std::move(raw);
        frame_ = std::move(shown);
    }
    notify();
}

void ClipPlayer::notify() {
    if (notifyPending_.exchange(true))
        return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            notifyPending_ = false;
            emit frameChanged();
        },
        Qt::QueuedConnection);
}

void ClipPlayer::busMessage(int type, const QString& text) {
    if (!pipeline_)
        return;
    if (type == GST_MESSAGE_EOS) {
        pause();
        emit finished();
        return;
    }
    pause();
    error_ = text;
    emit failed(text);
}

} // namespace varnel
