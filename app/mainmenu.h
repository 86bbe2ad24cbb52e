#pragma once

#include <QString>

#include <optional>

class Alerts;
class QMenuBar;
class QWidget;

// The five tools of the launcher.
enum class Tool { Merge, Split, Crop, Watermark, Properties };

// The commands of the File menu that belong to a tool window with settings. The launcher has
// none: there they are disabled.
class MenuCommands
{
public:
    virtual ~MenuCommands() = default;
    virtual bool hasSettings() const = 0;
    virtual void OnFileNew() = 0;
    virtual void OnSaveProfile() = 0;
    virtual void OnSaveProfileAs() = 0;
    virtual void OnLoadProfile() = 0;
    // Whether the application may quit now (a window with a run asks first).
    virtual bool mayQuit() { return true; }
};

namespace MainMenu {

// File (New, Save Profile, Save Profile As, Load Profile, Quit) and Help (one How-To page per
// tool, About Quire), the same on the launcher and on every tool window. commands may be null; the
// How-To of the window's own tool, if it has one, answers F1.
void build(QMenuBar *menuBar,
           QWidget *window,
           Alerts &alerts,
           MenuCommands *commands,
           std::optional<Tool> windowTool = std::nullopt);

// The tool's help page: installed beside the program (share/quire/help), else in the source
// tree of a build that was not installed. Empty when there is none.
QString helpPagePath(Tool tool);
// Opens the tool's help page in the default browser; an alert says when there is none or the
// desktop cannot open it.
void OnHowTo(Tool tool, Alerts &alerts, QWidget *window);
// Help > About Quire: the version, the licence, and the versions of Qt and qpdf in use.
QString aboutText();

// "Merge PDF Documents", ..., "Edit PDF Properties": the tool's window title.
QString toolTitle(Tool tool);

} // namespace MainMenu
