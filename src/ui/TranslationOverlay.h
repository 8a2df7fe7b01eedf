#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "text/ScreenTranslator.h"
#include "text/TextLine.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QImage>
#include <QObject>
#include <QPainter>
#include <QRectF>

namespace varnel {

class FlowLibrary;

// The translation overlay of a screen shown large (the preview, the editor): pointing at a
// recognized line shows its translation over the line's box, sized to it, on a plate that
// stands out from the picture beneath; lines not translated yet are translated, the whole
// screen at once off the main thread, and stored.
class TranslationOverlay : public QObject {
    Q_OBJECT

public:
    // Translates a screen's lines into a language and stores them; runs on a worker thread.
    using Translate =
        std::function<ScreenTranslator::Result(const ScreenID& screen, const std::string& to)>;
    // Where a line's box is drawn, in widget coordinates.
    using ToView = std::function<QRectF(const NormalizedRect& box)>;

    explicit TranslationOverlay(FlowLibrary& library, QObject* parent = nullptr);

    void setScreen(const ScreenID& screen);
    void setTranslation(bool shows, const std::string& language, Translate translate);
    void setWholeScreen(bool whole);
    // Areas the editor covers now, saved or not: no line that touches one is drawn or pointed at.
    void setCovered(std::vector<NormalizedRect> covered) { covered_ = std::move(covered); }

    bool shows() const { return shows_; }
    const std::vector<TextLine>& lines() const { return lines_; }
    std::optional<std::size_t> hovered() const { return hovered_; }
    const QString& problem() const { return problem_; }
    bool isTranslating() const { return translating_; }

    // The pointer moved (none: it left); whether what is drawn changed.
    bool hover(std::optional<QPointF> point, const ToView& toView);
    // Draws the translations to show over `picture`, drawn at `pictureRect`.
    void paint(QPainter& painter, const QImage& picture, const QRectF& pictureRect,
               const ToView& toView, const QColor& edge) const;

signals:
    // Lines were translated (or could not be): draw again.
    void changed();

private:
    void request();
    void paintLine(QPainter& painter, std::size_t line, const QRectF& box, const QImage& picture,
                   const QRectF& pictureRect, const QColor& edge) const;

    FlowLibrary& library_;
    std::optional<ScreenID> screen_;
    std::vector<TextLine> lines_;
    std::vector<NormalizedRect> covered_;
    bool isCovered(std::size_t line) const;
    bool shows_ = false;
    bool whole_ = false;
    std::string language_ = "en";
    Translate translate_;
    std::optional<std::size_t> hovered_;
    bool translating_ = false;
    bool asked_ = false; // for the screen shown, in this language
    QString problem_;
};

} // namespace varnel
