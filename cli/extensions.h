#pragma once

#include <QtGlobal>

class QRectF;
class QString;

// What another part of the program adds to the command line: the subcommands that draw (render,
// watermark, the previews) live in the graphical module, which the executable loads only when
// one of them is asked for, so that the other subcommands start with Qt Core alone.
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
    // Lines of `quire --help` for the subcommands above.
    const char *usage;
    // crop --preview: the crop rectangle (points, crop coordinates) drawn on the page, written
    // as PNG; the exit status.
    int (*cropPreview)(const QString &path, qint64 page, const QRectF &rect, const QString &output);
};

// Gives the extensions, loading them on first use; null, with the reason on stderr, when they
// cannot be had.
using ExtensionLoader = const Extensions *(*)();

} // namespace Cli
