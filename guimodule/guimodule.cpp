// The graphical module's entry points: the launcher, and the subcommands that make page images,
// which it adds to the command line.

#include "app/viewcontroller.h"
#include "app/widgetalerts.h"
#include "cli/commandline.h"
#include "cli/commands.h"
#include "cli/extensions.h"
#include "imagecommands.h"

#include <QApplication>
#include <QIcon>
#include <QThreadPool>

namespace {

int render(int argc, char **argv)
{
    // Page images need no fonts of their own: Qt Core is enough.
    QCoreApplication app(argc, argv);
    return Cli::runCommand("render", Cli::renderCommand);
}

const Cli::Subcommand subcommands[] = {
    {"render", render},
};

const Cli::Extensions extensions{
    subcommands,
    int(std::size(subcommands)),
    "  quire render FILE [--page N] -o OUT.png   the page as the preview shows it\n"
    "  quire watermark -d DIR [text options] [image options] [--pages EXPR]\n"
    "                  [--name TEMPLATE] [--profile FILE] INPUT...\n"
    "  quire watermark [text and image options] --preview N -o OUT.png FILE\n",
    Cli::writeCropPreview,
    Cli::writeWatermarkPreview,
};

} // namespace

extern "C" Q_DECL_EXPORT int quire_launcher(int argc, char **argv)
{
    // The arguments are documents (a file manager's "Open With"), never Qt's options: a file
    // named "-style" is a document too.
    const QStringList documents = Cli::launcherDocuments(argc, argv);
    int applicationArgc = 1;
    QApplication app(applicationArgc, argv);
    QApplication::setApplicationName(QStringLiteral("quire"));
    QApplication::setApplicationDisplayName(QStringLiteral("Quire"));
    QApplication::setApplicationVersion(QStringLiteral(QUIRE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral(QUIRE_APP_ID));
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral(QUIRE_APP_ID), QIcon(QStringLiteral(":/icons/quire.png"))));

    WidgetAlerts alerts;
    ViewController launcher(alerts);
    launcher.setPendingDocuments(documents);
    launcher.show();
    const int status = QApplication::exec();
    // A run stopped by Quit ends its document first: nothing is left half-written.
    QThreadPool::globalInstance()->waitForDone();
    return status;
}

extern "C" Q_DECL_EXPORT const Cli::Extensions *quire_command_line_extensions()
{
    return &extensions;
}
