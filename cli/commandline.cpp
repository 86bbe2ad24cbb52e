#include "commandline.h"

#include "batch.h"
#include "commands.h"
#include "console.h"

#include <QCoreApplication>

#include <cstring>

namespace Cli {

namespace {

// The subcommands that draw nothing; the others are the extensions'.
struct OwnSubcommand
{
    const char *name;
    int (*run)(const QStringList &args);
};

const OwnSubcommand subcommands[] = {
    {"info", infoCommand},
    {"merge", mergeCommand},
    {"split", splitCommand},
    {"crop", cropCommand},
    {"properties", propertiesCommand},
};

ExtensionLoader loadExtensions = nullptr;

// The usage text of `quire --help`: the command line's own subcommands, then the extensions'.
void printUsage()
{
    std::fputs(
        "Usage:\n"
        "  quire                                   open the launcher window\n"
        "  quire info [--json] FILE...\n"
        "  quire merge -o OUTPUT INPUT...\n"
        "  quire split -d DIR (--every N | --ranges EXPR) [--name TEMPLATE] [--profile FILE]\n"
        "              INPUT...\n"
        "  quire crop -d DIR --rect X,Y,W,H [--percent] [--pages EXPR] [--name TEMPLATE]\n"
        "             [--profile FILE] INPUT...\n"
        "  quire crop --rect X,Y,W,H [--percent] --preview N -o OUT.png FILE\n"
        "  quire properties [--title T] [--author T] [--subject T] [--keywords T] [--yes]\n"
        "                   [--profile FILE] INPUT...\n",
        stdout);
    if (const Extensions *more = extensions()) {
        std::fputs(more->usage, stdout);
    }
    std::fputs("  quire --help | quire SUBCOMMAND --help | quire --version\n"
               "\n"
               "Batch options: --overwrite ask|all|none, --jobs N, --quiet.\n"
               "Exit status: 0 success, 1 the run failed, 2 usage error.\n",
               stdout);
}

} // namespace

const Extensions *extensions()
{
    static const Extensions *const loaded = loadExtensions ? loadExtensions() : nullptr;
    return loaded;
}

bool wantsCommandLine(int argc, char **)
{
    return argc > 1;
}

int run(int argc, char **argv, ExtensionLoader extensionLoader)
{
    loadExtensions = extensionLoader;
    const char *first = argv[1];
    if (std::strcmp(first, "--help") == 0 || std::strcmp(first, "-h") == 0
        || std::strcmp(first, "help") == 0) {
        printUsage();
        return ExitSuccess;
    }
    if (std::strcmp(first, "--version") == 0) {
        std::fputs("quire " QUIRE_VERSION "\n", stdout);
        return ExitSuccess;
    }
    // Headless: never a window, also where a display is available.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    for (const auto &subcommand : subcommands) {
        if (std::strcmp(subcommand.name, first) == 0) {
            QCoreApplication app(argc, argv);
            return runCommand(subcommand.name, subcommand.run);
        }
    }
    if (const Extensions *more = extensions()) {
        for (int i = 0; i < more->count; ++i) {
            if (std::strcmp(more->subcommands[i].name, first) == 0) {
                return more->subcommands[i].run(argc, argv);
            }
        }
    } else {
        // Without them the command line cannot tell an unknown name from one of theirs.
        std::fprintf(stderr, "quire: cannot run \"%s\" without the graphical module\n", first);
        return ExitFailure;
    }
    std::fprintf(stderr, "quire: unknown subcommand \"%s\" (see quire --help)\n", first);
    return ExitUsage;
}

int runCommand(const char *name, int (*command)(const QStringList &args))
{
    QCoreApplication::setApplicationName(QStringLiteral("quire"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUIRE_VERSION));
    installLogHandler();

    QStringList args = QCoreApplication::arguments().mid(1);
    args[0] = QStringLiteral("quire ") + args[0];
    try {
        return command(args);
    } catch (const UsageError &error) {
        printError(QStringLiteral("%1: %2").arg(QString::fromLatin1(name), error.reason));
        return ExitUsage;
    }
}

} // namespace Cli
