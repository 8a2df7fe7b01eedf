#include "ui/ScreenPreview.h"
#include "ui/Messages.h"

#include "library/FlowLibrary.h"
#include "library/ScreenFiles.h"
#include "media/PosterFrame.h"
#include "thumbnails/ThumbnailCache.h"
#include "ui/GalleryView.h"

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
    : QWidget(parent, Qt::Window), library_(library), thumbnails_(thumbnails), gallery_(gallery) {
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
}

void ScreenPreview::setShowsText(bool shows) {
    showsText_ = shows;
    update();
}

void ScreenPreview::setTranslation(bool shows, const std::string& language, Translate translate) {
    if (language != language_)
        asked_ = false;
    showsTranslation_ = shows;
    language_ = language;
    translate_ = std::move(translate);
    setMouseTracking(shows);
    if (shows && wholeScreen_)
        requestTranslation();
    update();
}

void ScreenPreview::setTranslatesWholeScreen(bool whole) {
    wholeScreen_ = whole;
    if (whole)
        requestTranslation();
    update();
}

void ScreenPreview::requestTranslation() {
    if (!screen_ || !translate_ || translating_ || asked_ || lines_.empty())
        return;
    asked_ = true;
    translating_ = true;
    problem_.clear();
    const ScreenID screen = *screen_;
    const std::string language = language_;
    auto* watcher = new QFutureWatcher<ScreenTranslator::Result>(this);
    connect(watcher, &QFutureWatcher<ScreenTranslator::Result>::finished, this,
            [this, watcher, screen, language] {
                watcher->deleteLater();
                translating_ = false;
                if (screen_ != screen || language != language_)
                    return; // another screen or language now; its own request follows
                const auto result = watcher->result();
                problem_ = result.problems.empty() ? QString() : qs(result.problems.front());
                lines_ = library_.textLines(screen.folder, screen.filename);
                update();
                emit translated();
            });
    watcher->setFuture(QtConcurrent::run(
        [translate = translate_, screen, language] { return translate(screen, language); }));
}

void ScreenPreview::showScreen(const ScreenID& screen) {
    screen_ = screen;
    lines_ = library_.textLines(screen.folder, screen.filename);
    hovered_.reset();
    asked_ = false;
    problem_.clear();
    if (showsTranslation_ && wholeScreen_)
        requestTranslation();
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
    for (const auto& line : lines_) {
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

QRectF ScreenPreview::lineRect(std::size_t line) const {
    const QRectF picture = pictureRect();
    const auto& box = lines_.at(line).box;
    return {picture.x() + box.x * picture.width(), picture.y() + box.y * picture.height(),
            box.width * picture.width(), box.height * picture.height()};
}

void ScreenPreview::mouseMoveEvent(QMouseEvent* event) {
    std::optional<std::size_t> hovered;
    if (showsTranslation_)
        for (std::size_t i = 0; i < lines_.size() && !hovered; ++i)
            if (lineRect(i).adjusted(-3, -3, 3, 3).contains(event->position()))
                hovered = i;
    if (hovered == hovered_)
        return;
    hovered_ = hovered;
    if (hovered_ &&
        !(lines_[*hovered_].translations && lines_[*hovered_].translations->contains(language_)))
        requestTranslation();
    update();
}

void ScreenPreview::leaveEvent(QEvent*) {
    if (!hovered_)
        return;
    hovered_.reset();
    update();
}

void ScreenPreview::paintTranslation(QPainter& painter, std::size_t line, const QRectF& box) {
    const auto& translations = lines_[line].translations;
    const bool has = translations && translations->contains(language_);
    if (!has && !translating_)
        return; // in the target language already, or no engine (the footer says why)
    const QString text = has ? qs(translations->at(language_)) : tr("Translating…");
    // Readable on light and dark screens alike: the plate takes the opposite of the picture
    // under the line.
    const QImage& picture = picture_;
    const QRectF source(box.x() - pictureRect().x(), box.y() - pictureRect().y(), box.width(),
                        box.height());
    const double scale = picture.width() / pictureRect().width();
    const QRect under = QRectF(source.x() * scale, source.y() * scale, source.width() * scale,
                               source.height() * scale)
                            .toRect()
                            .intersected(picture.rect());
    const QColor average =
        under.isEmpty() ? QColor(Qt::white)
                        : QColor(picture.copy(under)
                                     .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                                     .pixel(0, 0));
    const bool lightUnder = average.lightnessF() > 0.5;
    const QColor plate = lightUnder ? QColor(255, 255, 255, 240) : QColor(24, 24, 28, 240);
    const QColor ink = lightUnder ? QColor(20, 20, 24) : QColor(240, 240, 244);
    const QRectF area = box.adjusted(-3, -2, 3, 2);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
    painter.setBrush(plate);
    painter.drawRoundedRect(area, 3, 3);
    // Sized to the box: the line's height, smaller when the translation is longer.
    QFont font = painter.font();
    font.setPixelSize(std::max(6, static_cast<int>(box.height() * 0.8)));
    while (font.pixelSize() > 6 && QFontMetricsF(font).horizontalAdvance(text) > area.width() - 4)
        font.setPixelSize(font.pixelSize() - 1);
    painter.setFont(font);
    painter.setPen(ink);
    painter.drawText(area.adjusted(2, 0, -2, 0), Qt::AlignVCenter | Qt::AlignLeft,
                     QFontMetricsF(font).elidedText(text, Qt::ElideRight, area.width() - 4));
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
        if (showsTranslation_) {
            const QFont plain = painter.font();
            for (std::size_t i = 0; i < lines_.size(); ++i)
                if (wholeScreen_ || hovered_ == i)
                    paintTranslation(painter, i, lineRect(i));
            painter.setFont(plain);
        }
    } else {
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(area, Qt::AlignCenter, tr("Loading…"));
    }
    painter.setPen(palette().color(QPalette::WindowText));
    QString footer = title_;
    if (screen_ && ScreenFiles::isClip(screen_->filename))
        footer += "  ·  " + tr("Clip");
    if (showsTranslation_ && !problem_.isEmpty())
        footer = problem_;
    painter.drawText(QRect(16, height() - 36, width() - 32, 28), Qt::AlignCenter,
                     painter.fontMetrics().elidedText(footer, Qt::ElideMiddle, width() - 32));
}

} // namespace varnel
