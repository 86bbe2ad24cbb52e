#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

// PNG files of page images, written for speed: a page image at 4 pixels per point holds some
// 8 million pixels, and the general-purpose encoder spends most of a render's time on them.
// Rows are filtered with the "up" filter, deflated at zlib's fastest level in horizontal bands
// on several threads, and joined into one valid zlib stream.
namespace Png {

// The image as PNG bytes: 8-bit RGB when it is opaque, RGBA otherwise; its resolution, when
// set, goes into the file. Empty for a null image.
QByteArray encode(const QImage &image);

// Writes the image to a temporary file beside path and renames it over path when complete;
// false, with path untouched and the reason in error, when it cannot be written.
bool save(const QImage &image, const QString &path, QString *error = nullptr);

} // namespace Png
