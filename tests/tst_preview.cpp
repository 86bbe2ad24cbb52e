// Page images, the crop preview, the PNG writer, the watermark's fonts, pictures and canvases, and
// stamped documents as poppler renders them, pixel for pixel against the engine's canvases.

#include "drawing/fontlist.h"
#include "drawing/picturefile.h"
#include "drawing/pngfile.h"
#include "drawing/watermarkcanvas.h"
#include "drawing/watermarkimages.h"
#include "drawing/watermarklayers.h"
#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "testpdf.h"

#include <QBuffer>
#include <QFileInfo>
#include <QFontDatabase>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <optional>
#include <thread>

using Jobs::WatermarkSettings;
Q_DECLARE_METATYPE(WatermarkSettings)
Q_DECLARE_METATYPE(TestPdf::Page)
Q_DECLARE_METATYPE(QList<QPointF>)

using TestPdf::row;

namespace {

// The page as viewers show it (its crop box), drawn by poppler at 4 pixels per point (288 dpi, or
// the resolution given) on white. Poppler's cairo renderer draws an image placed pixel on pixel as
// it is; pdftoppm's own smooths it by half a pixel.
QImage poppler(const QString &pdf, int page, int dpi = 288)
{
    QTemporaryDir dir;
    const QString number = QString::number(page);
    QProcess process;
    process.start(
        "pdftocairo",
        QString("-cropbox -r %2 -png -singlefile -f %1 -l %1").arg(number).arg(dpi).split(' ')
            + QStringList{pdf, dir.filePath("page")});
    process.waitForFinished(120000);
    return QImage(dir.filePath("page.png")).convertToFormat(QImage::Format_RGB32);
}

// Pixels where the two images differ by more than 40 in any channel.
int differingPixels(const QImage &a, const QImage &b)
{
    if (a.size() != b.size()) {
        return a.width() * a.height() + 1;
    }
    int count = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            count += std::abs(qRed(p) - qRed(q)) > 40 || std::abs(qGreen(p) - qGreen(q)) > 40
                     || std::abs(qBlue(p) - qBlue(q)) > 40;
        }
    }
    return count;
}

// The smallest rectangle holding every pixel with at least minimumAlpha.
QRect inkRect(const QImage &image, int minimumAlpha = 1)
{
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    QRect ink;
    for (int y = 0; y < argb.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x) {
            if (qAlpha(line[x]) >= minimumAlpha) {
                ink |= QRect(x, y, 1, 1);
            }
        }
    }
    return ink;
}

// A picture of size pixels declaring dpi: opaque orange, a blue band along its right edge (a
// turn or a mirror shows) and a transparent hole.
QImage testPicture(QSize size, double dpi = 72)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(QColor(255, 128, 0));
    QPainter painter(&image);
    const int w = size.width();
    const int h = size.height();
    painter.fillRect(w * 3 / 4, 0, w - w * 3 / 4, h, Qt::blue);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(w / 4, h / 4, w / 4, h / 4, Qt::transparent);
    painter.end();
    image.setDotsPerMeterX(qRound(dpi / 0.0254));
    image.setDotsPerMeterY(qRound(dpi / 0.0254));
    return image;
}

QByteArray encoded(const QImage &image, const char *format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

// A family that writes Latin text: symbol faces claim Latin too, with pictographs for letters.
bool writesText(const QString &family)
{
    const auto systems = QFontDatabase::writingSystems(family);
    return systems.contains(QFontDatabase::Latin) && !systems.contains(QFontDatabase::Symbol);
}

WatermarkSettings textOnly(const QString &text, qint64 position)
{
    WatermarkSettings settings;
    settings.text = text;
    settings.font = FontList::resolveFamily("Arial");
    settings.textPosition = position;
    settings.textOpacity = 100;
    return settings;
}

// The watermark stamped by the engine with the layers the drawing makes of the settings.
bool stamp(const QString &input,
           const WatermarkSettings &settings,
           const QString &output,
           const QList<qint64> &pages = {})
{
    WatermarkLayers layers(settings);
    return PDFTools::WatermarkPDF(input, pages, layers, output);
}

// The engine's text canvas for the settings.
QImage textCanvas(QSize size, const WatermarkSettings &s)
{
    return WatermarkImages::CreateTextWatermark(size,
                                                s.text,
                                                s.font,
                                                s.size,
                                                QColor(s.color),
                                                s.textOpacity / 100,
                                                s.textPosition,
                                                s.textOffsetY,
                                                s.textOffsetX,
                                                s.shadow,
                                                s.stroke);
}

// The whole canvases of the engine drawn over a page image, as the output must show them.
QImage composite(QImage page, const WatermarkSettings &s)
{
    QPainter painter(&page);
    painter.drawImage(0,
                      0,
                      WatermarkImages::CreateImageWatermark(page.size(),
                                                            s.image,
                                                            s.imageOpacity / 100,
                                                            s.scale / 100,
                                                            s.rotation,
                                                            s.imagePosition,
                                                            s.imageOffsetY,
                                                            s.imageOffsetX));
    painter.drawImage(0, 0, textCanvas(page.size(), s));
    return page;
}

// Pixels of the watermark (where expected and page differ) and of them, those that actual
// gets wrong: a hundredth is allowed for the edges of glyphs and turned pictures.
void compareStamp(const QImage &actual, const QImage &expected, const QImage &page)
{
    QCOMPARE(actual.size(), expected.size());
    const int watermark = differingPixels(expected, page);
    QVERIFY2(watermark > 1000, "the watermark shows");
    const int wrong = differingPixels(actual, expected);
    QVERIFY2(wrong <= watermark / 100,
             qPrintable(QStringLiteral("%1 of %2 pixels differ").arg(wrong).arg(watermark)));
}

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
    void pageImageFailures();
    void cropPreview_data();
    void cropPreview();
    void pngRoundTrip();
    void fonts();
    void naturalSize_data();
    void naturalSize();
    void textAppearance_data();
    void textAppearance();
    void textLayout();
    void pictureCanvas_data();
    void pictureCanvas();
    void stampedPage_data();
    void stampedPage();
    void previewMatchesOutput_data();
    void previewMatchesOutput();
    void colouredEdgesOverWhite();
    void updateOrWhole_data();
    void updateOrWhole();
    void failures();
    void pictureReplacedBetweenDocuments();
    void layersSharedByThreads();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    // A 60 x 40 test picture at 72 dpi.
    QString picture()
    {
        testPicture({60, 40}).save(path("picture.png"));
        return path("picture.png");
    }
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

void TestPreview::pageImageFailures()
{
    // No image of a missing file, of no PDF, past the last page, behind a user password, or of
    // a page too large to draw.
    TestPdf::write(path("doc.pdf"), TestPdf::pages(2));
    TestPdf::Document document = TestPdf::pages(1);
    document.userPassword = true;
    TestPdf::write(path("locked.pdf"), document);
    document.userPassword = false;
    document.pages[0].mediaBox = QRectF(0, 0, 14400, 14400);
    TestPdf::write(path("huge.pdf"), document);
    QVERIFY(TestPdf::writeBytes(path("text.pdf"), "just some text, no PDF here\n"));
    const QList<std::pair<const char *, int>> failures{
        {"missing.pdf", 0}, {"text.pdf", 0}, {"doc.pdf", 2}, {"locked.pdf", 0}, {"huge.pdf", 0}};
    for (const auto &[file, page] : failures) {
        QVERIFY2(ImageTools::PDFPageToImageWithPdfPath(path(file), page).isNull(), file);
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

void TestPreview::fonts()
{
    // A name is drawn with its metric twin where one is installed.
    const QList<std::pair<QString, QString>> twins{{"Arial", "Liberation Sans"},
                                                   {"Times New Roman", "Liberation Serif"},
                                                   {"Comic Sans MS", "Comic Neue"}};
    for (const auto &[name, twin] : twins) {
        if (QFontDatabase::families().contains(twin)) {
            QCOMPARE(FontList::resolveFamily(name), twin);
        }
    }
    // Every name of the window's list, one no face has and none resolve to a family that
    // writes Latin text (not a symbol face such as one named Impact may be).
    QStringList families{FontList::resolveFamily("Impact"),
                         FontList::resolveFamily("No Such Font 3000"),
                         FontList::resolveFamily(QString()),
                         FontList::GetTextFontType(-1)};
    for (int i = 0; i < FontList::names().size(); ++i) {
        families << FontList::GetTextFontType(i);
    }
    for (const QString &family : families) {
        QVERIFY2(writesText(family), qPrintable(family));
    }
    QCOMPARE(FontList::names()[FontList::DefaultIndex], QStringLiteral("Arial"));
    // The engine draws a name with the family it resolves to.
    WatermarkSettings settings = textOnly("Copyright", 0);
    const QImage resolved = textCanvas({800, 200}, settings);
    settings.font = "Arial";
    QCOMPARE(textCanvas({800, 200}, settings), resolved);
}

void TestPreview::naturalSize_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QSizeF>("points");
    const QImage at144 = testPicture({144, 72}, 144);
    QByteArray undeclared = encoded(at144, "PNG"); // without its pHYs chunk
    undeclared.remove(undeclared.indexOf("pHYs") - 4, 4 + 4 + 9 + 4);
    row("PNG at 144 dpi", encoded(at144, "PNG"), QSizeF(72, 36));
    // 96 dpi is also what Qt assumes when a file declares nothing: it must still count.
    row("PNG at 96 dpi", encoded(testPicture({96, 48}, 96), "PNG"), QSizeF(72, 36));
    row("PNG declaring nothing", undeclared, QSizeF(144, 72));
    row("JPEG at 144 dpi", encoded(at144, "JPEG"), QSizeF(72, 36));
    row("TIFF at 144 dpi", encoded(at144, "TIFF"), QSizeF(72, 36));
    row("BMP at 144 dpi", encoded(at144, "BMP"), QSizeF(72, 36));
    row("WebP declares nothing", encoded(at144, "WEBP"), QSizeF(144, 72));
    row("GIF of one pixel",
        QByteArray::fromBase64("R0lGODlhAQABAIAAAP///wAAACH5BAEAAAAALAAAAAABAAEAAAICRAEAOw=="),
        QSizeF(1, 1));
    row("SVG: its own units are points",
        QByteArray("<svg xmlns='http://www.w3.org/2000/svg' width='50' height='20'>"
                   "<rect width='50' height='20' fill='red'/></svg>"),
        QSizeF(50, 20));
    row("not a picture", QByteArray("%PDF-1.4 nothing to see"), QSizeF());
}

void TestPreview::naturalSize()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QSizeF, points);
    QVERIFY(TestPdf::writeBytes(path("picture"), bytes));
    const PictureFile picture = PictureFile::load(path("picture"), 2, 4);
    QCOMPARE(picture.isNull(), points.isEmpty());
    // Resolutions are stored in whole pixels per metre: 144 dpi is 5669 of them.
    const auto rounded = [](QSizeF s) { return (s * 100).toSize() / 100.0; };
    if (!picture.isNull()) {
        QCOMPARE(rounded(picture.naturalSize()), points);
        QCOMPARE(rounded(picture.drawnSize() / 8), points);
    }
}

void TestPreview::textAppearance_data()
{
    QTest::addColumn<bool>("shadow");
    QTest::addColumn<bool>("stroke");
    QTest::addColumn<QColor>("color");
    QTest::addColumn<double>("opacity");
    // The colour's own alpha is not used: the opacity is.
    row("red at half opacity", false, false, QColor(255, 0, 0, 50), 0.5);
    row("outline", false, true, QColor(Qt::white), 1.0);
    row("shadow", true, false, QColor(Qt::white), 1.0);
}

void TestPreview::textAppearance()
{
    QFETCH(bool, shadow);
    QFETCH(bool, stroke);
    QFETCH(QColor, color);
    QFETCH(double, opacity);
    WatermarkSettings s = textOnly("IH", 4);
    s.size = 60;
    s.color = color.name();
    s.textOpacity = opacity * 100;
    const QImage plain = textCanvas({1600, 800}, s);
    s.shadow = shadow;
    s.stroke = stroke;
    const QImage styled = textCanvas({1600, 800}, s);

    // The glyphs' insides carry the colour's RGB at the opacity; the text is centred.
    const int alpha = qRound(opacity * 255);
    const QRect ink = inkRect(plain, alpha);
    const QColor inside = plain.pixelColor(ink.center());
    QVERIFY2(
        std::abs(inside.red() - color.red()) <= 2 && std::abs(inside.green() - color.green()) <= 2
            && std::abs(inside.blue() - color.blue()) <= 2 && std::abs(inside.alpha() - alpha) <= 1,
        qPrintable(inside.name(QColor::HexArgb)));
    QVERIFY(std::abs(ink.center().x() - 800) < 20);
    // The outline darkens the glyphs' edges and adds dark pixels around them; the shadow adds
    // dark pixels below and to the right of them.
    int edges = 0;
    int added = 0;
    QPointF sum;
    for (int y = ink.top() - 8; y <= ink.bottom() + 8; ++y) {
        for (int x = ink.left() - 8; x <= ink.right() + 8; ++x) {
            const QColor was = plain.pixelColor(x, y);
            const QColor now = styled.pixelColor(x, y);
            edges += was.alpha() == 255 && was.lightness() - now.lightness() > 50;
            if (now.alpha() > was.alpha() + 20 && now.lightness() < 60) {
                ++added;
                sum += QPointF(x, y);
            }
        }
    }
    QCOMPARE(edges > 50, stroke);
    QCOMPARE(added > 50, shadow || stroke);
    const QPointF shift = added ? sum / added - QPointF(ink.center()) : QPointF();
    QVERIFY2((shift.x() > 1 && shift.y() > 1) == shadow,
             qPrintable(QStringLiteral("%1 %2").arg(shift.x()).arg(shift.y())));
}

void TestPreview::textLayout()
{
    // Two lines at "Center": centred on each other, the block centred on the canvas.
    const QSize canvas(2448, 3168);
    const QImage twoLines = textCanvas(canvas, textOnly("IIIIIIIIII\nII", 4));
    const QRect block = inkRect(twoLines);
    const int middle = block.center().y();
    const QRect first = inkRect(twoLines.copy(0, 0, canvas.width(), middle));
    const QRect second = inkRect(twoLines.copy(0, middle, canvas.width(), canvas.height()));
    QVERIFY(first.width() > 3 * second.width());
    QVERIFY2(std::abs(first.center().x() - second.center().x()) <= 2,
             qPrintable(QStringLiteral("%1 %2").arg(first.center().x()).arg(second.center().x())));
    QVERIFY(std::abs(block.center().x() - canvas.width() / 2) <= 2);
    QVERIFY(std::abs(block.center().y() - canvas.height() / 2) <= 30);

    // A text wider than the canvas wraps at its width; the lines stay on the canvas.
    const QImage wrapped
        = textCanvas({800, 3000}, textOnly(QString("watermark ").repeated(30).trimmed(), 0));
    const QRect ink = inkRect(wrapped);
    QVERIFY(ink.left() >= 0 && ink.right() < 800);
    QVERIFY2(ink.height() > 5 * 120, "thirty words at 120 pixels wrap over many lines");
    QVERIFY2(ink.bottom() > wrapped.height() - 60, "the block sits on the bottom edge");

    // An empty text draws nothing, not even its shadow and outline.
    WatermarkSettings nothing = textOnly(QString(), 0);
    nothing.shadow = nothing.stroke = true;
    QVERIFY(inkRect(textCanvas(canvas, nothing)).isEmpty());
}

void TestPreview::pictureCanvas_data()
{
    // A 60 x 40 point picture at scale 0.5 on a 400 x 300 canvas (100 x 75 points): 120 x 80
    // pixels, flush with the corner of its position, then moved by the offset (points, up and
    // to the right).
    QTest::addColumn<double>("degrees");
    QTest::addColumn<qint64>("position");
    QTest::addColumn<QPointF>("offset");
    QTest::addColumn<QRect>("ink"); // canvas pixels; empty: nothing drawn
    row("bottom left", 0.0, 0LL, QPointF(), QRect(0, 220, 120, 80));
    row("bottom right, 360 as 0", 360.0, 1LL, QPointF(), QRect(280, 220, 120, 80));
    row("top left", 0.0, 2LL, QPointF(), QRect(0, 0, 120, 80));
    row("top right, 90 swaps the sides", 90.0, 3LL, QPointF(), QRect(320, 0, 80, 120));
    row("center, moved right 10 and down 5", 0.0, 4LL, QPointF(10, -5), QRect(180, 130, 120, 80));
    // The bounding box of the turned picture is what is placed: 141.4 x 141.4.
    row("45 by its bounding box", 45.0, 0LL, QPointF(), QRect(0, 158, 142, 142));
    row("code 9", 0.0, 9LL, QPointF(), QRect());
}

void TestPreview::pictureCanvas()
{
    QFETCH(double, degrees);
    QFETCH(qint64, position);
    QFETCH(QPointF, offset);
    QFETCH(QRect, ink);
    const QString file = picture();
    const auto canvas = [&](double opacity, double turn) {
        return WatermarkImages::CreateImageWatermark(
            {400, 300}, file, opacity, 0.5, turn, position, offset.y(), offset.x());
    };
    const QImage image = canvas(1, degrees);
    QCOMPARE(image.size(), QSize(400, 300));
    // The picture's transparent quarter may leave a corner of the box empty, but never a side.
    const QRect drawn = inkRect(image, 100);
    QVERIFY2(std::abs(drawn.left() - ink.left()) <= 2 && std::abs(drawn.top() - ink.top()) <= 2
                 && std::abs(drawn.right() - ink.right()) <= 2
                 && std::abs(drawn.bottom() - ink.bottom()) <= 2,
             qPrintable(QDebug::toString(drawn)));
    if (degrees == 360) {
        QCOMPARE(image, canvas(1, 0));
    } else if (degrees == 90) {
        // Counter-clockwise: the blue band on the picture's right edge comes out on top.
        QCOMPARE(image.pixelColor(drawn.center().x(), drawn.top() + 3).blue(), 255);
    }
    // Opacity scales the picture's alpha; 0 leaves nothing.
    const QImage half = canvas(0.5, degrees);
    QCOMPARE(inkRect(half, 127).isEmpty(), ink.isEmpty());
    QVERIFY(inkRect(half, 130).isEmpty());
    QVERIFY(inkRect(canvas(0, degrees)).isEmpty());
}

void TestPreview::stampedPage_data()
{
    // One row for each placement rule: corners, offsets (partly off the page), the centre,
    // turned pages, a media box away from the origin, a crop box.
    QTest::addColumn<QRectF>("mediaBox");
    QTest::addColumn<int>("rotate");
    QTest::addColumn<QRectF>("cropBox"); // empty: none
    QTest::addColumn<WatermarkSettings>("settings");
    WatermarkSettings corner = textOnly("Copyright ©", 0);
    corner.textOpacity = 70;
    corner.imagePosition = 1;
    corner.imageOpacity = 70;
    WatermarkSettings moved = textOnly("Top right", 3);
    moved.textOffsetX = -10;
    moved.textOffsetY = 20; // partly off the page
    moved.color = "#ff0000";
    moved.shadow = true;
    moved.stroke = true;
    moved.imagePosition = 2;
    moved.imageOffsetX = 15;
    moved.imageOffsetY = -5;
    moved.rotation = 30;
    moved.scale = 150;
    WatermarkSettings centre = textOnly("Two\nlines", 4);
    centre.imagePosition = 4;
    centre.imageOpacity = 50;
    WatermarkSettings upright = textOnly("Upright", 3);
    upright.imagePosition = 0;
    upright.rotation = 90;
    const QRectF wide(0, 0, 200, 150);
    const QRectF shown(20, 30, 200, 150);
    // clang-format off
    row("defaults with a picture", wide, 0, QRectF(), corner);
    row("offsets, shadow, outline, turned picture", wide, 0, QRectF(), moved);
    row("center", QRectF(0, 0, 150, 200), 0, QRectF(), centre);
    row("page turned 90, box away from the origin", QRectF(50, 60, 200, 150), 90, QRectF(), upright);
    row("page turned 180", wide, 180, QRectF(), upright);
    row("page turned 270, crop box", QRectF(0, 0, 250, 200), 270, shown, upright);
    row("crop box: placed in what is shown", QRectF(0, 0, 250, 200), 0, shown, corner);
    // clang-format on
}

void TestPreview::stampedPage()
{
    QFETCH(QRectF, mediaBox);
    QFETCH(int, rotate);
    QFETCH(QRectF, cropBox);
    QFETCH(WatermarkSettings, settings);
    settings.image = picture();
    TestPdf::Document document = TestPdf::pages(1);
    document.pages[0].mediaBox = mediaBox;
    document.pages[0].rotate = rotate;
    if (!cropBox.isEmpty()) {
        document.pages[0].cropBox = cropBox;
    }
    TestPdf::write(path("in.pdf"), document);
    QVERIFY(stamp(path("in.pdf"), settings, path("out.pdf")));
    const QImage before = poppler(path("in.pdf"), 1);
    compareStamp(poppler(path("out.pdf"), 1), composite(before, settings), before);
}

void TestPreview::previewMatchesOutput_data()
{
    // The text and a turned picture at each place, on a page turned 90 and one turned 270.
    QTest::addColumn<qint64>("position");
    QTest::addColumn<int>("rotate");
    for (qint64 position = 0; position < 5; ++position) {
        QTest::addRow("position %lld, page turned 90", position) << position << 90;
    }
    row("center, page turned 270", qint64(4), 270);
}

void TestPreview::previewMatchesOutput()
{
    // Without shadow and outline, which the preview draws heavier, the preview is the output.
    QFETCH(qint64, position);
    QFETCH(int, rotate);
    WatermarkSettings settings = textOnly("Two\nlines", position);
    settings.color = "#0000c8";
    settings.textOffsetY = 30;
    settings.image = picture();
    settings.imagePosition = (position + 2) % 5;
    settings.rotation = 45;
    settings.scale = 80;
    settings.imageOffsetX = 12.5;
    TestPdf::Document document = TestPdf::pages(2);
    document.pages[1].mediaBox = QRectF(0, 0, 250, 180);
    document.pages[1].rotate = rotate;
    TestPdf::write(path("in.pdf"), document);
    QVERIFY(stamp(path("in.pdf"), settings, path("out.pdf")));
    compareStamp(poppler(path("out.pdf"), 2),
                 ImageTools::DrawWatermarkPreview(path("in.pdf"), 2, settings),
                 ImageTools::PDFPageToImageWithPdfPath(path("in.pdf"), 1));
}

void TestPreview::colouredEdgesOverWhite()
{
    // Red text over a white page, shown smaller than it was drawn: the edges blend red with
    // white, never darker (the transparent pixels around the text carry its colour).
    WatermarkSettings settings = textOnly("Fringe", 4);
    settings.color = "#ff0000";
    settings.size = 60;
    TestPdf::write(path("in.pdf"), TestPdf::pages(1));
    QVERIFY(stamp(path("in.pdf"), settings, path("out.pdf")));
    for (const int dpi : {100, 72}) {
        const QImage shown = poppler(path("out.pdf"), 1, dpi);
        const QImage page = poppler(path("in.pdf"), 1, dpi);
        int ink = 0;
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x) {
                const QRgb p = shown.pixel(x, y);
                if (p == page.pixel(x, y)) {
                    continue; // the page's own
                }
                ++ink;
                QVERIFY2(qRed(p) >= 250,
                         qPrintable(QStringLiteral("%1 dpi: %2,%3,%4 at %5,%6")
                                        .arg(dpi)
                                        .arg(qRed(p))
                                        .arg(qGreen(p))
                                        .arg(qBlue(p))
                                        .arg(x)
                                        .arg(y)));
            }
        }
        QVERIFY(ink > 500);
    }
}

void TestPreview::updateOrWhole_data()
{
    // Written whole, so that the unstamped pages are not in the output; a signed document keeps
    // its signed bytes with an update after them, when its version allows.
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("encrypted");
    QTest::addColumn<bool>("signedForm");
    QTest::addColumn<QList<qint64>>("pages"); // of 3; none listed: every page
    QTest::addColumn<bool>("updated");        // the output starts with the source's bytes
    QTest::addColumn<QString>("written");
    using Pages = QList<qint64>;
    row("1.7, pages 2 and 7 of 3: whole", "1.7", false, false, Pages{2, 7}, false, "1.7");
    row("signed, pages 2 and 7 of 3: an update", "1.7", false, true, Pages{2, 7}, true, "1.7");
    // Soft masks need 1.4, which an update cannot declare.
    row("signed 1.3, every page: whole, as 1.4", "1.3", false, true, Pages(), false, "1.4");
    row("encrypted, pages 1 and 3: whole", "1.7", true, false, Pages{1, 3}, false, "1.7");
}

void TestPreview::updateOrWhole()
{
    QFETCH(QString, version);
    QFETCH(bool, encrypted);
    QFETCH(bool, signedForm);
    QFETCH(QList<qint64>, pages);
    QFETCH(bool, updated);
    QFETCH(QString, written);
    TestPdf::Document document = TestPdf::pages(3);
    document.title = "Kept";
    document.version = version;
    document.encrypt = encrypted;
    document.signedForm = signedForm;
    TestPdf::write(path("in.pdf"), document);
    WatermarkSettings settings = textOnly("Draft", 0);
    QVERIFY(stamp(path("in.pdf"), settings, path("out.pdf"), pages));
    const QByteArray input = TestPdf::contents(path("in.pdf"));
    QCOMPARE(TestPdf::contents(path("out.pdf")).startsWith(input), updated);
    const auto in = TestPdf::read(path("in.pdf"));
    const auto out = TestPdf::read(path("out.pdf"));
    QVERIFY(out.clean);
    QCOMPARE(out.version, written);
    QCOMPARE(out.title, QStringLiteral("Kept"));
    QCOMPARE(out.markers(), in.markers());
    QCOMPARE(out.imageObjects, 1);
    for (int i = 0; i < 3; ++i) {
        // A page left out is copied unchanged; a stamped one keeps its content, wrapped.
        const bool stamped = pages.isEmpty() || pages.contains(i + 1);
        QCOMPARE(out.pages[i].images.size(), int(stamped));
        QVERIFY(stamped ? out.pages[i].content.startsWith("q\n" + in.pages[i].content)
                        : out.pages[i].content == in.pages[i].content);
    }
}

void TestPreview::failures()
{
    // A source that does not open: false, and an output with no pages.
    const WatermarkSettings settings = textOnly("x", 0);
    QVERIFY(!stamp(path("missing.pdf"), settings, path("empty.pdf")));
    QCOMPARE(TestPdf::read(path("empty.pdf")).pages.size(), 0);

    // Written over its own input: the whole document, stamped, and no temporary file left. A
    // picture that does not exist leaves the text alone.
    TestPdf::write(path("in.pdf"), TestPdf::pages(2));
    WatermarkSettings withMissingPicture = settings;
    withMissingPicture.image = path("no-picture.png");
    QVERIFY(stamp(path("in.pdf"), withMissingPicture, path("in.pdf")));
    const auto read = TestPdf::read(path("in.pdf"));
    QCOMPARE(read.markers(), (QStringList{"p1", "p2"}));
    QCOMPARE(read.pages[0].images.size(), 1);
    QCOMPARE(TestPdf::files(m_dir->path()), (QStringList{"empty.pdf", "in.pdf"}));
}

void TestPreview::pictureReplacedBetweenDocuments()
{
    // What is drawn for one document serves the next with the same settings, but not once the
    // picture file has changed under its name.
    TestPdf::Document document = TestPdf::pages(1);
    document.pages[0].mediaBox = QRectF(0, 0, 200, 150);
    TestPdf::write(path("in.pdf"), document);
    WatermarkSettings settings;
    settings.text.clear();
    settings.image = path("logo.png");
    settings.imageOpacity = 100;
    settings.imagePosition = 4;
    for (const QColor colour : {QColor(Qt::red), QColor(Qt::green), QColor(Qt::red)}) {
        QImage solid(40, 40, QImage::Format_RGB32);
        solid.fill(colour);
        QVERIFY(solid.save(settings.image));
        const QString output = path(colour.name().mid(1) + ".pdf");
        QVERIFY(stamp(path("in.pdf"), settings, output));
        QCOMPARE(poppler(output, 1).pixelColor(400, 300), colour);
    }
}

void TestPreview::layersSharedByThreads()
{
    // Canvases of several sizes asked for by several threads at once, as the workers of a batch
    // ask: each size gets the layers a source of its own draws for it alone, and every thread the
    // same ones.
    WatermarkSettings settings = textOnly("Copyright ©", 0);
    settings.image = path("logo.png");
    settings.imagePosition = 4; // centred: other pixels on every size
    settings.imageOpacity = 70;
    QImage logo(30, 20, QImage::Format_ARGB32);
    logo.fill(QColor(200, 40, 40, 128));
    QVERIFY(logo.save(settings.image));
    const QList<QSize> sizes{
        {2448, 3168}, {400, 300}, {2380, 3368}, {401, 300}, {2448, 3168}, {400, 301}};
    const auto described = [](const std::vector<WatermarkLayerSource::Placed> &layers) {
        QStringList parts;
        for (const auto &layer : layers) {
            parts << QString("%1,%2 %3x%4 %5")
                         .arg(layer.rect.x())
                         .arg(layer.rect.y())
                         .arg(layer.rect.width())
                         .arg(layer.rect.height())
                         .arg(QString::fromLatin1(layer.image->digest.toHex()));
        }
        return parts.join(" | ");
    };
    QStringList alone;
    for (const QSize size : sizes) {
        WatermarkLayers own(settings);
        alone << described(own.layersOn(size));
    }
    QCOMPARE(alone[0].count(" | "), 1); // the picture and the text
    QVERIFY(alone[1] != alone[3] && alone[1] != alone[5]);

    WatermarkLayers shared(settings);
    QVERIFY(!shared.drawn(sizes[0]));
    std::vector<std::vector<std::vector<WatermarkLayerSource::Placed>>> got(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < got.size(); ++t) {
        threads.emplace_back([&, t] {
            for (qsizetype i = 0; i < sizes.size(); ++i) {
                got[t].push_back(shared.layersOn(sizes[(i + qsizetype(t)) % sizes.size()]));
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    QVERIFY(shared.drawn(sizes[0]) && shared.drawn(sizes[1]) && !shared.drawn({400, 302}));
    for (size_t t = 0; t < got.size(); ++t) {
        for (qsizetype i = 0; i < sizes.size(); ++i) {
            const qsizetype s = (i + qsizetype(t)) % sizes.size();
            QCOMPARE(described(got[t][size_t(i)]), alone[s]);
            // The very same images as the first thread's: drawn once for all of them.
            const auto &first = got[0][size_t(s)];
            for (size_t k = 0; k < first.size(); ++k) {
                QCOMPARE(got[t][size_t(i)][k].image.get(), first[k].image.get());
            }
        }
    }
}

QTEST_MAIN(TestPreview)
#include "tst_preview.moc"
