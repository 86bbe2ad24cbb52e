#include "viewcontrollersplit.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "engine/pdftools.h"
#include "naming/intervals.h"
#include "naming/outputnames.h"
#include "ui_viewcontrollersplit.h"

#include <QFileInfo>
#include <QIntValidator>

#include <cmath>

namespace {

// One output of a run: an interval of a document, its file and what to do with it.
struct PlannedOutput
{
    Naming::PageInterval interval;
    QString path;
    Naming::OverwriteDecision decision;
};

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
                ui->progressIndicatorSplit);
    ResetInterface();
}

ViewControllerSplit::~ViewControllerSplit() = default;

void ViewControllerSplit::ResetInterface()
{
    m_documents->clear();
    setSettings(Profiles::SplitSettings{});
}

Profiles::SplitSettings ViewControllerSplit::settings() const
{
    Profiles::SplitSettings settings;
    settings.mode = ui->radioIntervalSplit->isChecked() ? Naming::SplitMode::Intervals
                                                        : Naming::SplitMode::Consecutive;
    // Not a number reads as 0; the whole-number part counts.
    settings.pagesPerInterval
        = qint64(std::trunc(ui->textFieldPagesPerInterval->text().toDouble()));
    settings.expression = ui->textFieldPagesIntervals->text();
    settings.nameTemplate = ui->textFieldNames->text();
    settings.folder = ui->textFieldFolder->text();
    return settings;
}

void ViewControllerSplit::setSettings(const Profiles::SplitSettings &settings)
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

bool ViewControllerSplit::applyProfileSettings(const QJsonObject &json, QString *error)
{
    const auto loaded = Profiles::SplitSettings::fromJson(json, error);
    if (loaded) {
        setSettings(*loaded);
    }
    return loaded.has_value();
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
    const QStringList paths = m_documents->listPdfPaths();
    if (paths.isEmpty()) {
        alerts().message(this, QStringLiteral("Select a document first."));
        return;
    }
    const Profiles::SplitSettings s = settings();
    if (s.folder.isEmpty()) {
        alerts().message(this, QStringLiteral("Please select an output folder."));
        return;
    }
    DisableInterface();

    // Every document is checked before any question is asked.
    if (s.pagesPerInterval < 1) {
        abandonRun(QStringLiteral("The number of pages per interval must be at least 1. Enter "
                                  "a number of pages and split again."));
        return;
    }
    const QFileInfo folder(s.folder);
    if (!folder.isDir()) {
        abandonRun(QStringLiteral("The output folder %1 does not exist. Choose another folder.")
                       .arg(s.folder));
        return;
    }
    if (!folder.isWritable()) {
        abandonRun(QStringLiteral("The output folder %1 cannot be written to. Choose another "
                                  "folder.")
                       .arg(s.folder));
        return;
    }
    QList<QList<Naming::PageInterval>> intervals;
    for (const QString &path : paths) {
        const qint64 pages = PDFTools::GetPDFNumberOfPages(path);
        if (pages == 0) {
            abandonRun(QStringLiteral("The document %1 could not be opened: it was moved, deleted "
                                      "or damaged after it was added. Remove it from the list "
                                      "and split again.")
                           .arg(path));
            return;
        }
        intervals << (s.mode == Naming::SplitMode::Consecutive
                          ? Naming::GenerateConsecutiveIntervals(pages, s.pagesPerInterval)
                          : Naming::GenerateArrayOfIntervals(s.expression, pages));
        if (intervals.back().isEmpty()) {
            abandonRun(QStringLiteral("No page interval of \"%1\" lies within the %2 pages of %3. "
                                      "Change the page intervals and split again.")
                           .arg(s.expression)
                           .arg(pages)
                           .arg(path));
            return;
        }
    }

    // One decision per interval, with one remembered answer for the whole run. A file that is
    // one of the listed documents is never replaced, so nobody is asked about it.
    Naming::OverwritePass pass(
        [this](const QString &path) { return alerts().askOverwrite(this, path); });
    QList<QList<PlannedOutput>> plans;
    QStringList refused;
    for (qsizetype d = 0; d < paths.size(); ++d) {
        QList<PlannedOutput> plan;
        for (qsizetype i = 0; i < intervals[d].size(); ++i) {
            const auto &interval = intervals[d][i];
            const QString output = Naming::OutputPathForInterval(
                s.nameTemplate, s.folder, paths[d], s.mode, i + 1, interval.start, interval.end);
            Naming::OverwriteDecision decision = Naming::OverwriteDecision::Skip;
            if (Naming::OverwritesInput(output, paths)) {
                if (!refused.contains(output)) {
                    refused << output;
                }
            } else {
                decision = pass.decide(output);
            }
            plan << PlannedOutput{interval, output, decision};
        }
        plans << plan;
    }

    QString failureText = QStringLiteral("Could not split PDF document(s).");
    if (!refused.isEmpty()) {
        failureText += QStringLiteral("\n\nThese files are documents of the list and were not "
                                      "replaced; change the file names:\n")
                       + refused.join(QLatin1Char('\n'));
    }
    const bool anyRefused = !refused.isEmpty();
    startJob(
        [paths, plans, anyRefused](const ReportProgress &progress) {
            bool result = !anyRefused;
            const qsizetype n = paths.size();
            for (qsizetype d = 0; d < n; ++d) {
                // Parsed once for all its intervals.
                PdfSource source(paths[d]);
                for (const PlannedOutput &output : plans[d]) {
                    if (output.decision != Naming::OverwriteDecision::Skip) {
                        result
                            = PDFTools::SplitPdf(
                                  source, output.path, output.interval.start, output.interval.end)
                              && result;
                    }
                }
                progress(double(d) / double(n) * 100.0);
            }
            return result;
        },
        QStringLiteral("PDF document(s) split successfully."),
        failureText);
}
