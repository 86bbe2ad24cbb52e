#pragma once

#include <QtGlobal>

class QRectF;
class QString;

namespace Jobs {
struct WatermarkSettings;
}

// What the modules add to the command line. The subcommands that draw live in modules the
// executable loads only when one of them is asked for, so that the others start with Qt Core
// alone: the watermark's runs in the drawing module (Qt Gui), the page images (render, the
// previews) in the graphical module with the windows (Qt Widgets and QtPdf as well).
namespace Cli {

struct Subcommand
{
    const char *name;
    // Runs the subcommand with the program's arguments (argv[1] is its name), under an
    // application object of its own making; returns the exit status.
    int (*run)(int argc, char **argv);
};

struct Extensions
{
    const Subcommand *subcommands;
    int count;
    // Lines of `quire --help` for the subcommands of the modules (the graphical module's has
    // every module's).
    const char *usage;
    // crop --preview: the crop rectangle (points, crop coordinates) drawn on the page, written
    // as PNG; the exit status.
    int (*cropPreview)(const QString &path, qint64 page, const QRectF &rect, const QString &output);
    // watermark --preview: the page with the watermark of the settings, written as PNG; the exit
    // status.
    int (*watermarkPreview)(const QString &path,
                            qint64 page,
                            const Jobs::WatermarkSettings &settings,
                            const QString &output);
};

// Gives the extensions, loading them on first use; null, with the reason on stderr, when they
// cannot be had.
using ExtensionLoader = const Extensions *(*)();

} // namespace Cli
