// The crop engine: the kept rectangle on each page, the page list, the other boxes, rotated
// pages, and documents that are written as an update or whole.

#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "testpdf.h"

#include <QDir>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <limits>

Q_DECLARE_METATYPE(TestPdf::Page)
Q_DECLARE_METATYPE(std::optional<QRectF>)

using TestPdf::contents;
using TestPdf::row;

namespace {

// A box as text, to the thousandth of a point; "none" for no box.
QString text(const std::optional<QRectF> &r)
{
    if (!r) {
        return QStringLiteral("none");
    }
    const auto n = [](double v) { return QString::number(std::round(v * 1000) / 1000); };
    return n(r->x()) + ',' + n(r->y()) + ' ' + n(r->width()) + 'x' + n(r->height());
}

const double NaN = std::numeric_limits<double>::quiet_NaN();

} // namespace

class TestCrop : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_dir.emplace(); }
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
    std::optional<QTemporaryDir> m_dir;
};

void TestCrop::boxes_data()
{
    // The page, the rectangle (in percent or points), and the media box and the page's own crop
    // box as written. Each page has a trim box (0, 0, 612, 200), which ends at the kept area.
    QTest::addColumn<TestPdf::Page>("page");
    QTest::addColumn<QRectF>("r");
    QTest::addColumn<bool>("percents");
    QTest::addColumn<QRectF>("mediaBox");
    QTest::addColumn<std::optional<QRectF>>("cropBox");
    const auto crop = [](const char *name,
                         const TestPdf::Page &page,
                         QRectF rect,
                         bool percents,
                         QRectF mediaBox,
                         std::optional<QRectF> cropBox = {}) {
        row(name, page, rect, percents, mediaBox, cropBox);
    };
    // clang-format off
    const TestPdf::Page letter;
    const QRectF whole(0, 0, 612, 792);
    crop("points", letter, {50, 100, 400, 500}, false, {50, 100, 400, 500});
    const QRectF percent(10.0f * 612.0f / 100.0f, 10.0f * 792.0f / 100.0f,
                         612.0f * 80.0f / 100.0f, 792.0f * 80.0f / 100.0f);
    crop("percent, in single precision", letter, {10, 10, 80, 80}, true, percent);
    crop("negative origin pulled in", letter, {-20, 0, 100, 100}, false, {0, 0, 80, 100});
    crop("cut at the right edge", letter, {600, 0, 100, 100}, false, {600, 0, 12, 100});
    crop("half a point wide: unchanged", letter, {0, 0, 0.5, 100}, false, whole);
    crop("one point wide", letter, {0, 0, 1, 100}, false, {0, 0, 1, 100});
    crop("origin on the right edge: unchanged", letter, {612, 0, 10, 10}, false, whole);
    crop("huge percentages: unchanged", letter, {1e39, 0, 1e39, 1e39}, true, whole);
    TestPdf::Page offset;
    offset.mediaBox = QRectF(100, 100, 300, 300);
    crop("offset media box: from user space's origin", offset, {150, 150, 100, 100}, false,
        {150, 150, 100, 100});

    // Rotated pages: the rectangle as the page is shown.
    TestPdf::Page turned = letter;
    turned.rotate = 90;
    crop("rotated 90", turned, {0, 0, 100, 50}, false, {562, 0, 50, 100});
    crop("rotated 90, percent of the shown size", turned, {0, 0, 50, 100}, true, {0, 0, 612, 396});
    crop("rotated 90, cut at the shown edge", turned, {700, 0, 200, 50}, false, {562, 700, 50, 92});
    turned.rotate = 180;
    crop("rotated 180", turned, {0, 0, 100, 50}, false, {512, 742, 100, 50});
    turned.rotate = -90;
    crop("rotated -90 (270)", turned, {0, 0, 100, 50}, false, {0, 692, 50, 100});
    turned.rotate = 90;
    turned.mediaBox = QRectF(50, 60, 612, 792);
    crop("rotated 90, offset media box", turned, {0, 0, 100, 50}, false, {612, 60, 50, 100});

    // The crop box is cut to the kept rectangle.
    TestPdf::Page framed = letter;
    framed.cropBox = QRectF(0, 0, 300, 300);
    const QRectF kept(400, 400, 100, 100);
    crop("crop box cut", framed, {100, 100, 400, 400}, false, {100, 100, 400, 400},
        QRectF(100, 100, 200, 200));
    crop("crop box outside the kept area", framed, kept, false, kept, kept);
    crop("uncropped page keeps its crop box", framed, {}, false, whole, framed.cropBox);
    framed.inheritBoxes = true;
    framed.rotate = 180;
    crop("inherited crop box and rotation", framed, {0, 0, 512, 692}, false, {100, 100, 512, 692},
        QRectF(100, 100, 200, 200));
    // clang-format on
}

void TestCrop::boxes()
{
    QFETCH(TestPdf::Page, page);
    QFETCH(QRectF, r);
    QFETCH(bool, percents);
    QFETCH(QRectF, mediaBox);
    QFETCH(std::optional<QRectF>, cropBox);
    TestPdf::Document document;
    page.marker = "p1";
    page.trimBox = QRectF(0, 0, 612, 200);
    document.pages = {page};
    const QString in = path("in.pdf");
    TestPdf::write(in, document);
    QVERIFY(PDFTools::CropPDF(in, {}, in + ".out", r.x(), r.y(), r.width(), r.height(), percents));
    const auto out = TestPdf::read(in + ".out");
    QVERIFY(out.opened);
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.markers(), QStringList{"p1"});
    QCOMPARE(text(out.pages[0].mediaBox), text(mediaBox));
    QCOMPARE(text(out.pages[0].cropBox), text(cropBox));
    QCOMPARE(out.pages[0].rotate, page.rotate);
    // The trim box ends at the kept area, or goes when nothing of it is left.
    const QRectF trim = QRectF(0, 0, 612, 200).intersected(mediaBox);
    QCOMPARE(text(out.pages[0].trimBox), text(trim.isEmpty() ? std::nullopt : std::optional(trim)));
}

void TestCrop::pageList_data()
{
    QTest::addColumn<QList<qint64>>("pages");
    QTest::addColumn<QList<int>>("cropped"); // 0-based
    row("empty: every page", QList<qint64>(), QList{0, 1, 2, 3, 4});
    row("2 and 4, in any order, repeated", QList<qint64>{4, 2, 2}, QList{1, 3});
    row("beyond the document: none", QList<qint64>{9}, QList<int>());
    row("0 and negative ignored", QList<qint64>{0, -1, 5}, QList{4});
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
        const QRectF kept = cropped.contains(i) ? QRectF(10, 10, 100, 100) : QRectF(0, 0, 612, 792);
        QCOMPARE(out.pages[i].mediaBox, kept);
    }
}

void TestCrop::documentKept_data()
{
    QTest::addColumn<TestPdf::Document>("document");
    TestPdf::Document plain = TestPdf::pages(3);
    plain.title = "Report";
    plain.pages[0].linkTo = 2;
    plain.pages[1].rotate = 90;
    plain.pages[2].redStamp = QRectF(20, 20, 50, 50);
    row("table", plain);
    TestPdf::Document streams = plain;
    streams.objectStreams = true;
    streams.version = "1.5";
    row("object streams", streams);
    TestPdf::Document hybrid = streams;
    hybrid.hybrid = true; // two cross-reference forms: written whole
    row("hybrid cross-reference", hybrid);
    TestPdf::Document encrypted = plain;
    encrypted.encrypt = true; // written whole, not encrypted
    row("owner password", encrypted);
    TestPdf::Document inherited = plain;
    inherited.inheritMediaBox = true;
    row("inherited media box", inherited);
}

void TestCrop::documentKept()
{
    QFETCH(TestPdf::Document, document);
    TestPdf::write(path("in.pdf"), document);
    const QByteArray before = contents(path("in.pdf"));

    QVERIFY(PDFTools::CropPDF(path("in.pdf"), {1, 2}, path("out.pdf"), 0, 0, 300, 200, false));
    QCOMPARE(contents(path("in.pdf")), before);
    auto out = TestPdf::read(path("out.pdf"));
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.title, QStringLiteral("Report"));
    QCOMPARE(out.markers(), (QStringList{"p1", "p2", "p3"}));
    QCOMPARE(out.pages[0].links, QList<int>{2});
    QCOMPARE(out.pages[1].rotate, 90);
    QCOMPARE(out.pages[0].mediaBox, QRectF(0, 0, 300, 200));
    QCOMPARE(out.pages[1].mediaBox, QRectF(412, 0, 200, 300)); // shown 300 x 200
    QCOMPARE(out.pages[2].mediaBox, QRectF(0, 0, 612, 792));
    // Another reader sees the same pages; the annotation of page 3 is still drawn.
    QCOMPARE(ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 1).size(), QSize(1200, 800));
    const QImage third = ImageTools::PDFPageToImageWithPdfPath(path("out.pdf"), 2);
    QCOMPARE(third.pixel(180, 3168 - 180), qRgb(255, 0, 0));

    // A cropped output crops again, and the same crop gives the same bytes.
    QVERIFY(PDFTools::CropPDF(path("out.pdf"), {1}, path("again.pdf"), 100, 0, 100, 100, false));
    out = TestPdf::read(path("again.pdf"));
    QCOMPARE(out.warnings, 0);
    QCOMPARE(out.pages[0].mediaBox, QRectF(100, 0, 100, 100));
    QVERIFY(PDFTools::CropPDF(path("in.pdf"), {1, 2}, path("same.pdf"), 0, 0, 300, 200, false));
    QCOMPARE(contents(path("same.pdf")), contents(path("out.pdf")));
}

void TestCrop::repairedSourceWrittenWhole()
{
    TestPdf::write(path("in.pdf"), TestPdf::pages(2));
    QByteArray bytes = contents(path("in.pdf"));
    const qsizetype at = bytes.lastIndexOf("startxref\n") + 10;
    bytes.replace(at, bytes.indexOf('\n', at) - at, "17"); // the table is not where it says
    QVERIFY(TestPdf::writeBytes(path("in.pdf"), bytes));
    // With the engine's details logged, the repair is reported and must still be noticed.
    QLoggingCategory::setFilterRules("quire.engine.info=true");
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
    QTest::addColumn<double>("width");
    QTest::addColumn<bool>("written"); // an output without pages
    row("not a number", "in.pdf", NaN, false);
    row("infinite", "in.pdf", std::numeric_limits<double>::infinity(), false);
    row("no pages", "empty.pdf", 100.0, false);
    row("missing source", "missing.pdf", 100.0, true);
}

void TestCrop::failures()
{
    QFETCH(QString, input);
    QFETCH(double, width);
    QFETCH(bool, written);
    TestPdf::write(path("in.pdf"), TestPdf::pages(2));
    TestPdf::write(path("empty.pdf"), TestPdf::Document());
    QVERIFY(!PDFTools::CropPDF(path(input), {}, path("out.pdf"), 0, 0, width, 100, false));
    QCOMPARE(TestPdf::files(m_dir->path()).size(), 2 + int(written));
    QCOMPARE(TestPdf::read(path("out.pdf")).opened, written);
    QCOMPARE(TestPdf::read(path("out.pdf")).pages.size(), 0);
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
            const QSizeF off = after.pages[i].mediaBox.size() * 2 - before.pages[i].mediaBox.size();
            QVERIFY2(std::fabs(off.width()) < 0.01 && std::fabs(off.height()) < 0.01,
                     qPrintable(name));
        }
        QVERIFY2(!ImageTools::PDFPageToImageWithPdfPath(out, 0).isNull(), qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(TestCrop)
#include "tst_crop.moc"
