// Merge and split: pages are copied as page objects, so their content stays as it is (vector,
// unchanged, shared fonts and images stored once) and each page keeps its rotation and
// annotations. Links between copied pages are pointed at the copies.

#include "enginesupport.h"
#include "pdftools.h"

#include <qpdf/QPDFAcroFormDocumentHelper.hh>
#include <qpdf/QPDFNameTreeObjectHelper.hh>

#include <map>
#include <optional>
#include <unordered_map>

using namespace Engine;

namespace {

// The named destinations of a source document, read once for all its links (and all the
// outputs a split makes of it): looking each name up in the name tree costs a third of a merge
// of a document with many links.
class NamedDestinations
{
public:
    explicit NamedDestinations(QPDF &source)
        : m_source(source)
    {}

    // The destination a name or string stands for; null when there is none.
    QPDFObjectHandle find(QPDFObjectHandle name)
    {
        if (name.isName()) {
            auto dests = m_source.getRoot().getKey("/Dests");
            return dests.isDictionary() ? dests.getKey(name.getName())
                                        : QPDFObjectHandle::newNull();
        }
        if (!m_read) {
            m_read = true;
            auto names = m_source.getRoot().getKey("/Names");
            auto tree = names.isDictionary() ? names.getKey("/Dests") : QPDFObjectHandle::newNull();
            if (tree.isDictionary()) {
                for (auto [key, value] : QPDFNameTreeObjectHelper(tree, m_source, false)) {
                    m_strings.emplace(key, value);
                }
            }
        }
        const auto found = m_strings.find(name.getUTF8Value());
        return found == m_strings.end() ? QPDFObjectHandle::newNull() : found->second;
    }

private:
    QPDF &m_source;
    bool m_read = false;
    std::unordered_map<std::string, QPDFObjectHandle> m_strings;
};

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
    struct Copy
    {
        QPDFObjectHandle source;
        QPDFObjectHandle copy;
    };
    class LinkMapper;

    void copyFormFields(QPDF &source, const std::vector<Copy> &copies);
    void repairLinks(QPDF &source, NamedDestinations &names, const std::vector<Copy> &copies);

    QPDF &m_out;
    std::unique_ptr<QPDFAcroFormDocumentHelper> m_outForms;
};

// Maps link destinations of one source document into the output: a destination whose page was
// copied points at the copy; one whose page was left out goes nowhere (a null page), never to
// another page. Named destinations are resolved in the source, whose name trees are not copied.
class PageCopier::LinkMapper
{
public:
    LinkMapper(QPDF &source, NamedDestinations &names, const std::vector<Copy> &copies)
        : m_source(source)
        , m_names(names)
    {
        for (const auto &c : copies) {
            m_copies.emplace(c.source.getObjGen(), c.copy);
        }
    }

    // The destination to write in the output for a source destination that qpdf copied as
    // copied; nothing when the copy stands (qpdf itself points a destination at a page copied
    // before the link, and leaves it null otherwise).
    std::optional<QPDFObjectHandle> map(QPDFObjectHandle destination, QPDFObjectHandle copied)
    {
        if (destination.isArray() && destination.getArrayNItems() > 0
            && destination.getArrayItem(0).isIndirect()) {
            if (!copied.isArray() || copied.getArrayNItems() < 1
                || copied.getArrayItem(0).isIndirect()) {
                return std::nullopt;
            }
            // The link came before its target: point the copied destination at the copy.
            if (auto page = copyOf(destination.getArrayItem(0))) {
                copied.setArrayItem(0, *page);
            }
            return std::nullopt;
        }
        if (destination.isName() || destination.isString()) {
            destination = m_names.find(destination);
        }
        if (destination.isDictionary()) {
            destination = destination.getKey("/D");
        }
        if (!destination.isArray() || destination.getArrayNItems() < 1) {
            return std::nullopt;
        }
        auto target = destination.getArrayItem(0);
        if (target.isInteger()) {
            // Some producers give a page index where a page belongs.
            const auto &pages = m_source.getAllPages();
            const long long index = target.getIntValue();
            target = index >= 0 && index < (long long)pages.size() ? pages[size_t(index)]
                                                                   : QPDFObjectHandle::newNull();
        } else if (!target.isIndirect()) {
            return std::nullopt;
        }
        auto mapped = QPDFObjectHandle::newArray();
        mapped.appendItem(copyOf(target).value_or(QPDFObjectHandle::newNull()));
        for (int i = 1; i < destination.getArrayNItems(); ++i) {
            mapped.appendItem(scalarCopy(destination.getArrayItem(i)));
        }
        return mapped;
    }

private:
    std::optional<QPDFObjectHandle> copyOf(QPDFObjectHandle page) const
    {
        if (!page.isIndirect()) {
            return std::nullopt;
        }
        const auto found = m_copies.find(page.getObjGen());
        return found == m_copies.end() ? std::nullopt : std::optional(found->second);
    }

    // Destination parameters are numbers, names or null; they are rebuilt in the output.
    static QPDFObjectHandle scalarCopy(QPDFObjectHandle value)
    {
        if (value.isInteger()) {
            return QPDFObjectHandle::newInteger(value.getIntValue());
        }
        if (value.isReal()) {
            return QPDFObjectHandle::newReal(value.getRealValue());
        }
        if (value.isName()) {
            return QPDFObjectHandle::newName(value.getName());
        }
        return QPDFObjectHandle::newNull();
    }

    QPDF &m_source;
    NamedDestinations &m_names;
    std::map<QPDFObjGen, QPDFObjectHandle> m_copies;
};

bool PageCopier::appendPages(QPDF &source, NamedDestinations &names, size_t first, size_t last)
{
    const auto &pages = source.getAllPages();
    last = std::min(last, pages.size());
    std::vector<Copy> copies;
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

void PageCopier::copyFormFields(QPDF &source, const std::vector<Copy> &copies)
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

void PageCopier::repairLinks(QPDF &source,
                             NamedDestinations &names,
                             const std::vector<Copy> &copies)
{
    std::optional<LinkMapper> mapper;
    for (auto c : copies) { // qpdf's handles have no const accessors
        auto sourceAnnots = c.source.getKey("/Annots");
        auto copyAnnots = c.copy.getKey("/Annots");
        if (!sourceAnnots.isArray() || !copyAnnots.isArray()
            || sourceAnnots.getArrayNItems() != copyAnnots.getArrayNItems()) {
            continue;
        }
        for (int i = 0; i < sourceAnnots.getArrayNItems(); ++i) {
            auto from = sourceAnnots.getArrayItem(i);
            auto to = copyAnnots.getArrayItem(i);
            if (!from.isDictionary() || !to.isDictionary()) {
                continue;
            }
            auto action = from.getKey("/A");
            const bool hasDest = from.hasKey("/Dest");
            const bool hasGoTo = action.isDictionary()
                                 && action.getKey("/S").isNameAndEquals("/GoTo")
                                 && action.hasKey("/D") && to.getKey("/A").isDictionary();
            if (!hasDest && !hasGoTo) {
                continue;
            }
            if (!mapper) {
                mapper.emplace(source, names, copies);
            }
            if (hasDest) {
                if (auto dest = mapper->map(from.getKey("/Dest"), to.getKey("/Dest"))) {
                    to.replaceKey("/Dest", *dest);
                }
            }
            if (hasGoTo) {
                auto copiedAction = to.getKey("/A");
                if (auto dest = mapper->map(action.getKey("/D"), copiedAction.getKey("/D"))) {
                    copiedAction.replaceKey("/D", *dest);
                }
            }
        }
    }
}

} // namespace

bool PDFTools::MergePdfs(const QStringList &paths,
                         const QString &outputPath,
                         const MergeProgress &updateProgress)
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
