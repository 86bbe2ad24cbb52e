// Merge and split: pages are copied as page objects, so their content stays as it is (vector,
// unchanged, shared fonts and images stored once) and each page keeps its rotation and
// annotations. Links between copied pages are pointed at the copies (linkrepair.cpp), and the
// bookmarks and page labels go with the pages they belong to (outline.cpp).

#include "blockinputsource.h"
#include "enginesupport.h"
#include "linkrepair.h"
#include "outline.h"
#include "pdftools.h"

#include <QFileInfo>
#include <QScopeGuard>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_set>

#include <qpdf/QPDFAcroFormDocumentHelper.hh>
#include <qpdf/QPDFPageLabelDocumentHelper.hh>

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

    // Appends pages first..last-1 of source in order, each with its copy in copies. A page that
    // cannot be copied ends the document's copy ("Error occurred in creating page"); false then.
    bool appendPages(QPDF &source, size_t first, size_t last, std::vector<CopiedPage> &copies);
    // Form fields and links of the copied pages, links pointed through map.
    void repair(QPDF &source, const std::vector<CopiedPage> &copies, DestinationMap &map);

private:
    void copyFormFields(QPDF &source, const std::vector<CopiedPage> &copies);

    QPDF &m_out;
    std::unique_ptr<QPDFAcroFormDocumentHelper> m_outForms;
};

bool PageCopier::appendPages(QPDF &source,
                             size_t first,
                             size_t last,
                             std::vector<CopiedPage> &copies)
{
    const auto &pages = source.getAllPages();
    last = std::min(last, pages.size());
    copies.reserve(last > first ? last - first : 0);
    for (size_t i = first; i < last; ++i) {
        try {
            m_out.addPage(pages[i], false);
            copies.push_back({pages[i], m_out.getAllPages().back()});
        } catch (const std::exception &e) {
            qCWarning(lcEngine).noquote().nospace()
                << "Error occurred in creating page " << (i + 1) << " of "
                << QString::fromStdString(source.getFilename()) << ": " << e.what();
            return false;
        }
    }
    return true;
}

void PageCopier::repair(QPDF &source, const std::vector<CopiedPage> &copies, DestinationMap &map)
{
    const QString path = QString::fromStdString(source.getFilename());
    guarded("Cannot copy the form fields of", path, [&] { copyFormFields(source, copies); });
    guarded("Cannot repair the links of", path, [&] { repairLinks(copies, map); });
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

// A new document without pages, for a merge or a split to copy pages into.
std::unique_ptr<QPDF> newOutput()
{
    auto out = std::make_unique<QPDF>();
    out->setSuppressWarnings(true);
    out->emptyPDF();
    return out;
}

// Opens the inputs of a merge ahead of their copy, on a thread of its own: parsing an input
// needs nothing of the others, so it overlaps the copy of the inputs before it, which stays in
// list order on the calling thread. The inputs opened ahead join the merge's group of open
// files when they are taken (the group belongs to the calling thread).
class InputsAhead
{
public:
    explicit InputsAhead(const QStringList &paths)
        : m_paths(paths)
        , m_documents(size_t(paths.size()))
    {
        if (paths.size() > 1) {
            m_thread = std::thread([this] { openAll(); });
        }
    }
    ~InputsAhead()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stopped = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    InputsAhead(const InputsAhead &) = delete;
    InputsAhead &operator=(const InputsAhead &) = delete;

    // Input i, taken in list order; no document when it does not open.
    OpenDocument take(qsizetype i, OpenFiles &group)
    {
        OpenDocument doc;
        if (!m_thread.joinable()) {
            doc = openDocument(m_paths[i], nullptr, true, &group);
        } else {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [&] { return m_opened > i; });
            doc = std::move(m_documents[size_t(i)]);
            m_taken = i + 1;
            lock.unlock();
            m_changed.notify_all();
        }
        if (doc.input) {
            doc.input->join(&group);
        }
        return doc;
    }

private:
    // Opened and not yet taken, at most: enough to keep the copy from waiting.
    static constexpr qsizetype Ahead = 2;

    void openAll()
    {
        for (qsizetype i = 0; i < m_paths.size(); ++i) {
            {
                std::unique_lock lock(m_mutex);
                m_changed.wait(lock, [&] { return m_stopped || i - m_taken < Ahead; });
                if (m_stopped) {
                    return;
                }
            }
            OpenDocument doc = openDocument(m_paths[i], nullptr, true);
            {
                std::lock_guard lock(m_mutex);
                m_documents[size_t(i)] = std::move(doc);
                m_opened = i + 1;
            }
            m_changed.notify_all();
        }
    }

    const QStringList &m_paths;
    std::vector<OpenDocument> m_documents;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    qsizetype m_opened = 0; // inputs 0..m_opened-1 are open (or failed to)
    qsizetype m_taken = 0;
    bool m_stopped = false;
    std::thread m_thread;
};

// The bookmark that stands for a whole input: its title, or else its file name without ".pdf".
std::string documentTitle(QPDF &source, const QString &path)
{
    QString title = infoText(source.getTrailer().getKey("/Info"), "/Title").simplified();
    if (title.isEmpty()) {
        title = QFileInfo(path).fileName();
        if (title.endsWith(QLatin1String(".pdf"), Qt::CaseInsensitive)) {
            title.chop(4);
        }
    }
    return title.toStdString();
}

} // namespace

bool PDFTools::MergePdfs(const QStringList &paths,
                         const QString &outputPath,
                         const MergeProgress &updateProgress,
                         const StopRequested &stopRequested,
                         BookmarkPolicy bookmarks)
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
    std::unique_ptr<QPDF> output;
    const bool written = guarded("Cannot merge into", outputPath, [&] {
        output = newOutput();
        QPDF &out = *output;
        PageCopier copier(out);
        MergedNames names;
        OutlineBuilder outline;
        PageLabels labels;
        bool showOutline = false;
        long long pageCount = 0;
        PDFVersion version(1, 3);
        InputsAhead ahead(paths);
        for (qsizetype i = 0; i < paths.size(); ++i) {
            if (stopRequested && stopRequested()) {
                qCInfo(lcEngine).noquote().nospace()
                    << "The merge into " << outputPath << " was stopped";
                result = false;
                return;
            }
            auto source = ahead.take(i, openFiles);
            if (!source.pdf) {
                qCWarning(lcEngine).noquote().nospace() << "Cannot open " << paths[i];
                result = false;
                continue;
            }
            if (updateProgress) {
                updateProgress(int(i + 1));
            }
            QPDF &pdf = *source.pdf;
            if (source.pages().empty()) {
                qCWarning(lcEngine).noquote().nospace() << "No pages in " << paths[i];
                result = false;
            }
            std::vector<CopiedPage> copies;
            copier.appendPages(pdf, 0, source.pages().size(), copies);
            NamedDestinations sourceNames(pdf);
            DestinationMap map(pdf, sourceNames, copies);
            guarded("Cannot copy the named destinations of", paths[i], [&] {
                names.addSource(pdf, map);
                map.keepNames(&names);
            });
            copier.repair(pdf, copies, map);
            if (bookmarks != BookmarkPolicy::None) {
                guarded("Cannot copy the bookmarks of", paths[i], [&] {
                    int parent = -1;
                    if (bookmarks != BookmarkPolicy::Keep) {
                        parent = outline.add(
                            -1,
                            OutlineBuilder::newItem(
                                documentTitle(pdf, paths[i]),
                                copies.empty() ? std::nullopt : std::optional(copies.front().copy)),
                            true);
                    }
                    if (bookmarks != BookmarkPolicy::PerDocument) {
                        outline.addAll(SourceOutline(pdf), map, parent);
                    }
                });
            }
            guarded("Cannot copy the page labels of", paths[i], [&] {
                labels.add(pdf, 0, (long long)copies.size() - 1, pageCount);
            });
            pageCount += (long long)copies.size();
            version.updateIfGreater(versionOf(pdf));
            if (i == 0) {
                copyDocumentInfo(pdf, out);
                showOutline = showsOutline(pdf);
            }
            sources.push_back(std::move(source));
        }
        names.write(out);
        outline.write(out);
        labels.write(out);
        if (showOutline && !outline.empty()) {
            out.getRoot().replaceKey("/PageMode", QPDFObjectHandle::newName("/UseOutlines"));
        }
        if (!writeDocument(out, outputPath, {version})) {
            result = false;
        }
    });
    if (keepingDocuments()) {
        keepUntilExit(std::move(output));
        keepUntilExit(std::make_shared<std::vector<OpenDocument>>(std::move(sources)));
    }
    return written && result;
}

// The pieces of one document share most of what their pages use (fonts, patterns, graphics
// states; a manual's pages each reach a hundred or more of them): copied one piece after the
// other into one output, each of those is copied once for many pieces rather than once for
// every piece. Each piece is written from there under a catalog and page tree of its own, so
// the writer reaches only the piece's pages and what they use, and the file is the one an
// output of its own would give. The pages of a written piece are then made null, so that
// nothing a later piece copies (a link, an annotation) leads back to them.
class SharedPieceOutput
{
public:
    // shared false: every piece gets an output of its own.
    explicit SharedPieceOutput(bool shared)
        : m_shared(shared)
    {}

    // The output for a piece of the source pages first..last-1, with an empty catalog and
    // page tree.
    QPDF &startPiece(const std::vector<QPDFObjectHandle> &pages, size_t first, size_t last)
    {
        // Every copied object stays in the output until it is replaced: past this many, a new
        // one starts, and the memory of the old one is freed.
        constexpr int maximumObjects = 5000;
        // A page is copied once into an output: one that an earlier piece holds (intervals that
        // overlap) needs a new output.
        const bool copiedBefore
            = std::any_of(pages.begin() + std::ptrdiff_t(first),
                          pages.begin() + std::ptrdiff_t(last),
                          [&](auto page) { return m_copied.count(objectKey(page)) != 0; });
        if (!m_pdf || m_lastObject > maximumObjects || copiedBefore) {
            m_pdf = newOutput();
            m_lastObject = 0;
            m_copied.clear();
            return *m_pdf;
        }
        QPDF &out = *m_pdf;
        auto tree = QPDFObjectHandle::newDictionary();
        tree.replaceKey("/Type", QPDFObjectHandle::newName("/Pages"));
        tree.replaceKey("/Kids", QPDFObjectHandle::newArray());
        tree.replaceKey("/Count", QPDFObjectHandle::newInteger(0));
        auto catalog = QPDFObjectHandle::newDictionary();
        catalog.replaceKey("/Type", QPDFObjectHandle::newName("/Catalog"));
        catalog.replaceKey("/Pages", out.makeIndirectObject(tree));
        out.getTrailer().replaceKey("/Root", out.makeIndirectObject(catalog));
        out.getTrailer().removeKey("/Info");
        out.updateAllPagesCache();
        return out;
    }

    // The piece in the output was written (or not: a new output serves the next piece then).
    void endPiece(const std::vector<CopiedPage> &copies, bool written)
    {
        if (!written || !m_shared) {
            m_pdf.reset();
            return;
        }
        for (const auto &c : copies) {
            m_copied.insert(objectKey(c.source));
            if (c.copy.isIndirect()) {
                m_lastObject = std::max(m_lastObject, c.copy.getObjectID());
                m_pdf->replaceObject(c.copy.getObjGen(), QPDFObjectHandle::newNull());
            }
        }
    }

private:
    const bool m_shared;
    std::unique_ptr<QPDF> m_pdf;
    int m_lastObject = 0;
    std::unordered_set<unsigned long long> m_copied; // the source pages in m_pdf
};

struct PdfSource::Private
{
    explicit Private(OpenDocument opened)
        : doc(std::move(opened))
        , names(*doc.pdf)
        // A document with form fields gives each piece an output of its own: the output's
        // field tree would gather the fields of every piece.
        , pieces(!QPDFAcroFormDocumentHelper(*doc.pdf).hasAcroForm())
    {}
    OpenDocument doc;
    NamedDestinations names;
    // Read for the first piece that needs them.
    std::optional<SourceOutline> outline;
    std::unique_ptr<QPDFPageLabelDocumentHelper> labels;
    SharedPieceOutput pieces;
};

PdfSource::PdfSource(const QString &path)
    : m_path(path)
{
    auto doc = openDocument(path);
    if (doc.pdf) {
        d = std::make_unique<Private>(std::move(doc));
    }
}

PdfSource::~PdfSource()
{
    if (keepingDocuments() && d) {
        keepUntilExit(std::shared_ptr<Private>(std::move(d)));
    }
}

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
        if (!source.isOpen()) {
            // The source does not open: the output holds no pages and no attributes.
            qCWarning(lcEngine).noquote().nospace() << "Cannot open " << source.path();
            writeDocument(*newOutput(), destination, {});
            result = false;
            return;
        }
        PdfSource::Private &d = *source.d;
        QPDF &pdf = *d.doc.pdf;
        const qint64 count = source.pageCount();
        // Pages outside the document end the copy there: the output keeps the pages before it
        // and gets no document attributes.
        const qint64 first = std::max<qint64>(startPage, 1);
        const qint64 last = std::min(stopPage, count);
        bool complete = startPage >= 1 && stopPage <= count;
        const bool anyPage = startPage >= 1 && first <= last;
        QPDF &out = d.pieces.startPiece(d.doc.pages(),
                                        anyPage ? size_t(first - 1) : 0,
                                        anyPage ? size_t(last) : 0);
        std::vector<CopiedPage> copies;
        bool pieceWritten = false;
        const auto endPiece = qScopeGuard([&] { d.pieces.endPiece(copies, pieceWritten); });
        PageCopier copier(out);
        bool copiedAll = true;
        if (anyPage) {
            copiedAll = copier.appendPages(pdf, size_t(first - 1), size_t(last), copies);
            complete = copiedAll && complete;
        }
        DestinationMap map(pdf, d.names, copies);
        copier.repair(pdf, copies, map);
        if (!complete) {
            qCWarning(lcEngine).noquote().nospace()
                << "Error occurred in creating page: pages " << startPage << " to " << stopPage
                << " of " << source.path() << " (" << count << " pages)";
            result = false;
        } else {
            copyDocumentInfo(pdf, out);
            guarded("Cannot copy the bookmarks of", source.path(), [&] {
                if (!d.outline) {
                    d.outline.emplace(pdf);
                    d.outline->resolvePages(pdf, d.names);
                }
                OutlineBuilder outline;
                outline.addPart(*d.outline, map, first - 1, last - 1);
                outline.write(out);
                if (!outline.empty() && showsOutline(pdf)) {
                    out.getRoot().replaceKey("/PageMode",
                                             QPDFObjectHandle::newName("/UseOutlines"));
                }
            });
            guarded("Cannot copy the page labels of", source.path(), [&] {
                if (!d.labels) {
                    d.labels = std::make_unique<QPDFPageLabelDocumentHelper>(pdf);
                }
                PageLabels labels;
                labels.add(*d.labels, first - 1, last - 1, 0);
                labels.write(out);
            });
        }
        pieceWritten = writeDocument(out, destination, {versionOf(pdf)});
        result = result && pieceWritten;
        // A page that could not be copied may have left half-copied objects behind.
        pieceWritten = pieceWritten && copiedAll;
    });
    return written && result;
}

PDFTools::DocumentOutline PDFTools::GetPDFOutline(const QString &path)
{
    DocumentOutline result;
    auto doc = openDocument(path);
    if (!doc.pdf) {
        return result;
    }
    guarded("Cannot read the bookmarks of", path, [&] {
        QPDF &pdf = *doc.pdf;
        result.pages = qint64(doc.pages().size());
        NamedDestinations names(pdf);
        SourceOutline outline(pdf);
        outline.resolvePages(pdf, names);
        for (auto item : outline.items()) { // qpdf's handles have no const accessors
            auto title = item.item.getKey("/Title");
            result.entries << OutlineEntry{
                item.level,
                title.isString() ? QString::fromStdString(title.getUTF8Value()) : QString(),
                item.page + 1};
        }
    });
    return result;
}
