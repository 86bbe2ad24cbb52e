#include "documentfacts.h"

#include <QFileInfo>
#include <QPointer>

namespace Jobs {

DocumentFacts::DocumentFacts(QObject *parent)
    : QObject(parent)
{
    // Reads of their own, so that a long list being read never delays a run.
    m_pool.setMaxThreadCount(1);
}

DocumentFacts::~DocumentFacts()
{
    m_pool.clear();
    m_pool.waitForDone();
}

void DocumentFacts::request(const QString &path)
{
    Entry &entry = m_entries[path];
    const QFileInfo file(path);
    const QDateTime modified = file.lastModified();
    const qint64 size = file.exists() ? file.size() : -1;
    if (entry.pending || (entry.summary && entry.modified == modified && entry.size == size)) {
        return;
    }
    entry.pending = true;
    entry.modified = modified;
    entry.size = size;
    const QPointer<DocumentFacts> self(this);
    m_pool.start([self, path] {
        const PDFTools::DocumentSummary summary = PDFTools::SummarizeDocument(path);
        QMetaObject::invokeMethod(
            self,
            [self, path, summary] {
                Entry &entry = self->m_entries[path];
                entry.summary = summary;
                entry.pending = false;
                emit self->factsRead(path);
            },
            Qt::QueuedConnection);
    });
}

std::optional<PDFTools::DocumentSummary> DocumentFacts::facts(const QString &path) const
{
    const auto found = m_entries.constFind(path);
    return found == m_entries.constEnd() ? std::nullopt : found->summary;
}

void DocumentFacts::waitForReads()
{
    m_pool.waitForDone();
}

} // namespace Jobs
