#include "batch.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QThread>

#include <vector>

namespace Cli {

int infoCommand(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("json"), QStringLiteral("One JSON array, an object a file.")});
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("PDF documents."));
    if (!parseArguments(parser,
                        args,
                        QStringLiteral("quire info [--json] FILE..."),
                        QStringLiteral("Page count, page size, file size, encryption, title, "
                                       "author, subject and keywords of each file."),
                        QStringLiteral("quire info --json report.pdf scans/*.pdf"))) {
        return ExitSuccess;
    }
    const Inputs inputs = collectInputs(parser.positionalArguments(), false);
    const bool json = parser.isSet(QStringLiteral("json"));

    std::vector<PDFTools::DocumentSummary> summaries(size_t(inputs.paths.size()));
    QJsonArray array;
    bool allOpened = true;
    bool anyOpened = false;
    bool first = true;
    runInOrder(
        int(inputs.paths.size()),
        QThread::idealThreadCount(),
        [&](int i) {
            summaries[size_t(i)] = PDFTools::SummarizeDocument(inputs.paths[i]);
            const auto status = summaries[size_t(i)].status;
            return status == PDFTools::LoadStatus::Loadable
                   || status == PDFTools::LoadStatus::Encrypted;
        },
        [&](int i, bool opened) {
            const QString &path = inputs.paths[i];
            const auto &s = summaries[size_t(i)];
            if (!opened) {
                printError(QStringLiteral("%1: %2").arg(path, PDFTools::LoadStatusText(s.status)));
                allOpened = false;
                return;
            }
            anyOpened = true;
            if (json) {
                array.append(QJsonObject{
                    {QStringLiteral("path"), path},
                    {QStringLiteral("pages"), s.pages},
                    {QStringLiteral("pageSize"), s.pageSize},
                    {QStringLiteral("fileSize"), s.fileSize},
                    {QStringLiteral("bytes"), qint64(s.bytes)},
                    {QStringLiteral("encrypted"), s.encrypted},
                    {QStringLiteral("title"), s.title},
                    {QStringLiteral("author"), s.author},
                    {QStringLiteral("subject"), s.subject},
                    {QStringLiteral("keywords"), QJsonArray::fromStringList(s.keywords)},
                });
                return;
            }
            if (!first) {
                printResult(QString());
            }
            first = false;
            printResult(path);
            printResult(QStringLiteral("  Pages:     %1").arg(s.pages));
            printResult(QStringLiteral("  Page size: %1").arg(s.pageSize));
            printResult(QStringLiteral("  File size: %1").arg(s.fileSize));
            printResult(QStringLiteral("  Encrypted: %1")
                            .arg(s.encrypted ? QStringLiteral("yes") : QStringLiteral("no")));
            printResult(QStringLiteral("  Title:     %1").arg(s.title));
            printResult(QStringLiteral("  Author:    %1").arg(s.author));
            printResult(QStringLiteral("  Subject:   %1").arg(s.subject));
            printResult(
                QStringLiteral("  Keywords:  %1").arg(s.keywords.join(QLatin1String(", "))));
        });
    if (json) {
        printResult(
            QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented)).trimmed());
    }
    // No file left to tell of is a usage error, as for every other subcommand.
    return !anyOpened ? ExitUsage : allOpened ? ExitSuccess : ExitFailure;
}

} // namespace Cli
