#pragma once

#include <QtGlobal>

class QRectF;
class QString;

// What only the graphical half of Quire does: the windows, page images and watermarks. It is a
// module of its own, loaded when a run needs it, so that the headless runs that draw nothing
// start with Qt Core alone.
struct GuiModule
{
    // Opens the launcher and returns when the application quits.
    int (*launcher)(int argc, char **argv);
    // Runs a subcommand that draws (see Cli::isDrawingCommand) and returns its exit status.
    int (*command)(const char *name, int argc, char **argv);
    // crop --preview: the crop rectangle drawn on the page, written as PNG.
    int (*cropPreview)(const QString &path, qint64 page, const QRectF &rect, const QString &output);
};

// The module's one entry point.
extern "C" const GuiModule *quire_gui_module();

namespace Cli {

// True for the subcommands the module runs.
bool isDrawingCommand(const char *name);

// The module, loaded on first use: beside the executable in a build tree, in the private
// library folder once installed. Null, with the reason on stderr, when it cannot be loaded.
const GuiModule *guiModule();

} // namespace Cli
