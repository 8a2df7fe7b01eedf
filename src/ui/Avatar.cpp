#include "ui/Avatar.h"

#include <QPainter>
#include <QPainterPath>

namespace varnel {

QPixmap roundAvatar(const QImage& image, int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath circle;
    circle.addEllipse(0, 0, size, size);
    painter.setClipPath(circle);
    painter.drawImage(QRect(0, 0, size, size), image);
    return pixmap;
}

} // namespace varnel
