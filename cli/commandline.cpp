#include "commandline.h"

#include "batch.h"
#include "commands.h"
#include "console.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <cstring>
#include <memory>

namespace Cli {

namespace {

struct Subcommand
{
    const char *name;
    int (*run)(const QStringList &args);
    bool needsFonts; // text is drawn: a QGuiApplication (offscreen) rather than a core one
};

const Subcommand subcommands[] = {
    {"info", infoCommand, false},
    {"merge", mergeCommand, false},
    {"split", splitCommand, false},
    {"crop", cropCommand, false},
    {"render", renderCommand, false},
    {"properties", propertiesCommand, false},
    {"watermark", watermarkCommand, true},
};

const Subcommand *findSubcommand(const char *name)
{
    for (const auto &subcommand : subcommands) {
        if (std::strcmp(subcommand.name, name) == 0) {
            return &subcommand;
        }
    }
    return nullptr;
}

} // namespace

const char *usage()
{
    return "Usage:\n"
           "  quire                                   open the launcher window\n"
           "  quire info [--json] FILE...\n"
           "  quire merge -o OUTPUT INPUT...\n"
           "  quire split -d DIR (--every N | --ranges EXPR) [--name TEMPLATE] [--profile FILE]\n"
           "              INPUT...\n"
           "  quire crop -d DIR --rect X,Y,W,H [--percent] [--pages EXPR] [--name TEMPLATE] "
           "INPUT...\n"
           "  quire crop --rect X,Y,W,H [--percent] --preview N -o OUT.png FILE\n"
           "  quire render FILE [--page N] -o OUT.png   the page as the preview shows it\n"
           "  quire properties [--title T] [--author T] [--subject T] [--keywords T] [--yes]\n"
           "                   [--profile FILE] INPUT...\n"
           "  quire watermark -d DIR [text options] [image options] [--pages EXPR]\n"
           "                  [--name TEMPLATE] [--profile FILE] INPUT...\n"
           "  quire watermark [text and image options] --preview N -o OUT.png FILE\n"
           "  quire --help | quire SUBCOMMAND --help | quire --version\n"
           "\n"
           "Batch options: --overwrite ask|all|none, --jobs N, --quiet.\n"
           "Exit status: 0 success, 1 the run failed, 2 usage error.\n";
}

bool wantsCommandLine(int argc, char **)
{
    return argc > 1;
}

int run(int argc, char **argv)
{
    const char *first = argv[1];
    if (std::strcmp(first, "--help") == 0 || std::strcmp(first, "-h") == 0
        || std::strcmp(first, "help") == 0) {
        std::fputs(usage(), stdout);
        return ExitSuccess;
    }
    if (std::strcmp(first, "--version") == 0) {
        std::fputs("quire " QUIRE_VERSION "\n", stdout);
        return ExitSuccess;
    }
    const Subcommand *subcommand = findSubcommand(first);
    if (!subcommand) {
        std::fprintf(stderr, "quire: unknown subcommand \"%s\" (see quire --help)\n", first);
        return ExitUsage;
    }

    // Headless: never a window, also where a display is available.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    std::unique_ptr<QCoreApplication> app;
    if (subcommand->needsFonts) {
        // Starting its platform plugin, Qt warns on stderr when XDG_RUNTIME_DIR is unset (cron
        // jobs, containers); a headless run has no use for that folder.
        static QtMessageHandler previous = nullptr;
        previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext &context, const QString &message) {
                if (!message.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR"))) {
                    previous(type, context, message);
                }
            });
        app = std::make_unique<QGuiApplication>(argc, argv);
        qInstallMessageHandler(previous);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("quire"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUIRE_VERSION));
    installLogHandler();

    QStringList args = QCoreApplication::arguments().mid(1);
    args[0] = QStringLiteral("quire ") + args[0];
    try {
        return subcommand->run(args);
    } catch (const UsageError &error) {
        printError(
            QStringLiteral("%1: %2").arg(QString::fromLatin1(subcommand->name), error.reason));
        return ExitUsage;
    }
}

} // namespace Cli
