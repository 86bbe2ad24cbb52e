#pragma once

#include "naming/overwrite.h"
#include "naming/profiles.h"

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
// and returns false for --help; throws UsageError on a parse error.
bool parseArguments(QCommandLineParser &parser,
                    const QStringList &args,
                    const QString &synopsis,
                    const QString &description);

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

// The settings of the --profile file, which must be one of tool's; nothing without --profile.
// Throws UsageError when the file cannot be used.
template <typename Settings>
std::optional<Settings> readProfile(const QCommandLineParser &parser, const char *tool)
{
    const QString name = QStringLiteral("profile");
    if (!parser.isSet(name)) {
        return std::nullopt;
    }
    QString error;
    const QString path = parser.value(name);
    const auto json = Profiles::read(path, QString::fromLatin1(tool), &error);
    auto settings = json ? Settings::fromJson(*json, &error) : std::nullopt;
    if (!settings) {
        throw UsageError{json ? QStringLiteral("the profile %1: %2").arg(path, error) : error};
    }
    return settings;
}

// A number option, or a UsageError naming the option.
double readNumber(const QCommandLineParser &parser, const QString &name);

struct Inputs
{
    QStringList paths; // absolute, in the order given, each once
    bool anyRejected = false;
};

// The positional arguments as documents: each path once, in order. With loadTest, documents
// that do not open or are encrypted are named on stderr and left out. Throws UsageError when no
// input is left.
Inputs collectInputs(const QStringList &arguments, bool loadTest = true);

// The overwrite pass of a run with the --overwrite mode: asks on the terminal (as "none" when
// standard input is not one) and reports each skip on stderr.
class OverwritePlanner
{
public:
    explicit OverwritePlanner(OverwriteMode mode);
    Naming::OverwriteDecision decide(const QString &path);

private:
    Naming::OverwritePass m_pass;
};

// Whether a planned output is written: not when the overwrite pass decided to skip it, nor when
// it is one of the run's input documents, which is reported and fails the run (result false).
bool writesOutput(Naming::OverwriteDecision decision,
                  const QString &output,
                  const QStringList &inputs,
                  bool &result);

// Crop and watermark: one new document per input, named from the template in the folder. The
// folder is checked and every output planned (the overwrite pass) before anything is written;
// then write(input, output) makes each output that is to be written, never over one of the
// inputs. Documents that write the same file go one after the other, so the last one listed
// wins whatever the number of jobs. Ends with the completion message; returns the exit status.
int runOnePerDocument(
    const QString &tool,
    const Inputs &inputs,
    const QString &nameTemplate,
    const QString &folder,
    const BatchOptions &options,
    const QString &successText,
    const QString &failureText,
    const std::function<bool(const QString &input, const QString &output)> &write);

// The pages of a document that an interval expression selects. When it selects none, every
// page is processed, which is said on stderr ("every page is " + done).
QList<qint64> selectedPages(const QString &expression, const QString &input, const char *done);

// The run's completion message as the last line of stdout, and its exit status.
int finishRun(bool success, const QString &successText, const QString &failureText);

} // namespace Cli
