#include "imagetools.h"

#include <QPainter>
#include <QTransform>

#include <cmath>

QImage ImageTools::RotateImage(const QImage &image, double degrees)
{
    if (degrees == 0 || degrees == 360 || image.isNull()) {
        return image;
    }
    // Counter-clockwise with y up is clockwise in the image's y-down pixels.
    QTransform turn;
    turn.rotate(-degrees);
    const QRectF bounds = turn.mapRect(QRectF(0, 0, image.width(), image.height()));
    // The bounding box, without the float noise of cos(90) tipping it over a whole pixel.
    const int width = std::max(1, int(std::ceil(bounds.width() - 1e-6)));
    const int height = std::max(1, int(std::ceil(bounds.height() - 1e-6)));
    QImage rotated(width, height, QImage::Format_ARGB32_Premultiplied);
    rotated.fill(Qt::transparent);
    QPainter painter(&rotated);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.translate(width / 2.0, height / 2.0);
    painter.rotate(-degrees);
    painter.translate(-image.width() / 2.0, -image.height() / 2.0);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(QPointF(0, 0), image);
    painter.end();
    return rotated;
}

QImage ImageTools::ResizeImage(const QImage &image, double width, double height)
{
    const int w = int(std::lround(width));
    const int h = int(std::lround(height));
    if (image.isNull() || w < 1 || h < 1) {
        return {};
    }
    QImage resized(w, h, QImage::Format_ARGB32_Premultiplied);
    resized.fill(Qt::transparent);
    QPainter painter(&resized);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF(0, 0, w, h), image);
    painter.end();
    return resized;
}
