#pragma once

#include "jobs/documentfacts.h"

#include <QAbstractListModel>
#include <QIcon>
#include <QList>
#include <QStringList>
#include <QTableView>
#include <QUrl>

class Alerts;
class QAbstractButton;
class QMimeData;

// The table of a tool window's documents: one column of paths, single selection, and drops of
// files from outside the program between rows or below the last one. A drop onto a row and a
// drag of rows from any table are refused; rows cannot be dragged.
class PdfTableView : public QTableView
{
    Q_OBJECT

public:
    explicit PdfTableView(QWidget *parent = nullptr);

    // The row a drop at pos (viewport coordinates) inserts before: the row count below the last
    // row, -1 onto a row (refused).
    int dropRowAt(const QPoint &pos) const;
    // Whether a drag may be dropped here at all: files from outside, at least one a PDF.
    static bool acceptsDrag(const QMimeData *mime, const QObject *source);

signals:
    void filesDropped(const QList<QUrl> &urls, int row);
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
// the open panel, drops, Remove Selected, Remove All, Move Up and Down, and the double click
// that opens a document in the desktop's PDF viewer. Each file passes the load test before it
// is listed (it opens as a PDF and is not encrypted). The list is the table's model.
class DocumentList : public QAbstractListModel
{
    Q_OBJECT

public:
    // Crop and Watermark show the page size in the tooltip, the other windows do not.
    enum class Tooltip { TwoLines, ThreeLines };

    DocumentList(PdfTableView *table,
                 const QString &tableIdentifier,
                 Tooltip tooltip,
                 Alerts &alerts,
                 QWidget *window);

    // The window's Add, Remove Selected and Remove All buttons.
    void connectButtons(QAbstractButton *add,
                        QAbstractButton *removeSelected,
                        QAbstractButton *removeAll);

    const QStringList &listPdfPaths() const { return m_paths; }
    // The selected document; empty when no row is selected.
    QString currentPDF() const;
    int selectedRow() const;
    void selectRow(int row);

    void OnAddPDFDocument();
    void OnRemoveSelected();
    void OnRemoveAll();
    void OnTableViewDoubleClick();
    // Moves the selected document one place (delta -1 or 1); the moved row stays selected.
    // Nothing happens at either end of the list or without a selection.
    void moveSelected(int delta);
    // Empties the list (the window's reset).
    void clear();
    // Admits the dropped files at row as a block, in the drag's order. Missing files, files
    // without the PDF extension and listed ones are skipped silently; files that fail the load
    // test bring the damaged-or-encrypted alert half a second later.
    void acceptDrop(const QList<QUrl> &urls, int row);
    void ShowCorruptedPDFsMessage();

    // "Number of Pages: 12", ["Page Size: 612 x 792",] "File Size: 1.5 MB", one per line.
    QString tooltipText(const PDFTools::DocumentSummary &facts) const;
    // What is known of the listed documents, read on a thread of its own.
    Jobs::DocumentFacts &facts() { return m_facts; }

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;

signals:
    // The selection changed: the selected document, or empty.
    void currentPDFChanged(const QString &path);
    // Remove Selected or Remove All: the preview shows nothing.
    void previewCleared();
    // Documents were added, removed or moved.
    void listChanged();

private:
    void insertPath(int row, const QString &path);
    void removePath(int row);

    PdfTableView *m_table;
    Tooltip m_tooltip;
    Alerts &m_alerts;
    QWidget *m_window;
    QIcon m_icon;
    QStringList m_paths;
    mutable Jobs::DocumentFacts m_facts; // read when asked
};

// The damaged-or-encrypted alert.
inline constexpr auto RejectedDocumentsText = "Some documents could not be loaded because they "
                                              "are either damaged or encrypted.";
