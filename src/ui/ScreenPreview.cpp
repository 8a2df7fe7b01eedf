#include "ui/ScreenPreview.h"
#include "ui/Messages.h"

#include "library/ScreenFiles.h"
#include "media/PosterFrame.h"
#include "model/FlowLibrary.h"
#include "thumbnails/ThumbnailCache.h"
#include "ui/GalleryView.h"
#include "ui/SecondaryWindows.h"

#include <QFutureWatcher>
#include <QImageReader>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QtConcurrent>

namespace varnel {

namespace {

// Read at most the size of the screen it is shown on; phone screenshots fit unscaled.
QImage readPicture(const std::filesystem::path& file, QSize limit) {
    if (ScreenFiles::isClip(file.filename().string()))
        return PosterFrame::grab(file);
    QImageReader reader(QString::fromStdString(file.string()));
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > limit.width() || size.height() > limit.height()))
        reader.setScaledSize(size.scaled(limit, Qt::KeepAspectRatio));
    return reader.read();
}

} // namespace

ScreenPreview::ScreenPreview(FlowLibrary& library, ThumbnailCache& thumbnails, GalleryView& gallery,
                             QWidget* parent)
    : QWidget(parent, Qt::Window), library_(library), thumbnails_(thumbnails), gallery_(gallery),
      overlay_(library) {
    connect(&overlay_, &TranslationOverlay::changed, this, [this] {
        update();
        emit translated();
    });
    setAttribute(Qt::WA_DeleteOnClose, false);
    setMinimumSize(360, 480);
    // Tall enough for a phone screen, within the screen it opens on.
    const QRect available = parent && parent->screen() ? parent->screen()->availableGeometry()
                                                       : QRect(0, 0, 1280, 1024);
    const int height = std::min(980, available.height() - 60);
    resize(std::max(360, height * 9 / 16), height);
    QPalette dark = palette();
    dark.setColor(QPalette::Window, QColor(20, 20, 22));
    dark.setColor(QPalette::WindowText, QColor(235, 235, 238));
    setPalette(dark);
    setAutoFillBackground(true);
    behaveAsSecondaryWindow(this);
}

void ScreenPreview::setShowsText(bool shows) {
    showsText_ = shows;
    update();
}

void ScreenPreview::setTranslation(bool shows, const std::string& language, Translate translate) {
    overlay_.setTranslation(shows, language, std::move(translate));
    setMouseTracking(shows);
    update();
}

void ScreenPreview::setTranslatesWholeScreen(bool whole) {
    overlay_.setWholeScreen(whole);
    update();
}

void ScreenPreview::showScreen(const ScreenID& screen) {
    screen_ = screen;
    overlay_.setScreen(screen);
    full_ = false;
    picture_ = thumbnails_.image(screen);
    const std::uint64_t request = ++request_;

    title_ = qs(screen.filename);
    try {
        const FlowMeta& meta = library_.meta(screen.folder);
        for (std::size_t i = 0; i < meta.screens.size(); ++i) {
            if (meta.screens[i].filename != screen.filename)
                continue;
            title_ = tr("%1 — %2 of %3").arg(qs(meta.name)).arg(i + 1).arg(meta.screens.size());
            if (meta.screens[i].name)
                title_ += " — " + qs(*meta.screens[i].name);
        }
    } catch (const std::exception&) {
    }
    setWindowTitle(title_);

    const auto file = library_.root() / screen.folder / screen.filename;
    const QSize limit =
        (QWidget::screen() ? QWidget::screen()->size() : QSize(2000, 3000)) * devicePixelRatioF();
    auto* watcher = new QFutureWatcher<QImage>(this);
    connect(watcher, &QFutureWatcher<QImage>::finished, this, [this, watcher, request] {
        watcher->deleteLater();
        if (request != request_)
            return;
        const QImage image = watcher->result();
        if (!image.isNull()) {
            picture_ = image;
            full_ = true;
        }
        update();
    });
    watcher->setFuture(QtConcurrent::run([file, limit] { return readPicture(file, limit); }));
    update();
}

void ScreenPreview::step(int delta) {
    if (gallery_.stepCurrent(delta) && gallery_.currentScreen())
        showScreen(*gallery_.currentScreen());
}

void ScreenPreview::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
    case Qt::Key_Right:
    case Qt::Key_Down:
        step(1);
        return;
    case Qt::Key_Left:
    case Qt::Key_Up:
        step(-1);
        return;
    case Qt::Key_Space:
    case Qt::Key_Escape:
        close();
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

void ScreenPreview::paintTextBoxes(QPainter& painter, const QRectF& picture) {
    QColor edge = palette().color(QPalette::Highlight);
    QColor fill = edge;
    fill.setAlphaF(0.18f);
    painter.setPen(QPen(edge, 1.5));
    painter.setBrush(fill);
    for (const auto& line : overlay_.lines()) {
        const QRectF box(picture.x() + line.box.x * picture.width(),
                         picture.y() + line.box.y * picture.height(),
                         line.box.width * picture.width(), line.box.height * picture.height());
        painter.drawRoundedRect(box.adjusted(-2, -2, 2, 2), 3, 3);
    }
}

QRectF ScreenPreview::pictureRect() const {
    if (picture_.isNull())
        return {};
    const QRect area = rect().adjusted(16, 16, -16, -44);
    QSizeF size = QSizeF(picture_.size()) / picture_.devicePixelRatio();
    size.scale(area.size(), Qt::KeepAspectRatio);
    QRectF target(QPointF(0, 0), size);
    target.moveCenter(QRectF(area).center());
    return target;
}

QRectF ScreenPreview::boxRect(const NormalizedRect& box) const {
    const QRectF picture = pictureRect();
    return {picture.x() + box.x * picture.width(), picture.y() + box.y * picture.height(),
            box.width * picture.width(), box.height * picture.height()};
}

QRectF ScreenPreview::lineRect(std::size_t line) const {
    return boxRect(overlay_.lines().at(line).box);
}

void ScreenPreview::mouseMoveEvent(QMouseEvent* event) {
    if (overlay_.hover(event->position(), [this](const NormalizedRect& b) { return boxRect(b); }))
        update();
}

void ScreenPreview::leaveEvent(QEvent*) {
    if (overlay_.hover(std::nullopt, [this](const NormalizedRect& b) { return boxRect(b); }))
        update();
}

void ScreenPreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRect area = rect().adjusted(16, 16, -16, -44);
    if (!picture_.isNull()) {
        const QRectF target = pictureRect();
        painter.drawImage(target, picture_);
        if (showsText_)
            paintTextBoxes(painter, target);
        overlay_.paint(
            painter, picture_, target, [this](const NormalizedRect& b) { return boxRect(b); },
            palette().color(QPalette::Highlight));
    } else {
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(area, Qt::AlignCenter, tr("Loading…"));
    }
    painter.setPen(palette().color(QPalette::WindowText));
    QString footer = title_;
    if (screen_ && ScreenFiles::isClip(screen_->filename))
        footer += "  ·  " + tr("Clip");
    if (overlay_.shows() && !overlay_.problem().isEmpty())
        footer = overlay_.problem();
    painter.drawText(QRect(16, height() - 36, width() - 32, 28), Qt::AlignCenter,
                     painter.fontMetrics().elidedText(footer, Qt::ElideMiddle, width() - 32));
}

} // namespace varnel
