#pragma once

#include <QDateTime>
#include <QList>
#include <QRectF>
#include <QSize>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

// The drawing side (page images, the watermark) is built apart from the rest and uses Qt Gui;
// headless runs of the engine need only Qt Core.
class QColor;
class QImage;
class QTransform;
struct WatermarkSettings; // engine/watermarksettings.h

class PdfSource;

// How a page is laid out and shown: its boxes in user space (normalised, y up) and its rotation.
//
// A crop rectangle is given in crop coordinates: points, x to the right and y up on the page as
// it is shown, the page spanning (0, 0) to displayedSize(). On an unrotated page these are the
// page's own user-space coordinates (a media box that starts elsewhere than (0, 0) is not
// shifted); on a rotated page they start at the shown lower-left corner of the media box.
struct PageGeometry
{
    QRectF mediaBox{0, 0, 612, 792};
    // What a viewer shows: the crop box within the media box (the media box without one).
    QRectF visibleBox{0, 0, 612, 792};
    // Clockwise turn when shown: 0, 90, 180 or 270.
    int rotation = 0;

    // The media box's width and height as shown (swapped for 90 and 270).
    QSizeF displayedSize() const;
    // The visible box's width and height as shown.
    QSizeF visibleSize() const;
    // Percentages of the shown page to points, each product in single precision: x and width
    // of the shown width, y and height of the shown height.
    QRectF percentToPoints(double x, double y, double width, double height) const;
    // A rectangle in crop coordinates, in user space.
    QRectF cropRectToUser(const QRectF &rect) const;
    // Crop coordinates to user space (the same mapping as cropRectToUser).
    QTransform cropToUser() const;
    // User space to the pixels of the page image (the visible box as shown, scale pixels a
    // point, origin at the top-left corner, y down).
    QTransform userToImage(double scale) const;
};

// Stateless operations on PDF files by path. Nothing here throws and nothing asks the user:
// failures come back as false, 0 or empty values, and diagnostics go to the "quire.engine"
// log on stderr. Every output is written to a temporary file beside its target and renamed
// over it only when complete, so a failed write never leaves a partial file or harms an input.
// Any thread may call any operation; calls share nothing.
class PDFTools
{
public:
    PDFTools() = delete;

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

    // Called before each readable input is copied with its 1-based position in the list.
    using MergeProgress = std::function<void(int mergedFiles)>;
    // Joins the documents in list order. False when an input could not be opened or had no
    // pages, or the output could not be written; unreadable inputs are left out of the output.
    static bool MergePdfs(const QStringList &paths,
                          const QString &outputPath,
                          const MergeProgress &updateProgress = {});

    // Copies pages startPage to stopPage (1-based, both included) into a new document.
    // False when the source does not open, the range is empty or reaches outside the
    // document (the pages inside it are still written), or the output cannot be written.
    static bool
    SplitPdf(const QString &path, const QString &destination, qint64 startPage, qint64 stopPage);
    // The same on a document parsed once for all its intervals.
    static bool
    SplitPdf(PdfSource &source, const QString &destination, qint64 startPage, qint64 stopPage);

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

    // A transparent canvas of the given size (4 x the page in points) holding the text.
    static QImage CreateTextWatermark(QSize canvas,
                                      const QString &text,
                                      const QString &textFontType,
                                      double textFontSize,
                                      const QColor &textColor,
                                      double opacity,
                                      qint64 position,
                                      double verticalOffset,
                                      double horizontalOffset,
                                      bool useShadow,
                                      bool useStroke);
    // A transparent canvas holding the picture; a null image when the picture does not load.
    static QImage CreateImageWatermark(QSize canvas,
                                       const QString &imagePath,
                                       double opacity,
                                       double scale,
                                       double rotationDegrees,
                                       qint64 position,
                                       double verticalOffset,
                                       double horizontalOffset);
    // False when the source does not open or the output cannot be written.
    static bool
    WatermarkPDF(const QString &path, const WatermarkSettings &settings, const QString &outputPath);

    // Document properties

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
