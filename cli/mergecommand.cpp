#include "batch.h"
#include "commands.h"
#include "console.h"
#include "jobs/mergejob.h"

#include <QDir>
#include <QFileInfo>

namespace Cli {

int mergeCommand(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
                      QStringLiteral("The merged document."),
                      QStringLiteral("OUTPUT")});
    addBatchOptions(parser, false);
    parser.addPositionalArgument(QStringLiteral("INPUT"),
                                 QStringLiteral("PDF documents, in merge order."));
    if (!parseArguments(parser,
                        args,
                        QStringLiteral("quire merge -o OUTPUT INPUT..."),
                        QStringLiteral("Join the documents, in the order given, into one."),
                        QStringLiteral("quire merge -o book.pdf cover.pdf chapter*.pdf"))) {
        return ExitSuccess;
    }
    if (!parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("the output document is missing (-o OUTPUT)")};
    }
    const BatchOptions options = readBatchOptions(parser);
    const QString output
        = QDir::cleanPath(QFileInfo(parser.value(QStringLiteral("o"))).absoluteFilePath());
    const Inputs inputs = collectInputs(parser.positionalArguments());

    Jobs::MergeJob job(inputs.paths, output);
    return runBatch(job,
                    options,
                    {QStringLiteral("merge"),
                     QStringLiteral("PDF document(s) merged successfully."),
                     QStringLiteral("Could not merge PDF documents.")},
                    inputs.anyRejected);
}

} // namespace Cli
