#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "text/TextLine.h"

#include <functional>
#include <string>

#include <cstdint>
#include <optional>
#endif

#include <QImage>
#include <QPainter>
#include <QWidget>

#include "ui/TranslationOverlay.h"

namespace varnel {

class FlowLibrary;
class GalleryView;
class ThumbnailCache;

// A screen shown large. It follows the gallery's current screen: the arrow keys step through
// the gallery, space or Escape close it. The thumbnail shows at once; the full picture
// replaces it when it has been read.
class ScreenPreview : public QWidget {
    Q_OBJECT

public:
    ScreenPreview(FlowLibrary& library, ThumbnailCache& thumbnails, GalleryView& gallery,
                  QWidget* parent = nullptr);

    void showScreen(const ScreenID& screen);
    const std::optional<ScreenID>& shownScreen() const { return screen_; }
    const QImage& picture() const { return picture_; }
    bool showsFullPicture() const { return full_; }
    QString title() const { return title_; }
    // Draws the boxes of the lines recognized on the screen over it.
    void setShowsText(bool shows);
    bool showsText() const { return showsText_; }
    const std::vector<TextLine>& textLines() const { return overlay_.lines(); }

    using Translate = TranslationOverlay::Translate;
    // Pointing at a recognized line shows its translation over it, sized to its box; lines
    // not translated yet are translated (the whole screen at once) and stored.
    void setTranslation(bool shows, const std::string& language, Translate translate);
    // Shows every line translated at once, not only the one pointed at.
    void setTranslatesWholeScreen(bool whole);
    bool showsTranslation() const { return overlay_.shows(); }
    // The line pointed at, as an index into textLines().
    std::optional<std::size_t> hoveredLine() const { return overlay_.hovered(); }
    // Where a line is drawn, in widget coordinates.
    QRectF lineRect(std::size_t line) const;
    // Why the last translation could not be made; empty when it could.
    const QString& translationProblem() const { return overlay_.problem(); }
    bool isTranslating() const { return overlay_.isTranslating(); }

signals:
    void translated();

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void step(int delta);
    void paintTextBoxes(QPainter& painter, const QRectF& picture);
    QRectF pictureRect() const;
    QRectF boxRect(const NormalizedRect& box) const;

    FlowLibrary& library_;
    ThumbnailCache& thumbnails_;
    GalleryView& gallery_;
    std::optional<ScreenID> screen_;
    QImage picture_;
    bool full_ = false;
    QString title_;
    bool showsText_ = false;
    TranslationOverlay overlay_;
    std::uint64_t request_ = 0; // pictures read for an earlier screen are dropped
};

} // namespace varnel
