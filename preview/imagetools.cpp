#include "imagetools.h"

#include "drawing/pagetransforms.h"
#include "engine/pdftools.h"

#include <QLoggingCategory>
#include <QPainter>
#include <QPdfDocument>
#include <QRegion>
#include <QThread>
#include <QTransform>

#include <cmath>
#include <thread>

Q_LOGGING_CATEGORY(lcPreview, "quire.preview", QtWarningMsg)

namespace {

// Page images above this many pixels (1 GiB at 4 bytes a pixel) are not made: such a page is
// some 8000 points square, and a preview of it would exhaust memory instead.
constexpr qint64 MaximumPixels = qint64(1) << 28;
// QPainter's coordinates end at 32767 pixels.
constexpr qint64 MaximumSide = 32767;
// 288 pixels per inch.
constexpr int DotsPerMeter = 11339;

// x / 255 rounded, for x up to 255 * 255.
inline uint divideBy255(uint x)
{
    x += 128;
    return (x + (x >> 8)) >> 8;
}

// Rows first to end of the image laid on white (see layOnWhite).
void layRowsOnWhite(QImage &image, int first, int end)
{
    const int width = image.width();
    for (int y = first; y < end; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const QRgb p = line[x];
            const uint alpha = qAlpha(p);
            if (alpha == 255) {
                continue;
            }
            if (alpha == 0) {
                line[x] = 0xffffffff;
                continue;
            }
            // c a + 255 (1 - a) = 255 - (255 - c) a
            const uint r = 255 - divideBy255((255 - uint(qRed(p))) * alpha);
            const uint g = 255 - divideBy255((255 - uint(qGreen(p))) * alpha);
            const uint b = 255 - divideBy255((255 - uint(qBlue(p))) * alpha);
            line[x] = qRgb(int(r), int(g), int(b));
        }
    }
}

// The renderer leaves what the page does not paint transparent (its pixels are not
// premultiplied): the page is laid on white, as paper shows it. Two threads share the rows of
// a large image: alone, the pass takes some 15 ms of a letter page.
void layOnWhite(QImage &image)
{
    image.detach();
    const int height = image.height();
    if (qint64(height) * image.width() < 1000000 || QThread::idealThreadCount() < 2) {
        layRowsOnWhite(image, 0, height);
    } else {
        std::thread upper([&image, height] { layRowsOnWhite(image, 0, height / 2); });
        layRowsOnWhite(image, height / 2, height);
        upper.join();
    }
    image.reinterpretAsFormat(QImage::Format_RGB32);
}

} // namespace

QImage ImageTools::PDFPageToImageWithPdfPath(const QString &path, qint64 page)
{
    // One document a call: QtPdf serialises its renderer across threads anyway, and a document
    // shared between calls would tie them to one thread.
    QPdfDocument document;
    if (document.load(path) != QPdfDocument::Error::None) {
        qCInfo(lcPreview).noquote() << "Cannot open" << path;
        return {};
    }
    if (page < 0 || page >= document.pageCount()) {
        qCInfo(lcPreview).noquote() << "No page with index" << page << "in" << path;
        return {};
    }
    // The size of the page as shown: its crop box, turned by its rotation.
    const QSizeF points = document.pagePointSize(int(page));
    const double width = std::floor(points.width() * Scale);
    const double height = std::floor(points.height() * Scale);
    if (!(width >= 1 && height >= 1 && width <= MaximumSide && height <= MaximumSide
          && width * height <= double(MaximumPixels))) {
        qCInfo(lcPreview).noquote() << "Page" << page << "of" << path << "is" << points.width()
                                    << "x" << points.height() << "points: no image made";
        return {};
    }
    QPdfDocumentRenderOptions options;
    options.setRenderFlags(QPdfDocumentRenderOptions::RenderFlag::Annotations);
    QImage image = document.render(int(page), QSize(int(width), int(height)), options);
    if (image.isNull()) {
        qCInfo(lcPreview).noquote() << "Cannot render page" << page << "of" << path;
        return {};
    }
    if (image.format() != QImage::Format_ARGB32) {
        image = image.convertToFormat(QImage::Format_ARGB32);
    }
    layOnWhite(image);
    image.setDotsPerMeterX(DotsPerMeter);
    image.setDotsPerMeterY(DotsPerMeter);
    return image;
}

QImage ImageTools::DrawCropRectangleOnPageWithPdfPath(
    const QString &path, qint64 page, double originX, double originY, double width, double height)
{
    const auto geometry = PDFTools::GetPDFPageGeometry(path, page);
    if (!geometry) {
        return {};
    }
    return DrawCropRectangleOnPageImage(
        PDFPageToImageWithPdfPath(path, page - 1), *geometry, originX, originY, width, height);
}

QImage ImageTools::DrawCropRectangleOnPageImage(QImage image,
                                                const PageGeometry &geometry,
                                                double originX,
                                                double originY,
                                                double width,
                                                double height)
{
    if (image.isNull()) {
        return {};
    }
    // The rectangle as entered: not clamped to the page, so a part off the page is simply not
    // seen; one without area leaves the whole page dimmed.
    QRect bright;
    const QRectF rectangle(originX, originY, width, height);
    if (width > 0 && height > 0 && std::isfinite(rectangle.right())
        && std::isfinite(rectangle.bottom())) {
        const QRectF shown = transformOf(geometry.cropToUser().then(geometry.userToImage(Scale)))
                                 .mapRect(rectangle)
                                 .intersected(QRectF(image.rect()));
        bright = QRect(QPoint(qRound(shown.left()), qRound(shown.top())),
                       QPoint(qRound(shown.right()) - 1, qRound(shown.bottom()) - 1));
    }
    // Outside the rectangle the page shows through a black layer of 60 % opacity.
    QPainter painter(&image);
    const QColor dim(0, 0, 0, 153);
    for (const QRect &part : QRegion(image.rect()).subtracted(QRegion(bright))) {
        painter.fillRect(part, dim);
    }
    painter.end();
    return image;
}

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
