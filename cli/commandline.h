#pragma once

// The headless front end: `quire SUBCOMMAND ...` runs the engine without a window.
namespace Cli {

// True when the arguments ask for the command line rather than the launcher window.
bool wantsCommandLine(int argc, char **argv);

// Runs the command line and returns the exit status.
int run(int argc, char **argv);

// The usage text of `quire --help`.
const char *usage();

} // namespace Cli
