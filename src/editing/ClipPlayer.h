#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "editing/RedactRecords.h"
#include "editing/VideoRedactor.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>
#endif

#include <QObject>
#include <QString>

typedef struct _GstElement GstElement;

namespace varnel {

// Plays a clip for the editor with its zones frosted into every frame, as the bake will.
// Frames arrive on GStreamer's streaming thread; the latest one is kept and `frameChanged` is
// emitted on the player's thread, at most once until it is read.
class ClipPlayer : public QObject {
    Q_OBJECT

public:
    explicit ClipPlayer(QObject* parent = nullptr);
    ~ClipPlayer() override;

    // Opens the clip paused on its first frame; false (with `error`) when it can't be played.
    bool open(const std::filesystem::path& file);
    void close();
    bool isOpen() const { return pipeline_ != nullptr; }
    const QString& error() const { return error_; }

    void play();
    void pause();
    bool isPlaying() const { return playing_; }
    // Seconds; seeking shows the frame there, also while paused.
    void seek(double seconds);
    double position() const;
    double duration() const;

    // The zones frosted into the frames from now on; none plays the clip as it is. While paused
    // the frame on show is frosted again at once.
    void setZones(const std::vector<RedactShape>& shapes, const RedactStyle& style);

    // The latest frame (BGRA) with the zones, and as decoded; empty before the first.
    cv::Mat frame() const;
    cv::Mat rawFrame() const;

signals:
    void frameChanged();
    // The end of the clip was reached; the player is paused there.
    void finished();
    void failed(const QString& message);

private:
    void receive(cv::Mat raw);
    void notify();
    void busMessage(int type, const QString& text);

    GstElement* pipeline_ = nullptr;
    mutable std::mutex mutex_;
    std::shared_ptr<VideoRedactor::Filter> filter_;
    cv::Mat raw_;
    cv::Mat frame_;
    std::atomic<bool> notifyPending_{false};
    bool playing_ = false;
    QString error_;
    // Posted messages of a pipeline that was closed since are dropped.
    std::shared_ptr<std::atomic<bool>> alive_;
};

} // namespace varnel
