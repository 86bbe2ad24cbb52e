#pragma once

#include "pdftools.h"

// The coefficients of an affine map, in QTransform's order: x' = m11 x + m21 y + dx,
// y' = m12 x + m22 y + dy.
struct AffineMatrix
{
    double m11, m12, m21, m22, dx, dy;
};

// From the page as shown (origin at the shown lower-left corner of box, y up) to user space.
AffineMatrix shownToUser(const QRectF &box, int rotation);
