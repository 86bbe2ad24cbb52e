#pragma once

#include <QCommandLineParser>
#include <QStringList>

// One function per subcommand; args holds the subcommand's name and its arguments. Each returns
// the exit status. The subcommands that draw are the extensions' (extensions.h).
namespace Cli {

int infoCommand(const QStringList &args);
int mergeCommand(const QStringList &args);
int splitCommand(const QStringList &args);
int cropCommand(const QStringList &args);
int propertiesCommand(const QStringList &args);

// Runs a subcommand's function once its application object exists: the log handler, the
// arguments, a usage error reported with the subcommand's name. Returns the exit status.
int runCommand(const char *name, int (*command)(const QStringList &args));

// Shared by the commands that write page images.

// A page number option (from 1), or a UsageError naming the option.
qint64 readPageNumber(const QCommandLineParser &parser, const QString &name);
// The absolute path given with -o, or a UsageError.
QString readOutputImage(const QCommandLineParser &parser);
// When page (1-based) of path cannot be had, names the reason on stderr and returns true.
bool explainMissingPage(const QString &path, qint64 page);

} // namespace Cli
