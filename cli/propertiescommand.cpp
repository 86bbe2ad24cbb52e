#include "batch.h"
#include "commands.h"
#include "console.h"
#include "jobs/documentjobs.h"

namespace Cli {

int propertiesCommand(const QStringList &args)
{
    QCommandLineParser parser;
    const Jobs::PropertiesSettings defaults;
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
                                       "document from templates, in place."),
                        QStringLiteral("quire properties --author \"Finance Team\" --yes *.pdf"))) {
        return ExitSuccess;
    }
    // The profile gives the templates the command line leaves out.
    Jobs::PropertiesSettings settings
        = readProfile<Jobs::PropertiesSettings>(parser).value_or(defaults);
    const auto option = [&](const char *name, QString &value) {
        const QString key = QLatin1String(name);
        if (parser.isSet(key)) {
            value = parser.value(key);
        }
    };
    option("title", settings.title);
    option("author", settings.author);
    option("subject", settings.subject);
    option("keywords", settings.keywords);
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

    Jobs::PropertiesJob job(inputs.paths, settings);
    return runBatch(job,
                    options,
                    {QStringLiteral("properties"),
                     QStringLiteral("Properties updated successfully."),
                     QStringLiteral("Could not update PDF document(s) properties.")},
                    inputs.anyRejected);
}

} // namespace Cli
