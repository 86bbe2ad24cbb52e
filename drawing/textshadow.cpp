// The text watermark's drop shadow: the text's own alpha, blurred, in black, drawn under it.

#include "textshadow.h"

#include <cmath>
#include <vector>

namespace WatermarkDrawing {

// Gaussian blur of an 8-bit alpha image, in two separable passes. radius is the kernel's reach
// in pixels; pixels beyond the image count as transparent.
void blurAlpha(QImage &alpha, double sigma, int radius)
{
    if (radius < 1 || sigma <= 0) {
        return;
    }
    std::vector<quint32> weights(size_t(radius) + 1);
    double total = 0;
    std::vector<double> exact(weights.size());
    for (int i = 0; i <= radius; ++i) {
        exact[size_t(i)] = std::exp(-double(i) * i / (2 * sigma * sigma));
        total += i == 0 ? exact[0] : 2 * exact[size_t(i)];
    }
    for (int i = 0; i <= radius; ++i) {
        weights[size_t(i)] = quint32(std::lround(exact[size_t(i)] / total * 65536));
    }
    const int width = alpha.width();
    const int height = alpha.height();
    std::vector<quint8> line(size_t(std::max(width, height)));
    const auto pass = [&](int count, int length, auto &&at) {
        for (int k = 0; k < count; ++k) {
            for (int i = 0; i < length; ++i) {
                line[size_t(i)] = at(k, i);
            }
            for (int i = 0; i < length; ++i) {
                quint32 sum = weights[0] * line[size_t(i)];
                for (int d = 1; d <= radius; ++d) {
                    const quint32 before = i - d >= 0 ? line[size_t(i - d)] : 0;
                    const quint32 after = i + d < length ? line[size_t(i + d)] : 0;
                    sum += weights[size_t(d)] * (before + after);
                }
                at(k, i) = quint8(std::min<quint32>(255, (sum + 32768) >> 16));
            }
        }
    };
    pass(height, width, [&](int y, int x) -> uchar & { return alpha.scanLine(y)[x]; });
    pass(width, height, [&](int x, int y) -> uchar & { return alpha.scanLine(y)[x]; });
}

// The shadow of a layer: its alpha, blurred, in black, on an image margin pixels larger on
// every side.
QImage shadowOf(const QImage &layer, double sigma, int margin)
{
    QImage alpha(layer.width() + 2 * margin, layer.height() + 2 * margin, QImage::Format_Alpha8);
    alpha.fill(0);
    for (int y = 0; y < layer.height(); ++y) {
        const auto *from = reinterpret_cast<const QRgb *>(layer.constScanLine(y));
        uchar *to = alpha.scanLine(y + margin) + margin;
        for (int x = 0; x < layer.width(); ++x) {
            to[x] = uchar(qAlpha(from[x]));
        }
    }
    blurAlpha(alpha, sigma, margin);
    QImage shadow(alpha.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < alpha.height(); ++y) {
        const uchar *from = alpha.constScanLine(y);
        auto *to = reinterpret_cast<QRgb *>(shadow.scanLine(y));
        for (int x = 0; x < alpha.width(); ++x) {
            to[x] = QRgb(from[x]) << 24; // premultiplied black
        }
    }
    return shadow;
}

} // namespace WatermarkDrawing
