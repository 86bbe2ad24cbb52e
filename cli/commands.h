#pragma once

#include <QStringList>

// One function per subcommand; args holds the subcommand's name and its arguments. Each returns
// the exit status.
namespace Cli {

int infoCommand(const QStringList &args);
int mergeCommand(const QStringList &args);
int splitCommand(const QStringList &args);

} // namespace Cli
