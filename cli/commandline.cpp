#include "commandline.h"

#include "batch.h"
#include "commands.h"
#include "console.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

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
    std::fputs("Usage:\n"
               "  quire                                   open the launcher window\n"
               "  quire [--] PDF...                       the launcher with these documents\n"
               "  quire info [--json] FILE...\n"
               "  quire merge -o OUTPUT [--bookmarks keep|per-document|nest|none] INPUT...\n"
               "  quire split -d DIR (--every N | --ranges EXPR | --at-bookmarks LEVEL)\n"
               "              [--name TEMPLATE] [--profile FILE] INPUT...\n"
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
               "Quire works on PDF files in batches. Without arguments it opens the launcher\n"
               "window; with PDF files, the launcher with those documents ready for the next\n"
               "tool opened (a file named like a subcommand goes after --). With a subcommand\n"
               "it runs headless, without a window; SUBCOMMAND --help says more.\n"
               "\n"
               "Batch options: --overwrite ask|all|none, --jobs N, --quiet.\n"
               "Exit status: 0 success, 1 the run failed, 2 usage error.\n"
               "\n"
               "Examples:\n"
               "  quire report.pdf scan.pdf\n"
               "  quire merge -o all.pdf a.pdf b.pdf c.pdf\n",
               stdout);
}

} // namespace

const Extensions *extensions()
{
    static const Extensions *const loaded = loadExtensions ? loadExtensions() : nullptr;
    return loaded;
}

bool wantsCommandLine(int argc, char **argv, ExtensionLoader extensionLoader)
{
    if (argc < 2) {
        return false;
    }
    loadExtensions = extensionLoader;
    const char *first = argv[1];
    if (std::strcmp(first, "--") == 0) {
        return false;
    }
    if (first[0] == '-') {
        return true;
    }
    for (const auto &subcommand : subcommands) {
        if (std::strcmp(subcommand.name, first) == 0) {
            return true;
        }
    }
    // The launcher loads the extensions as well: asking them costs a document nothing.
    if (const Extensions *more = extensions()) {
        for (int i = 0; i < more->count; ++i) {
            if (std::strcmp(more->subcommands[i].name, first) == 0) {
                return true;
            }
        }
    }
    const QString word = QFile::decodeName(first);
    const bool document = QFileInfo::exists(word) || word.contains(QLatin1Char('/'))
                          || word.endsWith(QLatin1String(".pdf"), Qt::CaseInsensitive);
    return !document;
}

QStringList launcherDocuments(int argc, char **argv)
{
    QStringList documents;
    for (int i = 1; i < argc; ++i) {
        if (i == 1 && std::strcmp(argv[i], "--") == 0) {
            continue;
        }
        QString path = QFile::decodeName(argv[i]);
        if (path.startsWith(QLatin1String("file:"))) {
            const QUrl url(path);
            if (url.isLocalFile()) {
                path = url.toLocalFile();
            }
        }
        path = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
        if (!documents.contains(path)) {
            documents << path;
        }
    }
    return documents;
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
        std::fprintf(stderr, "quire: cannot run \"%s\" without the module that holds it\n", first);
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
