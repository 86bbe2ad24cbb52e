#include "viewcontrollercrop.h"

#include "app/documentlist.h"
#include "jobs/documentjobs.h"
#include "jobs/profiles.h"
#include "naming/outputnames.h"
#include "preview/imagetools.h"
#include "preview/previewpane.h"
#include "ui_viewcontrollercrop.h"

#include <QFileInfo>

namespace {

const QString defaultNames = QStringLiteral("[FileName]_Cropped");

} // namespace

ViewControllerCrop::ViewControllerCrop(Alerts &alerts, QWidget *parent)
    : ToolWindow(Tool::Crop, alerts, parent)
    , ui(std::make_unique<Ui::ViewControllerCrop>())
{
    ui->setupUi(this);
    ui->splitter->setStretchFactor(0, 0);
    ui->splitter->setStretchFactor(1, 1);
    ui->splitter->setSizes({460, 540});
    m_documents = new DocumentList(ui->tableViewPDF,
                                   QStringLiteral("TableViewPdfCrop"),
                                   DocumentList::Tooltip::ThreeLines,
                                   alerts,
                                   this);
    m_documents->connectButtons(
        ui->buttonAddPDFDocuments, ui->buttonRemoveSelected, ui->buttonRemoveAll);
    m_documents->setCountLabel(ui->labelDocumentCount);
    ui->comboDefineUsing->clear();
    ui->comboDefineUsing->addItems({QStringLiteral("Percents"), QStringLiteral("Points")});

    PreviewPane &pane = preview();
    pane.setRectangleDrawing(true);
    pane.setDrawingSource([this]() -> PreviewPane::Drawing {
        const Jobs::CropSettings s = settings();
        return [s](const QImage &page, const PageGeometry &geometry) -> QImage {
            // A page without area is not previewed: the image stays as it was.
            const QSizeF size = geometry.displayedSize();
            if (std::trunc(size.width()) <= 0 || std::trunc(size.height()) <= 0) {
                return {};
            }
            const QRectF r = s.percents()
                                 ? geometry.percentToPoints(s.originX, s.originY, s.width, s.height)
                                 : QRectF(s.originX, s.originY, s.width, s.height);
            return ImageTools::DrawCropRectangleOnPageImage(
                page, geometry, r.x(), r.y(), r.width(), r.height());
        };
    });
    connect(m_documents, &DocumentList::currentPDFChanged, &pane, &PreviewPane::showDocument);
    connect(m_documents, &DocumentList::previewCleared, &pane, &PreviewPane::clearPreview);
    connect(&pane, &PreviewPane::rectangleDrawn, this, &ViewControllerCrop::OnRectangleDrawn);

    const std::pair<QLineEdit *, Stepper *> values[] = {
        {ui->textFieldOriginX, ui->stepperOriginX},
        {ui->textFieldOriginY, ui->stepperOriginY},
        {ui->textFieldWidth, ui->stepperWidth},
        {ui->textFieldHeight, ui->stepperHeight},
    };
    for (const auto &[field, stepper] : values) {
        coupleFieldAndStepper(field, stepper, [&pane] { pane.SchedulePreviewUpdate(); });
    }
    connect(ui->comboDefineUsing,
            &QComboBox::activated,
            this,
            &ViewControllerCrop::OnDefineUsingChanged);
    connect(ui->checkPagesIntervals,
            &QCheckBox::toggled,
            this,
            &ViewControllerCrop::OnCheckPageIntervalsSelected);
    connect(
        ui->buttonBrowse, &QPushButton::clicked, this, [this] { OnBrowse(ui->textFieldFolder); });
    connect(ui->buttonCropPDFDocuments,
            &QPushButton::clicked,
            this,
            &ViewControllerCrop::OnCropPDFDocuments);

    const QList<QWidget *> paneControls = pane.controls();
    finishSetup({ui->tableViewPDF,
                 paneControls[0], // buttonZoomIn
                 paneControls[1], // buttonZoomOut
                 paneControls[2], // buttonResetZoom
                 paneControls[3], // buttonPreviousPage
                 paneControls[4], // buttonNextPage
                 ui->buttonAddPDFDocuments,
                 ui->buttonRemoveSelected,
                 ui->buttonRemoveAll,
                 ui->buttonCropPDFDocuments,
                 ui->comboDefineUsing,
                 ui->textFieldOriginX,
                 ui->stepperOriginX,
                 ui->textFieldOriginY,
                 ui->stepperOriginY,
                 ui->textFieldWidth,
                 ui->stepperWidth,
                 ui->textFieldHeight,
                 ui->stepperHeight,
                 ui->checkPagesIntervals,
                 ui->textFieldPagesIntervals,
                 ui->textFieldNames,
                 ui->textFieldFolder,
                 ui->buttonBrowse},
                ui->progressIndicatorCrop,
                m_documents);
    ResetInterface();
    setNameExample(ui->labelNamesExample, [this](const QString &document, qint64) {
        return Naming::OutputPathForDocument(
            ui->textFieldNames->text(), ui->textFieldFolder->text(), document);
    });
    connect(
        ui->textFieldNames, &QLineEdit::textChanged, this, &ViewControllerCrop::updateNameExample);
}

ViewControllerCrop::~ViewControllerCrop() = default;

PreviewPane &ViewControllerCrop::preview() const
{
    return *ui->boxImage;
}

void ViewControllerCrop::ResetInterface()
{
    m_documents->clear();
    setSettings(Jobs::CropSettings{});
    preview().reset();
    m_comboDefineUsingSelection = 1;
}

Jobs::CropSettings ViewControllerCrop::settings() const
{
    Jobs::CropSettings s;
    s.unit = ui->comboDefineUsing->currentIndex() == 0 ? Jobs::CropUnit::Percents
                                                       : Jobs::CropUnit::Points;
    s.originX = fieldNumber(ui->textFieldOriginX);
    s.originY = fieldNumber(ui->textFieldOriginY);
    s.width = fieldNumber(ui->textFieldWidth);
    s.height = fieldNumber(ui->textFieldHeight);
    s.pagesEnabled = ui->checkPagesIntervals->isChecked();
    s.pages = ui->textFieldPagesIntervals->text();
    s.nameTemplate = ui->textFieldNames->text();
    s.folder = ui->textFieldFolder->text();
    return s;
}

void ViewControllerCrop::setSettings(const Jobs::CropSettings &s)
{
    ui->comboDefineUsing->setCurrentIndex(s.percents() ? 0 : 1);
    m_comboDefineUsingSelection = ui->comboDefineUsing->currentIndex();
    setStepperRanges(s.unit);
    const std::tuple<QLineEdit *, Stepper *, double> values[] = {
        {ui->textFieldOriginX, ui->stepperOriginX, s.originX},
        {ui->textFieldOriginY, ui->stepperOriginY, s.originY},
        {ui->textFieldWidth, ui->stepperWidth, s.width},
        {ui->textFieldHeight, ui->stepperHeight, s.height},
    };
    for (const auto &[field, stepper, value] : values) {
        field->setText(fieldText(value));
        stepper->setValue(value);
    }
    ui->checkPagesIntervals->setChecked(s.pagesEnabled);
    ui->textFieldPagesIntervals->setText(s.pages);
    ui->textFieldPagesIntervals->setEnabled(s.pagesEnabled);
    ui->textFieldNames->setText(s.nameTemplate);
    ui->textFieldFolder->setText(s.folder);
    preview().SchedulePreviewUpdate();
}

void ViewControllerCrop::setStepperRanges(Jobs::CropUnit unit)
{
    const double most = unit == Jobs::CropUnit::Percents ? 100 : 14400;
    for (Stepper *stepper :
         {ui->stepperOriginX, ui->stepperOriginY, ui->stepperWidth, ui->stepperHeight}) {
        stepper->setRange(0, most);
    }
}

void ViewControllerCrop::OnDefineUsingChanged()
{
    const int selection = ui->comboDefineUsing->currentIndex();
    const auto geometry = preview().pageGeometry();
    if (selection != m_comboDefineUsingSelection && geometry && !preview().currentPDF().isEmpty()) {
        const QSizeF page = geometry->displayedSize();
        const bool toPercents = selection == 0;
        const std::pair<QLineEdit *, double> values[] = {
            {ui->textFieldOriginX, page.width()},
            {ui->textFieldOriginY, page.height()},
            {ui->textFieldWidth, page.width()},
            {ui->textFieldHeight, page.height()},
        };
        for (const auto &[field, length] : values) {
            if (length > 0) {
                const double value = fieldNumber(field);
                field->setText(fieldText(toPercents ? value / length * 100 : value * length / 100));
            }
        }
    }
    m_comboDefineUsingSelection = selection;
    setStepperRanges(selection == 0 ? Jobs::CropUnit::Percents : Jobs::CropUnit::Points);
    for (const auto &[field, stepper] : {std::pair{ui->textFieldOriginX, ui->stepperOriginX},
                                         std::pair{ui->textFieldOriginY, ui->stepperOriginY},
                                         std::pair{ui->textFieldWidth, ui->stepperWidth},
                                         std::pair{ui->textFieldHeight, ui->stepperHeight}}) {
        stepper->setValue(fieldNumber(field));
    }
    preview().SchedulePreviewUpdate();
}

void ViewControllerCrop::OnCheckPageIntervalsSelected()
{
    ui->textFieldPagesIntervals->setEnabled(ui->checkPagesIntervals->isChecked()
                                            && ui->checkPagesIntervals->isEnabled());
}

void ViewControllerCrop::setInterfaceEnabled(bool enabled)
{
    ToolWindow::setInterfaceEnabled(enabled);
    // The page-interval field follows its check box, also when the window is enabled again.
    OnCheckPageIntervalsSelected();
}

void ViewControllerCrop::OnRectangleDrawn(const QRectF &rect)
{
    QRectF r = rect.intersected(QRectF(QPointF(0, 0), preview().pageGeometry()->displayedSize()));
    if (ui->comboDefineUsing->currentIndex() == 0) {
        const QSizeF page = preview().pageGeometry()->displayedSize();
        r = QRectF(r.x() / page.width() * 100,
                   r.y() / page.height() * 100,
                   r.width() / page.width() * 100,
                   r.height() / page.height() * 100);
    }
    const std::tuple<QLineEdit *, Stepper *, double> values[] = {
        {ui->textFieldOriginX, ui->stepperOriginX, r.x()},
        {ui->textFieldOriginY, ui->stepperOriginY, r.y()},
        {ui->textFieldWidth, ui->stepperWidth, r.width()},
        {ui->textFieldHeight, ui->stepperHeight, r.height()},
    };
    for (const auto &[field, stepper, value] : values) {
        field->setText(QString::asprintf("%.2f", value));
        stepper->setValue(fieldNumber(field));
    }
    preview().SchedulePreviewUpdate();
}

QJsonObject ViewControllerCrop::profileSettings() const
{
    return Jobs::Profiles::toJson(settings());
}

bool ViewControllerCrop::applyProfileSettings(const QJsonObject &json,
                                              QString *error,
                                              QStringList *skipped)
{
    auto loaded = Jobs::Profiles::fromJson<Jobs::CropSettings>(json, error, skipped);
    if (!loaded) {
        return false;
    }
    if (!json.contains(QStringLiteral("folder"))) {
        loaded->folder = ui->textFieldFolder->text(); // the folder chosen stays
    }
    setSettings(*loaded);
    return true;
}

void ViewControllerCrop::OnCropPDFDocuments()
{
    const Jobs::CropSettings s = settings();
    runBatch(std::make_shared<Jobs::CropJob>(m_documents->listPdfPaths(), s),
             {QStringLiteral("crop"),
              QStringLiteral("There are no PDF documents to crop."),
              QStringLiteral("PDF document(s) cropped successfully."),
              QStringLiteral("Could not crop PDF document(s)."),
              s.folder,
              QString()});
}
