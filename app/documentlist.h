#pragma once

#include "jobs/documentfacts.h"

#include <QAbstractTableModel>
#include <QIcon>
#include <QList>
#include <QStringList>
#include <QTableView>
#include <QUrl>

class Alerts;
class QAbstractButton;
class QLabel;
class QMimeData;

// The table of a tool window's documents: one row a document, several rows selectable at once
// (click, Shift+click, Ctrl+click, Ctrl+A). Files dragged in from outside the program are
// dropped between rows (or below the last one), and rows dragged within the table move there; a
// drop onto a row, and a drag of rows from another table, are refused. Delete removes the
// selected rows.
class PdfTableView : public QTableView
{
    Q_OBJECT

public:
    explicit PdfTableView(QWidget *parent = nullptr);

    // The row a drop at pos (viewport coordinates) inserts before: the row count below the last
    // row, -1 onto a row (refused).
    int dropRowAt(const QPoint &pos) const;
    // Whether a drag may be dropped on table: files from outside, at least one a PDF, or rows of
    // table itself.
    static bool acceptsDrag(const QMimeData *mime, const QObject *source, const QTableView *table);

signals:
    void filesDropped(const QList<QUrl> &urls, int row);
    void rowsDropped(int row);
    void removeRequested();

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void setDropLine(int y);
    int m_dropLine = -1; // y of the drop indicator in the viewport, -1 for none
};

// A tool window's ordered list of documents (listPdfPaths) and the commands that change it:
// the open panel, drops, Remove, Remove All, Move Up and Down, and the double click that opens
// a document in the desktop's PDF viewer. Each file passes the load test before it is listed
// (it opens as a PDF and is not encrypted). The list is the table's model: the file's name, its
// pages, the size of its first page, its file size and its folder, read on a thread of their
// own and filled in as they are known.
class DocumentList : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, PagesColumn, PageSizeColumn, FileSizeColumn, FolderColumn, Columns };
    // Crop and Watermark show the page size in the tooltip, the other windows do not.
    enum class Tooltip { TwoLines, ThreeLines };

    DocumentList(PdfTableView *table,
                 const QString &tableIdentifier,
                 Tooltip tooltip,
                 Alerts &alerts,
                 QWidget *window);

    // The window's Add, Remove and Remove All buttons.
    void connectButtons(QAbstractButton *add,
                        QAbstractButton *removeSelected,
                        QAbstractButton *removeAll);
    // The window's Move buttons, disabled while the selection holds the first, or the last, row.
    void setMoveButtons(QAbstractButton *moveUp, QAbstractButton *moveDown);
    // The line under the table that counts the documents and their pages.
    void setCountLabel(QLabel *label);
    // Enables the Move buttons as the selection allows (after the window enabled its controls).
    void updateButtons();

    const QStringList &listPdfPaths() const { return m_paths; }
    // The document shown in the preview: the current row when it is selected, else the first
    // selected row; empty when no row is selected.
    QString currentPDF() const;
    int selectedRow() const;
    // The selected rows in list order.
    QList<int> selectedRows() const;
    void selectRow(int row);
    void selectRows(const QList<int> &rows);

    void OnAddPDFDocument();
    void OnRemoveSelected();
    void OnRemoveAll();
    void OnTableViewDoubleClick();
    // Moves the selected documents one place (delta -1 or 1), keeping their order among
    // themselves and their selection. Nothing moves when the selection holds the row at that
    // end of the list, or without a selection.
    void moveSelected(int delta);
    // Moves the selected documents, in their order, to stand before row (the row count: at the
    // end).
    void moveSelectedTo(int row);
    // Empties the list (the window's reset).
    void clear();
    // Admits the dropped files at row as a block, in the drag's order. Missing files, files
    // without the PDF extension and listed ones are skipped silently; files that fail the load
    // test bring the damaged-or-encrypted alert half a second later.
    void acceptDrop(const QList<QUrl> &urls, int row);
    // Lists the documents the window starts with (the launcher's), in the order given, after
    // those listed. Listed ones are skipped silently; files that fail the load test bring the
    // damaged-or-encrypted alert once the window is shown.
    void addDocuments(const QStringList &paths);
    // The damaged-or-encrypted alert, naming each rejected file with its reason.
    void ShowCorruptedPDFsMessage();

    // "Number of Pages: 12", ["Page Size: 612 x 792",] "File Size: 1.5 MB", one per line.
    QString tooltipText(const PDFTools::DocumentSummary &facts) const;
    // "12 documents, 340 pages": the pages known so far.
    QString countText() const;
    // What is known of the listed documents, read on a thread of its own.
    Jobs::DocumentFacts &facts() const { return m_facts; }

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    Qt::DropActions supportedDropActions() const override { return Qt::CopyAction; }
    Qt::DropActions supportedDragActions() const override { return Qt::CopyAction; }
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    QStringList mimeTypes() const override;

    // Sorts paths chosen together as people count: "scan2" before "scan10", case aside.
    static void sortNaturally(QStringList &paths);
    // The mime type of rows dragged within a table.
    static constexpr auto RowsMimeType = "application/x-quire-document-rows";

signals:
    // The selection changed: the selected document, or empty.
    void currentPDFChanged(const QString &path);
    // Remove Selected or Remove All: the preview shows nothing.
    void previewCleared();
    // Documents were added, removed or moved.
    void listChanged();

private:
    void insertPath(int row, const QString &path);
    // Replaces the order of the list, keeping the documents at the given rows selected.
    void reorder(const QStringList &paths, const QList<int> &selected);
    void remember(const QString &path, PDFTools::LoadStatus status);
    // Lists the documents that pass the load test and are not listed yet, at the end; the
    // others are remembered for the alert.
    void appendLoadable(const QStringList &paths);
    void updateCount();

    PdfTableView *m_table;
    Tooltip m_tooltip;
    Alerts &m_alerts;
    QWidget *m_window;
    QIcon m_icon;
    QStringList m_paths;
    mutable Jobs::DocumentFacts m_facts; // read when asked
    QAbstractButton *m_moveUp = nullptr;
    QAbstractButton *m_moveDown = nullptr;
    QLabel *m_countLabel = nullptr;
    // Files the load test turned away since the alert last named them.
    QStringList m_rejected;
};

// The damaged-or-encrypted alert.
inline constexpr auto RejectedDocumentsText = "Some documents could not be loaded because they "
                                              "are either damaged or encrypted.";
