#include "batch.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "jobs/mergejob.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace Cli {

int mergeCommand(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
                      QStringLiteral("The merged document."),
                      QStringLiteral("OUTPUT")});
    parser.addOption({QStringLiteral("bookmarks"),
                      QStringLiteral("The bookmarks of the merged document: every input's "
                                     "(keep, the default), one per input (per-document), one per "
                                     "input with the input's own under it (nest), or none."),
                      QStringLiteral("keep|per-document|nest|none"),
                      QStringLiteral("keep")});
    addBatchOptions(parser, false);
    parser.addPositionalArgument(QStringLiteral("INPUT"),
                                 QStringLiteral("PDF documents, in merge order."));
    if (!parseArguments(parser,
                        args,
                        QStringLiteral("quire merge -o OUTPUT "
                                       "[--bookmarks keep|per-document|nest|none] INPUT..."),
                        QStringLiteral("Join the documents, in the order given, into one."),
                        QStringLiteral("quire merge -o book.pdf cover.pdf chapter*.pdf\n"
                                       "quire merge --bookmarks nest -o all.pdf a.pdf b.pdf"))) {
        return ExitSuccess;
    }
    if (!parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("the output document is missing (-o OUTPUT)")};
    }
    using Policy = PDFTools::BookmarkPolicy;
    const QString policy = parser.value(QStringLiteral("bookmarks"));
    const QList<std::pair<QString, Policy>> policies{
        {QStringLiteral("keep"), Policy::Keep},
        {QStringLiteral("per-document"), Policy::PerDocument},
        {QStringLiteral("nest"), Policy::Nest},
        {QStringLiteral("none"), Policy::None}};
    const auto chosen = std::find_if(
        policies.begin(), policies.end(), [&](const auto &p) { return p.first == policy; });
    if (chosen == policies.end()) {
        throw UsageError{
            QStringLiteral("--bookmarks takes keep, per-document, nest or none, not \"%1\"")
                .arg(policy)};
    }
    const BatchOptions options = readBatchOptions(parser);
    const QString output
        = QDir::cleanPath(QFileInfo(parser.value(QStringLiteral("o"))).absoluteFilePath());
    const Inputs inputs = collectInputs(parser.positionalArguments());

    Jobs::MergeJob job(inputs.paths, output, chosen->second);
    // The process ends with the merge: its end frees the documents faster than the merge could.
    PDFTools::KeepDocumentsUntilExit(true);
    return runBatch(job,
                    options,
                    {QStringLiteral("merge"),
                     QStringLiteral("PDF document(s) merged successfully."),
                     QStringLiteral("Could not merge PDF documents.")},
                    inputs.anyRejected);
}

} // namespace Cli
