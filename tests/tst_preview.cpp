// Page images, the crop preview, the image helpers and the PNG writer.

#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "preview/pngfile.h"
#include "testpdf.h"

#include <QFile>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <thread>

Q_DECLARE_METATYPE(TestPdf::Page)
Q_DECLARE_METATYPE(QList<QPointF>)

namespace {

const QRgb White = qRgb(255, 255, 255);
const QRgb Blue = qRgb(0, 0, 255);
const QRgb Red = qRgb(255, 0, 0);

// The colour at a point of a page image, given in points from the image's lower-left corner.
QRgb at(const QImage &image, double x, double y)
{
    return image.pixel(int(x * ImageTools::Scale), image.height() - 1 - int(y * ImageTools::Scale));
}

} // namespace

class TestPreview : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void pageImage_data();
    void pageImage();
    void pageImageFailures_data();
    void pageImageFailures();
    void pageImageOnWorkerThreads();
    void cropPreview_data();
    void cropPreview();
    void rotateImage_data();
    void rotateImage();
    void resizeImageStretches();
    void pngRoundTrip_data();
    void pngRoundTrip();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestPreview::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestPreview::pageImage_data()
{
    // Every test page paints a blue square at (10, 10)-(110, 110) of user space.
    QTest::addColumn<TestPdf::Page>("page");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QPointF>("blueAt"); // points from the image's lower-left corner
    QTest::addColumn<QPointF>("whiteAt");

    TestPdf::Page letter;
    QTest::newRow("letter: 4 pixels a point")
        << letter << QSize(2448, 3168) << QPointF(60, 60) << QPointF(300, 400);
    TestPdf::Page a4;
    a4.mediaBox = QRectF(0, 0, 595.28, 841.89);
    QTest::newRow("fractional size truncated")
        << a4 << QSize(2381, 3367) << QPointF(60, 60) << QPointF(300, 400);
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    // Turned clockwise: user space (60, 60) is shown 60 points from the left and the top.
    QTest::newRow("rotated 90 as displayed")
        << turned << QSize(3168, 2448) << QPointF(60, 552) << QPointF(60, 60);
    TestPdf::Page cropped = letter;
    cropped.cropBox = QRectF(50, 50, 200, 300);
    QTest::newRow("crop box shown")
        << cropped << QSize(800, 1200) << QPointF(10, 10) << QPointF(100, 100);
    TestPdf::Page inherited = cropped;
    inherited.rotate = 180;
    inherited.inheritBoxes = true;
    QTest::newRow("inherited crop box and rotation")
        << inherited << QSize(800, 1200) << QPointF(190, 290) << QPointF(10, 10);
    TestPdf::Page offset = letter;
    offset.mediaBox = QRectF(0, 0, 400, 400);
    offset.redStamp = QRectF(200, 200, 100, 100);
    QTest::newRow("annotations drawn")
        << offset << QSize(1600, 1600) << QPointF(60, 60) << QPointF(150, 150);
}

void TestPreview::pageImage()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QSize, size);
    QFETCH(QPointF, blueAt);
    QFETCH(QPointF, whiteAt);
    TestPdf::Document document;
    document.pages = {TestPdf::Page(), page};
    TestPdf::write(path("doc.pdf"), document);

    const QImage image = ImageTools::PDFPageToImageWithPdfPath(path("doc.pdf"), 1);
    QCOMPARE(image.size(), size);
    QVERIFY2(!image.hasAlphaChannel(), "a page image is opaque");
    QCOMPARE(at(image, blueAt.x(), blueAt.y()), Blue);
    QCOMPARE(at(image, whiteAt.x(), whiteAt.y()), White);
    if (page.redStamp) {
        QCOMPARE(at(image, 250, 250), Red);
    }
}

void TestPreview::pageImageFailures_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<qint64>("page");
    QTest::newRow("missing file") << "missing.pdf" << qint64(0);
    QTest::newRow("not a PDF") << "text.pdf" << qint64(0);
    QTest::newRow("index past the end") << "doc.pdf" << qint64(2);
    QTest::newRow("user password") << "locked.pdf" << qint64(0);
    QTest::newRow("page too large to draw") << "huge.pdf" << qint64(0);
}

void TestPreview::pageImageFailures()
{
    QFETCH(QString, file);
    QFETCH(qint64, page);
    TestPdf::write(path("doc.pdf"), TestPdf::pages(2));
    TestPdf::Document locked = TestPdf::pages(1);
    locked.userPassword = true;
    TestPdf::write(path("locked.pdf"), locked);
    TestPdf::Document huge = TestPdf::pages(1);
    huge.pages[0].mediaBox = QRectF(0, 0, 14400, 14400);
    TestPdf::write(path("huge.pdf"), huge);
    QFile text(path("text.pdf"));
    QVERIFY(text.open(QIODevice::WriteOnly));
    text.write("just some text, no PDF here\n");
    text.close();

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
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back(
            [&, i] { fromThreads[i] = ImageTools::PDFPageToImageWithPdfPath(path("doc.pdf"), i); });
    }
    QThreadPool pool;
    pool.setMaxThreadCount(3);
    for (int i = 0; i < 3; ++i) {
        pool.start([&, i] {
            fromThreads[3 + i] = ImageTools::PDFPageToImageWithPdfPath(path("doc.pdf"), i);
        });
    }
    for (auto &thread : threads) {
        thread.join();
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
    const TestPdf::Page letter;
    const QList<QPointF> quarters{{150, 200}, {450, 200}, {150, 600}, {450, 600}};
    QTest::newRow("the whole page")
        << letter << QRectF(0, 0, 612, 792) << quarters << QList<QPointF>();
    QTest::newRow("nothing") << letter << QRectF(0, 0, 0, 0) << QList<QPointF>() << quarters;
    QTest::newRow("negative width")
        << letter << QRectF(300, 0, -100, 100) << QList<QPointF>() << quarters;
    QTest::newRow("lower-right quarter")
        << letter << QRectF(306, 0, 306, 396)
        << QList<QPointF>{{450, 200}, {307, 200}, {611, 395}} // no outline inside the edges
        << QList<QPointF>{{150, 200}, {150, 600}, {450, 600}, {300, 200}, {450, 400}};
    QTest::newRow("reaching off the page")
        << letter << QRectF(-100, 500, 400, 1000) << QList<QPointF>{{150, 600}, {1, 791}}
        << QList<QPointF>{{150, 200}, {450, 600}, {310, 600}};
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    QTest::newRow("rotated: as shown")
        << turned << QRectF(600, 0, 192, 100) << QList<QPointF>{{700, 50}}
        << QList<QPointF>{{500, 50}, {700, 150}};
    TestPdf::Page framed = letter;
    framed.cropBox = QRectF(200, 200, 300, 300);
    // The crop box is shown; the rectangle is in the page's own coordinates.
    QTest::newRow("crop box") << framed << QRectF(300, 300, 100, 100) << QList<QPointF>{{150, 150}}
                              << QList<QPointF>{{50, 150}, {150, 250}};
    framed.inheritBoxes = true; // from a node of the page tree of its own
    QTest::newRow("inherited crop box")
        << framed << QRectF(300, 300, 100, 100) << QList<QPointF>{{150, 150}}
        << QList<QPointF>{{50, 150}, {150, 250}};
}

void TestPreview::cropPreview()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QRectF, rect);
    QFETCH(QList<QPointF>, bright);
    QFETCH(QList<QPointF>, dimmed);
    TestPdf::Document document;
    document.pages = {TestPdf::Page(), page};
    TestPdf::write(path("doc.pdf"), document);
    const QImage image = ImageTools::DrawCropRectangleOnPageWithPdfPath(
        path("doc.pdf"), 2, rect.x(), rect.y(), rect.width(), rect.height());
    QCOMPARE(image.size(), ImageTools::PDFPageToImageWithPdfPath(path("doc.pdf"), 1).size());
    for (const QPointF &p : bright) {
        QVERIFY2(at(image, p.x(), p.y()) == White,
                 qPrintable(QStringLiteral("%1,%2").arg(p.x()).arg(p.y())));
    }
    for (const QPointF &p : dimmed) {
        QVERIFY2(at(image, p.x(), p.y()) == qRgb(102, 102, 102),
                 qPrintable(QStringLiteral("%1,%2").arg(p.x()).arg(p.y())));
    }
    // A page outside the document, or no document: no image.
    QVERIFY(
        ImageTools::DrawCropRectangleOnPageWithPdfPath(path("doc.pdf"), 3, 0, 0, 10, 10).isNull());
    QVERIFY(
        ImageTools::DrawCropRectangleOnPageWithPdfPath(path("doc.pdf"), 0, 0, 0, 10, 10).isNull());
    QVERIFY(
        ImageTools::DrawCropRectangleOnPageWithPdfPath(path("none.pdf"), 1, 0, 0, 10, 10).isNull());
}

void TestPreview::rotateImage_data()
{
    QTest::addColumn<double>("degrees");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<bool>("same"); // the very image given
    QTest::newRow("0") << 0.0 << QSize(100, 50) << true;
    QTest::newRow("360") << 360.0 << QSize(100, 50) << true;
    QTest::newRow("90") << 90.0 << QSize(50, 100) << false;
    QTest::newRow("-90") << -90.0 << QSize(50, 100) << false;
    QTest::newRow("450") << 450.0 << QSize(50, 100) << false;
    QTest::newRow("45") << 45.0 << QSize(107, 107) << false; // 106.07 rounded up
}

void TestPreview::rotateImage()
{
    QFETCH(double, degrees);
    QFETCH(QSize, size);
    QFETCH(bool, same);
    // Red on the left half, blue on the right.
    QImage image(100, 50, QImage::Format_ARGB32_Premultiplied);
    image.fill(Blue);
    QPainter(&image).fillRect(0, 0, 50, 50, QColor(Red));
    const QImage rotated = ImageTools::RotateImage(image, degrees);
    QCOMPARE(rotated.size(), size);
    QCOMPARE(rotated.cacheKey() == image.cacheKey(), same);
    if (degrees == 90 || degrees == 450) {
        // Counter-clockwise: the left half ends at the bottom.
        QCOMPARE(rotated.pixel(25, 90), Red);
        QCOMPARE(rotated.pixel(25, 10), Blue);
    } else if (degrees == -90) {
        QCOMPARE(rotated.pixel(25, 10), Red);
        QCOMPARE(rotated.pixel(25, 90), Blue);
    } else if (degrees == 45) {
        QCOMPARE(qAlpha(rotated.pixel(0, 0)), 0); // the corners stay transparent
    }
}

void TestPreview::resizeImageStretches()
{
    QImage image(200, 100, QImage::Format_ARGB32_Premultiplied);
    image.fill(Blue);
    QPainter(&image).fillRect(0, 0, 100, 100, QColor(Red));
    const QImage resized = ImageTools::ResizeImage(image, 50, 50);
    QCOMPARE(resized.size(), QSize(50, 50));
    QCOMPARE(resized.pixel(5, 45), Red); // no letterbox: the picture fills every pixel
    QCOMPARE(resized.pixel(45, 5), Blue);
}

void TestPreview::pngRoundTrip_data()
{
    QTest::addColumn<QImage>("image");
    QImage noise(613, 1031, QImage::Format_RGB32); // enough rows for several bands
    quint32 seed = 7;
    for (int y = 0; y < noise.height(); ++y) {
        for (int x = 0; x < noise.width(); ++x) {
            seed = seed * 1664525u + 1013904223u;
            noise.setPixel(x, y, 0xff000000u | (seed >> 8));
        }
    }
    noise.setDotsPerMeterX(11339);
    noise.setDotsPerMeterY(11339);
    QTest::newRow("opaque noise, several bands") << noise;
    QImage flat(2448, 3168, QImage::Format_RGB32);
    flat.fill(White);
    QTest::newRow("page of white") << flat;
    QImage alpha(37, 5, QImage::Format_ARGB32);
    for (int y = 0; y < alpha.height(); ++y) {
        for (int x = 0; x < alpha.width(); ++x) {
            alpha.setPixel(x, y, qRgba(x * 7, y * 50, 3, x * 6));
        }
    }
    QTest::newRow("transparency kept, one band") << alpha;
}

void TestPreview::pngRoundTrip()
{
    QFETCH(QImage, image);
    const QByteArray bytes = Png::encode(image);
    QImage decoded;
    QVERIFY(decoded.loadFromData(bytes, "PNG"));
    QCOMPARE(decoded.size(), image.size());
    QCOMPARE(decoded.hasAlphaChannel(), image.hasAlphaChannel());
    QCOMPARE(decoded.dotsPerMeterX(), image.dotsPerMeterX());
    const auto format = image.hasAlphaChannel() ? QImage::Format_ARGB32 : QImage::Format_RGB32;
    QVERIFY(decoded.convertToFormat(format) == image.convertToFormat(format));
}

QTEST_GUILESS_MAIN(TestPreview)
#include "tst_preview.moc"
