#pragma once

#include <QColor>
#include <QPointF>
#include <QString>

class QPainter;

namespace varnel::CommentPinShape {

// The colour of every pin: Figma's own blue.
inline QColor figmaBlue() {
    return QColor::fromRgbF(13.0f / 255.0f, 0.6f, 1.0f, 1.0f);
}

// How far from its point a pin reaches, in view points; also its hit radius.
constexpr double kRadius = 12;

// A pin at `point`: a blue disc with its label; a published pin carries a check-mark badge,
// and a thread that is not one of this screen's pins is drawn hollow.
void paint(QPainter& painter, QPointF point, const QString& label, bool published,
           bool remote = false, bool highlighted = false);

} // namespace varnel::CommentPinShape
