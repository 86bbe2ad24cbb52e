#include "batch.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "naming/outputnames.h"

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
                        QStringLiteral("Join the documents, in the order given, into one."))) {
        return ExitSuccess;
    }
    if (!parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("the output document is missing (-o OUTPUT)")};
    }
    const BatchOptions options = readBatchOptions(parser);
    const QString output
        = QDir::cleanPath(QFileInfo(parser.value(QStringLiteral("o"))).absoluteFilePath());
    const Inputs inputs = collectInputs(parser.positionalArguments());

    const QString success = QStringLiteral("PDF document(s) merged successfully.");
    const QString failure = QStringLiteral("Could not merge PDF documents.");
    if (OverwritePlanner(options.overwrite).decide(output) == Naming::OverwriteDecision::Skip) {
        return finishRun(!inputs.anyRejected, success, failure);
    }
    if (Naming::SelfOverwriteRefused(output, inputs.paths)) {
        printError(
            QStringLiteral("%1 is the only input: it is not merged into itself").arg(output));
        return finishRun(false, success, failure);
    }
    ProgressBar bar(QStringLiteral("merge"), inputs.paths.size(), options.quiet);
    const bool merged = PDFTools::MergePdfs(
        inputs.paths, output, [&](int mergedFiles) { bar.set(mergedFiles - 1); });
    bar.finish();
    return finishRun(merged && !inputs.anyRejected, success, failure);
}

} // namespace Cli
