#include "documentlist.h"

#include "app/alerts.h"
#include "engine/pdftools.h"

#include <QAbstractButton>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QHeaderView>
#include <QIcon>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>
#include <QStyle>
#include <QTimer>

#include <algorithm>

namespace {

bool hasPdfExtension(const QString &path)
{
    return QFileInfo(path).suffix().toLower() == QLatin1String("pdf");
}

// The program's own document icon where the desktop's icon theme has none.
QIcon pdfIcon(const QWidget *widget)
{
    const QIcon own(QStringLiteral(":/icons/pdf.png"));
    return own.isNull() ? widget->style()->standardIcon(QStyle::SP_FileIcon) : own;
}

} // namespace

PdfTableView::PdfTableView(QWidget *parent)
    : QTableView(parent)
{
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setDragEnabled(false);
    setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::DropOnly);
    setDropIndicatorShown(false); // drawn here: only between rows
    setShowGrid(false);
    setWordWrap(false);
    setAlternatingRowColors(true);
    setTextElideMode(Qt::ElideMiddle);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    horizontalHeader()->hide();
    horizontalHeader()->setStretchLastSection(true);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
}

int PdfTableView::dropRowAt(const QPoint &pos) const
{
    const QModelIndex index = indexAt(pos);
    if (!index.isValid()) {
        return model() ? model()->rowCount() : 0;
    }
    // The bands at a row's top and bottom edges are between rows; the rest is onto the row.
    const QRect rect = visualRect(index);
    const int margin = std::clamp(int(rect.height() / 4), 2, 12);
    if (pos.y() - rect.top() < margin) {
        return index.row();
    }
    if (rect.bottom() - pos.y() < margin) {
        return index.row() + 1;
    }
    return -1;
}

bool PdfTableView::acceptsDrag(const QMimeData *mime, const QObject *source)
{
    // Rows dragged from a table, this one or another, are not files.
    if (qobject_cast<const QAbstractItemView *>(source) || !mime || !mime->hasUrls()) {
        return false;
    }
    const QList<QUrl> urls = mime->urls();
    return std::any_of(urls.begin(), urls.end(), [](const QUrl &url) {
        return url.isLocalFile() && hasPdfExtension(url.toLocalFile());
    });
}

void PdfTableView::dragEnterEvent(QDragEnterEvent *event)
{
    if (!isEnabled() || !acceptsDrag(event->mimeData(), event->source())) {
        event->ignore();
        return;
    }
    // A copy, never a move: a file manager deletes the original of a move.
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void PdfTableView::dragMoveEvent(QDragMoveEvent *event)
{
    const QPoint pos = event->position().toPoint();
    const int row = dropRowAt(pos);
    if (!isEnabled() || row < 0 || !acceptsDrag(event->mimeData(), event->source())) {
        setDropLine(-1);
        event->ignore();
        return;
    }
    const int rows = model() ? model()->rowCount() : 0;
    if (rows == 0) {
        setDropLine(-1);
    } else if (row < rows) {
        setDropLine(rowViewportPosition(row));
    } else {
        setDropLine(rowViewportPosition(rows - 1) + rowHeight(rows - 1) - 1);
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void PdfTableView::dragLeaveEvent(QDragLeaveEvent *event)
{
    setDropLine(-1);
    event->accept();
}

void PdfTableView::dropEvent(QDropEvent *event)
{
    setDropLine(-1);
    const int row = dropRowAt(event->position().toPoint());
    if (!isEnabled() || row < 0 || !acceptsDrag(event->mimeData(), event->source())) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    emit filesDropped(event->mimeData()->urls(), row);
}

void PdfTableView::setDropLine(int y)
{
    if (y != m_dropLine) {
        m_dropLine = y;
        viewport()->update();
    }
}

void PdfTableView::paintEvent(QPaintEvent *event)
{
    QTableView::paintEvent(event);
    QPainter painter(viewport());
    if (model() && model()->rowCount() == 0) {
        painter.setPen(palette().color(QPalette::Disabled, QPalette::Text));
        painter.drawText(viewport()->rect().adjusted(12, 12, -12, -12),
                         Qt::AlignCenter | Qt::TextWordWrap,
                         tr("Drop PDF documents here, or click Add."));
    }
    if (m_dropLine >= 0) {
        painter.fillRect(QRect(0, m_dropLine - 1, viewport()->width(), 2),
                         palette().color(QPalette::Highlight));
    }
}

void PdfTableView::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Delete) || event->key() == Qt::Key_Backspace) {
        emit removeRequested();
        event->accept();
        return;
    }
    QTableView::keyPressEvent(event);
}

DocumentList::DocumentList(PdfTableView *table,
                           const QString &tableIdentifier,
                           Tooltip tooltip,
                           Alerts &alerts,
                           QWidget *window)
    : QAbstractListModel(window)
    , m_table(table)
    , m_tooltip(tooltip)
    , m_alerts(alerts)
    , m_window(window)
    , m_icon(QIcon::fromTheme(QStringLiteral("application-pdf"), pdfIcon(table)))
{
    setObjectName(tableIdentifier);
    m_table->setModel(this);
    connect(m_table, &PdfTableView::filesDropped, this, &DocumentList::acceptDrop);
    connect(m_table, &PdfTableView::removeRequested, this, &DocumentList::OnRemoveSelected);
    connect(m_table, &QAbstractItemView::doubleClicked, this, [this] { OnTableViewDoubleClick(); });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        emit currentPDFChanged(currentPDF());
    });
    connect(&m_facts, &Jobs::DocumentFacts::factsRead, this, [this](const QString &path) {
        const int row = int(m_paths.indexOf(path));
        if (row >= 0) {
            emit dataChanged(index(row), index(row), {Qt::ToolTipRole});
        }
    });
}

void DocumentList::connectButtons(QAbstractButton *add,
                                  QAbstractButton *removeSelected,
                                  QAbstractButton *removeAll)
{
    connect(add, &QAbstractButton::clicked, this, &DocumentList::OnAddPDFDocument);
    connect(removeSelected, &QAbstractButton::clicked, this, &DocumentList::OnRemoveSelected);
    connect(removeAll, &QAbstractButton::clicked, this, &DocumentList::OnRemoveAll);
}

QString DocumentList::currentPDF() const
{
    const int row = selectedRow();
    return row >= 0 ? m_paths.at(row) : QString();
}

int DocumentList::selectedRow() const
{
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    if (rows.isEmpty() || rows.front().row() >= m_paths.size()) {
        return -1;
    }
    return rows.front().row();
}

void DocumentList::selectRow(int row)
{
    if (row < 0 || row >= m_paths.size()) {
        m_table->clearSelection();
        return;
    }
    m_table->selectionModel()->setCurrentIndex(
        index(row), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void DocumentList::insertPath(int row, const QString &path)
{
    beginInsertRows({}, row, row);
    m_paths.insert(row, path);
    endInsertRows();
    m_facts.request(path);
}

void DocumentList::removePath(int row)
{
    beginRemoveRows({}, row, row);
    m_paths.removeAt(row);
    endRemoveRows();
}

void DocumentList::OnAddPDFDocument()
{
    const std::optional<QStringList> chosen = m_alerts.choosePdfs(m_window);
    if (!chosen) {
        return;
    }
    if (chosen->isEmpty()) {
        m_alerts.message(m_window, QStringLiteral("The pdf could not be loaded."));
        return;
    }
    bool rejected = false;
    for (const QString &path : *chosen) {
        if (path.isEmpty() || m_paths.contains(path)) {
            continue;
        }
        if (!PDFTools::IsLoadable(path)) {
            rejected = true;
            continue;
        }
        insertPath(int(m_paths.size()), path);
    }
    emit listChanged();
    if (rejected) {
        ShowCorruptedPDFsMessage();
    }
}

void DocumentList::acceptDrop(const QList<QUrl> &urls, int row)
{
    int insertionRow = std::clamp(row, 0, int(m_paths.size()));
    bool allLoaded = true;
    for (const QUrl &url : urls) {
        if (!url.isLocalFile()) {
            continue;
        }
        const QString path = url.toLocalFile();
        if (!QFileInfo(path).isFile() || !hasPdfExtension(path) || m_paths.contains(path)) {
            continue;
        }
        if (!PDFTools::IsLoadable(path)) {
            allLoaded = false;
            continue;
        }
        insertPath(insertionRow++, path);
    }
    emit listChanged();
    if (!allLoaded) {
        // Not inside the drop: the file manager waits for the drop to end.
        QTimer::singleShot(500, this, &DocumentList::ShowCorruptedPDFsMessage);
    }
}

void DocumentList::ShowCorruptedPDFsMessage()
{
    m_alerts.message(m_window, QString::fromLatin1(RejectedDocumentsText));
}

void DocumentList::OnRemoveSelected()
{
    if (m_paths.isEmpty()) {
        return;
    }
    const int row = selectedRow();
    if (row >= 0) {
        removePath(row);
        // The view would select the next row; the preview is cleared instead, with nothing
        // selected.
        m_table->selectionModel()->clear();
        emit listChanged();
        emit currentPDFChanged(QString());
    }
    emit previewCleared();
}

void DocumentList::OnRemoveAll()
{
    if (m_paths.isEmpty()) {
        return;
    }
    if (!m_alerts.askYesNo(
            m_window,
            QStringLiteral("Are you sure you want to remove all PDF documents from the list?"))) {
        return;
    }
    clear();
    emit listChanged();
    emit previewCleared();
}

void DocumentList::clear()
{
    beginResetModel();
    m_paths.clear();
    endResetModel();
    emit currentPDFChanged(QString());
}

void DocumentList::OnTableViewDoubleClick()
{
    const int row = selectedRow();
    if (row >= 0) {
        m_alerts.openExternally(QUrl::fromLocalFile(m_paths.at(row)));
    }
}

void DocumentList::moveSelected(int delta)
{
    const int row = selectedRow();
    const int target = row + delta;
    if (row < 0 || target < 0 || target >= m_paths.size() || target == row) {
        return;
    }
    // beginMoveRows takes the row the moved one ends up in front of.
    beginMoveRows({}, row, row, {}, target > row ? target + 1 : target);
    m_paths.move(row, target);
    endMoveRows();
    selectRow(target);
    m_table->scrollTo(index(target));
    emit listChanged();
}

QString DocumentList::tooltipText(const PDFTools::DocumentSummary &summary) const
{
    QStringList lines{QStringLiteral("Number of Pages: ") + QString::number(summary.pages)};
    if (m_tooltip == Tooltip::ThreeLines) {
        lines << QStringLiteral("Page Size: ") + summary.pageSize;
    }
    lines << QStringLiteral("File Size: ") + summary.fileSize;
    return lines.join(QLatin1Char('\n'));
}

int DocumentList::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_paths.size());
}

QVariant DocumentList::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_paths.size()) {
        return {};
    }
    const QString &path = m_paths.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return path;
    case Qt::DecorationRole:
        return m_icon;
    case Qt::ToolTipRole: {
        // The file may have changed since it was read: then it is read again, and the tooltip
        // follows once that is done.
        m_facts.request(path);
        const auto facts = m_facts.facts(path);
        return facts ? tooltipText(*facts) : tr("Reading the document…");
    }
    default:
        return {};
    }
}
