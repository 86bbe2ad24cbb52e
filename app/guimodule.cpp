// The graphical module's entry point: the launcher and the subcommands that draw.

#include "app/viewcontroller.h"
#include "app/widgetalerts.h"
#include "cli/commands.h"
#include "cli/guimodule.h"
#include "cli/imagecommands.h"

#include <QApplication>
#include <QGuiApplication>
#include <QIcon>

#include <cstring>

namespace {

int launcher(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("quire"));
    QApplication::setApplicationDisplayName(QStringLiteral("Quire"));
    QApplication::setApplicationVersion(QStringLiteral(QUIRE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("quire"));
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral("quire"), QIcon(QStringLiteral(":/icons/quire.png"))));

    WidgetAlerts alerts;
    ViewController launcher(alerts);
    launcher.show();
    return QApplication::exec();
}

int command(const char *name, int argc, char **argv)
{
    if (std::strcmp(name, "render") == 0) {
        QCoreApplication app(argc, argv);
        return Cli::runCommand(name, Cli::renderCommand);
    }
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
    return Cli::runCommand(name, Cli::watermarkCommand);
}

const GuiModule module{launcher, command, Cli::writeCropPreview};

} // namespace

extern "C" Q_DECL_EXPORT const GuiModule *quire_gui_module()
{
    return &module;
}
