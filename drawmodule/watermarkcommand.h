#pragma once

#include "cli/extensions.h"

#include <QStringList>

namespace Cli {

// quire watermark: a run over documents, or with --preview the page image of one, which the
// graphical module (given by its loader) draws.
int watermarkCommand(const QStringList &args, ExtensionLoader graphical);

} // namespace Cli
