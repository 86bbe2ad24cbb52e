#pragma once

#include "naming/overwrite.h"

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

    // A message with the button "OK".
    virtual void message(QWidget *parent, const QString &text) = 0;
    // Buttons "Yes", "No"; true for "Yes".
    virtual bool askYesNo(QWidget *parent, const QString &text) = 0;
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
    // Open panel for one file; empty when cancelled.
    virtual QString chooseOpenFile(QWidget *parent,
                                   const QString &caption,
                                   const QString &startFolder,
                                   const QString &filter)
        = 0;

    // Hands a document or a web address to the desktop (the default PDF viewer or browser).
    virtual void openExternally(const QUrl &url) = 0;
};
