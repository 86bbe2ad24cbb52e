#pragma once

#include <QImage>

// The text watermark's drop shadow.
namespace WatermarkDrawing {

// Gaussian blur of an 8-bit alpha image, in two separable passes. radius is the kernel's reach
// in pixels; pixels beyond the image count as transparent.
void blurAlpha(QImage &alpha, double sigma, int radius);

// The shadow of a layer (premultiplied ARGB): its alpha, blurred, in black, on an image margin
// pixels larger on every side.
QImage shadowOf(const QImage &layer, double sigma, int margin);

} // namespace WatermarkDrawing
