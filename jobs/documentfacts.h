#pragma once

#include "engine/pdftools.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QThreadPool>

#include <optional>

namespace Jobs {

// What a document list shows of each document (page count, page size, file size, and its
// title, author, subject and keywords), read on a thread of its own, never on the thread that
// asks: a list of hundreds of documents, or one manual of a thousand pages, must not stall a
// window. Each document is read once, and again only when its file has changed since.
class DocumentFacts : public QObject
{
    Q_OBJECT

public:
    explicit DocumentFacts(QObject *parent = nullptr);
    ~DocumentFacts() override;

    // Starts reading the document unless its facts are known and its file unchanged, or a read
    // is under way.
    void request(const QString &path);
    // The facts last read; nothing before the first read has ended.
    std::optional<PDFTools::DocumentSummary> facts(const QString &path) const;
    // The outline the same way, read only when asked (the Split window's name example, when it
    // cuts at bookmarks).
    void requestOutline(const QString &path);
    std::optional<PDFTools::DocumentOutline> outline(const QString &path) const;
    // Waits for the reads under way (tests, and a window that closes).
    void waitForReads();

signals:
    // The facts of path are known (on the thread that owns this object).
    void factsRead(const QString &path);
    void outlineRead(const QString &path);

private:
    template <typename Value> struct Entry
    {
        std::optional<Value> value;
        QDateTime modified; // of the file when it was read
        qint64 size = -1;
        bool pending = false;
    };
    // Starts reading path into the entries with read unless its value is known and its file
    // unchanged, or a read is under way; announce tells once the value is there.
    template <typename Value, typename Read>
    void request(QHash<QString, Entry<Value>> DocumentFacts::*entries,
                 const QString &path,
                 Read read,
                 void (DocumentFacts::*announce)(const QString &));
    QHash<QString, Entry<PDFTools::DocumentSummary>> m_entries;
    QHash<QString, Entry<PDFTools::DocumentOutline>> m_outlines;
    QThreadPool m_pool;
};

} // namespace Jobs
