#include "batch.h"

#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "naming/intervals.h"
#include "naming/outputnames.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QThread>

#include <cmath>
#include <mutex>
#include <vector>

namespace Cli {

bool parseArguments(QCommandLineParser &parser,
                    const QStringList &args,
                    const QString &synopsis,
                    const QString &description)
{
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    parser.addOption(help);
    parser.setApplicationDescription(description);
    if (!parser.parse(args)) {
        throw UsageError{parser.errorText()};
    }
    if (parser.isSet(help)) {
        QString text = parser.helpText();
        // Qt's first line names the program only; ours shows the whole synopsis.
        const qsizetype firstBreak = text.indexOf(QLatin1Char('\n'));
        text = QStringLiteral("Usage: ") + synopsis + text.mid(firstBreak);
        printResult(text.trimmed());
        return false;
    }
    return true;
}

void addBatchOptions(QCommandLineParser &parser, bool withProfile, bool withOverwrite)
{
    if (withOverwrite) {
        parser.addOption({QStringLiteral("overwrite"),
                          QStringLiteral("What to do with outputs that exist already: ask (the "
                                         "default), all or none."),
                          QStringLiteral("ask|all|none"),
                          QStringLiteral("ask")});
    }
    parser.addOption({QStringLiteral("jobs"),
                      QStringLiteral("Documents processed at once (default: the number of "
                                     "cores)."),
                      QStringLiteral("N")});
    parser.addOption({QStringLiteral("quiet"), QStringLiteral("No progress bar.")});
    if (withProfile) {
        parser.addOption({QStringLiteral("profile"),
                          QStringLiteral("Read the settings from a profile saved by the tool "
                                         "window; options given here override it."),
                          QStringLiteral("FILE")});
    }
}

BatchOptions readBatchOptions(const QCommandLineParser &parser, bool withOverwrite)
{
    BatchOptions options;
    const QString overwrite
        = withOverwrite ? parser.value(QStringLiteral("overwrite")) : QStringLiteral("ask");
    if (overwrite == QLatin1String("ask")) {
        options.overwrite = OverwriteMode::Ask;
    } else if (overwrite == QLatin1String("all")) {
        options.overwrite = OverwriteMode::All;
    } else if (overwrite == QLatin1String("none")) {
        options.overwrite = OverwriteMode::None;
    } else {
        throw UsageError{
            QStringLiteral("--overwrite takes ask, all or none, not \"%1\"").arg(overwrite)};
    }
    options.jobs = QThread::idealThreadCount();
    if (parser.isSet(QStringLiteral("jobs"))) {
        bool ok = false;
        options.jobs = parser.value(QStringLiteral("jobs")).toInt(&ok);
        if (!ok || options.jobs < 1) {
            throw UsageError{QStringLiteral("--jobs takes a whole number of at least 1, not \"%1\"")
                                 .arg(parser.value(QStringLiteral("jobs")))};
        }
    }
    options.quiet = parser.isSet(QStringLiteral("quiet"));
    return options;
}

double readNumber(const QCommandLineParser &parser, const QString &name)
{
    bool ok = false;
    const QString text = parser.value(name);
    const double value = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(value)) {
        throw UsageError{QStringLiteral("--%1 takes a number, not \"%2\"").arg(name, text)};
    }
    return value;
}

Inputs collectInputs(const QStringList &arguments, bool loadTest)
{
    if (arguments.isEmpty()) {
        throw UsageError{QStringLiteral("no input documents given")};
    }
    QStringList given;
    QStringList paths;
    QSet<QString> seen;
    for (const QString &argument : arguments) {
        const QString path = QDir::cleanPath(QFileInfo(argument).absoluteFilePath());
        if (!seen.contains(path)) {
            seen.insert(path);
            given << argument;
            paths << path;
        }
    }
    Inputs inputs;
    if (!loadTest) {
        inputs.paths = paths;
        return inputs;
    }
    std::vector<PDFTools::LoadStatus> status(size_t(paths.size()));
    runInOrder(
        int(paths.size()),
        QThread::idealThreadCount(),
        [&](int i) {
            status[size_t(i)] = PDFTools::LoadTest(paths[i]);
            return status[size_t(i)] == PDFTools::LoadStatus::Loadable;
        },
        [&](int i, bool loadable) {
            if (loadable) {
                inputs.paths << paths[i];
                return;
            }
            printError(QStringLiteral("%1 is left out: %2")
                           .arg(given[i], PDFTools::LoadStatusText(status[size_t(i)])));
            inputs.anyRejected = true;
        });
    if (inputs.paths.isEmpty()) {
        throw UsageError{QStringLiteral("no input document could be used")};
    }
    return inputs;
}

static Naming::OverwritePass::Question questionFor(OverwriteMode mode)
{
    using Naming::OverwriteAnswer;
    if (mode == OverwriteMode::All) {
        return [](const QString &) { return OverwriteAnswer::YesToAll; };
    }
    if (mode == OverwriteMode::Ask && stdinIsTerminal()) {
        return askOverwriteOnTerminal;
    }
    return [](const QString &) { return OverwriteAnswer::NoToAll; };
}

OverwritePlanner::OverwritePlanner(OverwriteMode mode)
    : m_pass(questionFor(mode))
{}

Naming::OverwriteDecision OverwritePlanner::decide(const QString &path)
{
    const auto decision = m_pass.decide(path);
    if (decision == Naming::OverwriteDecision::Skip) {
        printError(QStringLiteral("%1 exists already: skipped").arg(path));
    }
    return decision;
}

bool writesOutput(Naming::OverwriteDecision decision,
                  const QString &output,
                  const QStringList &inputs,
                  bool &result)
{
    if (decision == Naming::OverwriteDecision::Skip) {
        return false; // left as it is
    }
    // Never over a document of the run (the only one listed included).
    if (Naming::OverwritesInput(output, inputs)) {
        qCWarning(lcCli).noquote().nospace()
            << output << " is one of the input documents: not written";
        result = false;
        return false;
    }
    return true;
}

int runOnePerDocument(const QString &tool,
                      const Inputs &inputs,
                      const QString &nameTemplate,
                      const QString &folder,
                      const BatchOptions &options,
                      const QString &successText,
                      const QString &failureText,
                      const std::function<bool(const QString &input, const QString &output)> &write)
{
    if (!QFileInfo(folder).isDir()) {
        printError(QStringLiteral("%1: the output folder %2 does not exist").arg(tool, folder));
        return finishRun(false, successText, failureText);
    }
    OverwritePlanner planner(options.overwrite);
    QStringList outputs;
    std::vector<Naming::OverwriteDecision> decisions;
    QSet<QString> planned;
    bool shared = false;
    for (const QString &input : inputs.paths) {
        const QString output = Naming::OutputPathForDocument(nameTemplate, folder, input);
        shared = shared || planned.contains(output);
        planned.insert(output);
        outputs << output;
        decisions.push_back(planner.decide(output));
    }

    ProgressBar bar(tool, inputs.paths.size(), options.quiet);
    std::mutex barMutex;
    bool success = !inputs.anyRejected;
    runInOrder(
        int(inputs.paths.size()),
        shared ? 1 : options.jobs,
        [&](int i) {
            const QString &output = outputs[i];
            bool result = true;
            if (writesOutput(decisions[size_t(i)], output, inputs.paths, result)) {
                result = write(inputs.paths[i], output);
            }
            std::lock_guard lock(barMutex);
            bar.advance();
            return result;
        },
        [&](int, bool result) { success = success && result; });
    bar.finish();
    return finishRun(success, successText, failureText);
}

QList<qint64> selectedPages(const QString &expression, const QString &input, const char *done)
{
    const qint64 count = PDFTools::GetPDFNumberOfPages(input);
    const QList<qint64> pages = Naming::GenerateArrayOfPages(expression, count);
    if (pages.isEmpty()) {
        qCWarning(lcCli).noquote().nospace()
            << "no page of \"" << expression << "\" lies in " << input << " (" << count
            << " pages): every page is " << done;
    }
    return pages;
}

int finishRun(bool success, const QString &successText, const QString &failureText)
{
    printResult(success ? successText : failureText);
    return success ? ExitSuccess : ExitFailure;
}

qint64 readPageNumber(const QCommandLineParser &parser, const QString &name)
{
    bool ok = false;
    const QString text = parser.value(name);
    const qint64 page = text.trimmed().toLongLong(&ok);
    if (!ok || page < 1) {
        throw UsageError{
            QStringLiteral("--%1 takes a page number from 1 on, not \"%2\"").arg(name, text)};
    }
    return page;
}

QString readOutputImage(const QCommandLineParser &parser)
{
    if (!parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("the output image is missing (-o OUT.png)")};
    }
    return QDir::cleanPath(QFileInfo(parser.value(QStringLiteral("o"))).absoluteFilePath());
}

bool explainMissingPage(const QString &path, qint64 page)
{
    const auto status = PDFTools::LoadTest(path);
    if (status != PDFTools::LoadStatus::Loadable && status != PDFTools::LoadStatus::Encrypted) {
        printError(QStringLiteral("%1: %2").arg(path, PDFTools::LoadStatusText(status)));
        return true;
    }
    const qint64 count = PDFTools::GetPDFNumberOfPages(path);
    if (page > count) {
        printError(QStringLiteral("%1 has no page %2 (it has %3)").arg(path).arg(page).arg(count));
        return true;
    }
    return false;
}

} // namespace Cli
