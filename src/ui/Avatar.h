#pragma once

#include <QImage>
#include <QPixmap>

namespace varnel {

// A Figma user's picture as Figma shows it: a circle of `size` points.
QPixmap roundAvatar(const QImage& image, int size);

} // namespace varnel
