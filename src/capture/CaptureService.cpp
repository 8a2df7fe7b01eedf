#include "capture/CaptureService.h"

#include "capture/AdbScreenFeed.h"
#include "capture/WindowGrabber.h"
#include "capture/WindowWatch.h"
#include "media/GstSupport.h"
#include "media/PngWriter.h"

#include <X11/Xlib.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <QMetaObject>

namespace varnel {

namespace {

// BGRx is taken as it comes (window captures deliver it); anything else is converted.
constexpr const char* kSinkDescription =
    "queue leaky=downstream max-size-buffers=2 max-size-bytes=0 max-size-time=0 ! "
    "videoconvert ! video/x-raw,format={BGRA,BGRx} ! "
    "appsink name=sink max-buffers=1 drop=true sync=false";

// What the bus handler of one pipeline needs; freed with the pipeline's bus handler.
struct Watch {
    CaptureService* service;
    unsigned generation;
    std::mutex mutex;
    std::string firstError;
    bool accessDenied = false;
    std::function<void(unsigned, QString)> ended;
};

GstBusSyncReply onBusMessage(GstBus*, GstMessage* message, gpointer data) {
    auto* watch = static_cast<Watch*>(data);
    const auto type = GST_MESSAGE_TYPE(message);
    if (type != GST_MESSAGE_ERROR && type != GST_MESSAGE_EOS)
        return GST_BUS_DROP;
    QString reason = QStringLiteral("The source ended.");
    if (type == GST_MESSAGE_ERROR) {
        GError* error = nullptr;
        gchar* debug = nullptr;
        gst_message_parse_error(message, &error, &debug);
        reason = QString::fromUtf8(error->message);
        std::lock_guard lock(watch->mutex);
        if (watch->firstError.empty())
            watch->firstError = error->message;
        const bool denied =
            (error->domain == GST_RESOURCE_ERROR &&
             error->code == GST_RESOURCE_ERROR_NOT_AUTHORIZED) ||
            (debug && std::string_view(debug).find("Permission denied") != std::string_view::npos);
        watch->accessDenied = watch->accessDenied || denied;
        g_error_free(error);
        g_free(debug);
    }
    watch->ended(watch->generation, reason);
    return GST_BUS_DROP;
}

// Xlib's default handler ends the process on any error, and the window source meets one as
// soon as its window is closed. The source reports the failure itself; the process goes on.
int ignoreXError(Display*, XErrorEvent*) {
    return 0;
}

void keepXErrorsFromEndingTheProcess() {
    static std::once_flag once;
    std::call_once(once, [] { XSetErrorHandler(ignoreXError); });
}

} // namespace

CaptureService::CaptureService(QObject* parent) : QObject(parent) {
    gst::initialize();
    movie_.setOnFinish([this, alive = alive_](const MovieWriter::Outcome& outcome) {
        if (!*alive)
            return;
        QMetaObject::invokeMethod(
            this, [this, outcome] { recordingEnded(outcome); }, Qt::QueuedConnection);
    });
    // A writer that fails mid-clip ends the recording at once instead of at the user's stop.
    movie_.setOnFailing([this, alive = alive_](unsigned recording) {
        if (!*alive)
            return;
        QMetaObject::invokeMethod(
            this,
            [this, recording] {
                if (isRecordingVideo_ && recording == recording_)
                    stopRecording();
            },
            Qt::QueuedConnection);
    });
}

CaptureService::~CaptureService() {
    *alive_ = false;
    stopPipeline();
    {
        std::lock_guard lock(sampleQueue_);
        movie_.finish();
    }
    movie_.waitForFinished();
}

void CaptureService::start(GstDevice* device) {
    if (!device)
        throw CaptureError(CaptureError::Kind::cannotAddInput,
                           "The camera is no longer connected.");
    if (!gst::initialize())
        throw CaptureError(CaptureError::Kind::cannotAddInput, "GStreamer could not be started.");
    GstElement* source = gst_device_create_element(device, nullptr);
    if (!source)
        throw CaptureError(CaptureError::Kind::cannotAddInput,
                           "The camera offers no way to read its pictures.");
    startPipeline(source, "camera");
}

void CaptureService::startWindow(const X11Window& window) {
    keepXErrorsFromEndingTheProcess();
    auto watch = std::make_unique<WindowWatch>(window.id);
    if (!watch->isValid())
        throw CaptureError(CaptureError::Kind::cannotAddInput, "The window is no longer open.");
    auto grabber = std::make_unique<WindowGrabber>(window.id);
    if (!grabber->error().empty())
        throw CaptureError(CaptureError::Kind::cannotAddInput, grabber->error());
    startDescription("appsrc name=grab is-live=true format=time do-timestamp=true block=false "
                     "max-buffers=2 leaky-type=downstream");
    GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline_), "grab");
    grabber->start(GST_APP_SRC(source));
    gst_object_unref(source); // the pipeline keeps it, and outlives the grabber
    windowGrabber_ = std::move(grabber);
    windowWatch_ = std::move(watch);
    const unsigned generation = generation_;
    connect(windowWatch_.get(), &WindowWatch::closed, this, [this, generation] {
        sourceEnded(generation, QStringLiteral("The window was closed."));
    });
    connect(windowWatch_.get(), &WindowWatch::viewableChanged, this,
            [this](bool viewable) { setSourceHidden(!viewable); });
    setSourceHidden(!windowWatch_->isViewable());
}

void CaptureService::startAdb(const std::string& serial, const AdbClient& client) {
    std::vector<AdbDevice> devices;
    try {
        devices = client.devices();
    } catch (const AdbError& error) {
        throw CaptureError(CaptureError::Kind::cannotAddInput, error.what());
    }
    const auto device = std::find_if(devices.begin(), devices.end(),
                                     [&](const AdbDevice& d) { return d.serial == serial; });
    if (device == devices.end())
        throw CaptureError(CaptureError::Kind::cannotAddInput,
                           "The Android device is no longer connected.");
    if (device->state == "unauthorized")
        throw CaptureError(CaptureError::Kind::accessDenied, kAdbUnauthorizedHint);
    if (device->state != "device")
        throw CaptureError(CaptureError::Kind::cannotAddInput,
                           "The Android device is " + device->state + "; reconnect it.");
    startDescription("appsrc name=adb is-live=true format=time do-timestamp=true "
                     "caps=video/x-h264,stream-format=byte-stream,alignment=none");
    GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline_), "adb");
    auto feed = std::make_unique<AdbScreenFeed>(client, serial);
    const unsigned generation = generation_;
    feed->start(GST_APP_SRC(source), [this, generation, alive = alive_](const std::string& why) {
        if (!*alive)
            return;
        const QString reason = QString::fromStdString(why);
        QMetaObject::invokeMethod(
            this, [this, generation, reason] { sourceEnded(generation, reason); },
            Qt::QueuedConnection);
    });
    gst_object_unref(source); // the pipeline keeps it, and outlives the feed
    adbFeed_ = std::move(feed);
    adbDevice_.emplace(client, serial);
}

int CaptureService::adbStreams() const {
    return adbFeed_ ? adbFeed_->streams() : 0;
}

void CaptureService::setSourceHidden(bool hidden) {
    if (hidden == sourceHidden_)
        return;
    sourceHidden_ = hidden;
    if (hidden)
        frameBox_.clear(); // its last frame is stale from now on
    emit sourceHiddenChanged();
}

void CaptureService::startDescription(const std::string& description) {
    std::string error;
    if (!gst::initialize())
        throw CaptureError(CaptureError::Kind::cannotAddInput, "GStreamer could not be started.");
    GError* failure = nullptr;
    GstElement* source = gst_parse_bin_from_description(description.c_str(), TRUE, &failure);
    if (failure) {
        error = failure->message;
        g_error_free(failure);
        if (source)
            gst_object_unref(source);
        throw CaptureError(CaptureError::Kind::cannotAddInput, error);
    }
    startPipeline(source, "source");
}

void CaptureService::startPipeline(GstElement* source, const char* what) {
    if (isRecordingVideo_)
        stopRecording(); // the clip keeps to the source it began with
    stopPipeline();
    const unsigned generation = ++generation_;

    GError* failure = nullptr;
    GstElement* tail = gst_parse_bin_from_description(kSinkDescription, TRUE, &failure);
    if (failure) {
        const std::string message = failure->message;
        g_error_free(failure);
        gst_object_unref(source);
        throw CaptureError(CaptureError::Kind::cannotAddInput, message);
    }
    // Compressed pictures (cameras that offer only JPEG) are decoded; raw ones pass through.
    GstElement* decoder = gst_element_factory_make("decodebin", nullptr);
    GstElement* pipeline = gst_pipeline_new(what);
    gst_bin_add_many(GST_BIN(pipeline), source, decoder, tail, nullptr);
    gst::ElementPtr owned(pipeline);
    if (!gst_element_link(source, decoder))
        throw CaptureError(CaptureError::Kind::cannotAddInput,
                           "The source does not deliver pictures that can be shown.");
    g_signal_connect(decoder, "pad-added", G_CALLBACK(+[](GstElement*, GstPad* pad, gpointer data) {
                         GstPad* sink = gst_element_get_static_pad(GST_ELEMENT(data), "sink");
                         if (!gst_pad_is_linked(sink))
                             gst_pad_link(pad, sink);
                         gst_object_unref(sink);
                     }),
                     tail);

    framesProduced_ = framesReceived_ = 0;
    if (GstPad* out = gst_element_get_static_pad(source, "src")) {
        gst_pad_add_probe(
            out, GST_PAD_PROBE_TYPE_BUFFER,
            [](GstPad*, GstPadProbeInfo*, gpointer data) {
                ++*static_cast<std::atomic<std::uint64_t>*>(data);
                return GST_PAD_PROBE_OK;
            },
            &framesProduced_, nullptr);
        gst_object_unref(out);
    }

    auto sink = gst::child(pipeline, "sink");
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* appsink, gpointer data) -> GstFlowReturn {
        if (GstSample* sample = gst_app_sink_pull_sample(appsink))
            static_cast<CaptureService*>(data)->ingest(VideoFrame(sample));
        return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, this, nullptr);

    auto* watch = new Watch{this, generation, {}, {}, false, {}};
    watch->ended = [this](unsigned gen, QString reason) {
        QMetaObject::invokeMethod(
            this, [this, gen, reason] { sourceEnded(gen, reason); }, Qt::QueuedConnection);
    };
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, onBusMessage, watch,
                             [](gpointer data) { delete static_cast<Watch*>(data); });
    gst_object_unref(bus);

    // Opening the device or the window happens on the way to PAUSED: its failure is known here.
    if (gst_element_set_state(pipeline, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE ||
        gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        std::string message;
        bool denied = false;
        {
            std::lock_guard lock(watch->mutex);
            message = watch->firstError;
            denied = watch->accessDenied;
        }
        ++generation_; // whatever this pipeline posted is stale now
        owned.reset();
        throw CaptureError(denied ? CaptureError::Kind::accessDenied
                                  : CaptureError::Kind::cannotAddInput,
                           message.empty() ? "The source could not be started." : message);
    }
    pipeline_ = owned.release();
    setRunning(true);
}

void CaptureService::stop() {
    if (isRecordingVideo_)
        stopRecording();
    stopPipeline();
    setRunning(false);
}

void CaptureService::stopPipeline() {
    if (!pipeline_)
        return;
    ++generation_;
    windowGrabber_.reset(); // before the pipeline that holds its app source
    windowWatch_.reset();
    adbFeed_.reset();
    adbDevice_.reset();
    setSourceHidden(false);
    GstElement* pipeline = std::exchange(pipeline_, nullptr);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    frameBox_.clear();
    lastWidth_ = lastHeight_ = 0;
}

void CaptureService::sourceEnded(unsigned generation, const QString& reason) {
    if (generation != generation_ || !pipeline_)
        return;
    stop();
    emit streamStopped(reason);
}

void CaptureService::setRunning(bool running) {
    if (running == isRunning_)
        return;
    isRunning_ = running;
    emit runningChanged();
}

bool CaptureService::startRecording(const std::filesystem::path& file) {
    if (!isRunning_ || isRecordingVideo_)
        return false;
    isRecordingVideo_ = true;
    finishing_ = false;
    {
        std::lock_guard lock(sampleQueue_);
        recording_ = movie_.begin(file);
    }
    emit recordingChanged();
    return true;
}

void CaptureService::stopRecording() {
    if (finishing_)
        return; // its outcome is on its way
    bool coming = false;
    {
        std::lock_guard lock(sampleQueue_);
        coming = movie_.finish();
    }
    finishing_ = coming && isRecordingVideo_;
    if (coming || !isRecordingVideo_)
        return;
    isRecordingVideo_ = false;
    emit recordingChanged();
    emit recordingAbandoned();
}

void CaptureService::recordingEnded(const MovieWriter::Outcome& outcome) {
    if (!isRecordingVideo_ || outcome.recording != recording_)
        return; // already ended (abandoned, or a newer recording runs)
    isRecordingVideo_ = false;
    finishing_ = false;
    emit recordingChanged();
    if (!outcome.failure.empty()) {
        emit recordingFailed(QString::fromStdString(outcome.failure), outcome.kept);
        return;
    }
    if (onRecordingFinished)
        onRecordingFinished(outcome.file);
}

namespace {

// The size a PNG's header states; none for anything that is no PNG.
std::optional<std::pair<int, int>> pngSizeOf(const std::string& bytes) {
    static const std::string signature("\x89PNG\r\n\x1a\n", 8);
    if (bytes.size() < 24 || bytes.compare(0, 8, signature) != 0 ||
        bytes.compare(12, 4, "IHDR") != 0)
        return std::nullopt;
    const auto word = [&](std::size_t at) {
        return static_cast<int>((static_cast<unsigned char>(bytes[at]) << 24) |
                                (static_cast<unsigned char>(bytes[at + 1]) << 16) |
                                (static_cast<unsigned char>(bytes[at + 2]) << 8) |
                                static_cast<unsigned char>(bytes[at + 3]));
    };
    return std::pair{word(16), word(20)};
}

} // namespace

std::function<CaptureService::Screenshot()> CaptureService::screenshotTask() const {
    if (!adbDevice_)
        return {};
    return [client = adbDevice_->first, serial = adbDevice_->second] {
        // The device's own screenshot: full resolution, exact pixels, none of the stream's loss.
        Screenshot shot;
        try {
            shot.png = client.exec(serial, "screencap -p");
            if (!pngSizeOf(shot.png))
                shot.failure = shot.png.empty() ? "it sent nothing" : shot.png.substr(0, 200);
        } catch (const AdbError& error) {
            shot.failure = error.what();
        }
        return shot;
    };
}

std::optional<CapturedFrame> CaptureService::stillFrom(Screenshot screenshot) const {
    if (screenshot.failure.empty()) {
        if (const auto size = pngSizeOf(screenshot.png))
            return CapturedFrame{std::move(screenshot.png), size->first, size->second, {}};
    }
    std::optional<CapturedFrame> still = latestStill();
    if (still)
        still->note = "The phone's screenshot failed (" + screenshot.failure +
                      "); this still is a frame of its live picture, with the stream's loss.";
    return still;
}

std::optional<CapturedFrame> CaptureService::stillFrame() const {
    if (const auto task = screenshotTask())
        return stillFrom(task());
    return latestStill();
}

std::optional<CapturedFrame> CaptureService::latestStill() const {
    const VideoFrame frame = frameBox_.latest();
    std::optional<CapturedFrame> still;
    frame.withPixels([&](const std::uint8_t* pixels, std::size_t stride) {
        still = CapturedFrame{PngWriter::encode(pixels, frame.width(), frame.height(), stride),
                              frame.width(),
                              frame.height(),
                              {}};
    });
    return still;
}

MovieWriter::Counts CaptureService::recordingCounts() {
    std::lock_guard lock(sampleQueue_);
    return movie_.counts();
}

void CaptureService::ingest(VideoFrame frame) {
    if (sourceHidden_)
        return; // read just before the window went away: stale
    ++framesReceived_;
    const int width = frame.width();
    const int height = frame.height();
    {
        std::lock_guard lock(sampleQueue_);
        movie_.append(frame);
    }
    frameBox_.put(std::move(frame));
    const bool widthChanged = lastWidth_.exchange(width) != width;
    const bool heightChanged = lastHeight_.exchange(height) != height;
    if (widthChanged || heightChanged) {
        QMetaObject::invokeMethod(
            this,
            [this, width, height] {
                if (resolution_ == PixelSize{width, height})
                    return;
                resolution_ = {width, height};
                emit resolutionChanged();
            },
            Qt::QueuedConnection);
    }
    if (!framePosted_.exchange(true)) {
        QMetaObject::invokeMethod(
            this,
            [this] {
                framePosted_ = false;
                emit frameArrived();
            },
            Qt::QueuedConnection);
    }
}

} // namespace varnel
