#pragma once

#include "app/mainmenu.h"

#include <QMainWindow>

#include <memory>

namespace Ui {
class ViewController;
}
class Alerts;
class ToolWindow;

// Makes a new window of a tool.
using ToolWindowFactory = std::unique_ptr<ToolWindow> (*)(Alerts &alerts, QWidget *parent);
// Null for a tool this build does not have.
ToolWindowFactory toolWindowFactory(Tool tool);

// The launcher: one button per tool and the main menu. A button opens a new window of its tool,
// application-modal, and returns when that window closes; nothing of it survives. Documents the
// launcher was started with (quire FILE..., a file manager's "Open With") wait, named under the
// introduction, for the next tool opened, which lists them.
class ViewController : public QMainWindow
{
    Q_OBJECT

public:
    explicit ViewController(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewController() override;

    void openTool(Tool tool);
    // The documents the next tool opened starts with; they go through its load test there.
    void setPendingDocuments(const QStringList &paths);
    const QStringList &pendingDocuments() const { return m_pending; }

signals:
    // A tool window is about to run modally (tests close it from here).
    void toolWindowOpened(ToolWindow *window);

private:
    std::unique_ptr<Ui::ViewController> ui;
    Alerts &m_alerts;
    QStringList m_pending;
};
