#pragma once

#include "extensions.h"

#include <QStringList>

// The headless front end: `quire SUBCOMMAND ...` runs the engine without a window.
namespace Cli {

// True when the arguments ask for the command line rather than the launcher window: an option,
// a subcommand's name (the extensions' names are looked up only when the first argument is none
// of the command line's own), or a word that names no file and does not look like a path (an
// unknown subcommand, said as such). The launcher is for no arguments, "--" first, or a
// document first.
bool wantsCommandLine(int argc, char **argv, ExtensionLoader extensions);

// The documents the launcher is started with: every argument (after a leading "--"), as an
// absolute path, each once, in the order given; file URLs become their paths.
QStringList launcherDocuments(int argc, char **argv);

// Runs the command line and returns the exit status. A subcommand that is not the command
// line's own is looked for among the extensions.
int run(int argc, char **argv, ExtensionLoader extensions);

// The extensions, for the subcommands that hand work to them (crop --preview); null when they
// cannot be had.
const Extensions *extensions();

} // namespace Cli
