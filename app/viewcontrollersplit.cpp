#include "viewcontrollersplit.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "jobs/numbers.h"
#include "jobs/profiles.h"
#include "jobs/splitjob.h"
#include "ui_viewcontrollersplit.h"

#include <QFileInfo>
#include <QIntValidator>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const QString defaultNames = QStringLiteral("[FileName](Page[IntervalIndex])");
const QString bookmarkNames = QStringLiteral("[FileName] - [BookmarkName]");

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
    connect(ui->radioBookmarkSplit,
            &QRadioButton::clicked,
            this,
            &ViewControllerSplit::OnBookmarkSplitSelected);
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
                 ui->radioBookmarkSplit,
                 ui->spinBookmarkLevel,
                 ui->textFieldNames,
                 ui->textFieldFolder,
                 ui->buttonBrowse,
                 ui->buttonSplitPDFDocuments},
                ui->progressIndicatorSplit,
                m_documents);
    ResetInterface();
    setNameExample(ui->labelNamesExample, [this](const QString &document, qint64 pages) {
        Jobs::SplitSettings s = settings();
        if (s.mode == Naming::SplitMode::Bookmarks) {
            // The document's outline, read off this thread; with no document listed, an
            // example of one.
            std::optional<PDFTools::DocumentOutline> outline;
            if (m_documents->listPdfPaths().contains(document)) {
                outline = m_documents->facts().outline(document);
                if (!outline) {
                    m_documents->facts().requestOutline(document);
                    return QString();
                }
            } else {
                outline = PDFTools::DocumentOutline{
                    1, {{int(s.bookmarkLevel), QStringLiteral("Introduction"), 1}}};
            }
            const auto outputs
                = Jobs::SplitJob::outputsFor(s, document, outline->pages, outline->entries);
            return outputs.isEmpty() ? QString() : outputs.front().path;
        }
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
    for (QRadioButton *mode :
         {ui->radioConsecutivePageSplit, ui->radioIntervalSplit, ui->radioBookmarkSplit}) {
        connect(mode, &QRadioButton::toggled, this, &ViewControllerSplit::updateNameExample);
    }
    connect(ui->spinBookmarkLevel,
            &QSpinBox::valueChanged,
            this,
            &ViewControllerSplit::updateNameExample);
    connect(&m_documents->facts(),
            &Jobs::DocumentFacts::outlineRead,
            this,
            &ViewControllerSplit::updateNameExample);
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
    settings.mode = ui->radioIntervalSplit->isChecked()   ? Naming::SplitMode::Intervals
                    : ui->radioBookmarkSplit->isChecked() ? Naming::SplitMode::Bookmarks
                                                          : Naming::SplitMode::Consecutive;
    // Not a number reads as 0; the whole-number part counts.
    settings.pagesPerInterval
        = Jobs::wholeNumber(ui->textFieldPagesPerInterval->text().toDouble()).value_or(0);
    settings.expression = ui->textFieldPagesIntervals->text();
    settings.bookmarkLevel = ui->spinBookmarkLevel->value();
    settings.nameTemplate = ui->textFieldNames->text();
    settings.folder = ui->textFieldFolder->text();
    return settings;
}

void ViewControllerSplit::setSettings(const Jobs::SplitSettings &settings)
{
    ui->radioConsecutivePageSplit->setChecked(settings.mode == Naming::SplitMode::Consecutive);
    ui->radioIntervalSplit->setChecked(settings.mode == Naming::SplitMode::Intervals);
    ui->radioBookmarkSplit->setChecked(settings.mode == Naming::SplitMode::Bookmarks);
    ui->textFieldPagesPerInterval->setText(QString::number(settings.pagesPerInterval));
    ui->stepperPagesPerInterval->setValue(double(settings.pagesPerInterval));
    ui->textFieldPagesIntervals->setText(settings.expression);
    ui->spinBookmarkLevel->setValue(int(std::clamp<qint64>(settings.bookmarkLevel,
                                                           ui->spinBookmarkLevel->minimum(),
                                                           ui->spinBookmarkLevel->maximum())));
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
    ui->radioBookmarkSplit->setChecked(false);
    ui->textFieldNames->setText(defaultNames);
}

void ViewControllerSplit::OnIntervalSplitSelected()
{
    ui->radioConsecutivePageSplit->setChecked(false);
    ui->radioBookmarkSplit->setChecked(false);
}

void ViewControllerSplit::OnBookmarkSplitSelected()
{
    ui->radioConsecutivePageSplit->setChecked(false);
    ui->radioIntervalSplit->setChecked(false);
    // Pieces named after their bookmarks, unless another template was typed.
    if (ui->textFieldNames->text() == defaultNames) {
        ui->textFieldNames->setText(bookmarkNames);
    }
}

QString ViewControllerSplit::noOutputText(const QString &document) const
{
    if (!ui->radioBookmarkSplit->isChecked()) {
        return ToolWindow::noOutputText(document);
    }
    const QString name = QFileInfo(document).fileName();
    return m_documents->facts().outline(document) ? tr("No file: %1 has no bookmark of level %2.")
                                                        .arg(name)
                                                        .arg(ui->spinBookmarkLevel->value())
                                                  : tr("Reading the bookmarks of %1…").arg(name);
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
