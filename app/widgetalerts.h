#pragma once

#include "app/alerts.h"

// The program's alerts: QMessageBox and QFileDialog, and the desktop's default applications.
class WidgetAlerts final : public Alerts
{
public:
    int notify(QWidget *parent, const Notice &notice) override;
    bool askYesNo(QWidget *parent, const QString &text) override;
    bool askYesNoWithCheckBox(QWidget *parent,
                              const QString &text,
                              const QString &checkBox,
                              bool *checked) override;
    bool askChoice(QWidget *parent,
                   const QString &text,
                   const QString &first,
                   const QString &second) override;
    Naming::OverwriteAnswer askOverwrite(QWidget *parent, const QString &path) override;
    std::optional<QStringList> choosePdfs(QWidget *parent) override;
    QString chooseFolder(QWidget *parent, const QString &startFolder) override;
    QString chooseSaveFile(QWidget *parent,
                           const QString &caption,
                           const QString &proposedPath,
                           const QString &filter,
                           const QString &defaultSuffix) override;
    QColor chooseColor(QWidget *parent, const QColor &initial) override;
    QString chooseOpenFile(QWidget *parent,
                           const QString &caption,
                           const QString &startFolder,
                           const QString &filter) override;
    bool openExternally(const QUrl &url) override;
};
