// The read side of the engine: page counts, page and file sizes, dates and the load test.

#include "enginesupport.h"
#include "pdftools.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <qpdf/QPDFObjectHandle.hh>

#include <cmath>

using namespace Engine;

namespace {

// A box's width or height as the page-size text shows it: truncated toward zero; 0 when it is
// not a finite number that fits.
qint64 truncatedLength(double value)
{
    if (!std::isfinite(value) || std::fabs(value) >= 9.0e18) {
        return 0;
    }
    return qint64(value);
}

QString pageSizeText(QPDFObjectHandle page)
{
    auto box = page.getKey("/MediaBox");
    if (!box.isRectangle()) {
        // Inherited from the page tree, as viewers take it.
        for (auto node = page.getKey("/Parent"); node.isDictionary() && !box.isRectangle();
             node = node.getKey("/Parent")) {
            box = node.getKey("/MediaBox");
        }
    }
    qint64 width = 0;
    qint64 height = 0;
    if (box.isRectangle()) {
        const auto r = box.getArrayAsRectangle();
        width = truncatedLength(std::fabs(r.urx - r.llx));
        height = truncatedLength(std::fabs(r.ury - r.lly));
    }
    return QStringLiteral("%1 x %2").arg(width).arg(height);
}

PDFTools::LoadStatus statusOf(const OpenDocument &doc, OpenFailure failure)
{
    if (!doc.pdf) {
        switch (failure) {
        case OpenFailure::Password:
            return PDFTools::LoadStatus::PasswordProtected;
        case OpenFailure::Missing:
            return PDFTools::LoadStatus::Missing;
        default:
            return PDFTools::LoadStatus::Damaged;
        }
    }
    return doc.pdf->isEncrypted() ? PDFTools::LoadStatus::Encrypted
                                  : PDFTools::LoadStatus::Loadable;
}

} // namespace

qint64 PDFTools::GetPDFNumberOfPages(const QString &path)
{
    qint64 count = 0;
    const auto doc = openDocument(path, nullptr, false);
    if (doc.pdf) {
        guarded("Cannot count the pages of", path, [&] { count = pageCount(*doc.pdf); });
    }
    return count;
}

QString PDFTools::GetPDFPageSize(const QString &path)
{
    QString text = QStringLiteral("0 x 0");
    const auto doc = openDocument(path, nullptr, false);
    if (doc.pdf) {
        guarded("Cannot read the page size of", path, [&] {
            auto page = firstPage(*doc.pdf);
            if (page.isDictionary()) {
                text = pageSizeText(page);
            }
        });
    }
    return text;
}

QString PDFTools::FileSizeText(quint64 bytes)
{
    static constexpr quint64 KB = 1024;
    static constexpr quint64 MB = KB * 1024;
    static constexpr quint64 GB = MB * 1024;
    static constexpr quint64 TB = GB * 1024;
    if (bytes < KB) {
        return QString::number(bytes) + QLatin1String(" B");
    }
    // The count in single precision times the unit's exact reciprocal, as the size has always
    // been shown: 1048575 bytes is "1024.0 KB".
    const auto scaled
        = [bytes](quint64 unit) { return double(float(bytes) * (1.0f / float(unit))); };
    if (bytes < MB) {
        return QString::number(scaled(KB), 'f', 1) + QLatin1String(" KB");
    }
    if (bytes < GB) {
        return QString::number(scaled(MB), 'f', 1) + QLatin1String(" MB");
    }
    if (bytes < TB) {
        return QString::number(scaled(GB), 'f', 1) + QLatin1String(" GB");
    }
    return QString::number(scaled(TB), 'f', 1) + QLatin1String(" TB");
}

QString PDFTools::GetSizeWithPath(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        qCWarning(lcEngine).noquote() << QStringLiteral("Error: no such file: %1").arg(path);
        return FileSizeText(0);
    }
    return FileSizeText(quint64(info.size()));
}

QDateTime PDFTools::DocumentCreationDateWithPath(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        return QDateTime::currentDateTime();
    }
    const QDateTime birth = info.birthTime();
    if (birth.isValid()) {
        return birth;
    }
    const QDateTime modified = info.lastModified();
    return modified.isValid() ? modified : QDateTime::currentDateTime();
}

PDFTools::LoadStatus PDFTools::LoadTest(const QString &path)
{
    // Opening is the test: the pages are read by whatever works on the document next.
    OpenFailure failure = OpenFailure::None;
    const auto doc = openDocument(path, &failure, false);
    return statusOf(doc, failure);
}

QString PDFTools::LoadStatusText(LoadStatus status)
{
    switch (status) {
    case LoadStatus::Loadable:
        return QCoreApplication::translate("PDFTools", "it opens");
    case LoadStatus::Missing:
        return QCoreApplication::translate("PDFTools", "no such file, or it cannot be read");
    case LoadStatus::Damaged:
        return QCoreApplication::translate("PDFTools", "not a PDF document, or damaged");
    case LoadStatus::PasswordProtected:
        return QCoreApplication::translate("PDFTools", "it needs a password to open");
    case LoadStatus::Encrypted:
        return QCoreApplication::translate("PDFTools", "it is encrypted");
    }
    return {};
}

PDFTools::DocumentSummary PDFTools::SummarizeDocument(const QString &path)
{
    DocumentSummary summary;
    const QFileInfo file(path);
    summary.bytes = file.exists() ? quint64(file.size()) : 0;
    summary.fileSize = FileSizeText(summary.bytes);

    OpenFailure failure = OpenFailure::None;
    const auto doc = openDocument(path, &failure, false);
    summary.status = statusOf(doc, failure);
    if (!doc.pdf) {
        return summary;
    }
    summary.encrypted = doc.pdf->isEncrypted();
    guarded("Cannot read", path, [&] {
        summary.pages = pageCount(*doc.pdf);
        auto page = firstPage(*doc.pdf);
        if (page.isDictionary()) {
            summary.pageSize = pageSizeText(page);
        }
        auto info = doc.pdf->getTrailer().getKey("/Info");
        if (info.isDictionary()) {
            summary.title = infoText(info, "/Title");
            summary.author = infoText(info, "/Author");
            summary.subject = infoText(info, "/Subject");
            summary.keywords = splitKeywords(infoText(info, "/Keywords"));
        }
    });
    return summary;
}

QString PDFTools::LibraryVersion()
{
    return QString::fromStdString(QPDF::QPDFVersion());
}

void PDFTools::RemoveStaleTemporaryFiles(const QString &folder)
{
    removeStaleTemporaries(folder);
}
