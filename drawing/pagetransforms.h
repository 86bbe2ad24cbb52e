#pragma once

#include "engine/pagegeometry.h"

#include <QTransform>

// The page geometry's maps as transforms, for painting.
inline QTransform transformOf(const AffineMatrix &m)
{
    return QTransform(m.m11, m.m12, m.m21, m.m22, m.dx, m.dy);
}
