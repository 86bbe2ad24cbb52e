// One executable: with a subcommand it runs headless, without one it opens the launcher.

#include "app/viewcontroller.h"
#include "app/widgetalerts.h"
#include "cli/commandline.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char **argv)
{
    if (Cli::wantsCommandLine(argc, argv)) {
        return Cli::run(argc, argv);
    }
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
