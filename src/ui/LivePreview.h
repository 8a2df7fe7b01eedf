#pragma once

#ifndef Q_MOC_RUN
#include "capture/VideoFrame.h"

#include <chrono>
#include <functional>
#include <optional>
#endif

#include <QImage>
#include <QString>
#include <QTimer>
#include <QWidget>

class QPainter;

namespace varnel {

// The live picture of the capture source, fitted into the widget, or a message in its place
// (what to connect, an error). A "Captured" badge flashes after each still; while a clip is
// recorded a red REC mark and the time recorded so far sit on the picture.
class LivePreview : public QWidget {
    Q_OBJECT

public:
    explicit LivePreview(QWidget* parent = nullptr);

    // Shows this frame; only a picture of the widget's size is kept, not the frame.
    void showFrame(const VideoFrame& frame);
    void showMessage(const QString& title, const QString& hint = {});
    void clearMessage();
    void flashCaptured();
    // Starts or stops the REC mark; its time counts from the call that started it.
    void setRecording(bool recording);

    // The time the REC mark counts in; tests set their own.
    std::function<std::chrono::steady_clock::time_point()> clock;

    const QString& messageTitle() const { return title_; }
    const QString& messageDetails() const { return hint_; }
    bool isBadgeShown() const { return badge_.isActive(); }
    bool isRecording() const { return recordingSince_.has_value(); }
    // The time the REC mark shows ("01:05"); empty when not recording.
    QString recordedTime() const;
    // Repaints the REC mark; runs every second while recording.
    void tick();
    // The part of the widget the picture takes (empty before the first frame).
    QRect pictureRect() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void paintRecording(QPainter& painter, const QRect& area);

    QImage picture_;
    QSize frameSize_;
    QString title_;
    QString hint_;
    QTimer badge_;
    std::optional<std::chrono::steady_clock::time_point> recordingSince_;
    QTimer recordingTick_;
};

} // namespace varnel
