#include "viewcontrollermerge.h"

#include "app/alerts.h"
#include "app/documentlist.h"
#include "jobs/mergejob.h"
#include "ui_viewcontrollermerge.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

ViewControllerMerge::ViewControllerMerge(Alerts &alerts, QWidget *parent)
    : ToolWindow(Tool::Merge, alerts, parent)
    , ui(std::make_unique<Ui::ViewControllerMerge>())
{
    ui->setupUi(this);
    m_documents = new DocumentList(ui->tableViewPDF,
                                   QStringLiteral("TableViewPdfMerge"),
                                   DocumentList::Tooltip::TwoLines,
                                   alerts,
                                   this);
    m_documents->connectButtons(ui->buttonAddPDF, ui->buttonRemoveSelected, ui->buttonRemoveAll);
    m_documents->setMoveButtons(ui->buttonMoveUp, ui->buttonMoveDown);
    m_documents->setCountLabel(ui->labelDocumentCount);
    connect(ui->buttonMoveUp, &QPushButton::clicked, this, &ViewControllerMerge::OnMoveUp);
    connect(ui->buttonMoveDown, &QPushButton::clicked, this, &ViewControllerMerge::OnMoveDown);
    connect(ui->buttonMergePDF, &QPushButton::clicked, this, &ViewControllerMerge::OnMergePDF);
    finishSetup({ui->tableViewPDF,
                 ui->buttonAddPDF,
                 ui->buttonRemoveSelected,
                 ui->buttonRemoveAll,
                 ui->buttonMoveUp,
                 ui->buttonMoveDown,
                 ui->comboBookmarks,
                 ui->buttonMergePDF},
                ui->progressIndicatorMerge,
                m_documents);
}

ViewControllerMerge::~ViewControllerMerge() = default;

PDFTools::BookmarkPolicy ViewControllerMerge::bookmarkPolicy() const
{
    // The pop-up lists the policies in their order.
    return PDFTools::BookmarkPolicy(std::clamp(ui->comboBookmarks->currentIndex(), 0, 3));
}

void ViewControllerMerge::OnMoveUp()
{
    m_documents->moveSelected(-1);
}

void ViewControllerMerge::OnMoveDown()
{
    m_documents->moveSelected(1);
}

void ViewControllerMerge::OnMergePDF()
{
    const QStringList paths = m_documents->listPdfPaths();
    if (paths.isEmpty()) {
        alerts().message(this, QStringLiteral("Select a document first."));
        return;
    }
    const QString proposed
        = QDir(QFileInfo(paths.front()).absolutePath()).filePath(QStringLiteral("document.pdf"));
    QString output = alerts().chooseSaveFile(this,
                                             QStringLiteral("Merge PDF Documents"),
                                             proposed,
                                             QStringLiteral("PDF documents (*.pdf)"),
                                             QStringLiteral("pdf"));
    if (output.isEmpty()) {
        return;
    }
    if (!output.endsWith(QLatin1String(".pdf"), Qt::CaseInsensitive)) {
        // The panel confirmed the name as typed; the file that is written has the extension.
        output += QStringLiteral(".pdf");
        if (QFileInfo::exists(output)
            && !alerts().askYesNo(this, Naming::OverwriteQuestion(output))) {
            return;
        }
    }
    // The save panel asked before an existing file was chosen.
    runBatch(std::make_shared<Jobs::MergeJob>(paths, output, bookmarkPolicy()),
             {QStringLiteral("merge"),
              QStringLiteral("Select a document first."),
              QStringLiteral("PDF document(s) merged successfully."),
              QStringLiteral("Could not merge PDF documents."),
              QFileInfo(output).absolutePath(),
              output},
             ProgressRule::AsEachDocumentStarts,
             [](const QString &) { return Naming::OverwriteAnswer::Yes; });
}
