// Merge and split: pages are copied as page objects, so their content stays as it is (vector,
// unchanged, shared fonts and images stored once) and each page keeps its rotation and
// annotations. Links between copied pages are pointed at the copies (linkrepair.cpp).

#include "enginesupport.h"
#include "linkrepair.h"
#include "pdftools.h"

#include <qpdf/QPDFAcroFormDocumentHelper.hh>

using namespace Engine;

namespace {

// Copies pages of source documents to the end of an output, one document at a time, and
// repairs what copying page by page breaks: link destinations and form fields.
class PageCopier
{
public:
    explicit PageCopier(QPDF &out)
        : m_out(out)
    {}

    // Appends pages first..last-1 of source in order. A page that cannot be copied ends the
    // document's copy ("Error occurred in creating page"); false then.
    bool appendPages(QPDF &source, NamedDestinations &names, size_t first, size_t last);

private:
    void copyFormFields(QPDF &source, const std::vector<CopiedPage> &copies);

    QPDF &m_out;
    std::unique_ptr<QPDFAcroFormDocumentHelper> m_outForms;
};

bool PageCopier::appendPages(QPDF &source, NamedDestinations &names, size_t first, size_t last)
{
    const auto &pages = source.getAllPages();
    last = std::min(last, pages.size());
    std::vector<CopiedPage> copies;
    copies.reserve(last > first ? last - first : 0);
    bool complete = true;
    for (size_t i = first; i < last; ++i) {
        try {
            m_out.addPage(pages[i], false);
            copies.push_back({pages[i], m_out.getAllPages().back()});
        } catch (const std::exception &e) {
            qCWarning(lcEngine).noquote().nospace()
                << "Error occurred in creating page " << (i + 1) << " of "
                << QString::fromStdString(source.getFilename()) << ": " << e.what();
            complete = false;
            break;
        }
    }
    guarded("Cannot copy the form fields of", QString::fromStdString(source.getFilename()), [&] {
        copyFormFields(source, copies);
    });
    guarded("Cannot repair the links of", QString::fromStdString(source.getFilename()), [&] {
        repairLinks(source, names, copies);
    });
    return complete;
}

void PageCopier::copyFormFields(QPDF &source, const std::vector<CopiedPage> &copies)
{
    QPDFAcroFormDocumentHelper sourceForms(source);
    if (copies.empty() || !sourceForms.hasAcroForm()) {
        return;
    }
    if (!m_outForms) {
        m_outForms = std::make_unique<QPDFAcroFormDocumentHelper>(m_out);
    }
    for (const auto &c : copies) {
        m_outForms->fixCopiedAnnotations(c.copy, c.source, sourceForms);
    }
}

} // namespace

bool PDFTools::MergePdfs(const QStringList &paths,
                         const QString &outputPath,
                         const MergeProgress &updateProgress,
                         const StopRequested &stopRequested)
{
    if (paths.isEmpty()) {
        qCWarning(lcEngine).noquote().nospace() << "Nothing to merge into " << outputPath;
        return false;
    }
    bool result = true;
    // Inputs are read while the output is written, document by document: a few open at a time
    // keep a merge of thousands of documents within the open-file limit.
    OpenFiles openFiles(32);
    std::vector<OpenDocument> sources;
    sources.reserve(size_t(paths.size()));
    const bool written = guarded("Cannot merge into", outputPath, [&] {
        QPDF out;
        out.setSuppressWarnings(true);
        out.emptyPDF();
        PageCopier copier(out);
        PDFVersion version(1, 3);
        for (qsizetype i = 0; i < paths.size(); ++i) {
            if (stopRequested && stopRequested()) {
                qCInfo(lcEngine).noquote().nospace()
                    << "The merge into " << outputPath << " was stopped";
                result = false;
                return;
            }
            auto source = openDocument(paths[i], nullptr, true, &openFiles);
            if (!source.pdf) {
                qCWarning(lcEngine).noquote().nospace() << "Cannot open " << paths[i];
                result = false;
                continue;
            }
            if (updateProgress) {
                updateProgress(int(i + 1));
            }
            if (source.pages().empty()) {
                qCWarning(lcEngine).noquote().nospace() << "No pages in " << paths[i];
                result = false;
            }
            NamedDestinations names(*source.pdf);
            copier.appendPages(*source.pdf, names, 0, source.pages().size());
            version.updateIfGreater(versionOf(*source.pdf));
            if (i == 0) {
                copyDocumentInfo(*source.pdf, out);
            }
            sources.push_back(std::move(source));
        }
        if (!writeDocument(out, outputPath, {version})) {
            result = false;
        }
    });
    return written && result;
}

struct PdfSource::Private
{
    explicit Private(OpenDocument opened)
        : doc(std::move(opened))
        , names(*doc.pdf)
    {}
    OpenDocument doc;
    NamedDestinations names;
};

PdfSource::PdfSource(const QString &path)
    : m_path(path)
{
    auto doc = openDocument(path);
    if (doc.pdf) {
        d = std::make_unique<Private>(std::move(doc));
    }
}

PdfSource::~PdfSource() = default;

bool PdfSource::isOpen() const
{
    return d != nullptr;
}

qint64 PdfSource::pageCount() const
{
    return d ? qint64(d->doc.pages().size()) : 0;
}

bool PDFTools::SplitPdf(const QString &path,
                        const QString &destination,
                        qint64 startPage,
                        qint64 stopPage)
{
    PdfSource source(path);
    return SplitPdf(source, destination, startPage, stopPage);
}

bool PDFTools::SplitPdf(PdfSource &source,
                        const QString &destination,
                        qint64 startPage,
                        qint64 stopPage)
{
    if (startPage > stopPage) {
        qCWarning(lcEngine).noquote().nospace()
            << "Nothing to split from " << source.path() << ": page " << startPage
            << " is after page " << stopPage;
        return false;
    }
    bool result = true;
    const bool written = guarded("Cannot split", source.path(), [&] {
        QPDF out;
        out.setSuppressWarnings(true);
        out.emptyPDF();
        if (!source.isOpen()) {
            // The source does not open: the output holds no pages and no attributes.
            qCWarning(lcEngine).noquote().nospace() << "Cannot open " << source.path();
            writeDocument(out, destination, {});
            result = false;
            return;
        }
        QPDF &pdf = *source.d->doc.pdf;
        const qint64 count = source.pageCount();
        // Pages outside the document end the copy there: the output keeps the pages before it
        // and gets no document attributes.
        const qint64 first = std::max<qint64>(startPage, 1);
        const qint64 last = std::min(stopPage, count);
        bool complete = startPage >= 1 && stopPage <= count;
        if (startPage >= 1 && first <= last) {
            complete
                = PageCopier(out).appendPages(pdf, source.d->names, size_t(first - 1), size_t(last))
                  && complete;
        }
        if (!complete) {
            qCWarning(lcEngine).noquote().nospace()
                << "Error occurred in creating page: pages " << startPage << " to " << stopPage
                << " of " << source.path() << " (" << count << " pages)";
            result = false;
        } else {
            copyDocumentInfo(pdf, out);
        }
        if (!writeDocument(out, destination, {versionOf(pdf)})) {
            result = false;
        }
    });
    return written && result;
}
