#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "library/ScreenID.h"
#include "library/ScreenRef.h"
#include "text/LibrarySearch.h"
#include "ui/GalleryContent.h"
#include "ui/GalleryLayout.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>
#endif

#include <QAbstractScrollArea>
#include <QTimer>

class QMimeData;

namespace varnel {

class FlowLibrary;
class ThumbnailCache;

// The gallery: one band per flow under its category's heading, each band with its screens
// as thumbnails. It lays out every band from the index and reads a flow's folder only when its
// band comes into sight.
class GalleryView : public QAbstractScrollArea {
    Q_OBJECT

public:
    static constexpr const char* kScreensMimeType = "application/x-varnel-screens";

    GalleryView(FlowLibrary& library, ThumbnailCache& thumbnails, QWidget* parent = nullptr);

    // Keeps the selection and the scroll position where they still apply.
    void setContent(GalleryContent content);
    const GalleryContent& content() const { return content_; }
    const GalleryLayout& galleryLayout() const { return layout_; }
    void setThumbnailHeight(int height);
    int thumbnailHeight() const { return metrics_.thumbHeight; }
    void setEmptyText(const QString& title, const QString& hint);

    // What a search shows of each flow: its screens that hold the query (highlighted), and the
    // kind of media asked for. An inactive filter shows every screen.
    struct ScreenFilter {
        std::set<ScreenID> hits;
        MediaFilter media = MediaFilter::all;
        bool active() const { return !hits.empty() || media != MediaFilter::all; }
    };
    // Set before the content it applies to.
    void setScreenFilter(ScreenFilter filter);
    const ScreenFilter& screenFilter() const { return filter_; }

    // The screens of a flow that are shown, in order; none when the meta can't be read.
    const std::vector<ScreenRef>* screensOf(const std::string& folder);
    // A shown screen's position in its flow's full list.
    std::size_t positionOf(const std::string& folder, std::size_t shown);

    // Selection. The current flow is the flow of the current screen or the band picked last.
    std::vector<ScreenID> selectedScreens() const; // in the order of the flow
    const std::optional<ScreenID>& currentScreen() const { return current_; }
    const std::optional<std::string>& currentFlow() const { return currentFlow_; }
    void selectScreen(const ScreenID& screen);
    void selectScreens(const std::vector<ScreenID>& screens);
    void selectFlow(const std::string& folder);
    void selectAllInFlow();
    // Moves the current screen through the gallery's order; false at either end.
    bool stepCurrent(int delta);
    // Moves the current screen to the line above or below as shown, across flows.
    bool stepLine(int direction);

    void scrollToFlow(const std::string& folder);
    void scrollToCategory(const std::string& application, const std::string& category);

    struct Hit {
        std::size_t row = 0;
        std::optional<std::size_t> screen;
    };
    // What lies under a point of the viewport.
    std::optional<Hit> hitAt(QPoint point) const;
    struct DropTarget {
        std::string folder;
        std::size_t index = 0; // in the flow's full list
        std::size_t shown = 0; // among the screens shown, for the marker
    };
    std::optional<DropTarget> dropTargetAt(QPoint point);
    // What the tooltip of a screen says: its file, size, bytes, capture date and source, and
    // what was done to it (zones, patches, pins).
    QString tileInfo(const ScreenID& screen);
    const std::optional<ScreenID>& hoveredScreen() const { return hovered_; }
    // The drag's data for screens of one flow: their identity and their files.
    QMimeData* mimeDataFor(const std::vector<ScreenID>& screens) const;

signals:
    void selectionChanged();
    // Double click or Return on a screen.
    void screenActivated(const varnel::ScreenID& screen);
    void previewRequested();
    void contextMenuRequested(const QPoint& globalPosition);
    // Screens of one flow dropped on a flow (the same or another) before `index`.
    void screensDropped(const QString& sourceFolder, const QStringList& files,
                        const QString& targetFolder, int index, bool copy);
    // Picture or clip files from outside dropped on a flow.
    void filesDropped(const QStringList& paths, const QString& targetFolder, int index);
    // Files or folders from outside dropped beside the flows, to become flows of their own.
    void filesDroppedOutsideFlows(const QStringList& paths);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void relayout();
    int offset() const;
    QRect toViewport(QRect contentRect) const;
    void paintHeading(QPainter& painter, std::size_t row);
    void paintBand(QPainter& painter, std::size_t row, const QRect& exposed);
    // The keyboard focus ring around the current screen or flow, drawn while the view has focus.
    void paintFocusRing(QPainter& painter, const QRectF& area, double radius);
    void paintTile(QPainter& painter, const QRect& tile, const ScreenID& screen,
                   const ScreenRef& ref, std::size_t number);
    void paintEmpty(QPainter& painter);
    void ensureVisible(const QRect& contentRect);
    std::optional<ScreenID> screenAt(const Hit& hit);
    bool acceptsDrop(const QMimeData* mime) const;
    void setCurrent(const ScreenID& screen, bool notify = true);
    std::optional<std::size_t> currentIndex();

    FlowLibrary& library_;
    ThumbnailCache& thumbnails_;
    GalleryContent content_;
    GalleryMetrics metrics_;
    GalleryLayout layout_;
    QString emptyTitle_, emptyHint_;

    std::map<std::string, QString> unreadable_; // flows whose meta failed, with why
    ScreenFilter filter_;
    std::map<std::string, std::vector<VisibleScreen>> visible_; // by folder, while filtering
    std::map<std::string, std::vector<ScreenRef>> visibleRefs_;
    std::set<ScreenID> selection_;
    std::optional<ScreenID> current_;
    std::optional<std::string> currentFlow_;
    std::optional<ScreenID> anchor_; // where a shift-click range starts
    QPoint pressPosition_;
    bool dragReady_ = false;
    std::optional<ScreenID> clickedInSelection_;
    std::optional<ScreenID> hovered_; // the screen under the pointer
    std::optional<DropTarget> dropTarget_;
    QTimer autoScrollTimer_;
    int autoScroll_ = 0; // pixels a tick while a drag is held near an edge
};

} // namespace varnel
