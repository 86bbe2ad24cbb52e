#include "batch.h"

#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "jobs/diagnostics.h"
#include "jobs/numbers.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QThread>

#include <cmath>
#include <mutex>
#include <vector>

namespace Cli {

namespace {

// The line broken at blanks into lines of at most 79 columns, each continuation indented by
// hangingIndent; a bracketed group such as "[--name TEMPLATE]" is never broken.
QStringList wrapLine(const QString &line, qsizetype hangingIndent)
{
    constexpr qsizetype Width = 79;
    // The words, a bracketed group counting as one; the line's own indentation stays.
    qsizetype indent = 0;
    while (indent < line.size() && line[indent] == QLatin1Char(' ')) {
        ++indent;
    }
    QStringList words;
    QString word;
    int depth = 0;
    for (const QChar c : QStringView(line).mid(indent)) {
        if (c == QLatin1Char(' ') && depth == 0) {
            if (!word.isEmpty()) {
                words << std::exchange(word, {});
            }
            continue;
        }
        if (c == QLatin1Char('[') || c == QLatin1Char('(')) {
            ++depth;
        } else if ((c == QLatin1Char(']') || c == QLatin1Char(')')) && depth > 0) {
            --depth;
        }
        word += c;
    }
    if (!word.isEmpty()) {
        words << word;
    }
    QStringList lines;
    QString current = QString(indent, QLatin1Char(' '));
    bool empty = true;
    for (const QString &w : std::as_const(words)) {
        if (!empty && current.size() + 1 + w.size() > Width) {
            lines << current;
            current = QString(hangingIndent, QLatin1Char(' '));
            empty = true;
        }
        current += (empty ? QString() : QStringLiteral(" ")) + w;
        empty = false;
    }
    lines << current;
    return lines;
}

} // namespace

bool parseArguments(QCommandLineParser &parser,
                    const QStringList &args,
                    const QString &synopsis,
                    const QString &description,
                    const QString &example)
{
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    parser.addOption(help);
    if (!parser.parse(args)) {
        throw UsageError{parser.errorText()};
    }
    if (parser.isSet(help)) {
        // Qt's first line names the program only; ours shows every form of the command, each
        // continued under the words after the subcommand's name.
        QStringList text;
        QString prefix = QStringLiteral("Usage: ");
        for (const QString &form : synopsis.split(QLatin1Char('\n'))) {
            const QString line = prefix + form.trimmed();
            const qsizetype name = line.indexOf(QLatin1String("quire "));
            const qsizetype hanging = line.indexOf(QLatin1Char(' '), name + 6) + 1;
            text << wrapLine(line, hanging);
            prefix = QStringLiteral("       ");
        }
        text << wrapLine(description, 0);
        const QString qtText = parser.helpText();
        text << qtText.mid(qtText.indexOf(QLatin1Char('\n')) + 1)
                    .trimmed()
                    .prepend(QLatin1Char('\n'));
        text << QString() << QStringLiteral("Example:");
        for (const QString &command : example.split(QLatin1Char('\n'))) {
            text << QStringLiteral("  ") + command;
        }
        printResult(text.join(QLatin1Char('\n')));
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

qint64 readWholeNumber(const QCommandLineParser &parser, const QString &name)
{
    const auto whole = Jobs::wholeNumber(readNumber(parser, name));
    if (!whole) {
        throw UsageError{
            QStringLiteral("--%1 is out of range: \"%2\"").arg(name, parser.value(name))};
    }
    return *whole;
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

void reportSkippedKeys(const QString &profile, const QStringList &skipped)
{
    if (!skipped.isEmpty()) {
        printError(QStringLiteral("the profile %1 holds settings this version does not know, left "
                                  "out: %2")
                       .arg(profile, skipped.join(QStringLiteral(", "))));
    }
}

namespace {

Naming::OverwritePass::Question questionFor(OverwriteMode mode)
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

// What cannot start a run, in the command line's words; true when it counts as a failed run
// (the completion message follows).
bool explainBlocker(const Jobs::Blocker &blocker, const RunTexts &texts)
{
    using Kind = Jobs::Blocker::Kind;
    switch (blocker.kind) {
    case Kind::RunsBelowOne:
        printError(QStringLiteral("%1: --every must be at least 1").arg(texts.tool));
        return false;
    case Kind::NoInterval:
        printError(QStringLiteral("%1: no interval of \"%2\" lies in %3 (%4 pages)")
                       .arg(texts.tool, blocker.detail, blocker.path)
                       .arg(blocker.pages));
        return false;
    case Kind::NoBookmarks:
        printError(QStringLiteral("%1: %2 (%3 pages) has no bookmark of level %4 that leads to a "
                                  "page")
                       .arg(texts.tool, blocker.path)
                       .arg(blocker.pages)
                       .arg(blocker.detail));
        return false;
    case Kind::FolderMissing:
        printError(QStringLiteral("%1: the output folder %2 does not exist")
                       .arg(texts.tool, blocker.path));
        return true;
    case Kind::FolderNotWritable:
        printError(QStringLiteral("%1: the output folder %2 cannot be written to")
                       .arg(texts.tool, blocker.path));
        return true;
    case Kind::Unusable:
        printError(QStringLiteral("%1: %2").arg(texts.tool, blocker.detail));
        return true;
    case Kind::NoDocuments:
    case Kind::NoFolder:
    case Kind::DocumentUnreadable:
        break;
    }
    printError(QStringLiteral("%1: %2 cannot be used").arg(texts.tool, blocker.path));
    return true;
}

// The progress bar, and each document's messages printed as the document is reported.
class TerminalObserver final : public Jobs::RunObserver
{
public:
    TerminalObserver(const QString &tool, qint64 total, bool quiet)
        : m_bar(tool, total, quiet)
    {}
    void stepsDone(qint64 done, qint64 total) override { m_bar.set(done, total); }
    void documentFinished(int, const Jobs::DocumentResult &result) override
    {
        Jobs::logMessages(result.messages);
    }
    void finish() { m_bar.finish(); }

private:
    ProgressBar m_bar;
};

} // namespace

int runBatch(Jobs::Batch &batch, const BatchOptions &options, const RunTexts &texts, bool rejected)
{
    batch.plan({options.jobs, false});
    const Jobs::Plan &plan = batch.plan();
    if (!plan.canStart()) {
        return explainBlocker(plan.blockers.front(), texts)
                   ? finishRun(false, texts.success, texts.failure)
                   : ExitFailure;
    }
    for (const Jobs::DocumentPlan &document : plan.documents) {
        Jobs::logMessages(document.notes);
    }
    batch.decide(questionFor(options.overwrite),
                 [](const QString &path, Naming::OverwriteDecision decision) {
                     if (decision == Naming::OverwriteDecision::Skip) {
                         printError(QStringLiteral("%1 exists already: skipped").arg(path));
                     }
                 });
    // The process ends with a run of one document: its end frees the parsed document faster
    // than taking it apart would. Many documents are freed as they are done, to keep the memory.
    if (plan.documents.size() == 1) {
        PDFTools::KeepDocumentsUntilExit(true);
    }
    TerminalObserver observer(texts.tool, plan.documents.size(), options.quiet);
    const Jobs::RunResult result = batch.run({options.jobs}, &observer);
    observer.finish();
    return finishRun(result.success && !rejected, texts.success, texts.failure);
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
