#pragma once

#include <QImage>
#include <QRectF>
#include <QStringList>

// The subcommands that draw, built into the graphical module with the windows.
namespace Cli {

int renderCommand(const QStringList &args);
int watermarkCommand(const QStringList &args);
// crop --preview: the crop rectangle (points, crop coordinates) drawn on the page, as PNG.
int writeCropPreview(const QString &path, qint64 page, const QRectF &rect, const QString &output);

// Writes the image as PNG (through a temporary file); the reason on stderr when it cannot.
bool writeImage(const QImage &image, const QString &output);

} // namespace Cli
