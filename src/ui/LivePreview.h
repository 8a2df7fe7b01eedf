#pragma once

#ifndef Q_MOC_RUN
#include "capture/VideoFrame.h"
#endif

#include <QImage>
#include <QString>
#include <QTimer>
#include <QWidget>

namespace varnel {

// The live picture of the capture source, fitted into the widget, or a message in its place
// ("No iPhone detected", an error). A "Captured" badge flashes after each still.
class LivePreview : public QWidget {
    Q_OBJECT

public:
    explicit LivePreview(QWidget* parent = nullptr);

    // Shows this frame; only a picture of the widget's size is kept, not the frame.
    void showFrame(const VideoFrame& frame);
    void showMessage(const QString& title, const QString& hint = {});
    void clearMessage();
    void flashCaptured();

    const QString& messageTitle() const { return title_; }
    const QString& messageDetails() const { return hint_; }
    bool isBadgeShown() const { return badge_.isActive(); }
    // The part of the widget the picture takes (empty before the first frame).
    QRect pictureRect() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage picture_;
    QSize frameSize_;
    QString title_;
    QString hint_;
    QTimer badge_;
};

} // namespace varnel
