// The crop engine: the kept rectangle on each page, the page list, the other boxes, rotated
// pages, and documents that are written as an update or whole.

#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "testpdf.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <limits>

Q_DECLARE_METATYPE(TestPdf::Page)
Q_DECLARE_METATYPE(std::optional<QRectF>)
Q_DECLARE_METATYPE(QList<qint64>)

namespace {

bool near(const QRectF &a, const QRectF &b)
{
    const double e = 1e-3;
    return std::fabs(a.x() - b.x()) < e && std::fabs(a.y() - b.y()) < e
           && std::fabs(a.width() - b.width()) < e && std::fabs(a.height() - b.height()) < e;
}

QString text(const std::optional<QRectF> &r)
{
    if (!r) {
        return QStringLiteral("none");
    }
    return QStringLiteral("%1,%2 %3x%4").arg(r->x()).arg(r->y()).arg(r->width()).arg(r->height());
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const double NaN = std::numeric_limits<double>::quiet_NaN();
const double Infinity = std::numeric_limits<double>::infinity();

} // namespace

class TestCrop : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void croppedImageSize_data();
    void croppedImageSize();
    void boxes_data();
    void boxes();
    void pageList_data();
    void pageList();
    void documentKept_data();
    void documentKept();
    void repairedSourceWrittenWhole();
    void failures_data();
    void failures();
    void realDocuments();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestCrop::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestCrop::croppedImageSize_data()
{
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<QSizeF>("kept");
    // On a 612 x 792 page.
    QTest::newRow("past the right edge") << QRectF(600, 0, 100, 100) << QSizeF(12, 100);
    QTest::newRow("wholly right of the page, not clamped")
        << QRectF(700, 0, 50, 50) << QSizeF(-88, 50);
    QTest::newRow("not a number") << QRectF(NaN, 0, 100, 100) << QSizeF(0, 0);
}

void TestCrop::croppedImageSize()
{
    QFETCH(QRectF, rect);
    QFETCH(QSizeF, kept);
    QCOMPARE(PDFTools::CalculateCroppedImageSize(
                 QSizeF(612, 792), rect.x(), rect.y(), rect.width(), rect.height()),
             kept);
}

void TestCrop::boxes_data()
{
    QTest::addColumn<TestPdf::Page>("page");
    QTest::addColumn<QRectF>("rect");
    QTest::addColumn<bool>("percents");
    QTest::addColumn<QRectF>("mediaBox");               // as written
    QTest::addColumn<std::optional<QRectF>>("cropBox"); // the page's own, as written

    const TestPdf::Page letter;
    const QRectF whole(0, 0, 612, 792);
    const std::optional<QRectF> none;
    QTest::newRow("points") << letter << QRectF(50, 100, 400, 500) << false
                            << QRectF(50, 100, 400, 500) << none;
    QTest::newRow("percent, in single precision") << letter << QRectF(10, 10, 80, 80) << true
                                                  << QRectF(double(10.0f * 612.0f / 100.0f),
                                                            double(10.0f * 792.0f / 100.0f),
                                                            double(612.0f * 80.0f / 100.0f),
                                                            double(792.0f * 80.0f / 100.0f))
                                                  << none;
    QTest::newRow("percent, the whole page")
        << letter << QRectF(0, 0, 100, 100) << true << whole << none;
    TestPdf::Page a4;
    a4.mediaBox = QRectF(0, 0, 595, 842);
    QTest::newRow("percent, the lower-left quarter")
        << a4 << QRectF(0, 0, 50, 50) << true << QRectF(0, 0, 297.5, 421) << none;
    QTest::newRow("negative origin pulled in")
        << letter << QRectF(-20, 0, 100, 100) << false << QRectF(0, 0, 80, 100) << none;
    QTest::newRow("cut at the right edge")
        << letter << QRectF(600, 0, 100, 100) << false << QRectF(600, 0, 12, 100) << none;
    QTest::newRow("half a point wide: unchanged")
        << letter << QRectF(0, 0, 0.5, 100) << false << whole << none;
    QTest::newRow("one point wide")
        << letter << QRectF(0, 0, 1, 100) << false << QRectF(0, 0, 1, 100) << none;
    QTest::newRow("origin on the right edge: unchanged")
        << letter << QRectF(612, 0, 10, 10) << false << whole << none;
    QTest::newRow("wholly left of the page: unchanged")
        << letter << QRectF(-200, 0, 100, 100) << false << whole << none;
    QTest::newRow("huge percentages: unchanged")
        << letter << QRectF(1e39, 0, 1e39, 1e39) << true << whole << none;
    TestPdf::Page square;
    square.mediaBox = QRectF(0, 0, 300, 300);
    QTest::newRow("square page") << square << QRectF(200, 200, 200, 200) << false
                                 << QRectF(200, 200, 100, 100) << none;
    TestPdf::Page offset;
    offset.mediaBox = QRectF(100, 100, 300, 300);
    QTest::newRow("offset media box: measured from user space's origin")
        << offset << QRectF(150, 150, 100, 100) << false << QRectF(150, 150, 100, 100) << none;

    // Rotated pages: the rectangle as the page is shown.
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    QTest::newRow("rotated 90") << turned << QRectF(0, 0, 100, 50) << false
                                << QRectF(562, 0, 50, 100) << none;
    QTest::newRow("rotated 90, percent of the shown size")
        << turned << QRectF(0, 0, 50, 100) << true << QRectF(0, 0, 612, 396) << none;
    QTest::newRow("rotated 90, cut at the shown right edge")
        << turned << QRectF(700, 0, 200, 50) << false << QRectF(562, 700, 50, 92) << none;
    turned.rotate = 180;
    QTest::newRow("rotated 180") << turned << QRectF(0, 0, 100, 50) << false
                                 << QRectF(512, 742, 100, 50) << none;
    turned.rotate = -90;
    QTest::newRow("rotated -90 (270)")
        << turned << QRectF(0, 0, 100, 50) << false << QRectF(0, 692, 50, 100) << none;
    turned.rotate = 90;
    turned.mediaBox = QRectF(50, 60, 612, 792);
    QTest::newRow("rotated 90, offset media box")
        << turned << QRectF(0, 0, 100, 50) << false << QRectF(612, 60, 50, 100) << none;

    // The other boxes are cut to the kept rectangle.
    TestPdf::Page framed = letter;
    framed.cropBox = QRectF(0, 0, 300, 300);
    QTest::newRow("crop box cut") << framed << QRectF(100, 100, 400, 400) << false
                                  << QRectF(100, 100, 400, 400)
                                  << std::optional<QRectF>(QRectF(100, 100, 200, 200));
    QTest::newRow("crop box outside the kept area")
        << framed << QRectF(400, 400, 100, 100) << false << QRectF(400, 400, 100, 100)
        << std::optional<QRectF>(QRectF(400, 400, 100, 100));
    QTest::newRow("uncropped page keeps its crop box")
        << framed << QRectF(0, 0, 0, 0) << false << whole
        << std::optional<QRectF>(QRectF(0, 0, 300, 300));
    framed.inheritBoxes = true;
    framed.rotate = 180;
    QTest::newRow("inherited crop box and rotation")
        << framed << QRectF(0, 0, 512, 692) << false << QRectF(100, 100, 512, 692)
        << std::optional<QRectF>(QRectF(100, 100, 200, 200));
}

void TestCrop::boxes()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QRectF, rect);
    QFETCH(bool, percents);
    QFETCH(QRectF, mediaBox);
    QFETCH(std::optional<QRectF>, cropBox);
    TestPdf::Document document;
    page.marker = QStringLiteral("p1");
    page.trimBox = QRectF(0, 0, 612, 200);
    document.pages = {page};
    TestPdf::write(path("in.pdf"), document);

    QVERIFY(PDFTools::CropPDF(path("in.pdf"),
                              {},
                              path("out.pdf"),
                              rect.x(),
                              rect.y(),
                              rect.width(),
                              rect.height(),
                              percents));
    const auto out = TestPdf::read(path("out.pdf"));
    QVERIFY(out.opened);
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.pages.size(), 1);
    const auto &written = out.pages[0];
    QVERIFY2(near(written.mediaBox, mediaBox), qPrintable(text(written.mediaBox)));
    QCOMPARE(text(written.cropBox), text(cropBox));
    QCOMPARE(written.rotate, page.rotate);
    QCOMPARE(written.marker, QStringLiteral("p1"));
    // The trim box ends at the kept area, or goes when nothing of it is left.
    const QRectF trim = QRectF(0, 0, 612, 200).intersected(mediaBox);
    QCOMPARE(text(written.trimBox), text(trim.isEmpty() ? std::nullopt : std::optional(trim)));
}

void TestCrop::pageList_data()
{
    QTest::addColumn<QList<qint64>>("pages");
    QTest::addColumn<QList<int>>("cropped"); // 0-based
    QTest::newRow("empty: every page") << QList<qint64>() << QList<int>{0, 1, 2, 3, 4};
    QTest::newRow("2 and 4") << QList<qint64>{2, 4} << QList<int>{1, 3};
    QTest::newRow("order and repeats do not matter") << QList<qint64>{4, 2, 2} << QList<int>{1, 3};
    QTest::newRow("beyond the document: none") << QList<qint64>{9} << QList<int>();
    QTest::newRow("0 and negative ignored") << QList<qint64>{0, -1, 5} << QList<int>{4};
}

void TestCrop::pageList()
{
    QFETCH(QList<qint64>, pages);
    QFETCH(QList<int>, cropped);
    TestPdf::write(path("in.pdf"), TestPdf::pages(5));
    QVERIFY(PDFTools::CropPDF(path("in.pdf"), pages, path("out.pdf"), 10, 10, 100, 100, false));
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.markers(), (QStringList{"p1", "p2", "p3", "p4", "p5"}));
    for (int i = 0; i < 5; ++i) {
        const QRectF expected
            = cropped.contains(i) ? QRectF(10, 10, 100, 100) : QRectF(0, 0, 612, 792);
        QVERIFY2(near(out.pages[i].mediaBox, expected), qPrintable(QString::number(i)));
    }
}

void TestCrop::documentKept_data()
{
    QTest::addColumn<TestPdf::Document>("document");
    TestPdf::Document plain = TestPdf::pages(3);
    plain.title = QStringLiteral("Report");
    plain.pages[0].linkTo = 2;
    plain.pages[1].rotate = 90;
    plain.pages[2].redStamp = QRectF(20, 20, 50, 50);
    QTest::newRow("table") << plain;
    TestPdf::Document streams = plain;
    streams.objectStreams = true;
    streams.version = QStringLiteral("1.5");
    QTest::newRow("object streams") << streams;
    TestPdf::Document hybrid = streams;
    hybrid.hybrid = true; // two cross-reference forms: written whole
    QTest::newRow("hybrid cross-reference") << hybrid;
    TestPdf::Document encrypted = plain;
    encrypted.encrypt = true; // written whole, not encrypted
    QTest::newRow("owner password") << encrypted;
    TestPdf::Document inherited = plain;
    inherited.inheritMediaBox = true;
    QTest::newRow("inherited media box") << inherited;
}

void TestCrop::documentKept()
{
    QFETCH(TestPdf::Document, document);
    TestPdf::write(path("in.pdf"), document);
    const QByteArray before = contents(path("in.pdf"));

    QVERIFY(PDFTools::CropPDF(path("in.pdf"), {1, 2}, path("out.pdf"), 0, 0, 300, 200, false));
    QCOMPARE(contents(path("in.pdf")), before);
    auto out = TestPdf::read(path("out.pdf"));
    QVERIFY(out.opened);
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.title, QStringLiteral("Report"));
    QCOMPARE(out.markers(), (QStringList{"p1", "p2", "p3"}));
    QCOMPARE(out.pages[0].links, QList<int>{2});
    QCOMPARE(out.pages[1].rotate, 90);
    QVERIFY(near(out.pages[0].mediaBox, QRectF(0, 0, 300, 200)));
    QVERIFY(near(out.pages[1].mediaBox, QRectF(412, 0, 200, 300))); // shown 300 x 200
    QVERIFY(near(out.pages[2].mediaBox, QRectF(0, 0, 612, 792)));
    // Another reader sees the same pages; the annotation of page 3 is still drawn.
    QCOMPARE(ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 0).size(), QSize(1200, 800));
    QCOMPARE(ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 1).size(), QSize(1200, 800));
    const QImage third = ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 2);
    QCOMPARE(third.pixel(180, 3168 - 180), qRgb(255, 0, 0));

    // A cropped output crops again, and the same crop gives the same bytes.
    QVERIFY(PDFTools::CropPDF(path("out.pdf"), {1}, path("again.pdf"), 100, 0, 100, 100, false));
    out = TestPdf::read(path("again.pdf"));
    QCOMPARE(out.warnings, 0);
    QVERIFY(near(out.pages[0].mediaBox, QRectF(100, 0, 100, 100)));
    QCOMPARE(ImageTools::PDFPageToImageWithPdfPath(path("again.pdf"), 0).size(), QSize(400, 400));
    QVERIFY(PDFTools::CropPDF(path("in.pdf"), {1, 2}, path("same.pdf"), 0, 0, 300, 200, false));
    QCOMPARE(contents(path("same.pdf")), contents(path("out.pdf")));
}

void TestCrop::repairedSourceWrittenWhole()
{
    TestPdf::write(path("in.pdf"), TestPdf::pages(2));
    QByteArray bytes = contents(path("in.pdf"));
    const qsizetype at = bytes.lastIndexOf("startxref\n") + 10;
    bytes.replace(at, bytes.indexOf('\n', at) - at, "17"); // the table is not where it says
    QFile file(path("in.pdf"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    file.close();
    // With the engine's details logged, the repair is reported and must still be noticed.
    QLoggingCategory::setFilterRules(QStringLiteral("quire.engine.info=true"));
    const bool cropped
        = PDFTools::CropPDF(path("in.pdf"), {2}, path("out.pdf"), 0, 0, 100, 100, false);
    QLoggingCategory::setFilterRules(QString());
    QVERIFY(cropped);
    const auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.markers(), (QStringList{"p1", "p2"}));
    QCOMPARE(out.pages[1].mediaBox, QRectF(0, 0, 100, 100));
}

void TestCrop::failures_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("output");
    QTest::addColumn<double>("width");
    QTest::addColumn<QStringList>("files"); // in the folder afterwards
    const QStringList inputs{"empty.pdf", "in.pdf"};
    QTest::newRow("not a number") << "in.pdf"
                                  << "out.pdf" << NaN << inputs;
    QTest::newRow("infinite") << "in.pdf"
                              << "out.pdf" << Infinity << inputs;
    QTest::newRow("no pages") << "empty.pdf"
                              << "out.pdf" << 100.0 << inputs;
    QTest::newRow("missing folder") << "in.pdf"
                                    << "no/out.pdf" << 100.0 << inputs;
    // A source that does not open gives an output without pages.
    QTest::newRow("missing source")
        << "missing.pdf"
        << "out.pdf" << 100.0 << QStringList{"empty.pdf", "in.pdf", "out.pdf"};
}

void TestCrop::failures()
{
    QFETCH(QString, input);
    QFETCH(QString, output);
    QFETCH(double, width);
    QFETCH(QStringList, files);
    TestPdf::write(path("in.pdf"), TestPdf::pages(2));
    TestPdf::write(path("empty.pdf"), TestPdf::Document());
    QVERIFY(!PDFTools::CropPDF(path(input), {}, path(output), 0, 0, width, 100, false));
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden), files);
    if (files.contains(QStringLiteral("out.pdf"))) {
        QCOMPARE(TestPdf::read(path("out.pdf")).pages.size(), 0);
    }
}

void TestCrop::realDocuments()
{
    const QDir corpus(QStringLiteral(QUIRE_TEST_DATA "/corpus"));
    for (const QString &name : corpus.entryList({QStringLiteral("*.pdf")})) {
        const QString source = corpus.filePath(name);
        if (!PDFTools::IsLoadable(source)) {
            continue;
        }
        const QString out = path(name);
        QVERIFY2(PDFTools::CropPDF(source, {}, out, 10, 10, 50, 50, true), qPrintable(name));
        const auto before = TestPdf::read(source);
        const auto after = TestPdf::read(out);
        QVERIFY2(after.opened, qPrintable(name));
        QCOMPARE(after.pages.size(), before.pages.size());
        QCOMPARE(after.title, before.title);
        for (qsizetype i = 0; i < after.pages.size(); ++i) {
            // Half the media box across and up, in the middle of it.
            const QRectF was = before.pages[i].mediaBox;
            QVERIFY2(std::fabs(after.pages[i].mediaBox.width() * 2 - was.width()) < 0.01
                         && std::fabs(after.pages[i].mediaBox.height() * 2 - was.height()) < 0.01,
                     qPrintable(name));
        }
        const QImage first = ImageTools::PDFPageToImageWithPdfPath(out, 0);
        QVERIFY2(!first.isNull(), qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(TestCrop)
#include "tst_crop.moc"
