#pragma once

// Engine-internal: a document changed in memory and written anew, whole, so that nothing of what
// the change replaced stays in the file; a signed document, whose signature covers its bytes, is
// written as those bytes followed by an incremental update holding what changed.

#include "enginesupport.h"

#include <QString>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <memory>
#include <vector>

namespace Engine {

class BlockInputSource;

// A document read through one open descriptor, which stays open to copy the source's bytes into
// the output: the structure read and the bytes copied come from the same file even if it is
// replaced meanwhile.
class UpdatableDocument
{
public:
    // With readPages, a page tree that cannot be read means the document does not open, and the
    // repairs reading it needed count against an update.
    explicit UpdatableDocument(const QString &path, bool readPages = true);
    ~UpdatableDocument();
    UpdatableDocument(const UpdatableDocument &) = delete;
    UpdatableDocument &operator=(const UpdatableDocument &) = delete;

    // Null when the file does not open as a PDF (the reason is logged).
    QPDF *pdf() const { return m_pdf.get(); }

    // Writes the document to target, whole, of at least settings.minimumVersion; a damaged one
    // of which no page can be read is not written at all. A signed source keeps its bytes: the
    // changed objects and the added ones (made since it was read) go into an update after them,
    // when the source allows one (read without repairs, not encrypted, of at least that version,
    // with cross-references an update can follow).
    // With settings.inPlace, target is the source itself: a rewrite keeps its encryption and the
    // first part of its ID, and the document is closed (pdf() becomes null) before its
    // replacement is renamed over it.
    bool write(const std::vector<QPDFObjectHandle> &changed,
               const std::vector<QPDFObjectHandle> &added,
               const QString &target,
               const WriteSettings &settings);

private:
    bool writeWhole(PendingOutput &output, const WriteSettings &settings);
    void close();

    QString m_path;
    int m_fd = -1;
    qint64 m_size = 0;
    std::shared_ptr<BlockInputSource> m_input;
    std::unique_ptr<QPDF> m_pdf;
    bool m_repaired = false;
};

// The output of a source that does not open: a document without pages.
void writeDocumentWithoutPages(const QString &target);

} // namespace Engine
