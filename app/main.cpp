// One executable: with a subcommand it runs headless, without one it opens the launcher.

#include "cli/commandline.h"

#include <cstdio>

int main(int argc, char **argv)
{
    if (Cli::wantsCommandLine(argc, argv)) {
        return Cli::run(argc, argv);
    }
    // The launcher window comes with the desktop application; until then, the usage.
    std::fputs(Cli::usage(), stdout);
    return 0;
}
