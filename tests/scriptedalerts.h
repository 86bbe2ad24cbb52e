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
    QStringList log; // "message|text", "yesno|text", "choice|text", "ask|path", "pdfs", "folder",
                     // "save|proposed", "open|caption", "url|address"
    QList<Notice> notices;    // every notice shown, with its icon, details and buttons
    QList<int> noticeAnswers; // the button pressed (-1: "OK")
    QList<bool> yesNo;        // askYesNo and askChoice: true for the first button
    bool desktopOpens = true;
    QList<Naming::OverwriteAnswer> answers;
    QList<std::optional<QStringList>> pdfPanels;
    QStringList folders;
    QStringList saveFiles;
    QStringList openFiles;

    int notify(QWidget *, const Notice &notice) override
    {
        log << "message|" + notice.text;
        notices << notice;
        return noticeAnswers.isEmpty() ? -1 : noticeAnswers.takeFirst();
    }
    bool askYesNo(QWidget *, const QString &text) override
    {
        log << "yesno|" + text;
        return !yesNo.isEmpty() && yesNo.takeFirst();
    }
    QList<bool> checkBoxes; // askYesNoWithCheckBox: whether the box is ticked
    bool
    askYesNoWithCheckBox(QWidget *, const QString &text, const QString &, bool *checked) override
    {
        log << "yesno|" + text;
        *checked = !checkBoxes.isEmpty() && checkBoxes.takeFirst();
        return !yesNo.isEmpty() && yesNo.takeFirst();
    }
    bool askChoice(QWidget *, const QString &text, const QString &, const QString &) override
    {
        log << "choice|" + text;
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
    QList<QColor> colors; // the colour chooser's answers; none: cancelled
    QColor chooseColor(QWidget *, const QColor &) override
    {
        log << "color";
        return colors.isEmpty() ? QColor() : colors.takeFirst();
    }
    QString
    chooseOpenFile(QWidget *, const QString &caption, const QString &, const QString &) override
    {
        return next("open|" + caption, openFiles);
    }
    bool openExternally(const QUrl &url) override
    {
        log << "url|" + url.toString();
        return desktopOpens;
    }

private:
    QString next(const QString &entry, QStringList &answers)
    {
        log << entry;
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
};
