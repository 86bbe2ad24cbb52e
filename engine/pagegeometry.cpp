// Page geometry: where crop coordinates, user space and page-image pixels meet.

#include "pdftools.h"

namespace {

// From the shown page (origin at the shown lower-left corner of box, y up) to user space.
QTransform shownToUser(const QRectF &box, int rotation)
{
    const double left = box.left();
    const double right = box.right();
    const double bottom = box.top(); // QRectF's top is the smaller y: the lower edge, y up
    const double top = box.bottom();
    switch (rotation) {
    case 90: // the lower edge is shown on the left, the right edge at the bottom
        return QTransform(0, 1, -1, 0, right, bottom);
    case 180:
        return QTransform(-1, 0, 0, -1, right, top);
    case 270:
        return QTransform(0, -1, 1, 0, left, top);
    default:
        return QTransform(1, 0, 0, 1, left, bottom);
    }
}

QSizeF shown(const QSizeF &size, int rotation)
{
    return rotation == 90 || rotation == 270 ? size.transposed() : size;
}

double percentOf(double value, double length)
{
    return double(float(value) * float(length) / 100.0f);
}

} // namespace

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

QTransform PageGeometry::cropToUser() const
{
    // An unrotated page keeps its own coordinates, whatever its media box's origin.
    return rotation == 0 ? QTransform() : shownToUser(mediaBox, rotation);
}

QTransform PageGeometry::userToImage(double scale) const
{
    const double height = shown(visibleBox.size(), rotation).height();
    return shownToUser(visibleBox, rotation).inverted()
           * QTransform(scale, 0, 0, -scale, 0, height * scale);
}
