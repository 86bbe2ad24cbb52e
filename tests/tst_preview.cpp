// Page images, the crop preview and the PNG writer.

#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "preview/pngfile.h"
#include "testpdf.h"

#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

Q_DECLARE_METATYPE(TestPdf::Page)
Q_DECLARE_METATYPE(QList<QPointF>)

using TestPdf::row;

namespace {

const QRgb White = qRgb(255, 255, 255);
const QRgb Blue = qRgb(0, 0, 255);
const QRgb Red = qRgb(255, 0, 0);

// The colour at a point of a page image, given in points from the image's lower-left corner.
QRgb at(const QImage &image, QPointF p)
{
    const double scale = ImageTools::Scale;
    return image.pixel(int(p.x() * scale), image.height() - 1 - int(p.y() * scale));
}

} // namespace

class TestPreview : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_dir.emplace(); }
    void pageImage_data();
    void pageImage();
    void pageImageFailures_data();
    void pageImageFailures();
    void pageImageOnWorkerThreads();
    void cropPreview_data();
    void cropPreview();
    void pngRoundTrip();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    // A document whose second page is page: page images of a document's first page alone could
    // hide an index off by one.
    QString document(const TestPdf::Page &page)
    {
        TestPdf::Document document;
        document.pages = {TestPdf::Page(), page};
        TestPdf::write(path("doc.pdf"), document);
        return path("doc.pdf");
    }
    std::optional<QTemporaryDir> m_dir;
};

void TestPreview::pageImage_data()
{
    // Every test page paints a blue square at (10, 10)-(110, 110) of user space. Points are
    // from the image's lower-left corner.
    QTest::addColumn<TestPdf::Page>("page");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QPointF>("blueAt");
    QTest::addColumn<QPointF>("whiteAt");
    TestPdf::Page letter;
    // clang-format off
    row("letter: 4 pixels a point", letter, QSize(2448, 3168), QPointF(60, 60), QPointF(300, 400));
    TestPdf::Page a4;
    a4.mediaBox = QRectF(0, 0, 595.28, 841.89);
    row("fractional size truncated", a4, QSize(2381, 3367), QPointF(60, 60), QPointF(300, 400));
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    // Turned clockwise: user space (60, 60) is shown 60 points from the left and the top.
    row("rotated 90 as displayed", turned, QSize(3168, 2448), QPointF(60, 552), QPointF(60, 60));
    TestPdf::Page cropped = letter;
    cropped.cropBox = QRectF(50, 50, 200, 300);
    row("crop box shown", cropped, QSize(800, 1200), QPointF(10, 10), QPointF(100, 100));
    TestPdf::Page inherited = cropped;
    inherited.rotate = 180;
    inherited.inheritBoxes = true;
    row("inherited crop box and rotation", inherited, QSize(800, 1200), QPointF(190, 290),
        QPointF(10, 10));
    TestPdf::Page stamped = letter;
    stamped.mediaBox = QRectF(0, 0, 400, 400);
    stamped.redStamp = QRectF(200, 200, 100, 100);
    row("annotations drawn", stamped, QSize(1600, 1600), QPointF(60, 60), QPointF(150, 150));
    // clang-format on
}

void TestPreview::pageImage()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QSize, size);
    QFETCH(QPointF, blueAt);
    QFETCH(QPointF, whiteAt);
    const QImage image = ImageTools::PDFPageToImageWithPdfPath(document(page), 1);
    QCOMPARE(image.size(), size);
    QVERIFY2(!image.hasAlphaChannel(), "a page image is opaque");
    QCOMPARE(at(image, blueAt), Blue);
    QCOMPARE(at(image, whiteAt), White);
    if (page.redStamp) {
        QCOMPARE(at(image, {250, 250}), Red);
    }
}

void TestPreview::pageImageFailures_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<qint64>("page");
    row("missing file", "missing.pdf", 0LL);
    row("not a PDF", "text.pdf", 0LL);
    row("index past the end", "doc.pdf", 2LL);
    row("user password", "locked.pdf", 0LL);
    row("page too large to draw", "huge.pdf", 0LL);
}

void TestPreview::pageImageFailures()
{
    QFETCH(QString, file);
    QFETCH(qint64, page);
    TestPdf::write(path("doc.pdf"), TestPdf::pages(2));
    TestPdf::Document document = TestPdf::pages(1);
    document.userPassword = true;
    TestPdf::write(path("locked.pdf"), document);
    document.userPassword = false;
    document.pages[0].mediaBox = QRectF(0, 0, 14400, 14400);
    TestPdf::write(path("huge.pdf"), document);
    QVERIFY(TestPdf::writeBytes(path("text.pdf"), "just some text, no PDF here\n"));
    QVERIFY(ImageTools::PDFPageToImageWithPdfPath(path(file), page).isNull());
}

void TestPreview::pageImageOnWorkerThreads()
{
    TestPdf::Document document = TestPdf::pages(3);
    document.pages[1].rotate = 90;
    document.encrypt = true; // an owner password alone does not stop rendering
    TestPdf::write(path("doc.pdf"), document);
    QList<QImage> expected;
    for (int i = 0; i < 3; ++i) {
        expected << ImageTools::PDFPageToImageWithPdfPath(path("doc.pdf"), i);
        QVERIFY(!expected.back().isNull());
    }
    QList<QImage> fromThreads(6);
    QThreadPool pool;
    pool.setMaxThreadCount(6);
    for (int i = 0; i < 6; ++i) {
        pool.start([&, i] {
            fromThreads[i] = ImageTools::PDFPageToImageWithPdfPath(path("doc.pdf"), i % 3);
        });
    }
    pool.waitForDone();
    for (int i = 0; i < 6; ++i) {
        QVERIFY2(fromThreads[i] == expected[i % 3], qPrintable(QString::number(i)));
    }
}

void TestPreview::cropPreview_data()
{
    // Samples on the white of the page, in points from the shown lower-left corner: bright
    // ones are white, dimmed ones 40 % white.
    QTest::addColumn<TestPdf::Page>("page");
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<QList<QPointF>>("bright");
    QTest::addColumn<QList<QPointF>>("dimmed");
    using Points = QList<QPointF>;
    const TestPdf::Page letter;
    const Points quarters{{150, 200}, {450, 200}, {150, 600}, {450, 600}};
    // clang-format off
    row("the whole page", letter, QRectF(0, 0, 612, 792), quarters, Points());
    row("nothing", letter, QRectF(0, 0, 0, 0), Points(), quarters);
    row("negative width", letter, QRectF(300, 0, -100, 100), Points(), quarters);
    // No outline is drawn inside the rectangle's edges.
    row("lower-right quarter", letter, QRectF(306, 0, 306, 396),
        Points{{450, 200}, {307, 200}, {611, 395}},
        Points{{150, 200}, {150, 600}, {450, 600}, {300, 200}, {450, 400}});
    row("reaching off the page", letter, QRectF(-100, 500, 400, 1000), Points{{150, 600}, {1, 791}},
        Points{{150, 200}, {450, 600}, {310, 600}});
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    row("rotated: as shown", turned, QRectF(600, 0, 192, 100), Points{{700, 50}},
        Points{{500, 50}, {700, 150}});
    TestPdf::Page framed = letter;
    framed.cropBox = QRectF(200, 200, 300, 300);
    framed.inheritBoxes = true; // from a node of the page tree of its own
    // The crop box is shown; the rectangle is in the page's own coordinates.
    row("inherited crop box", framed, QRectF(300, 300, 100, 100), Points{{150, 150}},
        Points{{50, 150}, {150, 250}});
    // clang-format on
}

void TestPreview::cropPreview()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QRectF, rect);
    QFETCH(QList<QPointF>, bright);
    QFETCH(QList<QPointF>, dimmed);
    const QString doc = document(page);
    const QImage image = ImageTools::DrawCropRectangleOnPageWithPdfPath(
        doc, 2, rect.x(), rect.y(), rect.width(), rect.height());
    QCOMPARE(image.size(), ImageTools::PDFPageToImageWithPdfPath(doc, 1).size());
    for (const QPointF &p : bright) {
        QVERIFY2(at(image, p) == White, qPrintable(QStringLiteral("%1,%2").arg(p.x()).arg(p.y())));
    }
    for (const QPointF &p : dimmed) {
        QVERIFY2(at(image, p) == qRgb(102, 102, 102),
                 qPrintable(QStringLiteral("%1,%2").arg(p.x()).arg(p.y())));
    }
    // A page outside the document, or no document: no image.
    QVERIFY(ImageTools::DrawCropRectangleOnPageWithPdfPath(doc, 3, 0, 0, 10, 10).isNull());
    QVERIFY(ImageTools::DrawCropRectangleOnPageWithPdfPath(doc, 0, 0, 0, 10, 10).isNull());
    QVERIFY(
        ImageTools::DrawCropRectangleOnPageWithPdfPath(path("no.pdf"), 1, 0, 0, 10, 10).isNull());
}

void TestPreview::pngRoundTrip()
{
    // Noise of enough rows for several bands, with a transparent column and a resolution.
    QImage image(613, 1031, QImage::Format_ARGB32);
    quint32 seed = 7;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            seed = seed * 1664525u + 1013904223u;
            image.setPixel(x, y, x == 5 ? 0 : 0xff000000u | (seed >> 8));
        }
    }
    image.setDotsPerMeterX(11339);
    image.setDotsPerMeterY(11339);
    QImage decoded;
    QVERIFY(decoded.loadFromData(Png::encode(image), "PNG"));
    QCOMPARE(decoded.dotsPerMeterX(), 11339);
    QVERIFY(decoded.convertToFormat(QImage::Format_ARGB32) == image);
    const QImage opaque = image.convertToFormat(QImage::Format_RGB32);
    QVERIFY(decoded.loadFromData(Png::encode(opaque), "PNG"));
    QVERIFY(!decoded.hasAlphaChannel() && decoded.convertToFormat(QImage::Format_RGB32) == opaque);
}

QTEST_GUILESS_MAIN(TestPreview)
#include "tst_preview.moc"
