// One executable: with a subcommand it runs headless, without one it opens the launcher. The
// windows live in the graphical module, loaded only then.

#include "cli/commandline.h"
#include "cli/guimodule.h"

int main(int argc, char **argv)
{
    if (Cli::wantsCommandLine(argc, argv)) {
        return Cli::run(argc, argv);
    }
    const GuiModule *module = Cli::guiModule();
    return module ? module->launcher(argc, argv) : 1;
}
