#pragma once

#include "naming/overwrite.h"

#include <QColor>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

class QWidget;

// Every message, question and file panel the windows show goes through this interface, so that
// tests can script the answers. In the program it is WidgetAlerts: warning-style message boxes
// with the words as their text and the buttons in the order given here, and Qt's file dialogs.
class Alerts
{
public:
    virtual ~Alerts() = default;

    // A message: its icon, its words, what lies behind "Show Details…", and buttons beside
    // "OK" ("Show in Folder", "Open").
    struct Notice
    {
        enum class Icon { Information, Warning };
        Icon icon = Icon::Warning;
        QString text;
        QString details; // empty: none
        QStringList buttons;
    };
    // Shows the notice; the index in notice.buttons of the button pressed, -1 for "OK".
    virtual int notify(QWidget *parent, const Notice &notice) = 0;
    // A message in warning style with the button "OK".
    void message(QWidget *parent, const QString &text)
    {
        notify(parent, {Notice::Icon::Warning, text, {}, {}});
    }
    // Buttons "Yes", "No"; true for "Yes".
    virtual bool askYesNo(QWidget *parent, const QString &text) = 0;
    // Buttons "Yes", "No" and a check box under the question, with its words; true for "Yes".
    // *checked tells whether the box was ticked, whichever button was pressed.
    virtual bool askYesNoWithCheckBox(QWidget *parent,
                                      const QString &text,
                                      const QString &checkBox,
                                      bool *checked)
        = 0;
    // Two buttons of their own words; true for the first. Escape answers the second.
    virtual bool
    askChoice(QWidget *parent, const QString &text, const QString &first, const QString &second)
        = 0;
    // The overwrite question, buttons "Yes", "Yes to All", "No", "No to All".
    virtual Naming::OverwriteAnswer askOverwrite(QWidget *parent, const QString &path) = 0;

    // Open panel for several PDF files; nothing when cancelled, an empty list when confirmed
    // without a file.
    virtual std::optional<QStringList> choosePdfs(QWidget *parent) = 0;
    // Folder panel with the prompt "Select Folder"; empty when cancelled.
    virtual QString chooseFolder(QWidget *parent, const QString &startFolder) = 0;
    // Save panel proposing proposedPath; the panel confirms replacing an existing file itself.
    // Empty when cancelled.
    virtual QString chooseSaveFile(QWidget *parent,
                                   const QString &caption,
                                   const QString &proposedPath,
                                   const QString &filter,
                                   const QString &defaultSuffix)
        = 0;
    // The desktop's colour chooser, starting at initial; an invalid colour when cancelled.
    virtual QColor chooseColor(QWidget *parent, const QColor &initial) = 0;
    // Open panel for one file; empty when cancelled.
    virtual QString chooseOpenFile(QWidget *parent,
                                   const QString &caption,
                                   const QString &startFolder,
                                   const QString &filter)
        = 0;

    // Hands a document, a folder or a web address to the desktop (the default PDF viewer, file
    // manager or browser); false when the desktop could not.
    virtual bool openExternally(const QUrl &url) = 0;
    // The same, saying so when the desktop cannot open it (no application for it, no
    // xdg-open), with the path or address to open by hand.
    void open(QWidget *parent, const QUrl &url)
    {
        if (!openExternally(url)) {
            message(parent,
                    QStringLiteral("The desktop could not open %1. Open it with another program.")
                        .arg(url.isLocalFile() ? url.toLocalFile() : url.toString()));
        }
    }
};
