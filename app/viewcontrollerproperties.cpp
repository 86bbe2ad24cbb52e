#include "viewcontrollerproperties.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "jobs/documentjobs.h"
#include "jobs/keptoriginals.h"
#include "jobs/profiles.h"
#include "ui_viewcontrollerproperties.h"

#include <QFileInfo>
#include <QHeaderView>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QTableWidgetItem>

namespace {

const QString titlePrefix = QStringLiteral("Title: ");
const QString authorPrefix = QStringLiteral("Author: ");
const QString subjectPrefix = QStringLiteral("Subject: ");
const QString keywordsPrefix = QStringLiteral("Keywords: ");

QStringList texts(const PDFTools::DocumentProperties &p)
{
    return {p.title, p.author, p.subject, p.keywords.join(QLatin1String(", "))};
}

// A label with its text as its tooltip, so that a long value can be read whole.
void setLabel(QLabel *label, const QString &text)
{
    label->setText(text);
    label->setToolTip(text);
}

} // namespace

ViewControllerProperties::ViewControllerProperties(Alerts &alerts, QWidget *parent)
    : ToolWindow(Tool::Properties, alerts, parent)
    , ui(std::make_unique<Ui::ViewControllerProperties>())
{
    ui->setupUi(this);
    m_documents = new DocumentList(ui->tableViewPDF,
                                   QStringLiteral("TableViewPdfProperties"),
                                   DocumentList::Tooltip::TwoLines,
                                   alerts,
                                   this);
    m_documents->connectButtons(ui->buttonAddPDF, ui->buttonRemoveSelected, ui->buttonRemoveAll);
    m_documents->setCountLabel(ui->labelDocumentCount);
    for (QLabel *label : {ui->labelOriginalTitle,
                          ui->labelOriginalAuthor,
                          ui->labelOriginalSubject,
                          ui->labelOriginalKeywords,
                          ui->labelOutputTitle,
                          ui->labelOutputAuthor,
                          ui->labelOutputSubject,
                          ui->labelOutputKeywords}) {
        label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    QTableWidget *table = ui->tablePropertiesPreview;
    table->setColumnCount(5);
    table->setHorizontalHeaderLabels(
        {tr("Document"), tr("Title"), tr("Author"), tr("Subject"), tr("Keywords")});
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    table->verticalHeader()->hide();

    // The table follows the templates a moment after the typing stops.
    m_tableTimer.setSingleShot(true);
    m_tableTimer.setInterval(250);
    connect(&m_tableTimer, &QTimer::timeout, this, &ViewControllerProperties::updateTable);
    for (QLineEdit *field :
         {ui->textFieldTitle, ui->textFieldAuthor, ui->textFieldSubject, ui->textFieldKeywords}) {
        connect(field, &QLineEdit::textChanged, this, [this] {
            if (!m_currentPDF.isEmpty()) {
                m_documents->facts().request(m_currentPDF);
            }
            UpdatePropertiesPreview();
            m_tableTimer.start();
        });
    }
    connect(m_documents, &DocumentList::currentPDFChanged, this, [this](const QString &path) {
        m_currentPDF = path;
        if (!path.isEmpty()) {
            m_documents->facts().request(path);
        }
        UpdatePropertiesPreview();
    });
    connect(m_documents, &DocumentList::listChanged, this, [this] {
        m_currentPDF = m_documents->currentPDF();
        UpdatePropertiesPreview();
        updateTable();
    });
    connect(
        &m_documents->facts(), &Jobs::DocumentFacts::factsRead, this, [this](const QString &path) {
            if (path == m_currentPDF) {
                UpdatePropertiesPreview();
            }
            m_tableTimer.start();
        });
    connect(ui->buttonUpdateProperties,
            &QPushButton::clicked,
            this,
            &ViewControllerProperties::OnUpdateProperties);
    connect(ui->buttonUndo, &QPushButton::clicked, this, &ViewControllerProperties::OnUndo);
    connect(this, &ToolWindow::runFinished, this, [this] { setInterfaceEnabled(true); });

    finishSetup({ui->buttonAddPDF,
                 ui->buttonRemoveSelected,
                 ui->buttonRemoveAll,
                 ui->buttonUpdateProperties,
                 ui->tableViewPDF,
                 ui->textFieldTitle,
                 ui->textFieldAuthor,
                 ui->textFieldSubject,
                 ui->textFieldKeywords},
                ui->progressIndicator,
                m_documents);
    // Edit > Undo Last Run, between File and Help.
    auto *edit = new QMenu(tr("&Edit"), this);
    edit->setObjectName(QStringLiteral("menuEdit"));
    QAction *undo = edit->addAction(tr("&Undo Last Run"));
    undo->setObjectName(QStringLiteral("actionUndo"));
    undo->setShortcut(QKeySequence::Undo);
    connect(undo, &QAction::triggered, this, &ViewControllerProperties::OnUndo);
    QMenuBar *bar = windowMenuBar();
    bar->insertMenu(bar->actions().value(1), edit);
    ResetInterface();
}

ViewControllerProperties::~ViewControllerProperties() = default;

void ViewControllerProperties::ResetInterface()
{
    m_documents->clear();
    setSettings(Jobs::PropertiesSettings{});
    m_currentPDF.clear();
    UpdatePropertiesPreview();
    updateTable();
}

Jobs::PropertiesSettings ViewControllerProperties::settings() const
{
    return {ui->textFieldTitle->text(),
            ui->textFieldAuthor->text(),
            ui->textFieldSubject->text(),
            ui->textFieldKeywords->text()};
}

void ViewControllerProperties::setSettings(const Jobs::PropertiesSettings &s)
{
    ui->textFieldTitle->setText(s.title);
    ui->textFieldAuthor->setText(s.author);
    ui->textFieldSubject->setText(s.subject);
    ui->textFieldKeywords->setText(s.keywords);
}

std::optional<std::pair<PDFTools::DocumentProperties, PDFTools::DocumentProperties>>
ViewControllerProperties::beforeAndAfter(const QString &path) const
{
    const auto facts = m_documents->facts().facts(path);
    if (!facts || facts->status != PDFTools::LoadStatus::Loadable) {
        return std::nullopt;
    }
    const PDFTools::DocumentProperties before{
        facts->title, facts->author, facts->subject, facts->keywords};
    const Jobs::PropertiesSettings s = settings();
    return std::pair{
        before,
        PDFTools::ResolvePropertyTemplates(path, before, s.title, s.author, s.subject, s.keywords)};
}

void ViewControllerProperties::UpdatePropertiesPreview()
{
    const QStringList prefixes{titlePrefix, authorPrefix, subjectPrefix, keywordsPrefix};
    const QList<QLabel *> originals{ui->labelOriginalTitle,
                                    ui->labelOriginalAuthor,
                                    ui->labelOriginalSubject,
                                    ui->labelOriginalKeywords};
    const QList<QLabel *> outputs{ui->labelOutputTitle,
                                  ui->labelOutputAuthor,
                                  ui->labelOutputSubject,
                                  ui->labelOutputKeywords};
    // No document, or one whose values are not known yet (or that does not open): the prefixes.
    const auto values = m_currentPDF.isEmpty() ? std::nullopt : beforeAndAfter(m_currentPDF);
    const QStringList before = values ? texts(values->first) : QStringList(4);
    const QStringList after = values ? texts(values->second) : QStringList(4);
    for (int i = 0; i < 4; ++i) {
        setLabel(originals[i], prefixes[i] + before[i]);
        setLabel(outputs[i], prefixes[i] + after[i]);
    }
}

void ViewControllerProperties::updateTable()
{
    QTableWidget *table = ui->tablePropertiesPreview;
    const QStringList &paths = m_documents->listPdfPaths();
    table->setRowCount(int(paths.size()));
    for (int row = 0; row < paths.size(); ++row) {
        table->setItem(row, 0, new QTableWidgetItem(QFileInfo(paths[row]).fileName()));
        const auto values = beforeAndAfter(paths[row]);
        for (int column = 1; column <= 4; ++column) {
            auto *item = new QTableWidgetItem;
            if (values) {
                const QString before = texts(values->first)[column - 1];
                const QString after = texts(values->second)[column - 1];
                const bool changed = before != after;
                item->setText(changed ? QStringLiteral("%1 → %2").arg(before, after) : before);
                item->setToolTip(tr("Now: %1\nAfter the run: %2").arg(before, after));
                QFont font = item->font();
                font.setBold(changed);
                item->setFont(font);
            } else {
                item->setText(QStringLiteral("…"));
            }
            table->setItem(row, column, item);
        }
    }
}

void ViewControllerProperties::setInterfaceEnabled(bool enabled)
{
    ToolWindow::setInterfaceEnabled(enabled);
    const bool undoable = enabled && m_kept && m_kept->count() > 0;
    ui->buttonUndo->setEnabled(undoable);
    if (auto *undo = findChild<QAction *>(QStringLiteral("actionUndo"))) {
        undo->setEnabled(undoable);
    }
}

void ViewControllerProperties::OnUpdateProperties()
{
    if (m_documents->listPdfPaths().isEmpty()) {
        alerts().message(this, QStringLiteral("There are no PDF documents to update."));
        return;
    }
    QSettings userSettings;
    const QVariant show = userSettings.value(QLatin1String(ShowWarningMessage));
    if (show.typeId() != QMetaType::QString) {
        userSettings.setValue(QLatin1String(ShowWarningMessage), QStringLiteral("Yes"));
        userSettings.sync();
    }
    if (userSettings.value(QLatin1String(ShowWarningMessage)).toString() == QLatin1String("Yes")) {
        bool suppress = false;
        const bool yes = alerts().askYesNoWithCheckBox(
            this, QLatin1String(WarningText), tr("Do not show this message again"), &suppress);
        if (suppress) {
            userSettings.setValue(QLatin1String(ShowWarningMessage), QStringLiteral("No"));
            userSettings.sync();
        }
        if (!yes) {
            return;
        }
    }
    // The documents as they are now are kept aside for Undo; those of an earlier run go.
    m_kept = std::make_shared<Jobs::KeptOriginals>();
    runBatch(std::make_shared<Jobs::PropertiesJob>(m_documents->listPdfPaths(), settings(), m_kept),
             {QStringLiteral("update"),
              QStringLiteral("There are no PDF documents to update."),
              QStringLiteral("Properties updated successfully."),
              QStringLiteral("Could not update PDF document(s) properties."),
              QString(),
              QString()});
}

void ViewControllerProperties::OnUndo()
{
    if (isRunning() || !m_kept || m_kept->count() == 0) {
        return;
    }
    const Jobs::KeptOriginals::Restored restored = m_kept->restore();
    m_kept.reset();
    setInterfaceEnabled(true);
    Alerts::Notice notice;
    notice.text = tr(
        "%n document(s) put back as they were before the last run.", nullptr, restored.restored);
    if (!restored.changedSince.isEmpty()) {
        notice.text += tr("\n\nChanged by another program since the run, and left as they are:\n")
                       + restored.changedSince.join(QLatin1Char('\n'));
    }
    if (!restored.failed.isEmpty()) {
        notice.text += tr("\n\nCould not be put back:\n") + restored.failed.join(QLatin1Char('\n'));
    }
    notice.icon = restored.changedSince.isEmpty() && restored.failed.isEmpty()
                      ? Alerts::Notice::Icon::Information
                      : Alerts::Notice::Icon::Warning;
    alerts().notify(this, notice);
    for (const QString &path : m_documents->listPdfPaths()) {
        m_documents->facts().request(path);
    }
}

QJsonObject ViewControllerProperties::profileSettings() const
{
    return Jobs::Profiles::toJson(settings());
}

bool ViewControllerProperties::applyProfileSettings(const QJsonObject &json,
                                                    QString *error,
                                                    QStringList *skipped)
{
    const auto loaded = Jobs::Profiles::fromJson<Jobs::PropertiesSettings>(json, error, skipped);
    if (loaded) {
        setSettings(*loaded);
    }
    return loaded.has_value();
}
