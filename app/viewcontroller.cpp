#include "viewcontroller.h"

#include "app/documentlist.h"
#include "app/viewcontrollercrop.h"
#include "app/viewcontrollermerge.h"
#include "app/viewcontrollerproperties.h"
#include "app/viewcontrollersplit.h"
#include "app/viewcontrollerwatermark.h"
#include "ui_viewcontroller.h"

#include <QFileInfo>

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

void ViewController::setPendingDocuments(const QStringList &paths)
{
    m_pending = paths;
    QStringList names;
    for (const QString &path : paths.mid(0, 3)) {
        names << QFileInfo(path).fileName();
    }
    QString text = names.join(QStringLiteral(", "));
    if (paths.size() > names.size()) {
        text += tr(" and %n more", nullptr, int(paths.size() - names.size()));
    }
    ui->labelPendingDocuments->setText(tr("Ready for the next tool you open: %1.").arg(text));
    ui->labelPendingDocuments->setVisible(!paths.isEmpty());
}

void ViewController::openTool(Tool tool)
{
    const ToolWindowFactory factory = toolWindowFactory(tool);
    if (!factory) {
        return;
    }
    // A new window each time: the tool starts from its defaults, and with the documents the
    // launcher was started with the first time.
    const std::unique_ptr<ToolWindow> window = factory(m_alerts, this);
    if (!m_pending.isEmpty()) {
        const QStringList documents = m_pending;
        setPendingDocuments({});
        window->documentList()->addDocuments(documents);
    }
    emit toolWindowOpened(window.get());
    window->exec();
}
