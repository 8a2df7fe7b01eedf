#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "text/TextLine.h"

#include <cstdint>
#include <optional>
#endif

#include <QImage>
#include <QPainter>
#include <QWidget>

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
    const std::vector<TextLine>& textLines() const { return lines_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void step(int delta);
    void paintTextBoxes(QPainter& painter, const QRectF& picture);

    FlowLibrary& library_;
    ThumbnailCache& thumbnails_;
    GalleryView& gallery_;
    std::optional<ScreenID> screen_;
    QImage picture_;
    bool full_ = false;
    QString title_;
    bool showsText_ = false;
    std::vector<TextLine> lines_;
    std::uint64_t request_ = 0; // pictures read for an earlier screen are dropped
};

} // namespace varnel
