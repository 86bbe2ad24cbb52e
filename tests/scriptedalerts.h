#pragma once

// The alerts of the windows, scripted: every message, question and panel is logged, and the
// answers come from lists filled by the test (consumed in order; an empty list answers "No",
// or cancels a panel).

#include "app/alerts.h"

#include <QList>
#include <QStringList>

#include <optional>

class ScriptedAlerts final : public Alerts
{
public:
    QStringList log; // "message|text", "yesno|text", "ask|path", "pdfs", "folder", "save|proposed",
                     // "open|caption", "url|address"
    QList<bool> yesNo;
    QList<Naming::OverwriteAnswer> answers;
    QList<std::optional<QStringList>> pdfPanels;
    QStringList folders;
    QStringList saveFiles;
    QStringList openFiles;

    void message(QWidget *, const QString &text) override { log << "message|" + text; }
    bool askYesNo(QWidget *, const QString &text) override
    {
        log << "yesno|" + text;
        return !yesNo.isEmpty() && yesNo.takeFirst();
    }
    Naming::OverwriteAnswer askOverwrite(QWidget *, const QString &path) override
    {
        log << "ask|" + path;
        return answers.isEmpty() ? Naming::OverwriteAnswer::No : answers.takeFirst();
    }
    std::optional<QStringList> choosePdfs(QWidget *) override
    {
        log << "pdfs";
        return pdfPanels.isEmpty() ? std::nullopt : pdfPanels.takeFirst();
    }
    QString chooseFolder(QWidget *, const QString &) override { return next("folder", folders); }
    QString chooseSaveFile(QWidget *,
                           const QString &,
                           const QString &proposedPath,
                           const QString &,
                           const QString &) override
    {
        return next("save|" + proposedPath, saveFiles);
    }
    QString
    chooseOpenFile(QWidget *, const QString &caption, const QString &, const QString &) override
    {
        return next("open|" + caption, openFiles);
    }
    void openExternally(const QUrl &url) override { log << "url|" + url.toString(); }

private:
    QString next(const QString &entry, QStringList &answers)
    {
        log << entry;
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
};
