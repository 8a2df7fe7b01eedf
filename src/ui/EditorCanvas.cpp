#include "ui/EditorCanvas.h"
#include "ui/ImageConversion.h"
#include "ui/TranslationOverlay.h"

#include "comments/CommentEditing.h"
#include "comments/CommentThreadLogic.h"
#include "ui/CommentPinShape.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyleHints>
#include <QToolButton>
#include <QToolTip>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace varnel {

namespace {

constexpr double kMargin = 16;
// Smaller gestures are clicks, not drags.
constexpr double kDragThreshold = 3;
constexpr double kHandleSize = 8;

QPainterPath shapePath(RedactShape::Kind kind, const QRectF& rect) {
    QPainterPath path;
    if (kind == RedactShape::Kind::ellipse)
        path.addEllipse(rect);
    else
        path.addRect(rect);
    return path;
}

QRectF handleSquare(QPointF centre) {
    return {centre.x() - kHandleSize / 2, centre.y() - kHandleSize / 2, kHandleSize, kHandleSize};
}

std::vector<QPointF> handlePoints(const QRectF& r) {
    return {
        r.topLeft(),     {r.center().x(), r.top()},    r.topRight(),   {r.right(), r.center().y()},
        r.bottomRight(), {r.center().x(), r.bottom()}, r.bottomLeft(), {r.left(), r.center().y()}};
}

Qt::CursorShape cursorFor(EditorGeometry::Handle handle) {
    using H = EditorGeometry::Handle;
    switch (handle) {
    case H::topLeft:
    case H::bottomRight:
        return Qt::SizeFDiagCursor;
    case H::topRight:
    case H::bottomLeft:
        return Qt::SizeBDiagCursor;
    case H::top:
    case H::bottom:
        return Qt::SizeVerCursor;
    case H::left:
    case H::right:
        return Qt::SizeHorCursor;
    }
    return Qt::ArrowCursor;
}

// A pin moves only when the pointer goes further than the platform's drag distance: a click's
// jitter must never make a published pin look edited.
double pinSlop() {
    return std::max<double>(kDragThreshold, QGuiApplication::styleHints()->startDragDistance());
}

double distance(QPointF a, QPointF b) {
    return std::hypot(a.x() - b.x(), a.y() - b.y());
}

} // namespace

EditorCanvas::EditorCanvas(EditorState& state, QWidget* parent)
    : QWidget(parent), state_(state), draftBox_(new QWidget(this)),
      draftField_(new QLineEdit(draftBox_)), deletePin_(new QToolButton(draftBox_)) {
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setMinimumSize(240, 240);
    setAttribute(Qt::WA_OpaquePaintEvent);

    auto* layout = new QHBoxLayout(draftBox_);
    layout->setContentsMargins(6, 6, 6, 6);
    draftField_->setPlaceholderText(tr("Add a comment"));
    draftField_->setMinimumWidth(220);
    deletePin_->setText(tr("Delete comment"));
    layout->addWidget(draftField_);
    layout->addWidget(deletePin_);
    draftBox_->setAutoFillBackground(true);
    draftBox_->hide();
    connect(draftField_, &QLineEdit::returnPressed, this, &EditorCanvas::submitDraft);
    connect(deletePin_, &QToolButton::clicked, this, &EditorCanvas::deleteDraftPin);
}

void EditorCanvas::setPicture(QImage picture, QImage frosted) {
    picture_ = std::move(picture);
    frosted_ = std::move(frosted);
    update();
}

void EditorCanvas::resetView() {
    drag_ = Drag::none;
    patchRegion_.reset();
    patchImages_.clear();
    closeDraft();
    zoom_ = 1;
    pan_ = {};
    emit zoomChanged();
    update();
}

void EditorCanvas::setShowOriginal(bool show) {
    showOriginal_ = show;
    update();
}

void EditorCanvas::setMode(EditorMode mode) {
    if (mode == EditorMode::comment && !commentsEnabled_)
        return;
    mode_ = mode;
    drag_ = Drag::none;
    if (mode != EditorMode::patch)
        patchRegion_.reset();
    setCursor(mode == EditorMode::select ? Qt::ArrowCursor : Qt::CrossCursor);
    update();
}

double EditorCanvas::fitScale() const {
    if (picture_.isNull())
        return 1;
    const double w = std::max(1.0, width() - 2 * kMargin);
    const double h = std::max(1.0, height() - 2 * kMargin);
    return std::min(w / picture_.width(), h / picture_.height());
}

ViewRect EditorCanvas::imageRect() const {
    if (picture_.isNull())
        return {};
    const double scale = fitScale() * zoom_;
    const ViewPoint content{picture_.width() * scale, picture_.height() * scale};
    const ViewPoint origin = EditorGeometry::clampedPan(
        {pan_.x(), pan_.y()}, content, {static_cast<double>(width()), double(height())});
    return {origin.x, origin.y, content.x, content.y};
}

void EditorCanvas::setZoom(double zoom, std::optional<QPointF> anchor) {
    const double clamped = EditorGeometry::clampedZoom(zoom);
    if (clamped == zoom_ || picture_.isNull())
        return;
    const QPointF at = anchor.value_or(QPointF(width() / 2.0, height() / 2.0));
    const ViewRect before = imageRect();
    const ViewPoint fixed = EditorGeometry::normalized({at.x(), at.y()}, before);
    zoom_ = clamped;
    const double scale = fitScale() * zoom_;
    pan_ = {at.x() - fixed.x * picture_.width() * scale,
            at.y() - fixed.y * picture_.height() * scale};
    const ViewRect after = imageRect();
    pan_ = {after.x, after.y};
    emit zoomChanged();
    update();
}

QRectF EditorCanvas::viewRect(const NormalizedRect& rect) const {
    const ViewRect image = imageRect();
    return {image.x + rect.x * image.width, image.y + rect.y * image.height,
            rect.width * image.width, rect.height * image.height};
}

ViewPoint EditorCanvas::normalizedAt(QPointF point) const {
    return EditorGeometry::normalized({point.x(), point.y()}, imageRect());
}

std::optional<NormalizedRect> EditorCanvas::selectedRegion() const {
    if (patchRegion_)
        return patchRegion_;
    std::optional<NormalizedRect> region;
    const auto add = [&](const NormalizedRect& r) {
        if (!region) {
            region = r;
            return;
        }
        const double left = std::min(region->minX(), r.minX());
        const double top = std::min(region->minY(), r.minY());
        region = NormalizedRect{left, top, std::max(region->maxX(), r.maxX()) - left,
                                std::max(region->maxY(), r.maxY()) - top};
    };
    for (const auto& shape : state_.shapes())
        if (state_.selection().contains(shape.id))
            add(shape.rect);
    if (const auto& patch = state_.patchSelection())
        if (const NormalizedRect* rect = patchRect(*patch))
            add(*rect);
    return region;
}

void EditorCanvas::stateChanged() {
    drag_ = Drag::none;
    std::erase_if(state_.selection(), [&](const std::string& id) { return !shapeRect(id); });
    if (state_.patchSelection() && !patchRect(*state_.patchSelection()))
        state_.patchSelection().reset();
    emit selectionChanged();
    update();
}

const NormalizedRect* EditorCanvas::shapeRect(const std::string& id) const {
    for (const auto& shape : state_.shapes())
        if (shape.id == id)
            return &shape.rect;
    return nullptr;
}

const NormalizedRect* EditorCanvas::patchRect(const std::string& id) const {
    for (const auto& patch : state_.patches())
        if (patch.id == id)
            return &patch.rect;
    return nullptr;
}

std::vector<NormalizedRect> EditorCanvas::otherZones(const std::set<std::string>& except) const {
    std::vector<NormalizedRect> others;
    for (const auto& shape : state_.shapes())
        if (!except.contains(shape.id))
            others.push_back(shape.rect);
    return others;
}

std::optional<std::string> EditorCanvas::zoneAt(QPointF point) const {
    const auto& shapes = state_.shapes();
    for (auto it = shapes.rbegin(); it != shapes.rend(); ++it)
        if (shapePath(it->kind, viewRect(it->rect)).contains(point) ||
            (it->kind == RedactShape::Kind::ellipse && state_.selection().contains(it->id) &&
             viewRect(it->rect).contains(point)))
            return it->id;
    return std::nullopt;
}

std::optional<std::string> EditorCanvas::patchAt(QPointF point) const {
    const auto& patches = state_.patches();
    for (auto it = patches.rbegin(); it != patches.rend(); ++it)
        if (viewRect(it->rect).contains(point))
            return it->id;
    return std::nullopt;
}

std::optional<std::size_t> EditorCanvas::pinAt(QPointF point) const {
    if (!commentsEnabled_)
        return std::nullopt;
    const ViewRect image = imageRect();
    for (std::size_t i = pins_.size(); i-- > 0;) {
        const QPointF at(image.x + pins_[i].x * image.width, image.y + pins_[i].y * image.height);
        if (distance(at, point) <= CommentPinShape::kRadius)
            return i;
    }
    return std::nullopt;
}

std::optional<std::string> EditorCanvas::remotePinAt(QPointF point) const {
    if (!commentsEnabled_)
        return std::nullopt;
    std::set<std::string> posted;
    for (const auto& pin : pins_)
        if (pin.postedId)
            posted.insert(*pin.postedId);
    const ViewRect image = imageRect();
    for (const FigmaThread* thread : CommentThreadLogic::remotePins(threads_, posted, false)) {
        const QPointF at(image.x + *thread->x * image.width, image.y + *thread->y * image.height);
        if (distance(at, point) <= CommentPinShape::kRadius)
            return thread->rootId;
    }
    return std::nullopt;
}

std::optional<EditorGeometry::Handle> EditorCanvas::selectedHandleAt(QPointF point,
                                                                     bool* onPatch) const {
    const ViewRect image = imageRect();
    const ViewPoint at{point.x(), point.y()};
    if (state_.selection().size() == 1 && !state_.patchSelection())
        if (const NormalizedRect* rect = shapeRect(*state_.selection().begin())) {
            *onPatch = false;
            return EditorGeometry::handleAt(*rect, at, image);
        }
    if (state_.selection().empty() && state_.patchSelection())
        if (const NormalizedRect* rect = patchRect(*state_.patchSelection())) {
            *onPatch = true;
            return EditorGeometry::handleAt(*rect, at, image);
        }
    return std::nullopt;
}

void EditorCanvas::changeOnce() {
    if (changed_)
        return;
    changed_ = true;
    state_.snapshot();
}

// --- Gestures ---

void EditorCanvas::mousePressEvent(QMouseEvent* event) {
    setFocus();
    if (event->button() == Qt::MiddleButton) {
        lastPanPoint_ = event->position();
        return;
    }
    if (event->button() != Qt::LeftButton || picture_.isNull() || showOriginal_)
        return;
    if (draft_)
        closeDraft();
    pressPoint_ = event->position();
    pressNormalized_ = normalizedAt(pressPoint_);
    changed_ = false;
    dragStart_.clear();

    if (const auto pin = pinAt(pressPoint_)) {
        drag_ = Drag::pin;
        dragPin_ = *pin;
        pinStart_ = {pins_[*pin].x, pins_[*pin].y};
        pinLocked_ = CommentThreadLogic::isEditLocked(pins_[*pin], threads_);
        return;
    }
    if (const auto root = remotePinAt(pressPoint_)) {
        emit remotePinActivated(QString::fromStdString(*root));
        return;
    }
    switch (mode_) {
    case EditorMode::select:
        pressSelect(event);
        break;
    case EditorMode::rectangle:
    case EditorMode::ellipse:
        drag_ = Drag::draw;
        drawn_ = EditorGeometry::rectFromPoints({pressPoint_.x(), pressPoint_.y()},
                                                {pressPoint_.x(), pressPoint_.y()}, imageRect());
        break;
    case EditorMode::patch:
        drag_ = Drag::patchDraw;
        patchRegion_.reset();
        drawn_ = {};
        break;
    case EditorMode::comment:
        if (const auto position =
                CommentEditing::draftPosition({pressPoint_.x(), pressPoint_.y()}, imageRect()))
            openDraft({*position, std::nullopt}, {});
        break;
    }
    update();
}

void EditorCanvas::pressSelect(QMouseEvent* event) {
    const bool toggle = event->modifiers() & (Qt::ShiftModifier | Qt::ControlModifier);
    bool onPatch = false;
    if (const auto handle = selectedHandleAt(pressPoint_, &onPatch); handle && !toggle) {
        handle_ = *handle;
        drag_ = onPatch ? Drag::patchResize : Drag::resize;
        dragId_ = onPatch ? *state_.patchSelection() : *state_.selection().begin();
        dragStart_[dragId_] = onPatch ? *patchRect(dragId_) : *shapeRect(dragId_);
        return;
    }
    if (const auto zone = zoneAt(pressPoint_)) {
        auto& selection = state_.selection();
        if (toggle && selection.contains(*zone)) {
            selection.erase(*zone);
            emit selectionChanged();
            return;
        }
        if (!toggle && !selection.contains(*zone))
            selection.clear();
        selection.insert(*zone);
        state_.patchSelection().reset();
        drag_ = Drag::move;
        for (const auto& shape : state_.shapes())
            if (selection.contains(shape.id))
                dragStart_[shape.id] = shape.rect;
        emit selectionChanged();
        return;
    }
    if (const auto patch = patchAt(pressPoint_)) {
        state_.selection().clear();
        state_.patchSelection() = *patch;
        drag_ = Drag::patchMove;
        dragId_ = *patch;
        dragStart_[dragId_] = *patchRect(dragId_);
        emit selectionChanged();
        return;
    }
    if (!toggle) {
        state_.selection().clear();
        state_.patchSelection().reset();
        emit selectionChanged();
    }
    drag_ = Drag::marquee;
    drawn_ = {};
}

void EditorCanvas::setTranslationOverlay(TranslationOverlay* overlay) {
    overlay_ = overlay;
    if (overlay_)
        connect(overlay_, &TranslationOverlay::changed, this, qOverload<>(&QWidget::update));
}

void EditorCanvas::leaveEvent(QEvent*) {
    if (overlay_ &&
        overlay_->hover(std::nullopt, [this](const NormalizedRect& r) { return viewRect(r); }))
        update();
}

void EditorCanvas::mouseMoveEvent(QMouseEvent* event) {
    const QPointF point = event->position();
    if (event->buttons() & Qt::MiddleButton) {
        const ViewRect image = imageRect();
        pan_ = QPointF(image.x, image.y) + (point - lastPanPoint_);
        lastPanPoint_ = point;
        update();
        return;
    }
    if (drag_ != Drag::none && (event->buttons() & Qt::LeftButton)) {
        dragTo(point);
        return;
    }
    // Hover: a line's translation, and what a press would do.
    if (overlay_ && overlay_->hover(point, [this](const NormalizedRect& r) { return viewRect(r); }))
        update();
    bool onPatch = false;
    if (pinAt(point) || remotePinAt(point))
        setCursor(Qt::PointingHandCursor);
    else if (mode_ != EditorMode::select)
        setCursor(Qt::CrossCursor);
    else if (const auto handle = selectedHandleAt(point, &onPatch))
        setCursor(cursorFor(*handle));
    else if (zoneAt(point) || patchAt(point))
        setCursor(Qt::SizeAllCursor);
    else
        setCursor(Qt::ArrowCursor);
}

void EditorCanvas::dragTo(QPointF point) {
    if (distance(point, pressPoint_) < kDragThreshold && !changed_ && drag_ != Drag::draw)
        return;
    const ViewRect image = imageRect();
    const ViewPoint at = normalizedAt(point);
    const double dx = at.x - pressNormalized_.x;
    const double dy = at.y - pressNormalized_.y;
    const auto moved = [&](NormalizedRect r) {
        r.x += dx;
        r.y += dy;
        return EditorGeometry::clampedInside(r);
    };

    switch (drag_) {
    case Drag::none:
        return;
    case Drag::draw:
    case Drag::patchDraw: {
        NormalizedRect rect = EditorGeometry::rectFromPoints({pressPoint_.x(), pressPoint_.y()},
                                                             {point.x(), point.y()}, image);
        if (drag_ == Drag::draw) {
            // The moving corner snaps to the other zones' lines.
            const auto others = otherZones({});
            const double x =
                EditorGeometry::snappedLine(std::clamp(at.x, 0.0, 1.0), true, others, image.width);
            const double y = EditorGeometry::snappedLine(std::clamp(at.y, 0.0, 1.0), false, others,
                                                         image.height);
            const double x0 = std::clamp(pressNormalized_.x, 0.0, 1.0);
            const double y0 = std::clamp(pressNormalized_.y, 0.0, 1.0);
            rect = {std::min(x0, x), std::min(y0, y), std::abs(x - x0), std::abs(y - y0)};
        }
        drawn_ = rect;
        break;
    }
    case Drag::move: {
        changeOnce();
        if (dragStart_.size() == 1) {
            const auto& [id, start] = *dragStart_.begin();
            const NormalizedRect snapped =
                EditorGeometry::snappedMove(moved(start), otherZones({id}), image);
            state_.setShapeRect(id, EditorGeometry::clampedInside(snapped));
        } else {
            for (const auto& [id, start] : dragStart_)
                state_.setShapeRect(id, moved(start));
        }
        emit edited();
        break;
    }
    case Drag::resize:
    case Drag::patchResize: {
        changeOnce();
        ViewPoint to{std::clamp(at.x, 0.0, 1.0), std::clamp(at.y, 0.0, 1.0)};
        if (drag_ == Drag::resize) {
            const auto others = otherZones({dragId_});
            to = {EditorGeometry::snappedLine(to.x, true, others, image.width),
                  EditorGeometry::snappedLine(to.y, false, others, image.height)};
        }
        const NormalizedRect rect = EditorGeometry::resized(dragStart_[dragId_], handle_, to);
        if (drag_ == Drag::resize)
            state_.setShapeRect(dragId_, rect);
        else
            state_.setPatchRect(dragId_, rect);
        emit edited();
        break;
    }
    case Drag::patchMove:
        changeOnce();
        state_.setPatchRect(dragId_, moved(dragStart_[dragId_]));
        emit edited();
        break;
    case Drag::marquee:
        drawn_ = EditorGeometry::rectFromPoints({pressPoint_.x(), pressPoint_.y()},
                                                {point.x(), point.y()}, image);
        break;
    case Drag::pin: {
        if (!changed_ && distance(point, pressPoint_) < pinSlop())
            break;
        if (pinLocked_) {
            // The same rule as editing: moving would repost, and repost would drop the replies.
            QToolTip::showText(mapToGlobal(point.toPoint()), tr(CommentThreadLogic::kLocked), this);
            break;
        }
        changed_ = true;
        const ViewPoint moved = CommentEditing::movedPosition(
            pinStart_, {point.x() - pressPoint_.x(), point.y() - pressPoint_.y()}, image);
        pins_[dragPin_].x = moved.x;
        pins_[dragPin_].y = moved.y;
        break;
    }
    }
    update();
}

void EditorCanvas::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || drag_ == Drag::none)
        return;
    finishDrag(event->position());
    update();
}

void EditorCanvas::finishDrag(QPointF point) {
    const Drag drag = std::exchange(drag_, Drag::none);
    const ViewRect image = imageRect();
    // Anything thinner than a few points on screen is a slip, not a zone.
    const auto bigEnough = [&](const NormalizedRect& r) {
        return r.width * image.width >= 4 && r.height * image.height >= 4;
    };
    switch (drag) {
    case Drag::draw:
        if (bigEnough(drawn_)) {
            state_.patchSelection().reset();
            state_.addShape(mode_ == EditorMode::ellipse ? RedactShape::Kind::ellipse
                                                         : RedactShape::Kind::rect,
                            drawn_);
            emit edited();
            emit selectionChanged();
        }
        break;
    case Drag::patchDraw:
        if (bigEnough(drawn_))
            patchRegion_ = drawn_;
        emit selectionChanged();
        break;
    case Drag::marquee:
        for (const auto& shape : state_.shapes()) {
            const NormalizedRect& r = shape.rect;
            if (r.maxX() > drawn_.minX() && r.minX() < drawn_.maxX() && r.maxY() > drawn_.minY() &&
                r.minY() < drawn_.maxY() && bigEnough(drawn_))
                state_.selection().insert(shape.id);
        }
        emit selectionChanged();
        break;
    case Drag::patchMove:
    case Drag::patchResize:
        if (changed_)
            emit patchesSettled();
        break;
    case Drag::pin:
        if (changed_ && distance(point, pressPoint_) >= pinSlop()) {
            emit pinsEdited();
        } else if (changed_) {
            // Dragged back where it was: not a move.
            pins_[dragPin_].x = pinStart_.x;
            pins_[dragPin_].y = pinStart_.y;
        } else if (distance(point, pressPoint_) < pinSlop()) {
            emit pinActivated(QString::fromStdString(pins_[dragPin_].id));
        }
        break;
    case Drag::none:
    case Drag::move:
    case Drag::resize:
        break;
    }
    drawn_ = {};
}

void EditorCanvas::wheelEvent(QWheelEvent* event) {
    const QPoint steps = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        setZoom(zoom_ * std::pow(1.0015, steps.y()), event->position());
        return;
    }
    const ViewRect image = imageRect();
    pan_ = QPointF(image.x, image.y) + QPointF(steps.x(), steps.y()) / 2.0;
    update();
}

void EditorCanvas::keyPressEvent(QKeyEvent* event) {
    if (picture_.isNull())
        return QWidget::keyPressEvent(event);
    // One picture pixel a press, ten with Shift.
    const double step = (event->modifiers() & Qt::ShiftModifier) ? 10 : 1;
    const double sx = step / picture_.width();
    const double sy = step / picture_.height();
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down: {
        const int key = event->key();
        state_.moveSelection(key == Qt::Key_Left    ? -sx
                             : key == Qt::Key_Right ? sx
                                                    : 0,
                             key == Qt::Key_Up     ? -sy
                             : key == Qt::Key_Down ? sy
                                                   : 0);
        // A moved patch changes the pixels the zones frost, as a drag's end does.
        if (state_.patchSelection())
            emit patchesSettled();
        break;
    }
    case Qt::Key_Delete:
    case Qt::Key_Backspace: {
        const bool patch = state_.patchSelection().has_value();
        state_.deleteSelection();
        if (patch)
            emit patchesSettled();
        emit selectionChanged();
        break;
    }
    case Qt::Key_Escape:
        if (draft_) {
            closeDraft();
        } else if (state_.selection().empty() && !state_.patchSelection() && !patchRegion_) {
            event->ignore(); // nothing to let go of: the window closes
            return;
        } else {
            state_.selection().clear();
            state_.patchSelection().reset();
            patchRegion_.reset();
            emit selectionChanged();
        }
        update();
        return;
    default:
        return QWidget::keyPressEvent(event);
    }
    emit edited();
    update();
}

void EditorCanvas::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (draft_)
        openDraft(*draft_, draftField_->text());
}

// --- Painting ---

void EditorCanvas::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), palette().color(QPalette::Window).darker(135));
    if (picture_.isNull())
        return;
    const ViewRect image = imageRect();
    const QRectF target(image.x, image.y, image.width, image.height);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, picture_);
    if (showOriginal_)
        return;

    for (const auto& patch : state_.patches())
        painter.drawImage(viewRect(patch.rect), patchImage(patch));
    std::vector<RedactShape> zones = state_.shapes();
    if (drag_ == Drag::draw && drawn_.width > 0 && drawn_.height > 0)
        zones.push_back(
            {"",
             mode_ == EditorMode::ellipse ? RedactShape::Kind::ellipse : RedactShape::Kind::rect,
             drawn_});
    paintZones(painter, zones);
    paintOutlines(painter);
    if (overlay_) {
        std::vector<NormalizedRect> covered;
        for (const auto& zone : zones)
            covered.push_back(zone.rect);
        for (const auto& patch : state_.patches())
            covered.push_back(patch.rect);
        overlay_->setCovered(std::move(covered));
    }
    if (overlay_)
        overlay_->paint(
            painter, picture_, target, [this](const NormalizedRect& r) { return viewRect(r); },
            palette().color(QPalette::Highlight));
    paintPins(painter);
}

void EditorCanvas::paintZones(QPainter& painter, const std::vector<RedactShape>& shapes) {
    if (frosted_.isNull())
        return;
    const ViewRect image = imageRect();
    QBrush frost(frosted_);
    QTransform transform;
    transform.translate(image.x, image.y);
    transform.scale(image.width / frosted_.width(), image.height / frosted_.height());
    frost.setTransform(transform);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(frost);
    for (const auto& shape : shapes)
        painter.drawPath(shapePath(shape.kind, viewRect(shape.rect)));
    painter.restore();
}

void EditorCanvas::paintOutlines(QPainter& painter) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = palette().color(QPalette::Highlight);
    const auto outline = [&](const QPainterPath& path, bool selected, QColor colour) {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(QColor(0, 0, 0, 110), selected ? 3.5 : 2.5));
        painter.drawPath(path);
        QPen pen(colour, selected ? 2 : 1.2);
        if (!selected)
            pen.setDashPattern({4, 3});
        painter.setPen(pen);
        painter.drawPath(path);
    };
    const auto handles = [&](const QRectF& r, QColor colour) {
        painter.setPen(QPen(colour, 1.5));
        painter.setBrush(Qt::white);
        for (const QPointF& point : handlePoints(r))
            painter.drawRect(handleSquare(point));
    };

    for (const auto& shape : state_.shapes()) {
        const bool selected = state_.selection().contains(shape.id);
        const QRectF r = viewRect(shape.rect);
        outline(shapePath(shape.kind, r), selected, selected ? accent : QColor(Qt::white));
        if (selected && state_.selection().size() == 1 && !state_.patchSelection())
            handles(r, accent);
    }
    const QColor patchColour(255, 149, 0);
    for (const auto& patch : state_.patches()) {
        const bool selected = state_.patchSelection() == patch.id;
        const QRectF r = viewRect(patch.rect);
        outline(shapePath(RedactShape::Kind::rect, r), selected, patchColour);
        if (selected && state_.selection().empty())
            handles(r, patchColour);
    }
    const auto dashedRegion = [&](const NormalizedRect& region, QColor colour) {
        QPainterPath path;
        path.addRect(viewRect(region));
        painter.fillPath(path, QColor(colour.red(), colour.green(), colour.blue(), 40));
        outline(path, false, colour);
    };
    if (drag_ == Drag::draw && drawn_.width > 0)
        outline(shapePath(mode_ == EditorMode::ellipse ? RedactShape::Kind::ellipse
                                                       : RedactShape::Kind::rect,
                          viewRect(drawn_)),
                true, accent);
    if (drag_ == Drag::marquee && drawn_.width > 0)
        dashedRegion(drawn_, accent);
    if (drag_ == Drag::patchDraw && drawn_.width > 0)
        dashedRegion(drawn_, patchColour);
    else if (patchRegion_)
        dashedRegion(*patchRegion_, patchColour);
    painter.restore();
}

void EditorCanvas::paintPins(QPainter& painter) {
    if (!commentsEnabled_)
        return;
    const ViewRect image = imageRect();
    const auto at = [&](double x, double y) {
        return QPointF(image.x + x * image.width, image.y + y * image.height);
    };
    std::set<std::string> posted;
    for (const auto& pin : pins_)
        if (pin.postedId)
            posted.insert(*pin.postedId);
    for (const FigmaThread* thread : CommentThreadLogic::remotePins(threads_, posted, false)) {
        const QString initial =
            thread->authorHandle.empty()
                ? QStringLiteral("?")
                : QString::fromStdString(thread->authorHandle).left(1).toUpper();
        CommentPinShape::paint(painter, at(*thread->x, *thread->y), initial, true, true);
    }
    for (std::size_t i = 0; i < pins_.size(); ++i) {
        const bool highlighted = draft_ && draft_->editingId == pins_[i].id;
        CommentPinShape::paint(painter, at(pins_[i].x, pins_[i].y), QString::number(i + 1),
                               pins_[i].postedId.has_value(), false, highlighted);
    }
    if (draft_ && !draft_->editingId)
        CommentPinShape::paint(painter, at(draft_->position.x, draft_->position.y), "+", false,
                               false, true);
}

QImage EditorCanvas::patchImage(const EditorPatch& patch) {
    auto it = patchImages_.find(patch.image.data);
    if (it == patchImages_.end())
        it = patchImages_.emplace(patch.image.data, qImageOf(patch.image)).first;
    return it->second;
}

// --- Comment pins ---

QString EditorCanvas::pinCard(QPointF point) const {
    // Two replies are enough to follow a conversation; the rest are counted.
    constexpr std::size_t kShownReplies = 2;
    const auto card = [](const FigmaThread& thread) {
        QStringList lines;
        for (const auto& line : CommentThreadLogic::previewLines(thread, kShownReplies))
            lines << QString::fromStdString(line);
        return lines.join('\n');
    };
    if (const auto pin = pinAt(point)) {
        if (const FigmaThread* thread = CommentThreadLogic::thread(pins_[*pin], threads_))
            return card(*thread);
        return QString::fromStdString(pins_[*pin].text);
    }
    if (const auto root = remotePinAt(point))
        for (const auto& thread : threads_)
            if (thread.rootId == *root)
                return card(thread);
    return {};
}

bool EditorCanvas::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return QWidget::event(event);
    auto* help = static_cast<QHelpEvent*>(event);
    const QString text = pinCard(help->pos());
    if (text.isEmpty())
        QToolTip::hideText();
    else
        QToolTip::showText(help->globalPos(), text, this);
    return true;
}

void EditorCanvas::setComments(std::vector<ScreenComment> pins, std::vector<FigmaThread> threads,
                               bool enabled) {
    pins_ = std::move(pins);
    threads_ = std::move(threads);
    commentsEnabled_ = enabled;
    if (!enabled && mode_ == EditorMode::comment)
        setMode(EditorMode::select);
    if (draft_ && draft_->editingId &&
        std::none_of(pins_.begin(), pins_.end(),
                     [&](const ScreenComment& pin) { return pin.id == *draft_->editingId; }))
        closeDraft();
    update();
}

void EditorCanvas::editPin(const std::string& id) {
    for (const auto& pin : pins_)
        if (pin.id == id && !CommentThreadLogic::isEditLocked(pin, threads_))
            openDraft({{pin.x, pin.y}, id}, QString::fromStdString(pin.text));
}

void EditorCanvas::openDraft(Draft draft, const QString& text) {
    const ViewRect image = imageRect();
    draft_ = draft;
    deletePin_->setVisible(draft.editingId.has_value());
    if (draftField_->text() != text || !draftBox_->isVisible())
        draftField_->setText(text);
    draftBox_->adjustSize();
    const QPointF pin(image.x + draft.position.x * image.width,
                      image.y + draft.position.y * image.height);
    const int x = std::clamp(static_cast<int>(pin.x() + CommentPinShape::kRadius + 6), 0,
                             std::max(0, width() - draftBox_->width()));
    const int y = std::clamp(static_cast<int>(pin.y() - draftBox_->height() / 2), 0,
                             std::max(0, height() - draftBox_->height()));
    draftBox_->move(x, y);
    draftBox_->show();
    draftField_->setFocus();
    update();
}

void EditorCanvas::closeDraft() {
    if (!draft_)
        return;
    draft_.reset();
    draftBox_->hide();
    draftField_->clear();
    setFocus();
    update();
}

void EditorCanvas::submitDraft() {
    if (!draft_)
        return;
    auto pins = CommentEditing::submit(pins_, draft_->editingId, draft_->position,
                                       draftField_->text().toStdString(), Date::now());
    closeDraft();
    if (!pins)
        return;
    pins_ = std::move(*pins);
    emit pinsEdited();
    update();
}

void EditorCanvas::deleteDraftPin() {
    if (!draft_ || !draft_->editingId)
        return;
    pins_ = CommentEditing::remove(pins_, *draft_->editingId);
    closeDraft();
    emit pinsEdited();
}

} // namespace varnel
