#pragma once

#include "app/alerts.h"

// The program's alerts: QMessageBox and QFileDialog, and the desktop's default applications.
class WidgetAlerts final : public Alerts
{
public:
    void message(QWidget *parent, const QString &text) override;
    bool askYesNo(QWidget *parent, const QString &text) override;
    Naming::OverwriteAnswer askOverwrite(QWidget *parent, const QString &path) override;
    std::optional<QStringList> choosePdfs(QWidget *parent) override;
    QString chooseFolder(QWidget *parent, const QString &startFolder) override;
    QString chooseSaveFile(QWidget *parent,
                           const QString &caption,
                           const QString &proposedPath,
                           const QString &filter,
                           const QString &defaultSuffix) override;
    QString chooseOpenFile(QWidget *parent,
                           const QString &caption,
                           const QString &startFolder,
                           const QString &filter) override;
    void openExternally(const QUrl &url) override;
};
