#include "batch.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"

#include <QFileInfo>
#include <QSet>

#include <mutex>

namespace Cli {

int propertiesCommand(const QStringList &args)
{
    QCommandLineParser parser;
    const Profiles::PropertiesSettings defaults;
    const auto templateOption = [&](const char *name, const char *what, const QString &initial) {
        parser.addOption({QLatin1String(name),
                          QStringLiteral("The new %1 (default \"%2\"); [Original] is the "
                                         "present value, [FileName] the file name.")
                              .arg(QLatin1String(what), initial),
                          QStringLiteral("T")});
    };
    templateOption("title", "title", defaults.title);
    templateOption("author", "author", defaults.author);
    templateOption("subject", "subject", defaults.subject);
    templateOption("keywords", "keywords, separated by blanks or commas", defaults.keywords);
    parser.addOption({QStringLiteral("yes"),
                      QStringLiteral("Edit the documents without asking for confirmation.")});
    addBatchOptions(parser, true, false);
    parser.addPositionalArgument(QStringLiteral("INPUT"),
                                 QStringLiteral("PDF documents, edited where they are."));
    if (!parseArguments(parser,
                        args,
                        QStringLiteral("quire properties [--title T] [--author T] [--subject T] "
                                       "[--keywords T] [--yes] [--profile FILE] INPUT..."),
                        QStringLiteral("Rewrite the title, author, subject and keywords of each "
                                       "document from templates, in place."))) {
        return ExitSuccess;
    }
    // The profile gives the templates the command line leaves out.
    const auto settings
        = readProfile<Profiles::PropertiesSettings>(parser, Profiles::PropertiesTool)
              .value_or(defaults);
    const auto option = [&](const char *name, const QString &fallback) {
        const QString key = QLatin1String(name);
        return parser.isSet(key) ? parser.value(key) : fallback;
    };
    const QString title = option("title", settings.title);
    const QString author = option("author", settings.author);
    const QString subject = option("subject", settings.subject);
    const QString keywords = option("keywords", settings.keywords);
    const BatchOptions options = readBatchOptions(parser, false);
    const bool confirmed = parser.isSet(QStringLiteral("yes"));
    if (!confirmed && !stdinIsTerminal()) {
        printError(QStringLiteral("properties: the documents are edited in place; give --yes to "
                                  "confirm when standard input is not a terminal"));
        return ExitFailure;
    }
    const Inputs inputs = collectInputs(parser.positionalArguments());
    if (!confirmed
        && !confirmOnTerminal(QStringLiteral("You are about to modify the properties of the "
                                             "selected documents. Are you sure you want to "
                                             "continue?"))) {
        printError(QStringLiteral("properties: not confirmed, no document was changed"));
        return ExitFailure;
    }

    // A document reached by two paths (a link and its target) is edited once: a second edit
    // would take the first one's result as its [Original].
    QStringList documents;
    QSet<QString> seen;
    for (const QString &path : inputs.paths) {
        const QString file = QFileInfo(path).canonicalFilePath();
        if (file.isEmpty() || !seen.contains(file)) {
            seen.insert(file);
            documents << path;
        }
    }

    ProgressBar bar(QStringLiteral("properties"), documents.size(), options.quiet);
    std::mutex barMutex;
    bool success = !inputs.anyRejected;
    runInOrder(
        int(documents.size()),
        options.jobs,
        [&](int i) {
            const bool saved = PDFTools::ChangedDocumentsPropertiesWithPdfPath(
                documents[i], title, author, subject, keywords);
            std::lock_guard lock(barMutex);
            bar.advance();
            return saved;
        },
        [&](int, bool saved) { success = success && saved; });
    bar.finish();
    return finishRun(success,
                     QStringLiteral("Properties updated successfully."),
                     QStringLiteral("Could not update PDF document(s) properties."));
}

} // namespace Cli
