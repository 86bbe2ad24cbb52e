#pragma once

#include <QImage>
#include <QRectF>
#include <QStringList>

namespace Jobs {
struct WatermarkSettings;
}

// The subcommands that make page images, built into the graphical module with the windows.
namespace Cli {

int renderCommand(const QStringList &args);
// crop --preview: the crop rectangle (points, crop coordinates) drawn on the page, as PNG.
int writeCropPreview(const QString &path, qint64 page, const QRectF &rect, const QString &output);
// watermark --preview: the page with the watermark, as the Watermark window previews it, as PNG.
int writeWatermarkPreview(const QString &path,
                          qint64 page,
                          const Jobs::WatermarkSettings &settings,
                          const QString &output);

// Writes the image as PNG (through a temporary file); the reason on stderr when it cannot.
bool writeImage(const QImage &image, const QString &output);

} // namespace Cli
