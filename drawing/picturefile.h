#pragma once

#include <QImage>
#include <QImageReader>
#include <QSizeF>
#include <QString>

#include <optional>

// The picture of the picture watermark: its pixels and its natural size in points.
class PictureFile
{
public:
    // Reads the file with Qt's image readers (PNG, JPEG, GIF, BMP, WebP, SVG, TIFF, ...), turned
    // upright as its orientation tag asks. A missing or unreadable file gives a null picture.
    // pixelsPerPoint is the scale the picture will be drawn at: a vector picture is rendered
    // for it, and a large bitmap is reduced to it with area averaging, so that drawing needs no
    // more than a small bilinear step.
    static PictureFile load(const QString &path, double scale, double pixelsPerPoint);
    // Whether load would find a picture in the file.
    static bool canRead(const QString &path);

    bool isNull() const { return m_image.isNull(); }
    // The pixels, premultiplied ARGB; not necessarily of drawnSize.
    const QImage &image() const { return m_image; }
    // Size in points: pixels x 72 / the resolution the file declares, 72 per inch when it
    // declares none.
    QSizeF naturalSize() const { return m_naturalSize; }
    // Size on the canvas: natural size x scale x pixels per point.
    QSizeF drawnSize() const { return m_drawnSize; }

    // Pixels per inch that a file declares in its header (PNG pHYs, JPEG JFIF or Exif, BMP,
    // TIFF); nothing when it declares none.
    static std::optional<QSizeF> declaredResolution(const QByteArray &head);

private:
    // Sends the reader straight to the handler of the format that the file's first bytes name
    // (PNG, JPEG, GIF, BMP, WebP, TIFF), rather than letting Qt load every image plugin to ask;
    // anything else is recognised as Qt recognises it.
    static void chooseFormat(QImageReader &reader, const QByteArray &head);

    QImage m_image;
    QSizeF m_naturalSize;
    QSizeF m_drawnSize;
};
