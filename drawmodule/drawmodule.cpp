// The drawing module's entry point: the watermark's runs, which draw the text and the picture
// with Qt Gui and need neither the windows nor page images. It loads in less than half the time
// the graphical module takes (about 4 ms against 9 here), on every watermark started from the
// command line.

#include "cli/commands.h"
#include "cli/extensions.h"
#include "watermarkcommand.h"

#include <QGuiApplication>

namespace {

// The graphical module's loader, for the watermark's preview.
Cli::ExtensionLoader graphical = nullptr;

int runWatermark(const QStringList &args)
{
    return Cli::watermarkCommand(args, graphical);
}

int watermark(int argc, char **argv)
{
    // The watermark draws text: fonts need a (headless) graphical application. Starting its
    // platform plugin, Qt warns on stderr when XDG_RUNTIME_DIR is unset (cron jobs,
    // containers); a headless run has no use for that folder.
    static QtMessageHandler previous = nullptr;
    previous = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext &context, const QString &message) {
            if (!message.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR"))) {
                previous(type, context, message);
            }
        });
    QGuiApplication app(argc, argv);
    qInstallMessageHandler(previous);
    return Cli::runCommand("watermark", runWatermark);
}

const Cli::Subcommand subcommands[] = {
    {"watermark", watermark},
};

// The usage lines and the previews are the graphical module's.
const Cli::Extensions extensions{subcommands, int(std::size(subcommands)), "", nullptr, nullptr};

} // namespace

extern "C" Q_DECL_EXPORT const Cli::Extensions *
quire_drawing_extensions(Cli::ExtensionLoader graphicalModule)
{
    graphical = graphicalModule;
    return &extensions;
}
