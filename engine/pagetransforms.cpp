// The page geometry's mappings as transforms, for drawing.

#include "pagegeometry.h"

#include <QTransform>

namespace {

QTransform transformOf(const AffineMatrix &m)
{
    return QTransform(m.m11, m.m12, m.m21, m.m22, m.dx, m.dy);
}

} // namespace

QTransform PageGeometry::cropToUser() const
{
    // An unrotated page keeps its own coordinates, whatever its media box's origin.
    return rotation == 0 ? QTransform() : transformOf(shownToUser(mediaBox, rotation));
}

QTransform PageGeometry::userToImage(double scale) const
{
    const double height = visibleSize().height();
    return transformOf(shownToUser(visibleBox, rotation)).inverted()
           * QTransform(scale, 0, 0, -scale, 0, height * scale);
}
