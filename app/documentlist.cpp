#include "documentlist.h"

#include "app/alerts.h"
#include "engine/pdftools.h"

#include <QAbstractButton>
#include <QDir>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QHeaderView>
#include <QIcon>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QMimeData>
#include <QPainter>
#include <QStyle>
#include <QStyledItemDelegate>
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

// Folders are cut at their start, where a long path differs least from its neighbours.
class FolderDelegate final : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        option->textElideMode = Qt::ElideLeft;
    }
};

// How many rejected files an alert names before it says "and N more".
constexpr int NamedRejections = 8;

} // namespace

PdfTableView::PdfTableView(QWidget *parent)
    : QTableView(parent)
{
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::CopyAction);
    setDropIndicatorShown(false); // drawn here: only between rows
    setShowGrid(false);
    setWordWrap(false);
    setAlternatingRowColors(true);
    setTextElideMode(Qt::ElideRight); // a name is never cut in its middle
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setItemDelegateForColumn(DocumentList::FolderColumn, new FolderDelegate(this));
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setSectionsMovable(false);
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

bool PdfTableView::acceptsDrag(const QMimeData *mime,
                               const QObject *source,
                               const QTableView *table)
{
    if (!mime) {
        return false;
    }
    // Rows of this table move within it; rows of another table are not files.
    if (qobject_cast<const QAbstractItemView *>(source)) {
        return source == table && mime->hasFormat(QLatin1String(DocumentList::RowsMimeType));
    }
    if (!mime->hasUrls()) {
        return false;
    }
    const QList<QUrl> urls = mime->urls();
    return std::any_of(urls.begin(), urls.end(), [](const QUrl &url) {
        return url.isLocalFile() && hasPdfExtension(url.toLocalFile());
    });
}

void PdfTableView::dragEnterEvent(QDragEnterEvent *event)
{
    if (!isEnabled() || !acceptsDrag(event->mimeData(), event->source(), this)) {
        event->ignore();
        return;
    }
    // Files are copied, never moved: a file manager deletes the original of a move. Rows are
    // moved by the list itself.
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void PdfTableView::dragMoveEvent(QDragMoveEvent *event)
{
    const QPoint pos = event->position().toPoint();
    const int row = dropRowAt(pos);
    if (!isEnabled() || row < 0 || !acceptsDrag(event->mimeData(), event->source(), this)) {
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
    if (!isEnabled() || row < 0 || !acceptsDrag(event->mimeData(), event->source(), this)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    if (event->source() == this) {
        event->accept();
        emit rowsDropped(row);
        return;
    }
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
        painter.setPen(palette().color(QPalette::PlaceholderText));
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
    : QAbstractTableModel(window)
    , m_table(table)
    , m_tooltip(tooltip)
    , m_alerts(alerts)
    , m_window(window)
    , m_icon(QIcon::fromTheme(QStringLiteral("application-pdf"), pdfIcon(table)))
{
    setObjectName(tableIdentifier);
    m_table->setModel(this);
    // The numbers as wide as they need; the name and the folder share the rest.
    QHeaderView *header = m_table->horizontalHeader();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(QHeaderView::ResizeToContents);
    header->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(FolderColumn, QHeaderView::Stretch);
    connect(m_table, &PdfTableView::filesDropped, this, &DocumentList::acceptDrop);
    connect(m_table, &PdfTableView::rowsDropped, this, &DocumentList::moveSelectedTo);
    connect(m_table, &PdfTableView::removeRequested, this, &DocumentList::OnRemoveSelected);
    connect(m_table, &QAbstractItemView::doubleClicked, this, [this] { OnTableViewDoubleClick(); });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        updateButtons();
        emit currentPDFChanged(currentPDF());
    });
    connect(&m_facts, &Jobs::DocumentFacts::factsRead, this, [this](const QString &path) {
        const int row = int(m_paths.indexOf(path));
        if (row >= 0) {
            emit dataChanged(index(row, 0), index(row, Columns - 1));
        }
        updateCount();
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

void DocumentList::setMoveButtons(QAbstractButton *moveUp, QAbstractButton *moveDown)
{
    m_moveUp = moveUp;
    m_moveDown = moveDown;
    updateButtons();
}

void DocumentList::setCountLabel(QLabel *label)
{
    m_countLabel = label;
    updateCount();
}

void DocumentList::updateButtons()
{
    if (!m_moveUp || !m_moveDown || !m_table->isEnabled()) {
        return;
    }
    const QList<int> rows = selectedRows();
    m_moveUp->setEnabled(!rows.isEmpty() && rows.front() > 0);
    m_moveDown->setEnabled(!rows.isEmpty() && rows.back() < m_paths.size() - 1);
}

QString DocumentList::countText() const
{
    qint64 pages = 0;
    for (const QString &path : m_paths) {
        if (const auto facts = m_facts.facts(path)) {
            pages += facts->pages;
        }
    }
    const qsizetype count = m_paths.size();
    return QStringLiteral("%1 %2, %3 %4")
        .arg(count)
        .arg(count == 1 ? QStringLiteral("document") : QStringLiteral("documents"))
        .arg(pages)
        .arg(pages == 1 ? QStringLiteral("page") : QStringLiteral("pages"));
}

void DocumentList::updateCount()
{
    if (m_countLabel) {
        m_countLabel->setText(countText());
    }
}

QList<int> DocumentList::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex &index : m_table->selectionModel()->selectedRows()) {
        if (index.row() < m_paths.size()) {
            rows << index.row();
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

int DocumentList::selectedRow() const
{
    const QList<int> rows = selectedRows();
    if (rows.isEmpty()) {
        return -1;
    }
    const int current = m_table->selectionModel()->currentIndex().row();
    return rows.contains(current) ? current : rows.front();
}

QString DocumentList::currentPDF() const
{
    const int row = selectedRow();
    return row >= 0 ? m_paths.at(row) : QString();
}

void DocumentList::selectRow(int row)
{
    if (row < 0 || row >= m_paths.size()) {
        m_table->clearSelection();
        return;
    }
    m_table->selectionModel()->setCurrentIndex(
        index(row, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void DocumentList::selectRows(const QList<int> &rows)
{
    QItemSelection selection;
    for (const int row : rows) {
        if (row >= 0 && row < m_paths.size()) {
            selection.select(index(row, 0), index(row, Columns - 1));
        }
    }
    QItemSelectionModel *model = m_table->selectionModel();
    model->select(selection, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    if (!rows.isEmpty()) {
        model->setCurrentIndex(index(rows.front(), 0), QItemSelectionModel::NoUpdate);
    }
}

void DocumentList::insertPath(int row, const QString &path)
{
    beginInsertRows({}, row, row);
    m_paths.insert(row, path);
    endInsertRows();
    m_facts.request(path);
}

namespace {

// Compares as people count: runs of digits by their value, the rest case aside.
bool naturallyBefore(const QString &a, const QString &b)
{
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        if (a[i].isDigit() && b[j].isDigit()) {
            qsizetype ei = i;
            qsizetype ej = j;
            while (ei < a.size() && a[ei].isDigit()) {
                ++ei;
            }
            while (ej < b.size() && b[ej].isDigit()) {
                ++ej;
            }
            // Leading zeros aside, the longer run is the larger number.
            const QStringView x = QStringView(a).mid(i, ei - i);
            const QStringView y = QStringView(b).mid(j, ej - j);
            const auto trimmed = [](QStringView digits) {
                qsizetype k = 0;
                while (k + 1 < digits.size() && digits[k] == QLatin1Char('0')) {
                    ++k;
                }
                return digits.mid(k);
            };
            const QStringView tx = trimmed(x);
            const QStringView ty = trimmed(y);
            if (tx.size() != ty.size()) {
                return tx.size() < ty.size();
            }
            if (const int c = tx.compare(ty); c != 0) {
                return c < 0;
            }
            i = ei;
            j = ej;
            continue;
        }
        const QChar ca = a[i].toCaseFolded();
        const QChar cb = b[j].toCaseFolded();
        if (ca != cb) {
            return ca < cb;
        }
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
}

} // namespace

void DocumentList::sortNaturally(QStringList &paths)
{
    std::stable_sort(paths.begin(), paths.end(), naturallyBefore);
}

void DocumentList::remember(const QString &path, PDFTools::LoadStatus status)
{
    m_rejected << QStringLiteral("%1: %2").arg(QFileInfo(path).fileName(),
                                               PDFTools::LoadStatusText(status));
}

void DocumentList::OnAddPDFDocument()
{
    std::optional<QStringList> chosen = m_alerts.choosePdfs(m_window);
    if (!chosen) {
        return;
    }
    if (chosen->isEmpty()) {
        m_alerts.message(m_window, QStringLiteral("The pdf could not be loaded."));
        return;
    }
    sortNaturally(*chosen);
    appendLoadable(*chosen);
    if (!m_rejected.isEmpty()) {
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
        const auto status = PDFTools::LoadTest(path);
        if (status != PDFTools::LoadStatus::Loadable) {
            remember(path, status);
            allLoaded = false;
            continue;
        }
        insertPath(insertionRow++, path);
    }
    updateCount();
    updateButtons();
    emit listChanged();
    if (!allLoaded) {
        // Not inside the drop: the file manager waits for the drop to end.
        QTimer::singleShot(500, this, &DocumentList::ShowCorruptedPDFsMessage);
    }
}

void DocumentList::appendLoadable(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (path.isEmpty() || m_paths.contains(path)) {
            continue;
        }
        const auto status = PDFTools::LoadTest(path);
        if (status != PDFTools::LoadStatus::Loadable) {
            remember(path, status);
            continue;
        }
        insertPath(int(m_paths.size()), path);
    }
    updateCount();
    updateButtons();
    emit listChanged();
}

void DocumentList::addDocuments(const QStringList &paths)
{
    appendLoadable(paths);
    if (!m_rejected.isEmpty()) {
        // Queued: the window about to open is the alert's parent.
        QTimer::singleShot(0, this, &DocumentList::ShowCorruptedPDFsMessage);
    }
}

void DocumentList::ShowCorruptedPDFsMessage()
{
    Alerts::Notice notice{
        Alerts::Notice::Icon::Warning, QString::fromLatin1(RejectedDocumentsText), {}, {}};
    const QStringList rejected = std::exchange(m_rejected, {});
    if (!rejected.isEmpty()) {
        notice.text
            += QLatin1String("\n\n") + rejected.mid(0, NamedRejections).join(QLatin1Char('\n'));
        if (rejected.size() > NamedRejections) {
            notice.text += QStringLiteral("\nand %1 more").arg(rejected.size() - NamedRejections);
            notice.details = rejected.join(QLatin1Char('\n'));
        }
    }
    m_alerts.notify(m_window, notice);
}

void DocumentList::OnRemoveSelected()
{
    if (m_paths.isEmpty()) {
        return;
    }
    const QList<int> rows = selectedRows();
    if (!rows.isEmpty()) {
        for (auto row = rows.crbegin(); row != rows.crend(); ++row) {
            beginRemoveRows({}, *row, *row);
            m_paths.removeAt(*row);
            endRemoveRows();
        }
        // The view would select the next row; the preview is cleared instead, with nothing
        // selected.
        m_table->selectionModel()->clear();
        updateCount();
        updateButtons();
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
    updateCount();
    updateButtons();
    emit currentPDFChanged(QString());
}

void DocumentList::OnTableViewDoubleClick()
{
    const int row = selectedRow();
    if (row >= 0) {
        m_alerts.open(m_window, QUrl::fromLocalFile(m_paths.at(row)));
    }
}

void DocumentList::reorder(const QStringList &paths, const QList<int> &selected)
{
    beginResetModel();
    m_paths = paths;
    endResetModel();
    selectRows(selected);
    if (!selected.isEmpty()) {
        m_table->scrollTo(index(selected.front(), 0));
    }
    updateButtons();
    emit listChanged();
}

void DocumentList::moveSelected(int delta)
{
    const QList<int> rows = selectedRows();
    if (rows.isEmpty() || (delta < 0 && rows.front() == 0)
        || (delta > 0 && rows.back() == m_paths.size() - 1)) {
        return;
    }
    // Each selected row changes places with its unselected neighbour; a block of selected rows
    // moves as one.
    QStringList paths = m_paths;
    QList<int> moved;
    if (delta < 0) {
        for (const int row : rows) {
            paths.swapItemsAt(row, row - 1);
            moved << row - 1;
        }
    } else {
        for (auto row = rows.crbegin(); row != rows.crend(); ++row) {
            paths.swapItemsAt(*row, *row + 1);
            moved.prepend(*row + 1);
        }
    }
    reorder(paths, moved);
}

void DocumentList::moveSelectedTo(int row)
{
    const QList<int> rows = selectedRows();
    if (rows.isEmpty()) {
        return;
    }
    QStringList block;
    QStringList rest;
    int before = 0; // unselected rows above the target
    for (int i = 0; i < m_paths.size(); ++i) {
        if (rows.contains(i)) {
            block << m_paths[i];
        } else {
            rest << m_paths[i];
            before += i < row ? 1 : 0;
        }
    }
    QStringList paths = rest;
    QList<int> moved;
    for (int k = 0; k < block.size(); ++k) {
        paths.insert(before + k, block[k]);
        moved << before + k;
    }
    if (paths != m_paths) {
        reorder(paths, moved);
    }
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

int DocumentList::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : Columns;
}

QVariant DocumentList::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    switch (section) {
    case NameColumn:
        return tr("Name");
    case PagesColumn:
        return tr("Pages");
    case PageSizeColumn:
        return tr("Page size");
    case FileSizeColumn:
        return tr("File size");
    case FolderColumn:
        return tr("Folder");
    default:
        return {};
    }
}

QVariant DocumentList::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_paths.size()) {
        return {};
    }
    const QString &path = m_paths.at(index.row());
    if (role == Qt::ToolTipRole) {
        // The file may have changed since it was read: then it is read again, and the tooltip
        // follows once that is done.
        m_facts.request(path);
        const auto facts = m_facts.facts(path);
        return facts ? tooltipText(*facts) : tr("Reading the document…");
    }
    if (role == Qt::DecorationRole && index.column() == NameColumn) {
        return m_icon;
    }
    if (role == Qt::TextAlignmentRole && index.column() != NameColumn
        && index.column() != FolderColumn) {
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    }
    if (role != Qt::DisplayRole) {
        return {};
    }
    const QFileInfo file(path);
    const auto facts = m_facts.facts(path);
    switch (index.column()) {
    case NameColumn:
        return file.fileName();
    case FolderColumn:
        return QDir::toNativeSeparators(file.absolutePath());
    case PagesColumn:
        return facts ? QVariant(facts->pages) : QVariant(QStringLiteral("…"));
    case PageSizeColumn:
        return facts ? facts->pageSize : QStringLiteral("…");
    case FileSizeColumn:
        return facts ? facts->fileSize : QStringLiteral("…");
    default:
        return {};
    }
}

Qt::ItemFlags DocumentList::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    return index.isValid() ? flags | Qt::ItemIsDragEnabled : flags;
}

QStringList DocumentList::mimeTypes() const
{
    return {QLatin1String(RowsMimeType)};
}

QMimeData *DocumentList::mimeData(const QModelIndexList &) const
{
    // Only for a move within the table, which moves the selection: no file leaves the window,
    // where a file manager could move it away.
    auto *mime = new QMimeData;
    mime->setData(QLatin1String(RowsMimeType), QByteArray());
    return mime;
}
