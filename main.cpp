// One executable: with a subcommand it runs headless, without one (or with documents) it opens
// the launcher. The windows and the subcommands that draw live in the graphical module, loaded
// only for them.

#include "cli/commandline.h"
#include "moduleloader.h"

int main(int argc, char **argv)
{
    if (Cli::wantsCommandLine(argc, argv, ModuleLoader::commandLineExtensions)) {
        return Cli::run(argc, argv, ModuleLoader::commandLineExtensions);
    }
    return ModuleLoader::launcher(argc, argv);
}
