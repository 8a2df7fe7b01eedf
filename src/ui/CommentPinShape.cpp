#include "ui/CommentPinShape.h"

#include <QPainter>
#include <QPainterPath>

namespace varnel::CommentPinShape {

void paint(QPainter& painter, QPointF point, const QString& label, bool published, bool remote,
           bool highlighted) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor blue = figmaBlue();
    // A soft shadow keeps the pin readable on pictures of any colour.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 70));
    painter.drawEllipse(point + QPointF(0, 1.5), kRadius + 1, kRadius + 1);

    painter.setPen(QPen(remote ? blue : Qt::white, highlighted ? 3.5 : 2));
    painter.setBrush(remote ? QColor(Qt::white) : blue);
    painter.drawEllipse(point, kRadius, kRadius);

    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(11);
    painter.setFont(font);
    painter.setPen(remote ? blue : QColor(Qt::white));
    painter.drawText(QRectF(point.x() - kRadius, point.y() - kRadius, 2 * kRadius, 2 * kRadius),
                     Qt::AlignCenter, label);

    if (published) {
        const QPointF badge = point + QPointF(kRadius * 0.75, -kRadius * 0.75);
        painter.setPen(QPen(blue, 1.5));
        painter.setBrush(Qt::white);
        painter.drawEllipse(badge, 6, 6);
        QPainterPath check;
        check.moveTo(badge + QPointF(-3, 0));
        check.lineTo(badge + QPointF(-0.8, 2.4));
        check.lineTo(badge + QPointF(3.2, -2.4));
        painter.setPen(QPen(blue, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(check);
    }
    painter.restore();
}

} // namespace varnel::CommentPinShape
