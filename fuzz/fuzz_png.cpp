// The PNG writer, pictures of odd sizes and formats: what it writes decodes to the same pixels.

#include "drawing/pngfile.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 4) {
        return 0;
    }
    const int width = 1 + data[0] % 97;
    const int height = 1 + data[1] % 61;
    static const QImage::Format formats[] = {QImage::Format_RGB32,
                                             QImage::Format_ARGB32,
                                             QImage::Format_ARGB32_Premultiplied,
                                             QImage::Format_RGB888,
                                             QImage::Format_Grayscale8,
                                             QImage::Format_Indexed8,
                                             QImage::Format_Mono};
    const QImage::Format format = formats[data[2] % std::size(formats)];
    QImage image(width, height, QImage::Format_ARGB32);
    size_t at = 3;
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            QRgb pixel = 0;
            for (int k = 0; k < 4; ++k) {
                pixel = (pixel << 8) | data[at++ % size];
            }
            line[x] = pixel;
        }
    }
    image = image.convertToFormat(format);
    const QByteArray png = Png::encode(image);
    QImage decoded;
    if (png.isEmpty() || !decoded.loadFromData(png, "PNG")) {
        std::abort();
    }
    if (decoded.size() != image.size()) {
        std::abort();
    }
    const bool opaque = !image.hasAlphaChannel();
    const QImage a = image.convertToFormat(QImage::Format_ARGB32);
    const QImage b = decoded.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            // Colour under full transparency has no meaning to keep.
            if (qAlpha(p) != qAlpha(q) || (qAlpha(p) != 0 && (p & 0xffffff) != (q & 0xffffff))) {
                if (!(opaque && (p & 0xffffff) == (q & 0xffffff))) {
                    std::abort();
                }
            }
        }
    }
    return 0;
}
