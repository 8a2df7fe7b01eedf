#include "ui/TranslationOverlay.h"

#include "model/FlowLibrary.h"
#include "text/HiddenText.h"
#include "ui/Messages.h"

#include <QFutureWatcher>
#include <QtConcurrent>

#include <algorithm>

namespace varnel {

TranslationOverlay::TranslationOverlay(FlowLibrary& library, QObject* parent)
    : QObject(parent), library_(library) {}

void TranslationOverlay::setScreen(const ScreenID& screen) {
    screen_ = screen;
    lines_ = library_.textLines(screen.folder, screen.filename);
    hovered_.reset();
    asked_ = false;
    problem_.clear();
    if (shows_ && whole_)
        request();
}

void TranslationOverlay::setTranslation(bool shows, const std::string& language,
                                        Translate translate) {
    if (language != language_)
        asked_ = false;
    shows_ = shows;
    language_ = language;
    translate_ = std::move(translate);
    if (shows_ && whole_)
        request();
}

void TranslationOverlay::setWholeScreen(bool whole) {
    whole_ = whole;
    if (shows_ && whole_)
        request();
}

void TranslationOverlay::request() {
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
                // What was translated shows also when it could not be stored (read-only).
                for (auto& line : lines_)
                    for (const auto& translated : result.lines)
                        if (translated.translation && translated.text == line.text) {
                            if (!line.translations)
                                line.translations.emplace();
                            line.translations->emplace(language, *translated.translation);
                        }
                emit changed();
            });
    watcher->setFuture(QtConcurrent::run(
        [translate = translate_, screen, language] { return translate(screen, language); }));
}

bool TranslationOverlay::isCovered(std::size_t line) const {
    return std::any_of(covered_.begin(), covered_.end(), [&](const NormalizedRect& area) {
        return HiddenText::touches(lines_[line].box, area);
    });
}

bool TranslationOverlay::hover(std::optional<QPointF> point, const ToView& toView) {
    std::optional<std::size_t> hovered;
    if (shows_ && point)
        for (std::size_t i = 0; i < lines_.size() && !hovered; ++i)
            if (!isCovered(i) && toView(lines_[i].box).adjusted(-3, -3, 3, 3).contains(*point))
                hovered = i;
    if (hovered == hovered_)
        return false;
    hovered_ = hovered;
    if (hovered_ &&
        !(lines_[*hovered_].translations && lines_[*hovered_].translations->contains(language_)))
        request();
    return true;
}

void TranslationOverlay::paint(QPainter& painter, const QImage& picture, const QRectF& pictureRect,
                               const ToView& toView, const QColor& edge) const {
    if (!shows_ || picture.isNull() || pictureRect.isEmpty())
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    for (std::size_t i = 0; i < lines_.size(); ++i)
        if ((whole_ || hovered_ == i) && !isCovered(i))
            paintLine(painter, i, toView(lines_[i].box), picture, pictureRect, edge);
    painter.restore();
}

void TranslationOverlay::paintLine(QPainter& painter, std::size_t line, const QRectF& box,
                                   const QImage& picture, const QRectF& pictureRect,
                                   const QColor& edge) const {
    const auto& translations = lines_[line].translations;
    const bool has = translations && translations->contains(language_);
    if (!has && !translating_)
        return; // in the target language already, or no engine (the problem says why)
    const QString text = has ? qs(translations->at(language_)) : tr("Translating…");
    // Readable on light and dark screens alike: the plate takes the opposite of the picture
    // under the line.
    const double scale = picture.width() / pictureRect.width();
    const QRect under =
        QRectF((box.x() - pictureRect.x()) * scale, (box.y() - pictureRect.y()) * scale,
               box.width() * scale, box.height() * scale)
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
    painter.setPen(QPen(edge, 1.5));
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

} // namespace varnel
