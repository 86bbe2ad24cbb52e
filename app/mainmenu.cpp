#include "mainmenu.h"

#include "app/alerts.h"
#include "engine/pdftools.h"

#include <QAction>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>
#include <QUrl>

namespace MainMenu {

namespace {

struct ToolText
{
    Tool tool;
    const char *title;
    const char *howTo;
    const char *page;
    const char *action;
};

const ToolText tools[] = {
    {Tool::Merge,
     "Merge PDF Documents",
     "How to Merge PDF Documents",
     "merge.html",
     "actionHowToMergePDFDocuments"},
    {Tool::Split,
     "Split PDF Documents",
     "How to Split PDF Documents",
     "split.html",
     "actionHowToSplitPDFDocuments"},
    {Tool::Crop,
     "Crop PDF Documents",
     "How to Crop PDF Documents",
     "crop.html",
     "actionHowToCropPDFDocuments"},
    {Tool::Watermark,
     "Watermark PDF Documents",
     "How to Watermark PDF Documents",
     "watermark.html",
     "actionHowToWatermarkPDFDocuments"},
    {Tool::Properties,
     "Edit PDF Properties",
     "How to Edit PDF Properties",
     "properties.html",
     "actionHowToEditPDFProperties"},
};

const ToolText &textOf(Tool tool)
{
    for (const auto &text : tools) {
        if (text.tool == tool) {
            return text;
        }
    }
    return tools[0];
}

QAction *addAction(QMenu *menu, const QString &text, const char *name, const QKeySequence &keys)
{
    QAction *action = menu->addAction(text);
    action->setObjectName(QString::fromLatin1(name));
    action->setShortcut(keys);
    return action;
}

} // namespace

QString toolTitle(Tool tool)
{
    return QString::fromLatin1(textOf(tool).title);
}

QString helpPagePath(Tool tool)
{
    const QString page = QString::fromLatin1(textOf(tool).page);
    const QStringList folders{
        QCoreApplication::applicationDirPath() + QStringLiteral("/../share/quire/help"),
        QStringLiteral(QUIRE_HELP_SOURCE_DIR),
    };
    for (const QString &folder : folders) {
        const QFileInfo file(QDir(folder).filePath(page));
        if (file.isFile()) {
            return file.canonicalFilePath();
        }
    }
    return {};
}

void OnHowTo(Tool tool, Alerts &alerts, QWidget *window)
{
    const QString path = helpPagePath(tool);
    if (path.isEmpty()) {
        alerts.message(window,
                       QStringLiteral("The help page %1 is not installed.")
                           .arg(QLatin1String(textOf(tool).page)));
        return;
    }
    alerts.open(window, QUrl::fromLocalFile(path));
}

QString aboutText()
{
    return QStringLiteral("Quire %1\nBatch work on PDF files: merge, split, crop, watermark and "
                          "edit properties.\n\nQt %2, qpdf %3.")
        .arg(QStringLiteral(QUIRE_VERSION), QLatin1String(qVersion()), PDFTools::LibraryVersion());
}

void build(QMenuBar *menuBar,
           QWidget *window,
           Alerts &alerts,
           MenuCommands *commands,
           std::optional<Tool> windowTool)
{
    QMenu *file = menuBar->addMenu(QStringLiteral("&File"));
    file->setObjectName(QStringLiteral("menuFile"));
    QAction *fileNew = addAction(file, QStringLiteral("&New"), "actionNew", QKeySequence::New);
    QAction *save
        = addAction(file, QStringLiteral("&Save Profile"), "actionSaveProfile", QKeySequence::Save);
    QAction *saveAs = addAction(
        file, QStringLiteral("Save Profile &As…"), "actionSaveProfileAs", QKeySequence::SaveAs);
    QAction *load = addAction(file,
                              QStringLiteral("&Load Profile…"),
                              "actionLoadProfile",
                              QKeySequence(Qt::CTRL | Qt::Key_O));
    file->addSeparator();
    QAction *quit = addAction(file, QStringLiteral("&Quit"), "actionQuit", QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);
    QObject::connect(quit, &QAction::triggered, window, [commands] {
        if (!commands || commands->mayQuit()) {
            QCoreApplication::quit();
        }
    });

    const bool withSettings = commands && commands->hasSettings();
    for (QAction *action : {fileNew, save, saveAs, load}) {
        action->setEnabled(withSettings);
    }
    if (withSettings) {
        QObject::connect(
            fileNew, &QAction::triggered, window, [commands] { commands->OnFileNew(); });
        QObject::connect(
            save, &QAction::triggered, window, [commands] { commands->OnSaveProfile(); });
        QObject::connect(
            saveAs, &QAction::triggered, window, [commands] { commands->OnSaveProfileAs(); });
        QObject::connect(
            load, &QAction::triggered, window, [commands] { commands->OnLoadProfile(); });
    }

    QMenu *help = menuBar->addMenu(QStringLiteral("&Help"));
    help->setObjectName(QStringLiteral("menuHelp"));
    for (const auto &text : tools) {
        QAction *action = help->addAction(QString::fromLatin1(text.howTo));
        action->setObjectName(QString::fromLatin1(text.action));
        const Tool tool = text.tool;
        if (windowTool == tool) {
            action->setShortcut(QKeySequence::HelpContents);
        }
        QObject::connect(action, &QAction::triggered, window, [tool, &alerts, window] {
            OnHowTo(tool, alerts, window);
        });
    }
    help->addSeparator();
    QAction *about = help->addAction(QStringLiteral("&About Quire"));
    about->setObjectName(QStringLiteral("actionAbout"));
    about->setMenuRole(QAction::AboutRole);
    QObject::connect(about, &QAction::triggered, window, [&alerts, window] {
        alerts.notify(window, {Alerts::Notice::Icon::Information, aboutText(), {}, {}});
    });
}

} // namespace MainMenu
