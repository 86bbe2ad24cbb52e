#pragma once

#include "jobs/batch.h"
#include "jobs/profiles.h"

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// What the batch subcommands share: their options, the load test of their inputs, the overwrite
// pass and the way a run ends.
namespace Cli {

// Exit statuses.
inline constexpr int ExitSuccess = 0;
inline constexpr int ExitFailure = 1;
inline constexpr int ExitUsage = 2;

// Thrown by option readers; the subcommand ends with exit status 2 and the reason on stderr.
struct UsageError
{
    QString reason;
};

// Adds -h/--help and the given options; parses args (the subcommand's name first). Prints help
// and returns false for --help; throws UsageError on a parse error. The help is the synopsis
// (alternative forms on lines of their own), the description, Qt's list of the options and
// arguments, and the example (a line each command), every line within 80 columns.
bool parseArguments(QCommandLineParser &parser,
                    const QStringList &args,
                    const QString &synopsis,
                    const QString &description,
                    const QString &example);

enum class OverwriteMode { Ask, All, None };

struct BatchOptions
{
    OverwriteMode overwrite = OverwriteMode::Ask;
    int jobs = 1;
    bool quiet = false;
};

// --overwrite, --jobs, --quiet (and --profile for the tools that have profiles). A tool that
// writes no new files (properties) has no --overwrite.
void addBatchOptions(QCommandLineParser &parser, bool withProfile, bool withOverwrite = true);
BatchOptions readBatchOptions(const QCommandLineParser &parser, bool withOverwrite = true);

// Names on stderr the keys of a profile that were not understood.
void reportSkippedKeys(const QString &profile, const QStringList &skipped);

// The settings of the --profile file; nothing without --profile. Throws UsageError when the
// file cannot be used; keys it does not know are named on stderr and left out.
template <typename Settings> std::optional<Settings> readProfile(const QCommandLineParser &parser)
{
    const QString name = QStringLiteral("profile");
    if (!parser.isSet(name)) {
        return std::nullopt;
    }
    QString error;
    QStringList skipped;
    auto settings = Jobs::Profiles::read<Settings>(parser.value(name), &error, &skipped);
    if (!settings) {
        throw UsageError{error};
    }
    reportSkippedKeys(parser.value(name), skipped);
    return settings;
}

// A number option, or a UsageError naming the option.
double readNumber(const QCommandLineParser &parser, const QString &name);
// The whole-number part of a number option, or a UsageError when it is none or out of range.
qint64 readWholeNumber(const QCommandLineParser &parser, const QString &name);

struct Inputs
{
    QStringList paths; // absolute, in the order given, each once
    bool anyRejected = false;
};

// The positional arguments as documents: each path once, in order. With loadTest, documents
// that do not open or are encrypted are named on stderr and left out. Throws UsageError when no
// input is left.
Inputs collectInputs(const QStringList &arguments, bool loadTest = true);

// The words a batch subcommand prints.
struct RunTexts
{
    QString tool;    // "split": the prefix of its reasons on stderr
    QString success; // "PDF document(s) split successfully."
    QString failure; // "Could not split PDF document(s)."
};

// Plans, decides and runs a batch as the command line does: a run that cannot start says why on
// stderr (a missing or unwritable folder also with the failure message); each output that
// exists already is asked about with the --overwrite mode (on the terminal, or as "none" when
// standard input is not one), and each skip is said; the progress bar counts the run's steps,
// and each document's messages are printed in document order, whatever the number of jobs.
// Ends with the completion message; returns the exit status. rejected: documents were left out
// by the load test, which fails the run.
int runBatch(Jobs::Batch &batch, const BatchOptions &options, const RunTexts &texts, bool rejected);

// The run's completion message as the last line of stdout, and its exit status.
int finishRun(bool success, const QString &successText, const QString &failureText);

} // namespace Cli
