#include "ui/LivePreview.h"

#include <QPainter>
#include <QPainterPath>

namespace varnel {

LivePreview::LivePreview(QWidget* parent)
    : QWidget(parent), clock([] { return std::chrono::steady_clock::now(); }) {
    setMinimumSize(240, 320);
    setAttribute(Qt::WA_OpaquePaintEvent);
    badge_.setSingleShot(true);
    badge_.setInterval(700);
    connect(&badge_, &QTimer::timeout, this, qOverload<>(&QWidget::update));
    // A window source sends no frame while nothing on it moves: the time goes on regardless.
    recordingTick_.setInterval(1000);
    connect(&recordingTick_, &QTimer::timeout, this, &LivePreview::tick);
}

void LivePreview::setRecording(bool recording) {
    if (recording == isRecording())
        return;
    if (recording) {
        recordingSince_ = clock();
        recordingTick_.start();
    } else {
        recordingSince_.reset();
        recordingTick_.stop();
    }
    update();
}

QString LivePreview::recordedTime() const {
    if (!recordingSince_)
        return {};
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(clock() - *recordingSince_).count();
    const auto whole = std::max<std::int64_t>(0, seconds);
    return QStringLiteral("%1:%2")
        .arg(whole / 60, 2, 10, QLatin1Char('0'))
        .arg(whole % 60, 2, 10, QLatin1Char('0'));
}

void LivePreview::tick() {
    update();
}

void LivePreview::showFrame(const VideoFrame& frame) {
    if (frame.isNull())
        return;
    const QSize target = QSize(frame.width(), frame.height())
                             .scaled(size() * devicePixelRatioF(), Qt::KeepAspectRatio);
    // BGRx in memory is Qt's RGB32; scaling straight from the mapped frame keeps the copy small.
    frame.withPixels([&](const std::uint8_t* pixels, std::size_t stride) {
        const QImage view(pixels, frame.width(), frame.height(), static_cast<qsizetype>(stride),
                          QImage::Format_RGB32);
        // Nearest pixels down to twice the size, then smooth: sharp enough, cheap at 60 fps.
        const QImage halfway =
            view.width() > 2 * target.width()
                ? view.scaled(target * 2, Qt::KeepAspectRatio, Qt::FastTransformation)
                : view;
        picture_ = halfway.scaled(target, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    });
    picture_.setDevicePixelRatio(devicePixelRatioF());
    frameSize_ = QSize(frame.width(), frame.height());
    update();
}

void LivePreview::showMessage(const QString& title, const QString& hint) {
    title_ = title;
    hint_ = hint;
    picture_ = QImage();
    update();
}

void LivePreview::clearMessage() {
    title_.clear();
    hint_.clear();
    update();
}

void LivePreview::flashCaptured() {
    badge_.start();
    update();
}

QRect LivePreview::pictureRect() const {
    if (picture_.isNull())
        return {};
    const QSize shown = frameSize_.scaled(size(), Qt::KeepAspectRatio);
    return QRect(QPoint((width() - shown.width()) / 2, (height() - shown.height()) / 2), shown);
}

void LivePreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), QColor(18, 18, 20));
    if (!title_.isEmpty()) {
        QFont big = font();
        big.setPointSizeF(big.pointSizeF() * 1.4);
        big.setBold(true);
        painter.setPen(QColor(235, 235, 240));
        painter.setFont(big);
        const QRect upper(rect().adjusted(24, 0, -24, -height() / 2));
        painter.drawText(upper, Qt::AlignHCenter | Qt::AlignBottom | Qt::TextWordWrap, title_);
        painter.setFont(font());
        painter.setPen(QColor(160, 160, 170));
        const QRect lower(rect().adjusted(24, height() / 2 + 10, -24, 0));
        painter.drawText(lower, Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, hint_);
        paintRecording(painter, rect());
        return;
    }
    if (picture_.isNull()) {
        paintRecording(painter, rect());
        return;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRect target = pictureRect();
    painter.drawImage(target, picture_);
    if (badge_.isActive()) {
        const QString text = tr("Captured");
        QFont bold = font();
        bold.setBold(true);
        painter.setFont(bold);
        const QSize textSize = painter.fontMetrics().size(0, text) + QSize(28, 14);
        const QRect pill(QPoint(target.center().x() - textSize.width() / 2, target.top() + 16),
                         textSize);
        QPainterPath path;
        path.addRoundedRect(pill, pill.height() / 2.0, pill.height() / 2.0);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillPath(path, QColor(0, 0, 0, 180));
        painter.setPen(Qt::white);
        painter.drawText(pill, Qt::AlignCenter, text);
    }
    paintRecording(painter, target);
}

void LivePreview::paintRecording(QPainter& painter, const QRect& area) {
    if (!recordingSince_)
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    const QFontMetrics metrics = painter.fontMetrics();
    const QString label = QStringLiteral("REC  ") + recordedTime();
    const int dot = metrics.height() * 3 / 5;
    const QSize size(dot + 8 + metrics.horizontalAdvance(label) + 24, metrics.height() + 12);
    const QRect pill(area.topLeft() + QPoint(12, 12), size);
    QPainterPath path;
    path.addRoundedRect(pill, pill.height() / 2.0, pill.height() / 2.0);
    painter.fillPath(path, QColor(0, 0, 0, 170));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(235, 40, 40));
    painter.drawEllipse(QRect(pill.left() + 12, pill.center().y() - dot / 2, dot, dot));
    painter.setPen(Qt::white);
    painter.drawText(pill.adjusted(12 + dot + 8, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter, label);
    painter.restore();
}

} // namespace varnel
