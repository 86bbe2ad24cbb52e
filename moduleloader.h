#pragma once

#include "cli/extensions.h"

// The modules, each loaded on first use, from beside the executable in a build tree or from the
// private library folder once installed, so that the headless runs that draw nothing start with
// Qt Core alone:
// - the graphical module (quire-gui.so): the launcher with its windows, and the subcommands
//   that make page images (render, the previews), with Qt Widgets and QtPdf;
// - the drawing module (quire-draw.so): the watermark's runs, with Qt Gui alone, which loads in
//   less than half the time.
namespace ModuleLoader {

// Opens the launcher and returns the application's exit status; 1 when the graphical module
// cannot be loaded (the reason is on stderr).
int launcher(int argc, char **argv);

// What gives the command line's additions for these arguments: the drawing module's for a
// watermark, the graphical module's otherwise. The additions are null, with the reason on
// stderr, when the module cannot be loaded.
Cli::ExtensionLoader commandLineExtensions(int argc, char **argv);

} // namespace ModuleLoader
