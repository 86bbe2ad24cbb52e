#include "batch.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "naming/intervals.h"
#include "naming/outputnames.h"
#include "naming/profiles.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>

#include <atomic>
#include <cmath>
#include <mutex>
#include <vector>

namespace Cli {

namespace {

struct PlannedOutput
{
    Naming::PageInterval interval;
    QString path;
    Naming::OverwriteDecision decision;
};

} // namespace

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
    parser.addOption({QStringLiteral("name"),
                      QStringLiteral("Output name template; [FileName], [IntervalIndex], "
                                     "[IntervalStart] and [IntervalEnd] are replaced."),
                      QStringLiteral("TEMPLATE"),
                      QStringLiteral("[FileName](Page[IntervalIndex])")});
    addBatchOptions(parser, true);
    parser.addPositionalArgument(QStringLiteral("INPUT"), QStringLiteral("PDF documents."));
    if (!parseArguments(
            parser,
            args,
            QStringLiteral("quire split -d DIR (--every N | --ranges EXPR) [--name TEMPLATE] "
                           "[--profile FILE] "
                           "INPUT..."),
            QStringLiteral("Cut each document into several, by runs of pages or by page "
                           "intervals."))) {
        return ExitSuccess;
    }
    // The profile gives the settings the command line leaves out.
    const auto profile = readProfile<Profiles::SplitSettings>(parser, Profiles::SplitTool);
    Profiles::SplitSettings settings = profile.value_or(Profiles::SplitSettings());
    const bool haveMode = profile.has_value();
    const bool everySet = parser.isSet(QStringLiteral("every"));
    const bool rangesSet = parser.isSet(QStringLiteral("ranges"));
    if (everySet && rangesSet) {
        throw UsageError{QStringLiteral("give either --every N or --ranges EXPR")};
    }
    if (everySet) {
        settings.mode = Naming::SplitMode::Consecutive;
        // The whole-number part of the number, as the window reads its field.
        settings.pagesPerInterval = qint64(std::trunc(readNumber(parser, QStringLiteral("every"))));
    } else if (rangesSet) {
        settings.mode = Naming::SplitMode::Intervals;
        settings.expression = parser.value(QStringLiteral("ranges"));
    } else if (!haveMode) {
        throw UsageError{QStringLiteral("give either --every N or --ranges EXPR")};
    }
    if (parser.isSet(QStringLiteral("name")) || !haveMode) {
        settings.nameTemplate = parser.value(QStringLiteral("name"));
    }
    if (parser.isSet(QStringLiteral("d"))) {
        settings.folder = parser.value(QStringLiteral("d"));
    }
    if (settings.folder.isEmpty()) {
        throw UsageError{QStringLiteral("the output folder is missing (-d DIR)")};
    }
    const bool every = settings.mode == Naming::SplitMode::Consecutive;
    const auto mode = settings.mode;
    const qint64 pagesPerInterval = every ? settings.pagesPerInterval : 1;
    const QString expression = settings.expression;
    const QString nameTemplate = settings.nameTemplate;
    const QString folder = QDir::cleanPath(QFileInfo(settings.folder).absoluteFilePath());
    const BatchOptions options = readBatchOptions(parser);
    const Inputs inputs = collectInputs(parser.positionalArguments());

    if (pagesPerInterval < 1) {
        printError(QStringLiteral("split: --every must be at least 1"));
        return ExitFailure;
    }
    const QString successText = QStringLiteral("PDF document(s) split successfully.");
    const QString failureText = QStringLiteral("Could not split PDF document(s).");
    if (!QFileInfo(folder).isDir()) {
        printError(QStringLiteral("split: the output folder %1 does not exist").arg(folder));
        return finishRun(false, successText, failureText);
    }

    // Plan every output before anything is written: the intervals, and what to do about files
    // that exist already.
    const auto intervalsOf = [&](qint64 pages) {
        return every ? Naming::GenerateConsecutiveIntervals(pages, pagesPerInterval)
                     : Naming::GenerateArrayOfIntervals(expression, pages);
    };
    std::vector<qint64> pageCounts(size_t(inputs.paths.size()));
    runInOrder(
        int(inputs.paths.size()),
        options.jobs,
        [&](int i) {
            pageCounts[size_t(i)] = PDFTools::GetPDFNumberOfPages(inputs.paths[i]);
            return true;
        },
        [](int, bool) {});
    for (qsizetype i = 0; i < inputs.paths.size(); ++i) {
        if (!every && intervalsOf(pageCounts[size_t(i)]).isEmpty()) {
            printError(QStringLiteral("split: no interval of \"%1\" lies in %2 (%3 pages)")
                           .arg(expression, inputs.paths[i])
                           .arg(pageCounts[size_t(i)]));
            return ExitFailure;
        }
    }
    OverwritePlanner planner(options.overwrite);
    std::vector<std::vector<PlannedOutput>> plans(size_t(inputs.paths.size()));
    QHash<QString, qsizetype> writerOf; // output path -> the document that writes it
    bool shared = false;
    qint64 totalOutputs = 0;
    for (qsizetype i = 0; i < inputs.paths.size(); ++i) {
        const auto intervals = intervalsOf(pageCounts[size_t(i)]);
        for (qsizetype k = 0; k < intervals.size(); ++k) {
            const QString path = Naming::OutputPathForInterval(nameTemplate,
                                                               folder,
                                                               inputs.paths[i],
                                                               mode,
                                                               k + 1,
                                                               intervals[k].start,
                                                               intervals[k].end);
            plans[size_t(i)].push_back({intervals[k], path, planner.decide(path)});
            const auto previous = writerOf.constFind(path);
            shared = shared || (previous != writerOf.constEnd() && previous.value() != i);
            writerOf.insert(path, i);
            ++totalOutputs;
        }
    }

    // Documents that write the same file go one after the other, so the last one listed wins
    // whatever the number of jobs.
    const int jobs = shared ? 1 : options.jobs;

    // The work, in output order: a document's intervals, or with fewer documents than jobs, a
    // long document's intervals in as many runs as there are jobs, each run reading the
    // document once, so that every core has work.
    struct Unit
    {
        qsizetype document;
        size_t first; // outputs first..last-1 of the document's plan
        size_t last;
    };
    constexpr size_t shortest = 16;
    std::vector<Unit> units;
    for (qsizetype i = 0; i < inputs.paths.size(); ++i) {
        const size_t outputs = plans[size_t(i)].size();
        const size_t runs = inputs.paths.size() < jobs && outputs >= 2 * shortest
                                ? std::min(size_t(jobs), outputs / shortest)
                                : 1;
        for (size_t r = 0; r < runs; ++r) {
            units.push_back({i, outputs * r / runs, outputs * (r + 1) / runs});
        }
    }

    ProgressBar bar(QStringLiteral("split"), totalOutputs, options.quiet);
    std::mutex barMutex;
    bool success = !inputs.anyRejected;
    runInOrder(
        int(units.size()),
        jobs,
        [&](int u) {
            const Unit &unit = units[size_t(u)];
            const QString &path = inputs.paths[unit.document];
            const auto &plan = plans[size_t(unit.document)];
            PdfSource source(path);
            if (source.pageCount() == 0) {
                if (unit.first == 0) {
                    qCWarning(lcCli).noquote().nospace() << path << " has no pages to split";
                }
                std::lock_guard lock(barMutex);
                bar.advance(qint64(unit.last - unit.first));
                return false;
            }
            bool result = true;
            for (size_t k = unit.first; k < unit.last; ++k) {
                const PlannedOutput &output = plan[k];
                if (writesOutput(output.decision, output.path, inputs.paths, result)
                    && !PDFTools::SplitPdf(
                        source, output.path, output.interval.start, output.interval.end)) {
                    result = false;
                }
                std::lock_guard lock(barMutex);
                bar.advance();
            }
            return result;
        },
        [&](int, bool result) { success = success && result; });
    bar.finish();
    return finishRun(success, successText, failureText);
}

} // namespace Cli
