// One executable: with a subcommand it runs headless, without one (or with documents) it opens
// the launcher. The windows and the subcommands that draw live in modules, loaded only for them.

#include "cli/commandline.h"
#include "moduleloader.h"

int main(int argc, char **argv)
{
    const Cli::ExtensionLoader extensions = ModuleLoader::commandLineExtensions(argc, argv);
    if (Cli::wantsCommandLine(argc, argv, extensions)) {
        return Cli::run(argc, argv, extensions);
    }
    return ModuleLoader::launcher(argc, argv);
}
