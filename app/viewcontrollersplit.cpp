#include "viewcontrollersplit.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "jobs/numbers.h"
#include "jobs/profiles.h"
#include "jobs/splitjob.h"
#include "ui_viewcontrollersplit.h"

#include <QIntValidator>

#include <cmath>
#include <limits>

namespace {

const QString defaultNames = QStringLiteral("[FileName](Page[IntervalIndex])");

} // namespace

ViewControllerSplit::ViewControllerSplit(Alerts &alerts, QWidget *parent)
    : ToolWindow(Tool::Split, alerts, parent)
    , ui(std::make_unique<Ui::ViewControllerSplit>())
{
    ui->setupUi(this);
    m_documents = new DocumentList(ui->tableViewPDF,
                                   QStringLiteral("TableViewPdfSplit"),
                                   DocumentList::Tooltip::TwoLines,
                                   alerts,
                                   this);
    ui->textFieldPagesPerInterval->setValidator(
        new QIntValidator(0, 999999, ui->textFieldPagesPerInterval));
    ui->stepperPagesPerInterval->setRange(1, 999999);

    m_documents->connectButtons(
        ui->buttonAddPDFDocument, ui->buttonRemoveSelected, ui->buttonRemoveAll);
    m_documents->setCountLabel(ui->labelDocumentCount);
    connect(ui->radioConsecutivePageSplit,
            &QRadioButton::clicked,
            this,
            &ViewControllerSplit::OnConsecutivePageSplitSelected);
    connect(ui->radioIntervalSplit,
            &QRadioButton::clicked,
            this,
            &ViewControllerSplit::OnIntervalSplitSelected);
    connect(ui->textFieldPagesPerInterval,
            &QLineEdit::textEdited,
            this,
            &ViewControllerSplit::OnPagesPerIntervalChanged);
    connect(ui->stepperPagesPerInterval,
            &Stepper::valueChanged,
            this,
            &ViewControllerSplit::OnStepperPagesPerIntervalChanged);
    connect(
        ui->buttonBrowse, &QPushButton::clicked, this, [this] { OnBrowse(ui->textFieldFolder); });
    connect(ui->buttonSplitPDFDocuments,
            &QPushButton::clicked,
            this,
            &ViewControllerSplit::OnSplitPDFDocuments);
    finishSetup({ui->tableViewPDF,
                 ui->buttonAddPDFDocument,
                 ui->buttonRemoveSelected,
                 ui->buttonRemoveAll,
                 ui->radioConsecutivePageSplit,
                 ui->textFieldPagesPerInterval,
                 ui->stepperPagesPerInterval,
                 ui->radioIntervalSplit,
                 ui->textFieldPagesIntervals,
                 ui->textFieldNames,
                 ui->textFieldFolder,
                 ui->buttonBrowse,
                 ui->buttonSplitPDFDocuments},
                ui->progressIndicatorSplit,
                m_documents);
    ResetInterface();
    setNameExample(ui->labelNamesExample, [this](const QString &document, qint64 pages) {
        Jobs::SplitSettings s = settings();
        // Runs of pages: the first run is enough.
        if (s.mode == Naming::SplitMode::Consecutive) {
            pages = pages > 0 ? std::min(pages, std::max<qint64>(s.pagesPerInterval, 1))
                              : std::max<qint64>(s.pagesPerInterval, 1);
        } else if (pages == 0) {
            pages = std::numeric_limits<int>::max();
        }
        const auto outputs = Jobs::SplitJob::outputsFor(s, document, pages);
        return outputs.isEmpty() ? QString() : outputs.front().path;
    });
    for (QLineEdit *field :
         {ui->textFieldNames, ui->textFieldPagesPerInterval, ui->textFieldPagesIntervals}) {
        connect(field, &QLineEdit::textChanged, this, &ViewControllerSplit::updateNameExample);
    }
    for (QRadioButton *mode : {ui->radioConsecutivePageSplit, ui->radioIntervalSplit}) {
        connect(mode, &QRadioButton::toggled, this, &ViewControllerSplit::updateNameExample);
    }
}

ViewControllerSplit::~ViewControllerSplit() = default;

void ViewControllerSplit::ResetInterface()
{
    m_documents->clear();
    setSettings(Jobs::SplitSettings{});
}

Jobs::SplitSettings ViewControllerSplit::settings() const
{
    Jobs::SplitSettings settings;
    settings.mode = ui->radioIntervalSplit->isChecked() ? Naming::SplitMode::Intervals
                                                        : Naming::SplitMode::Consecutive;
    // Not a number reads as 0; the whole-number part counts.
    settings.pagesPerInterval
        = Jobs::wholeNumber(ui->textFieldPagesPerInterval->text().toDouble()).value_or(0);
    settings.expression = ui->textFieldPagesIntervals->text();
    settings.nameTemplate = ui->textFieldNames->text();
    settings.folder = ui->textFieldFolder->text();
    return settings;
}

void ViewControllerSplit::setSettings(const Jobs::SplitSettings &settings)
{
    const bool consecutive = settings.mode == Naming::SplitMode::Consecutive;
    ui->radioConsecutivePageSplit->setChecked(consecutive);
    ui->radioIntervalSplit->setChecked(!consecutive);
    ui->textFieldPagesPerInterval->setText(QString::number(settings.pagesPerInterval));
    ui->stepperPagesPerInterval->setValue(double(settings.pagesPerInterval));
    ui->textFieldPagesIntervals->setText(settings.expression);
    ui->textFieldNames->setText(settings.nameTemplate);
    ui->textFieldFolder->setText(settings.folder);
}

bool ViewControllerSplit::applyProfileSettings(const QJsonObject &json,
                                               QString *error,
                                               QStringList *skipped)
{
    auto loaded = Jobs::Profiles::fromJson<Jobs::SplitSettings>(json, error, skipped);
    if (!loaded) {
        return false;
    }
    if (!json.contains(QStringLiteral("folder"))) {
        loaded->folder = ui->textFieldFolder->text(); // the folder chosen stays
    }
    setSettings(*loaded);
    return true;
}

void ViewControllerSplit::OnConsecutivePageSplitSelected()
{
    ui->radioIntervalSplit->setChecked(false);
    ui->textFieldNames->setText(defaultNames);
}

void ViewControllerSplit::OnIntervalSplitSelected()
{
    ui->radioConsecutivePageSplit->setChecked(false);
}

void ViewControllerSplit::OnPagesPerIntervalChanged()
{
    ui->stepperPagesPerInterval->setValue(ui->textFieldPagesPerInterval->text().toDouble());
}

void ViewControllerSplit::OnStepperPagesPerIntervalChanged()
{
    ui->textFieldPagesPerInterval->setText(
        QString::asprintf("%.0f", ui->stepperPagesPerInterval->value()));
}

void ViewControllerSplit::OnSplitPDFDocuments()
{
    const Jobs::SplitSettings s = settings();
    runBatch(std::make_shared<Jobs::SplitJob>(m_documents->listPdfPaths(), s),
             {QStringLiteral("split"),
              QStringLiteral("Select a document first."),
              QStringLiteral("PDF document(s) split successfully."),
              QStringLiteral("Could not split PDF document(s)."),
              s.folder,
              QString()});
}
