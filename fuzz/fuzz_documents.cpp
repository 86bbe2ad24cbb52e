// A document read through the block-cached input source and its properties edited in place (a
// whole rewrite, or an update after a signed document's bytes): when qpdf could read the input,
// the edit either fails cleanly, leaving the file as it was, or gives a file that qpdf reads to
// its last object.

#include "engine/pdftools.h"

#include <QFile>
#include <QTemporaryDir>

#include <qpdf/QPDF.hh>

#include <cstdint>
#include <cstdlib>

namespace {

// Whether qpdf reads the file and every object in it.
bool readsWhole(const QString &path)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(QFile::encodeName(path).constData());
        for (auto object : pdf.getAllObjects()) {
            object.unparseResolved();
        }
        pdf.getAllPages();
        return true;
    } catch (const std::exception &) {
        return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("in.pdf"));
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || file.write(bytes) != bytes.size()) {
            return 0;
        }
    }
    if (!readsWhole(path)) {
        return 0;
    }
    const bool saved
        = PDFTools::ChangedDocumentsPropertiesWithPdfPath(path,
                                                          QStringLiteral("[FileName] ☃"),
                                                          QStringLiteral("[Original]"),
                                                          QString(),
                                                          QStringLiteral("[Original] fuzz"));
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    const QByteArray after = file.readAll();
    if (!saved && after != bytes) {
        std::abort(); // a failed edit leaves the file as it was
    }
    if (saved && !readsWhole(path)) {
        std::abort(); // a file qpdf read was written so that it cannot
    }
    return 0;
}
