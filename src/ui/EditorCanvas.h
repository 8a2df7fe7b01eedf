#pragma once

#ifndef Q_MOC_RUN // moc cannot parse the C++20 standard headers
#include "comments/ScreenComment.h"
#include "editing/EditorGeometry.h"
#include "editing/EditorState.h"
#include "figma/FigmaThread.h"

#include <map>
#include <optional>
#include <string>
#include <vector>
#endif

#include <QImage>
#include <QWidget>

class QLineEdit;
class QToolButton;

namespace varnel {

class TranslationOverlay;

// The picture being edited, with its patches, its zones frosted live, their handles, and the
// comment pins. Zones show the frosted picture through their shapes, so dragging one never
// blurs anything again. Gestures follow the current tool and change the editor state.
class EditorCanvas : public QWidget {
    Q_OBJECT

public:
    explicit EditorCanvas(EditorState& state, QWidget* parent = nullptr);

    // `picture` is shown under the patches and zones; `frosted` (the same size) shows through
    // the zones. Frames of a playing clip already carry their zones: `frosted` is then null.
    void setPicture(QImage picture, QImage frosted);
    const QImage& picture() const { return picture_; }
    // Back to the whole picture in view, nothing being dragged.
    void resetView();
    // The untouched picture alone, for comparing.
    void setShowOriginal(bool show);
    bool showsOriginal() const { return showOriginal_; }

    void setMode(EditorMode mode);
    EditorMode mode() const { return mode_; }

    double zoom() const { return zoom_; }
    // Magnifies around the view's centre, or around `anchor` when given.
    void setZoom(double zoom, std::optional<QPointF> anchor = std::nullopt);
    // Where the picture is on screen, in widget coordinates.
    ViewRect imageRect() const;

    // The selected zones' or patch's bounding rectangle, or the last region drawn with the
    // patch tool.
    std::optional<NormalizedRect> selectedRegion() const;
    // Called after the state was changed from outside (undo, paste, load).
    void stateChanged();

    // Draws this overlay's translations over the picture, following the pointer (not owned).
    void setTranslationOverlay(TranslationOverlay* overlay);

    // Pins of the screen and the threads pulled for it; `enabled` when the screen takes
    // comments.
    void setComments(std::vector<ScreenComment> pins, std::vector<FigmaThread> threads,
                     bool enabled);
    const std::vector<ScreenComment>& pins() const { return pins_; }
    // Opens the text field on a pin, to change its text.
    void editPin(const std::string& id);
    bool isDrafting() const { return draft_.has_value(); }
    QLineEdit* draftField() const { return draftField_; }
    // The preview card of the pin under a point: its thread's messages, or its own text.
    QString pinCard(QPointF point) const;

signals:
    // Zones or patches changed; also during drags.
    void edited();
    // A gesture ended that changed patches, so pixels under the zones may differ.
    void patchesSettled();
    void selectionChanged();
    void zoomChanged();
    // The pins changed (created, moved, edited or deleted) and should be saved.
    void pinsEdited();
    void pinActivated(const QString& id);
    void remotePinActivated(const QString& rootId);

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    enum class Drag { none, draw, move, resize, marquee, patchDraw, patchMove, patchResize, pin };
    struct Draft {
        ViewPoint position;
        std::optional<std::string> editingId;
    };

    double fitScale() const;
    QRectF viewRect(const NormalizedRect& rect) const;
    ViewPoint normalizedAt(QPointF point) const;
    std::vector<NormalizedRect> otherZones(const std::set<std::string>& except) const;
    std::optional<std::string> zoneAt(QPointF point) const;
    std::optional<std::string> patchAt(QPointF point) const;
    std::optional<std::size_t> pinAt(QPointF point) const;
    std::optional<std::string> remotePinAt(QPointF point) const;
    const NormalizedRect* shapeRect(const std::string& id) const;
    const NormalizedRect* patchRect(const std::string& id) const;
    // The single selected zone or patch whose handle is under the point.
    std::optional<EditorGeometry::Handle> selectedHandleAt(QPointF point, bool* onPatch) const;
    void pressSelect(QMouseEvent* event);
    void dragTo(QPointF point);
    void finishDrag(QPointF point);
    // Takes the gesture's undo snapshot at its first real change, so a click costs no step.
    void changeOnce();

    void paintZones(QPainter& painter, const std::vector<RedactShape>& shapes);
    void paintOutlines(QPainter& painter);
    void paintPins(QPainter& painter);
    QImage patchImage(const EditorPatch& patch);

    void openDraft(Draft draft, const QString& text);
    void closeDraft();
    void submitDraft();
    void deleteDraftPin();

    EditorState& state_;
    QImage picture_;
    QImage frosted_;
    std::map<const void*, QImage> patchImages_;
    bool showOriginal_ = false;
    EditorMode mode_ = EditorMode::select;
    double zoom_ = 1;
    QPointF pan_;

    Drag drag_ = Drag::none;
    QPointF pressPoint_;
    ViewPoint pressNormalized_;
    bool changed_ = false;
    std::map<std::string, NormalizedRect> dragStart_;
    std::string dragId_;
    EditorGeometry::Handle handle_ = EditorGeometry::Handle::topLeft;
    NormalizedRect drawn_;
    std::optional<NormalizedRect> patchRegion_;
    QPointF lastPanPoint_;

    std::vector<ScreenComment> pins_;
    std::vector<FigmaThread> threads_;
    bool commentsEnabled_ = false;
    std::size_t dragPin_ = 0;
    ViewPoint pinStart_;
    bool pinLocked_ = false; // the pressed pin's thread has replies
    std::optional<Draft> draft_;
    QWidget* draftBox_;
    QLineEdit* draftField_;
    QToolButton* deletePin_;
    TranslationOverlay* overlay_ = nullptr;
};

} // namespace varnel
