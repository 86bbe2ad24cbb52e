#pragma once

// Engine-internal: a document changed in memory and written as its source's bytes followed by an
// incremental update holding what changed. Copying the bytes costs a fraction of writing every
// object anew, which for a document of a few hundred pages is most of an edit's time.

#include "enginesupport.h"

#include <QString>

#include <qpdf/PDFVersion.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <memory>
#include <vector>

namespace Engine {

// A document read through one open descriptor, which stays open to copy the source's bytes into
// the output: the structure read and the bytes copied come from the same file even if it is
// replaced meanwhile.
class UpdatableDocument
{
public:
    explicit UpdatableDocument(const QString &path);
    ~UpdatableDocument();
    UpdatableDocument(const UpdatableDocument &) = delete;
    UpdatableDocument &operator=(const UpdatableDocument &) = delete;

    // Null when the file does not open as a PDF.
    QPDF *pdf() const { return m_pdf.get(); }

    // Writes the document to target. The changed objects of the source and the added ones (made
    // since it was read) go into an update after the source's bytes when the source allows one:
    // read without repairs, not encrypted, of at least minimumVersion, with cross-references an
    // update can follow. Otherwise the whole document is written, of at least minimumVersion.
    bool write(const std::vector<QPDFObjectHandle> &changed,
               const std::vector<QPDFObjectHandle> &added,
               const QString &target,
               const PDFVersion &minimumVersion);

private:
    QString m_path;
    int m_fd = -1;
    qint64 m_size = 0;
    std::unique_ptr<QPDF> m_pdf;
    bool m_repaired = false;
};

// The output of a source that does not open: a document without pages.
void writeDocumentWithoutPages(const QString &target);

} // namespace Engine
