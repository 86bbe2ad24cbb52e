// Page geometry: where crop coordinates, user space and page-image pixels meet.

#include "pagegeometry.h"

namespace {

QSizeF shown(const QSizeF &size, int rotation)
{
    return rotation == 90 || rotation == 270 ? size.transposed() : size;
}

double percentOf(double value, double length)
{
    return double(float(value) * float(length) / 100.0f);
}

} // namespace

AffineMatrix shownToUser(const QRectF &box, int rotation)
{
    const double left = box.left();
    const double right = box.right();
    const double bottom = box.top(); // QRectF's top is the smaller y: the lower edge, y up
    const double top = box.bottom();
    switch (rotation) {
    case 90: // the lower edge is shown on the left, the right edge at the bottom
        return {0, 1, -1, 0, right, bottom};
    case 180:
        return {-1, 0, 0, -1, right, top};
    case 270:
        return {0, -1, 1, 0, left, top};
    default:
        return {1, 0, 0, 1, left, bottom};
    }
}

QSizeF PageGeometry::displayedSize() const
{
    return shown(mediaBox.size(), rotation);
}

QSizeF PageGeometry::visibleSize() const
{
    return shown(visibleBox.size(), rotation);
}

QRectF PageGeometry::percentToPoints(double x, double y, double width, double height) const
{
    const QSizeF size = displayedSize();
    return QRectF(percentOf(x, size.width()),
                  percentOf(y, size.height()),
                  percentOf(width, size.width()),
                  percentOf(height, size.height()));
}

QRectF PageGeometry::cropRectToUser(const QRectF &rect) const
{
    // An unrotated page keeps its own coordinates, whatever its media box's origin.
    if (rotation == 0) {
        return rect;
    }
    const AffineMatrix m = shownToUser(mediaBox, rotation);
    const auto map = [&m](QPointF p) {
        return QPointF(m.m11 * p.x() + m.m21 * p.y() + m.dx, m.m12 * p.x() + m.m22 * p.y() + m.dy);
    };
    // A quarter turn maps opposite corners to opposite corners.
    return QRectF(map(rect.topLeft()), map(rect.bottomRight())).normalized();
}
