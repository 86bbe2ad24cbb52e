#pragma once

#include "cli/extensions.h"

// The graphical module (quire-gui.so): the launcher with its windows, and the subcommands that
// draw. It is loaded on first use, from beside the executable in a build tree or from the
// private library folder once installed, so that the headless runs that draw nothing start with
// Qt Core alone.
namespace ModuleLoader {

// Opens the launcher and returns the application's exit status; 1 when the module cannot be
// loaded (the reason is on stderr).
int launcher(int argc, char **argv);

// The module's additions to the command line; null, with the reason on stderr, when the module
// cannot be loaded.
const Cli::Extensions *commandLineExtensions();

} // namespace ModuleLoader
