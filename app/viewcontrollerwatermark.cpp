#include "viewcontrollerwatermark.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "app/stepper.h"
#include "drawing/fontlist.h"
#include "drawing/watermarklayers.h"
#include "jobs/documentjobs.h"
#include "jobs/profiles.h"
#include "naming/outputnames.h"
#include "preview/imagetools.h"
#include "preview/previewpane.h"
#include "ui_viewcontrollerwatermark.h"

#include <QDir>
#include <QFileInfo>
#include <QPainter>
#include <QPixmap>

namespace {

const QStringList positions{QStringLiteral("Bottom Left"),
                            QStringLiteral("Bottom Right"),
                            QStringLiteral("Top Left"),
                            QStringLiteral("Top Right"),
                            QStringLiteral("Center")};

} // namespace

ViewControllerWatermark::ViewControllerWatermark(Alerts &alerts, QWidget *parent)
    : ToolWindow(Tool::Watermark, alerts, parent)
    , ui(std::make_unique<Ui::ViewControllerWatermark>())
{
    ui->setupUi(this);
    ui->splitter->setStretchFactor(0, 0);
    ui->splitter->setStretchFactor(1, 1);
    ui->splitter->setSizes({460, 540});
    m_documents = new DocumentList(ui->tableViewPDF,
                                   QStringLiteral("TableViewPdfWatermark"),
                                   DocumentList::Tooltip::ThreeLines,
                                   alerts,
                                   this);
    m_documents->connectButtons(
        ui->buttonAddPDFDocuments, ui->buttonRemoveSelected, ui->buttonRemoveAll);
    m_documents->setCountLabel(ui->labelDocumentCount);
    ui->comboFont->clear();
    ui->comboFont->addItems(FontList::names());
    for (QComboBox *combo : {ui->comboTextPosition, ui->comboImagePosition}) {
        combo->clear();
        combo->addItems(positions);
    }
    // The ranges hold the defaults (size 30, opacities 70, scale 100, offsets 0).
    ui->stepperSize->setRange(1, 1000);
    ui->stepperTextOpacity->setRange(0, 100);
    ui->stepperImageOpacity->setRange(0, 100);
    ui->stepperScale->setRange(1, 1000);
    for (Stepper *offset : {ui->stepperTextXOffset,
                            ui->stepperTextYOffset,
                            ui->stepperImageXOffset,
                            ui->stepperImageYOffset}) {
        offset->setRange(-14400, 14400);
    }

    PreviewPane &pane = preview();
    pane.setDrawingSource([this]() -> PreviewPane::Drawing {
        const Jobs::WatermarkSettings s = settings();
        return [s](const QImage &page, const PageGeometry &) {
            return ImageTools::DrawWatermarkOnPageImage(page, s);
        };
    });
    connect(m_documents, &DocumentList::currentPDFChanged, &pane, &PreviewPane::showDocument);
    connect(m_documents, &DocumentList::previewCleared, &pane, &PreviewPane::clearPreview);

    // Every change of a setting on either tab shows in the preview.
    const auto refresh = [&pane] { pane.SchedulePreviewUpdate(); };
    const std::pair<QLineEdit *, Stepper *> numbers[] = {
        {ui->textFieldSize, ui->stepperSize},
        {ui->textFieldTextOpacity, ui->stepperTextOpacity},
        {ui->textFieldTextXOffset, ui->stepperTextXOffset},
        {ui->textFieldTextYOffset, ui->stepperTextYOffset},
        {ui->textFieldScale, ui->stepperScale},
        {ui->textFieldImageOpacity, ui->stepperImageOpacity},
        {ui->textFieldImageXOffset, ui->stepperImageXOffset},
        {ui->textFieldImageYOffset, ui->stepperImageYOffset},
    };
    for (const auto &[field, stepper] : numbers) {
        coupleFieldAndStepper(field, stepper, refresh);
    }
    for (QLineEdit *field : {ui->textFieldText, ui->textFieldImage}) {
        connect(field, &QLineEdit::textEdited, this, refresh);
    }
    for (QComboBox *combo : {ui->comboFont, ui->comboTextPosition, ui->comboImagePosition}) {
        connect(combo, &QComboBox::activated, this, refresh);
    }
    for (QCheckBox *check : {ui->checkShadow, ui->checkStroke}) {
        connect(check, &QCheckBox::clicked, this, refresh);
    }
    connect(ui->sliderRotate, &QSlider::valueChanged, this, [this, refresh](int degrees) {
        ui->labelRotateValue->setText(QStringLiteral("%1°").arg(degrees));
        refresh();
    });
    connect(
        ui->colorWellColor, &QPushButton::clicked, this, &ViewControllerWatermark::OnColorChosen);
    connect(ui->buttonImageBrowse,
            &QPushButton::clicked,
            this,
            &ViewControllerWatermark::OnImageBrowse);
    connect(
        ui->buttonTextReset, &QPushButton::clicked, this, &ViewControllerWatermark::OnTextReset);
    connect(
        ui->buttonImageReset, &QPushButton::clicked, this, &ViewControllerWatermark::OnImageReset);
    connect(ui->checkPageIntervals, &QCheckBox::toggled, this, [this] {
        ui->textFieldPageIntervals->setEnabled(ui->checkPageIntervals->isChecked()
                                               && ui->checkPageIntervals->isEnabled());
    });
    connect(
        ui->buttonBrowse, &QPushButton::clicked, this, [this] { OnBrowse(ui->textFieldFolder); });
    connect(ui->buttonWatermarkPDFDocuments,
            &QPushButton::clicked,
            this,
            &ViewControllerWatermark::OnWatermarkPDFDocuments);

    const QList<QWidget *> paneControls = pane.controls();
    finishSetup({ui->tableViewPDF,
                 paneControls[0], // buttonZoomIn
                 paneControls[1], // buttonZoomOut
                 paneControls[2], // buttonResetZoom
                 paneControls[3], // buttonPreviousPage
                 paneControls[4], // buttonNextPage
                 ui->buttonAddPDFDocuments, ui->buttonRemoveSelected,
                 ui->buttonRemoveAll,       ui->buttonWatermarkPDFDocuments,
                 ui->textFieldText,         ui->comboFont,
                 ui->textFieldSize,         ui->stepperSize,
                 ui->colorWellColor,        ui->textFieldTextOpacity,
                 ui->stepperTextOpacity,    ui->checkShadow,
                 ui->checkStroke,           ui->textFieldImage,
                 ui->buttonImageBrowse,     ui->textFieldScale,
                 ui->stepperScale,          ui->textFieldImageOpacity,
                 ui->stepperImageOpacity,   ui->sliderRotate,
                 ui->comboTextPosition,     ui->textFieldTextXOffset,
                 ui->stepperTextXOffset,    ui->textFieldTextYOffset,
                 ui->stepperTextYOffset,    ui->comboImagePosition,
                 ui->textFieldImageXOffset, ui->stepperImageXOffset,
                 ui->textFieldImageYOffset, ui->stepperImageYOffset,
                 ui->checkPageIntervals,    ui->textFieldPageIntervals,
                 ui->textFieldNames,        ui->textFieldFolder,
                 ui->buttonBrowse,          ui->buttonTextReset,
                 ui->buttonImageReset},
                ui->progressIndicatorWatermark,
                m_documents);
    ResetInterface();
    setNameExample(ui->labelNamesExample, [this](const QString &document, qint64) {
        return Naming::OutputPathForDocument(
            ui->textFieldNames->text(), ui->textFieldFolder->text(), document);
    });
    connect(ui->textFieldNames,
            &QLineEdit::textChanged,
            this,
            &ViewControllerWatermark::updateNameExample);
}

ViewControllerWatermark::~ViewControllerWatermark() = default;

PreviewPane &ViewControllerWatermark::preview() const
{
    return *ui->boxImage;
}

void ViewControllerWatermark::ResetInterface()
{
    m_documents->clear();
    ui->tabViewWatermark->setCurrentIndex(0);
    setSettings(Jobs::WatermarkSettings{});
    preview().reset(); // no refresh is scheduled
}

void ViewControllerWatermark::setColor(const QColor &color)
{
    m_color = color.isValid() ? color.toRgb() : QColor(Qt::black);
    // The button shows the colour as a swatch, and its name.
    const int side = ui->colorWellColor->fontMetrics().height();
    QPixmap swatch(side * 2, side);
    swatch.fill(m_color);
    QPainter painter(&swatch);
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(swatch.rect().adjusted(0, 0, -1, -1));
    painter.end();
    ui->colorWellColor->setIcon(QIcon(swatch));
    ui->colorWellColor->setIconSize(swatch.size());
    ui->colorWellColor->setText(m_color.name().toUpper());
}

Jobs::WatermarkSettings ViewControllerWatermark::settings() const
{
    Jobs::WatermarkSettings s;
    s.text = ui->textFieldText->text();
    s.font = FontList::names().value(ui->comboFont->currentIndex());
    s.size = fieldNumber(ui->textFieldSize);
    s.color = m_color.name();
    s.textOpacity = fieldNumber(ui->textFieldTextOpacity);
    s.textPosition = ui->comboTextPosition->currentIndex();
    s.textOffsetX = fieldNumber(ui->textFieldTextXOffset);
    s.textOffsetY = fieldNumber(ui->textFieldTextYOffset);
    s.shadow = ui->checkShadow->isChecked();
    s.stroke = ui->checkStroke->isChecked();
    s.image = ui->textFieldImage->text();
    s.scale = fieldNumber(ui->textFieldScale);
    s.imageOpacity = fieldNumber(ui->textFieldImageOpacity);
    s.rotation = ui->sliderRotate->value();
    s.imagePosition = ui->comboImagePosition->currentIndex();
    s.imageOffsetX = fieldNumber(ui->textFieldImageXOffset);
    s.imageOffsetY = fieldNumber(ui->textFieldImageYOffset);
    s.pagesEnabled = ui->checkPageIntervals->isChecked();
    s.pages = ui->textFieldPageIntervals->text();
    s.nameTemplate = ui->textFieldNames->text();
    s.folder = ui->textFieldFolder->text();
    return s;
}

void ViewControllerWatermark::setTextSettings(const Jobs::WatermarkSettings &s)
{
    ui->textFieldText->setText(s.text);
    const int font = int(FontList::names().indexOf(s.font));
    ui->comboFont->setCurrentIndex(font >= 0 ? font : FontList::DefaultIndex);
    setColor(QColor(s.color));
    const std::tuple<QLineEdit *, Stepper *, double> values[] = {
        {ui->textFieldSize, ui->stepperSize, s.size},
        {ui->textFieldTextOpacity, ui->stepperTextOpacity, s.textOpacity},
        {ui->textFieldTextXOffset, ui->stepperTextXOffset, s.textOffsetX},
        {ui->textFieldTextYOffset, ui->stepperTextYOffset, s.textOffsetY},
    };
    for (const auto &[field, stepper, value] : values) {
        field->setText(fieldText(value));
        stepper->setValue(value);
    }
    ui->checkShadow->setChecked(s.shadow);
    ui->checkStroke->setChecked(s.stroke);
    ui->comboTextPosition->setCurrentIndex(int(std::clamp<qint64>(s.textPosition, 0, 4)));
}

void ViewControllerWatermark::setImageSettings(const Jobs::WatermarkSettings &s)
{
    ui->textFieldImage->setText(s.image);
    const std::tuple<QLineEdit *, Stepper *, double> values[] = {
        {ui->textFieldScale, ui->stepperScale, s.scale},
        {ui->textFieldImageOpacity, ui->stepperImageOpacity, s.imageOpacity},
        {ui->textFieldImageXOffset, ui->stepperImageXOffset, s.imageOffsetX},
        {ui->textFieldImageYOffset, ui->stepperImageYOffset, s.imageOffsetY},
    };
    for (const auto &[field, stepper, value] : values) {
        field->setText(fieldText(value));
        stepper->setValue(value);
    }
    ui->sliderRotate->setValue(int(std::lround(std::clamp(s.rotation, 0.0, 360.0))));
    ui->labelRotateValue->setText(QStringLiteral("%1°").arg(ui->sliderRotate->value()));
    ui->comboImagePosition->setCurrentIndex(int(std::clamp<qint64>(s.imagePosition, 0, 4)));
}

void ViewControllerWatermark::setSettings(const Jobs::WatermarkSettings &s)
{
    setTextSettings(s);
    setImageSettings(s);
    ui->checkPageIntervals->setChecked(s.pagesEnabled);
    ui->textFieldPageIntervals->setText(s.pages);
    ui->textFieldPageIntervals->setEnabled(s.pagesEnabled);
    ui->textFieldNames->setText(s.nameTemplate);
    ui->textFieldFolder->setText(s.folder);
}

void ViewControllerWatermark::OnTextReset()
{
    setTextSettings(Jobs::WatermarkSettings{});
    preview().SchedulePreviewUpdate();
}

void ViewControllerWatermark::OnImageReset()
{
    setImageSettings(Jobs::WatermarkSettings{});
    preview().SchedulePreviewUpdate();
}

void ViewControllerWatermark::OnColorChosen()
{
    const QColor chosen = alerts().chooseColor(this, m_color);
    if (chosen.isValid()) {
        setColor(chosen);
        preview().SchedulePreviewUpdate();
    }
}

void ViewControllerWatermark::OnImageBrowse()
{
    const QString current = ui->textFieldImage->text();
    const QString start = current.isEmpty() ? QDir::homePath() : QFileInfo(current).absolutePath();
    const QString path = alerts().chooseOpenFile(
        this,
        QStringLiteral("Choose Picture"),
        start,
        QStringLiteral("Pictures (*.png *.jpg *.jpeg *.gif *.bmp *.webp *.tif *.tiff *.svg)"));
    if (!path.isEmpty()) {
        ui->textFieldImage->setText(path);
        preview().SchedulePreviewUpdate();
    }
}

void ViewControllerWatermark::setInterfaceEnabled(bool enabled)
{
    ToolWindow::setInterfaceEnabled(enabled);
    // The page-interval field follows its check box, also when the window is enabled again.
    ui->textFieldPageIntervals->setEnabled(enabled && ui->checkPageIntervals->isChecked());
}

QJsonObject ViewControllerWatermark::profileSettings() const
{
    return Jobs::Profiles::toJson(settings());
}

bool ViewControllerWatermark::applyProfileSettings(const QJsonObject &json,
                                                   QString *error,
                                                   QStringList *skipped)
{
    auto loaded = Jobs::Profiles::fromJson<Jobs::WatermarkSettings>(json, error, skipped);
    if (!loaded) {
        return false;
    }
    if (!json.contains(QStringLiteral("folder"))) {
        loaded->folder = ui->textFieldFolder->text(); // the folder chosen stays
    }
    setSettings(*loaded);
    preview().SchedulePreviewUpdate();
    return true;
}

void ViewControllerWatermark::OnWatermarkPDFDocuments()
{
    const Jobs::WatermarkSettings s = settings();
    runBatch(std::make_shared<Jobs::WatermarkJob>(
                 m_documents->listPdfPaths(), s, WatermarkLayers::forSettings(s)),
             {QStringLiteral("watermark"),
              QStringLiteral("There are no PDF documents to watermark."),
              QStringLiteral("PDF document(s) watermarked successfully."),
              QStringLiteral("Could not watermark PDF document(s)."),
              s.folder,
              QString()});
}
