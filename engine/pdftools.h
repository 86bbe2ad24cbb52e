#pragma once

#include "pagegeometry.h"

#include <QDateTime>
#include <QList>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <string>

class PdfSource;
class WatermarkLayerSource; // engine/watermarklayersource.h
namespace Engine {
class PendingOutput;
}

// Stateless operations on PDF files by path. Nothing here throws and nothing asks the user:
// failures come back as false, 0 or empty values, and diagnostics go to the "quire.engine"
// log on stderr. Every output is written to a temporary file beside its target and renamed
// over it only when complete, so a failed write never leaves a partial file or harms an input.
// Any thread may call any operation; calls share nothing.
class PDFTools
{
public:
    PDFTools() = delete;

    // The version of the PDF library in use ("11.3.0").
    static QString LibraryVersion();
    // Removes from folder the temporary files that writes of processes no longer running left
    // (a program that was killed cannot remove its own). Once per folder a run writes into.
    static void RemoveStaleTemporaryFiles(const QString &folder);

    // Inspection

    // Page count; 0 when the document does not open.
    static qint64 GetPDFNumberOfPages(const QString &path);
    // Media box of page 1 as "612 x 792" (truncated); "0 x 0" when it does not open.
    static QString GetPDFPageSize(const QString &path);
    // File size as "1.5 MB"; "0 B" when the file cannot be examined.
    static QString GetSizeWithPath(const QString &path);
    static QString FileSizeText(quint64 bytes);
    // Birth time where the file system records one, else modification time; now when unreadable.
    static QDateTime DocumentCreationDateWithPath(const QString &path);

    enum class LoadStatus {
        Loadable,
        Missing,           // no such file, or it cannot be read
        Damaged,           // not a PDF, or damaged beyond repair
        PasswordProtected, // needs a user password to open
        Encrypted,         // opens, but is encrypted
    };
    // The test every document passes before it enters a list: it opens as a PDF and is not
    // encrypted.
    static LoadStatus LoadTest(const QString &path);
    static bool IsLoadable(const QString &path) { return LoadTest(path) == LoadStatus::Loadable; }
    // Why a file failed the load test, as a user reads it ("it is encrypted").
    static QString LoadStatusText(LoadStatus status);

    struct DocumentSummary
    {
        LoadStatus status = LoadStatus::Missing; // Encrypted documents are summarised too
        qint64 pages = 0;
        QString pageSize = QStringLiteral("0 x 0");
        QString fileSize;
        quint64 bytes = 0;
        bool encrypted = false;
        QString title;
        QString author;
        QString subject;
        QStringList keywords;
    };
    // Everything the info command and the list's tooltips show, from one parse of the file.
    static DocumentSummary SummarizeDocument(const QString &path);

    // Merge and split

    // What a merge makes of the inputs' outlines (the bookmarks a viewer lists beside the
    // pages): every input's outline one after the other (Keep); one bookmark per input, titled
    // with the input's title or else its file name without ".pdf", leading to its first page
    // (PerDocument); that bookmark with the input's outline under it (Nest); or none.
    enum class BookmarkPolicy { Keep, PerDocument, Nest, None };

    // Called before each readable input is copied with its 1-based position in the list.
    using MergeProgress = std::function<void(int mergedFiles)>;
    // True to stop a merge before the next input: nothing is written then.
    using StopRequested = std::function<bool()>;
    // Joins the documents in list order. Links and bookmarks lead to the pages they led to;
    // the inputs' named destinations are gathered into one name tree (a name an earlier input
    // took gets a suffix, which the input's links and bookmarks follow), their page labels
    // stay with their pages, and the output shows its outline on opening when the first input
    // did. False when an input could not be opened or had no pages, the merge was stopped, or
    // the output could not be written; unreadable inputs are left out of the output.
    static bool MergePdfs(const QStringList &paths,
                          const QString &outputPath,
                          const MergeProgress &updateProgress = {},
                          const StopRequested &stopRequested = {},
                          BookmarkPolicy bookmarks = BookmarkPolicy::Keep);

    // Copies pages startPage to stopPage (1-based, both included) into a new document, with
    // the bookmarks that lead into these pages (and those above them, as headings that lead
    // nowhere) and their page labels.
    // False when the source does not open, the range is empty or reaches outside the
    // document (the pages inside it are still written), or the output cannot be written.
    static bool
    SplitPdf(const QString &path, const QString &destination, qint64 startPage, qint64 stopPage);
    // The same on a document parsed once for all its intervals.
    static bool
    SplitPdf(PdfSource &source, const QString &destination, qint64 startPage, qint64 stopPage);

    // For a process that ends when its work does (the command line): the operations leave the
    // documents they parsed and made to the end of the process, which frees them at once, rather
    // than taking them apart object by object (a tenth of the time of a merge of small
    // documents, 4 ms of a watermark of 500 pages). Off by default: a program that goes on needs
    // the memory back, and so does a batch of many documents.
    static void KeepDocumentsUntilExit(bool keep);

    struct OutlineEntry
    {
        int level = 1;   // 1: the top level
        QString title;   // as the viewer shows it
        qint64 page = 0; // the target page (1-based); 0: none in the document
    };
    struct DocumentOutline
    {
        qint64 pages = 0;            // 0 when the document does not open
        QList<OutlineEntry> entries; // in the order a viewer lists them
    };
    // The document's outline, read once: every bookmark however its links loop.
    static DocumentOutline GetPDFOutline(const QString &path);

    // Crop

    // Boxes and rotation of the page with the 1-based number; nothing when the document does
    // not open or has no such page.
    static std::optional<PageGeometry> GetPDFPageGeometry(const QString &path, qint64 page);
    // The part of the rectangle that lies on the page (0, 0)-(width, height); not clamped, so a
    // rectangle off the page gives a zero or negative dimension. Not-a-number gives (0, 0).
    static QSizeF CalculateCroppedImageSize(
        QSizeF pageSize, double originX, double originY, double width, double height);
    // Crops the listed pages (empty: every page; numbers outside the document are ignored) to
    // the rectangle, in crop coordinates (see PageGeometry): points, or percent of each page's
    // shown size. A cropped page's media box becomes the part of the rectangle on the page, and
    // its other boxes are cut to it; a rectangle narrower or lower than a point, or off the page,
    // leaves the page as it is. False when the rectangle is not finite, the source does not open
    // or has no pages, or the output cannot be written.
    static bool CropPDF(const QString &path,
                        const QList<qint64> &pages,
                        const QString &outputPath,
                        double inputOriginX,
                        double inputOriginY,
                        double inputWidth,
                        double inputHeight,
                        bool percents);

    // Watermark

    // Stamps the layers on the listed pages (empty: every page; numbers outside the document
    // are ignored): the picture and the text over it, drawn for each page's size as shown.
    // False when the source does not open or has no pages, a page cannot be stamped, or the
    // output cannot be written.
    static bool WatermarkPDF(const QString &path,
                             const QList<qint64> &pages,
                             WatermarkLayerSource &layers,
                             const QString &outputPath);

    // Document properties

    struct DocumentProperties
    {
        QString title;
        QString author;
        QString subject;
        QStringList keywords;
        friend bool operator==(const DocumentProperties &, const DocumentProperties &) = default;
    };
    // What the templates make of a document's present values, as the edit below writes them:
    // "[Original]" first, then "[FileName]" (the file's name with every ".pdf" taken out) over
    // the result; in the keywords template blanks and commas separate pieces, and a placeholder
    // counts only as a whole piece.
    static DocumentProperties ResolvePropertyTemplates(const QString &path,
                                                       const DocumentProperties &old,
                                                       const QString &title,
                                                       const QString &author,
                                                       const QString &subject,
                                                       const QString &keywords);

    // Rewrites title, author, subject and keywords from templates ("[Original]", "[FileName]")
    // and saves the document in place; its XMP metadata, where it has some, takes the values
    // that changed. True when the document was saved. False, with the file as it was, when it
    // does not open, is read-only or in a read-only folder, cannot be written (a full disk), or
    // is so damaged that no page of it can be read.
    static bool ChangedDocumentsPropertiesWithPdfPath(const QString &path,
                                                      const QString &title,
                                                      const QString &author,
                                                      const QString &subject,
                                                      const QString &keywords);
};

// A document parsed once and kept open for several operations on it (the intervals of a
// split). One thread at a time.
class PdfSource
{
public:
    explicit PdfSource(const QString &path);
    ~PdfSource();
    PdfSource(const PdfSource &) = delete;
    PdfSource &operator=(const PdfSource &) = delete;

    const QString &path() const { return m_path; }
    bool isOpen() const;
    qint64 pageCount() const;

private:
    friend class PDFTools;
    struct Private;
    QString m_path;
    std::unique_ptr<Private> d;
};

// The folders of a run's outputs, synced once each when the run ends rather than once for
// every output: each output still reaches the disk before it is renamed over its target (a
// crash finds the old file or the new one), and the renames reach it with finish(). Workers
// take it on with a Scope each, on their own threads.
class FolderSyncs
{
public:
    FolderSyncs();
    ~FolderSyncs();
    FolderSyncs(const FolderSyncs &) = delete;
    FolderSyncs &operator=(const FolderSyncs &) = delete;

    class Scope
    {
    public:
        explicit Scope(FolderSyncs &syncs);
        ~Scope();
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        FolderSyncs *m_previous;
    };

    // Syncs the folders that outputs were renamed into since the last call.
    void finish();

private:
    friend class Engine::PendingOutput;
    void add(const std::string &folder);

    static thread_local FolderSyncs *s_current;
    struct Private;
    std::unique_ptr<Private> d;
};

// While one is alive, the outputs its thread writes are put in place together when it ends:
// their files reach the disk in one go, are renamed over their targets and their folders are
// synced once. A document cut into 600 pages then waits for the disk a few times rather than
// 1,200. An output is not at its target until finish(); abandoned ones are removed. One per
// thread at a time.
class OutputCommitGroup
{
public:
    OutputCommitGroup();
    ~OutputCommitGroup();
    OutputCommitGroup(const OutputCommitGroup &) = delete;
    OutputCommitGroup &operator=(const OutputCommitGroup &) = delete;

    struct Failure
    {
        QString target;
        QString reason;
    };
    // Puts every output in place; the ones that could not be, with why (their targets are as
    // they were).
    QList<Failure> finish();

private:
    struct Private;
    std::unique_ptr<Private> d;
};
