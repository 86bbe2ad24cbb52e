#include "picturefile.h"

#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QtEndian>

#include <cmath>
#include <cstring>

namespace {

// Enough of a file to find its resolution: PNG puts pHYs before the pixels, JPEG its JFIF and
// Exif segments at the start, TIFF its first directory usually near the start.
constexpr qint64 HeadBytes = 1 << 20;

// Vector pictures are rendered no larger than this on either side; the painter scales beyond.
constexpr int MaxRenderedSide = 16384;

bool plausible(double dpi)
{
    return std::isfinite(dpi) && dpi > 0 && dpi < 1e6;
}

std::optional<QSizeF> resolutionOf(double x, double y)
{
    if (!plausible(x) || !plausible(y)) {
        return std::nullopt;
    }
    return QSizeF(x, y);
}

// Bounds-checked reads of a byte array in either byte order.
class Bytes
{
public:
    Bytes(const QByteArray &data, qsizetype start = 0, bool bigEndian = true)
        : m_data(data)
        , m_start(start)
        , m_big(bigEndian)
    {}
    qsizetype size() const { return m_data.size() - m_start; }
    bool has(qsizetype at, qsizetype count) const
    {
        return at >= 0 && count >= 0 && m_start + at + count <= m_data.size();
    }
    quint8 u8(qsizetype at) const { return has(at, 1) ? quint8(m_data[m_start + at]) : 0; }
    quint16 u16(qsizetype at) const
    {
        if (!has(at, 2)) {
            return 0;
        }
        const auto *p = reinterpret_cast<const uchar *>(m_data.constData() + m_start + at);
        return m_big ? qFromBigEndian<quint16>(p) : qFromLittleEndian<quint16>(p);
    }
    quint32 u32(qsizetype at) const
    {
        if (!has(at, 4)) {
            return 0;
        }
        const auto *p = reinterpret_cast<const uchar *>(m_data.constData() + m_start + at);
        return m_big ? qFromBigEndian<quint32>(p) : qFromLittleEndian<quint32>(p);
    }
    bool startsWith(qsizetype at, const char *text, qsizetype length) const
    {
        return has(at, length) && std::memcmp(m_data.constData() + m_start + at, text, length) == 0;
    }

private:
    const QByteArray &m_data;
    qsizetype m_start;
    bool m_big;
};

// A TIFF structure (a TIFF file, or the Exif block of a JPEG) starting at start.
std::optional<QSizeF> tiffResolution(const QByteArray &data, qsizetype start)
{
    const Bytes probe(data, start);
    bool big = false;
    if (probe.startsWith(0, "MM\0*", 4)) {
        big = true;
    } else if (!probe.startsWith(0, "II*\0", 4)) {
        return std::nullopt;
    }
    const Bytes tiff(data, start, big);
    const qsizetype ifd = tiff.u32(4);
    const int entries = tiff.u16(ifd);
    double x = 0;
    double y = 0;
    int unit = 2; // inches unless the file says otherwise
    const auto rational = [&](qsizetype entry) {
        const qsizetype at = tiff.u32(entry + 8);
        const double denominator = tiff.u32(at + 4);
        return denominator > 0 ? tiff.u32(at) / denominator : 0.0;
    };
    for (int i = 0; i < entries; ++i) {
        const qsizetype entry = ifd + 2 + qsizetype(i) * 12;
        if (!tiff.has(entry, 12)) {
            break;
        }
        const quint16 tag = tiff.u16(entry);
        const quint16 type = tiff.u16(entry + 2);
        if (tag == 282 && type == 5) {
            x = rational(entry);
        } else if (tag == 283 && type == 5) {
            y = rational(entry);
        } else if (tag == 296 && type == 3) {
            unit = tiff.u16(entry + 8);
        }
    }
    if (unit == 3) {
        return resolutionOf(x * 2.54, y * 2.54);
    }
    if (unit != 2) {
        return std::nullopt; // an aspect ratio, not a resolution
    }
    return resolutionOf(x, y);
}

std::optional<QSizeF> pngResolution(const QByteArray &data)
{
    const Bytes png(data);
    for (qsizetype at = 8; png.has(at, 8);) {
        const qsizetype length = png.u32(at);
        if (png.startsWith(at + 4, "pHYs", 4)) {
            if (png.u8(at + 16) != 1) {
                return std::nullopt; // unit unknown: an aspect ratio only
            }
            return resolutionOf(png.u32(at + 8) * 0.0254, png.u32(at + 12) * 0.0254);
        }
        if (png.startsWith(at + 4, "IDAT", 4)) {
            break;
        }
        at += 12 + length;
    }
    return std::nullopt;
}

std::optional<QSizeF> jpegResolution(const QByteArray &data)
{
    const Bytes jpeg(data);
    std::optional<QSizeF> exif;
    for (qsizetype at = 2; jpeg.has(at, 4) && jpeg.u8(at) == 0xFF;) {
        const quint8 marker = jpeg.u8(at + 1);
        if (marker == 0xDA || marker == 0xD9) {
            break; // the image data begins
        }
        const qsizetype length = jpeg.u16(at + 2);
        const qsizetype body = at + 4;
        if (marker == 0xE0 && jpeg.startsWith(body, "JFIF\0", 5)) {
            const int units = jpeg.u8(body + 7);
            const double x = jpeg.u16(body + 8);
            const double y = jpeg.u16(body + 10);
            if (units == 1) {
                return resolutionOf(x, y);
            }
            if (units == 2) {
                return resolutionOf(x * 2.54, y * 2.54);
            }
        } else if (marker == 0xE1 && jpeg.startsWith(body, "Exif\0\0", 6) && !exif) {
            exif = tiffResolution(data, body + 6);
        }
        at += 2 + length;
    }
    return exif;
}

std::optional<QSizeF> bmpResolution(const QByteArray &data)
{
    const Bytes bmp(data, 0, false);
    if (bmp.u32(14) < 40) {
        return std::nullopt; // the oldest header has no resolution
    }
    const qint32 x = qint32(bmp.u32(38));
    const qint32 y = qint32(bmp.u32(42));
    if (x <= 0 || y <= 0) {
        return std::nullopt;
    }
    return resolutionOf(x * 0.0254, y * 0.0254);
}

} // namespace

std::optional<QSizeF> PictureFile::declaredResolution(const QByteArray &head)
{
    if (head.startsWith("\x89PNG\r\n\x1a\n")) {
        return pngResolution(head);
    }
    if (head.startsWith("\xFF\xD8")) {
        return jpegResolution(head);
    }
    if (head.startsWith("BM")) {
        return bmpResolution(head);
    }
    if (head.startsWith("II*") || head.startsWith("MM")) {
        return tiffResolution(head, 0);
    }
    return std::nullopt;
}

void PictureFile::chooseFormat(QImageReader &reader, const QByteArray &head)
{
    const auto format = [&head]() -> QByteArray {
        if (head.startsWith("\x89PNG\r\n\x1a\n")) {
            return "png";
        }
        if (head.startsWith("\xff\xd8\xff")) {
            return "jpeg";
        }
        if (head.startsWith("GIF87a") || head.startsWith("GIF89a")) {
            return "gif";
        }
        if (head.startsWith("BM")) {
            return "bmp";
        }
        if (head.startsWith("RIFF") && head.mid(8, 4) == "WEBP") {
            return "webp";
        }
        if (head.startsWith(QByteArrayView("II*\0", 4))
            || head.startsWith(QByteArrayView("MM\0*", 4))) {
            return "tiff";
        }
        return {};
    }();
    if (!format.isEmpty()) {
        reader.setFormat(format);
        reader.setAutoDetectImageFormat(false);
    }
}

bool PictureFile::canRead(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray head = file.read(64);
    file.close();
    QImageReader reader(path);
    chooseFormat(reader, head);
    return reader.canRead();
}

PictureFile PictureFile::load(const QString &path, double scale, double pixelsPerPoint)
{
    PictureFile picture;
    if (path.isEmpty() || !QFileInfo(path).isFile()) {
        return picture;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return picture;
    }
    const QByteArray head = file.read(HeadBytes);
    file.close();

    QImageReader reader(path);
    chooseFormat(reader, head);
    reader.setAutoTransform(true);
    const QByteArray format = reader.format();
    const double factor = scale * pixelsPerPoint;
    const bool vector = format == "svg" || format == "svgz";
    if (vector) {
        // A vector picture measures its size in points already; it is rendered at the size it
        // will be drawn, so it stays sharp.
        const QSize natural = reader.size();
        if (natural.isEmpty()) {
            return picture;
        }
        picture.m_naturalSize = QSizeF(natural);
        const QSizeF drawn = picture.m_naturalSize * factor;
        if (drawn.width() >= 1 && drawn.height() >= 1) {
            reader.setScaledSize(QSizeF(std::min<double>(drawn.width(), MaxRenderedSide),
                                        std::min<double>(drawn.height(), MaxRenderedSide))
                                     .toSize());
        }
    }
    QImage image = reader.read();
    if (image.isNull()) {
        return picture;
    }
    if (!vector) {
        QSizeF dpi = declaredResolution(head).value_or(QSizeF(72, 72));
        if (reader.transformation() & QImageIOHandler::TransformationRotate90) {
            dpi.transpose();
        }
        picture.m_naturalSize
            = QSizeF(image.width() * 72.0 / dpi.width(), image.height() * 72.0 / dpi.height());
    }
    picture.m_drawnSize = picture.m_naturalSize * factor;
    if (!std::isfinite(picture.m_drawnSize.width()) || !std::isfinite(picture.m_drawnSize.height())
        || picture.m_drawnSize.width() <= 0 || picture.m_drawnSize.height() <= 0) {
        picture.m_drawnSize = QSizeF(0, 0);
    } else if (image.width() > 1.5 * picture.m_drawnSize.width()
               || image.height() > 1.5 * picture.m_drawnSize.height()) {
        // A much smaller drawing of a large bitmap: averaged here, or bilinear drawing would
        // skip most of its pixels and shimmer.
        const QSize reduced(std::max(1, int(std::ceil(picture.m_drawnSize.width()))),
                            std::max(1, int(std::ceil(picture.m_drawnSize.height()))));
        image = image.scaled(
            reduced.boundedTo(image.size()), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    picture.m_image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    return picture;
}
