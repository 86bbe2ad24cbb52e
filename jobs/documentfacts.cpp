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

template <typename Value, typename Read>
void DocumentFacts::request(QHash<QString, Entry<Value>> DocumentFacts::*entries,
                            const QString &path,
                            Read read,
                            void (DocumentFacts::*announce)(const QString &))
{
    Entry<Value> &entry = (this->*entries)[path];
    const QFileInfo file(path);
    const QDateTime modified = file.lastModified();
    const qint64 size = file.exists() ? file.size() : -1;
    if (entry.pending || (entry.value && entry.modified == modified && entry.size == size)) {
        return;
    }
    entry.pending = true;
    entry.modified = modified;
    entry.size = size;
    const QPointer<DocumentFacts> self(this);
    m_pool.start([self, path, read, entries, announce] {
        const Value value = read(path);
        QMetaObject::invokeMethod(
            self,
            [self, path, value, entries, announce] {
                Entry<Value> &entry = (self.data()->*entries)[path];
                entry.value = value;
                entry.pending = false;
                emit(self.data()->*announce)(path);
            },
            Qt::QueuedConnection);
    });
}

void DocumentFacts::request(const QString &path)
{
    request(
        &DocumentFacts::m_entries, path, &PDFTools::SummarizeDocument, &DocumentFacts::factsRead);
}

std::optional<PDFTools::DocumentSummary> DocumentFacts::facts(const QString &path) const
{
    const auto found = m_entries.constFind(path);
    return found == m_entries.constEnd() ? std::nullopt : found->value;
}

void DocumentFacts::requestOutline(const QString &path)
{
    request(
        &DocumentFacts::m_outlines, path, &PDFTools::GetPDFOutline, &DocumentFacts::outlineRead);
}

std::optional<PDFTools::DocumentOutline> DocumentFacts::outline(const QString &path) const
{
    const auto found = m_outlines.constFind(path);
    return found == m_outlines.constEnd() ? std::nullopt : found->value;
}

void DocumentFacts::waitForReads()
{
    m_pool.waitForDone();
}

} // namespace Jobs
