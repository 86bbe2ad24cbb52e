#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

// The coefficients of an affine map, in the order PDF and QTransform write them:
// x' = m11 x + m21 y + dx, y' = m12 x + m22 y + dy.
struct AffineMatrix
{
    double m11 = 1, m12 = 0, m21 = 0, m22 = 1, dx = 0, dy = 0;

    QPointF map(QPointF p) const
    {
        return {m11 * p.x() + m21 * p.y() + dx, m12 * p.x() + m22 * p.y() + dy};
    }
    // This map, then next.
    AffineMatrix then(const AffineMatrix &next) const;
    // The map back; the identity when there is none (a degenerate map).
    AffineMatrix inverted() const;
};

// How a page is laid out and shown: its boxes in user space (normalised, y up) and its rotation.
//
// A crop rectangle is given in crop coordinates: points, x to the right and y up on the page as
// it is shown, the page spanning (0, 0) to displayedSize(). On an unrotated page these are the
// page's own user-space coordinates (a media box that starts elsewhere than (0, 0) is not
// shifted); on a rotated page they start at the shown lower-left corner of the media box.
struct PageGeometry
{
    QRectF mediaBox{0, 0, 612, 792};
    // What a viewer shows: the crop box within the media box (the media box without one).
    QRectF visibleBox{0, 0, 612, 792};
    // Clockwise turn when shown: 0, 90, 180 or 270.
    int rotation = 0;

    // The media box's width and height as shown (swapped for 90 and 270).
    QSizeF displayedSize() const;
    // The visible box's width and height as shown.
    QSizeF visibleSize() const;
    // Percentages of the shown page to points, each product in single precision: x and width
    // of the shown width, y and height of the shown height.
    QRectF percentToPoints(double x, double y, double width, double height) const;
    // A rectangle in crop coordinates, in user space.
    QRectF cropRectToUser(const QRectF &rect) const;
    // Crop coordinates to user space (the same mapping as cropRectToUser).
    AffineMatrix cropToUser() const;
    // User space to the pixels of the page image (the visible box as shown, scale pixels a
    // point, origin at the top-left corner, y down).
    AffineMatrix userToImage(double scale) const;
};

// From the page as shown (origin at the shown lower-left corner of box, y up) to user space.
AffineMatrix shownToUser(const QRectF &box, int rotation);
