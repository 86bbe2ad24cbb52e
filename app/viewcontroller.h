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
// application-modal, and returns when that window closes; nothing of it survives.
class ViewController : public QMainWindow
{
    Q_OBJECT

public:
    explicit ViewController(Alerts &alerts, QWidget *parent = nullptr);
    ~ViewController() override;

    void openTool(Tool tool);

signals:
    // A tool window is about to run modally (tests close it from here).
    void toolWindowOpened(ToolWindow *window);

private:
    std::unique_ptr<Ui::ViewController> ui;
    Alerts &m_alerts;
};
