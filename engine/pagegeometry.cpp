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
    const AffineMatrix m = cropToUser();
    // A quarter turn maps opposite corners to opposite corners.
    return QRectF(m.map(rect.topLeft()), m.map(rect.bottomRight())).normalized();
}

AffineMatrix PageGeometry::cropToUser() const
{
    // An unrotated page keeps its own coordinates, whatever its media box's origin.
    return rotation == 0 ? AffineMatrix() : shownToUser(mediaBox, rotation);
}

AffineMatrix PageGeometry::userToImage(double scale) const
{
    const double height = visibleSize().height();
    return shownToUser(visibleBox, rotation)
        .inverted()
        .then({scale, 0, 0, -scale, 0, height * scale});
}

AffineMatrix AffineMatrix::then(const AffineMatrix &next) const
{
    return {m11 * next.m11 + m12 * next.m21,
            m11 * next.m12 + m12 * next.m22,
            m21 * next.m11 + m22 * next.m21,
            m21 * next.m12 + m22 * next.m22,
            dx * next.m11 + dy * next.m21 + next.dx,
            dx * next.m12 + dy * next.m22 + next.dy};
}

AffineMatrix AffineMatrix::inverted() const
{
    const double determinant = m11 * m22 - m12 * m21;
    if (determinant == 0) {
        return {};
    }
    const double i11 = m22 / determinant;
    const double i12 = -m12 / determinant;
    const double i21 = -m21 / determinant;
    const double i22 = m11 / determinant;
    return {i11, i12, i21, i22, -(dx * i11 + dy * i21), -(dx * i12 + dy * i22)};
}
