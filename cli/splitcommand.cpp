#include "batch.h"
#include "commands.h"
#include "console.h"
#include "jobs/splitjob.h"

#include <QDir>
#include <QFileInfo>

#include <cmath>

namespace Cli {

int splitCommand(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({{QStringLiteral("d"), QStringLiteral("directory")},
                      QStringLiteral("The output folder."),
                      QStringLiteral("DIR")});
    parser.addOption({QStringLiteral("every"),
                      QStringLiteral("Cut every document into runs of N pages."),
                      QStringLiteral("N")});
    parser.addOption({QStringLiteral("ranges"),
                      QStringLiteral("Cut every document at these page intervals, such as "
                                     "\"[1-4],5,[6-9]\"."),
                      QStringLiteral("EXPR")});
    parser.addOption({QStringLiteral("at-bookmarks"),
                      QStringLiteral("Cut every document before each bookmark of this outline "
                                     "level (1: the top level)."),
                      QStringLiteral("LEVEL")});
    parser.addOption({QStringLiteral("name"),
                      QStringLiteral("Output name template; [FileName], [IntervalIndex], "
                                     "[IntervalStart], [IntervalEnd] and [BookmarkName] are "
                                     "replaced."),
                      QStringLiteral("TEMPLATE"),
                      QStringLiteral("[FileName](Page[IntervalIndex])")});
    addBatchOptions(parser, true);
    parser.addPositionalArgument(QStringLiteral("INPUT"), QStringLiteral("PDF documents."));
    if (!parseArguments(
            parser,
            args,
            QStringLiteral("quire split -d DIR (--every N | --ranges EXPR | --at-bookmarks LEVEL) "
                           "[--name TEMPLATE] [--profile FILE] INPUT..."),
            QStringLiteral("Cut each document into several, by runs of pages, by page "
                           "intervals or at its bookmarks; each piece keeps the bookmarks that "
                           "lead into it."),
            QStringLiteral("quire split -d chapters --ranges \"[1-12],[13-40]\" book.pdf\n"
                           "quire split -d chapters --at-bookmarks 1 --name \"[BookmarkName]\" "
                           "book.pdf"))) {
        return ExitSuccess;
    }
    // The profile gives the settings the command line leaves out.
    const auto profile = readProfile<Jobs::SplitSettings>(parser);
    Jobs::SplitSettings settings = profile.value_or(Jobs::SplitSettings());
    const QString modes = QStringLiteral("give one of --every N, --ranges EXPR and "
                                         "--at-bookmarks LEVEL");
    const bool everySet = parser.isSet(QStringLiteral("every"));
    const bool rangesSet = parser.isSet(QStringLiteral("ranges"));
    const bool bookmarksSet = parser.isSet(QStringLiteral("at-bookmarks"));
    if (int(everySet) + int(rangesSet) + int(bookmarksSet) > 1) {
        throw UsageError{modes};
    }
    if (everySet) {
        settings.mode = Naming::SplitMode::Consecutive;
        // The whole-number part of the number, as the window reads its field.
        settings.pagesPerInterval = readWholeNumber(parser, QStringLiteral("every"));
    } else if (rangesSet) {
        settings.mode = Naming::SplitMode::Intervals;
        settings.expression = parser.value(QStringLiteral("ranges"));
    } else if (bookmarksSet) {
        settings.mode = Naming::SplitMode::Bookmarks;
        bool ok = false;
        const QString level = parser.value(QStringLiteral("at-bookmarks"));
        settings.bookmarkLevel = level.trimmed().toLongLong(&ok);
        if (!ok || settings.bookmarkLevel < 1) {
            throw UsageError{
                QStringLiteral("--at-bookmarks takes an outline level from 1 on, not \"%1\"")
                    .arg(level)};
        }
    } else if (!profile) {
        throw UsageError{modes};
    }
    if (parser.isSet(QStringLiteral("name")) || !profile) {
        settings.nameTemplate = parser.value(QStringLiteral("name"));
    }
    if (parser.isSet(QStringLiteral("d"))) {
        settings.folder = parser.value(QStringLiteral("d"));
    }
    if (settings.folder.isEmpty()) {
        throw UsageError{QStringLiteral("the output folder is missing (-d DIR)")};
    }
    settings.folder = QDir::cleanPath(QFileInfo(settings.folder).absoluteFilePath());
    if (settings.mode != Naming::SplitMode::Consecutive) {
        settings.pagesPerInterval = 1; // not used by intervals and bookmarks
    }
    const BatchOptions options = readBatchOptions(parser);
    const Inputs inputs = collectInputs(parser.positionalArguments());

    Jobs::SplitJob job(inputs.paths, settings);
    return runBatch(job,
                    options,
                    {QStringLiteral("split"),
                     QStringLiteral("PDF document(s) split successfully."),
                     QStringLiteral("Could not split PDF document(s).")},
                    inputs.anyRejected);
}

} // namespace Cli
