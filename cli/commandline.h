#pragma once

#include "extensions.h"

// The headless front end: `quire SUBCOMMAND ...` runs the engine without a window.
namespace Cli {

// True when the arguments ask for the command line rather than the launcher window.
bool wantsCommandLine(int argc, char **argv);

// Runs the command line and returns the exit status. A subcommand that is not the command
// line's own is looked for among the extensions.
int run(int argc, char **argv, ExtensionLoader extensions);

// The extensions, for the subcommands that hand work to them (crop --preview); null when they
// cannot be had.
const Extensions *extensions();

} // namespace Cli
