#include "viewcontroller.h"

#include "app/viewcontrollercrop.h"
#include "app/viewcontrollermerge.h"
#include "app/viewcontrollerproperties.h"
#include "app/viewcontrollersplit.h"
#include "app/viewcontrollerwatermark.h"
#include "ui_viewcontroller.h"

namespace {

template <typename Window> std::unique_ptr<ToolWindow> make(Alerts &alerts, QWidget *parent)
{
    return std::make_unique<Window>(alerts, parent);
}

} // namespace

ToolWindowFactory toolWindowFactory(Tool tool)
{
    switch (tool) {
    case Tool::Merge:
        return make<ViewControllerMerge>;
    case Tool::Split:
        return make<ViewControllerSplit>;
    case Tool::Crop:
        return make<ViewControllerCrop>;
    case Tool::Properties:
        return make<ViewControllerProperties>;
    case Tool::Watermark:
        return make<ViewControllerWatermark>;
    }
    return nullptr;
}

ViewController::ViewController(Alerts &alerts, QWidget *parent)
    : QMainWindow(parent)
    , ui(std::make_unique<Ui::ViewController>())
    , m_alerts(alerts)
{
    ui->setupUi(this);
    MainMenu::build(menuBar(), this, alerts, nullptr);
    const std::pair<QPushButton *, Tool> buttons[] = {
        {ui->buttonMergePDFDocuments, Tool::Merge},
        {ui->buttonSplitPDFDocuments, Tool::Split},
        {ui->buttonCropPDFDocuments, Tool::Crop},
        {ui->buttonWatermarkPDFDocuments, Tool::Watermark},
        {ui->buttonEditPDFProperties, Tool::Properties},
    };
    for (const auto &[button, tool] : buttons) {
        // A tool this build does not have yet stays visible but cannot be chosen.
        button->setEnabled(toolWindowFactory(tool) != nullptr);
        // Enter on a focused button opens its tool, as Space does.
        button->setAutoDefault(true);
        connect(button, &QPushButton::clicked, this, [this, tool = tool] { openTool(tool); });
    }
}

ViewController::~ViewController() = default;

void ViewController::openTool(Tool tool)
{
    const ToolWindowFactory factory = toolWindowFactory(tool);
    if (!factory) {
        return;
    }
    // A new window each time: the tool starts from its defaults.
    const std::unique_ptr<ToolWindow> window = factory(m_alerts, this);
    emit toolWindowOpened(window.get());
    window->exec();
}
