// The watermark: its placement arithmetic, the text and picture canvases, the fonts, the pictures'
// natural sizes, and stamped documents as poppler renders them, pixel for pixel against the
// engine's whole canvases.

#include "engine/pdftools.h"
#include "preview/fontlist.h"
#include "preview/imagetools.h"
#include "preview/picturefile.h"
#include "preview/watermarkdrawing.h"
#include "testpdf.h"

#include <QBuffer>
#include <QFile>
#include <QFontDatabase>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

Q_DECLARE_METATYPE(WatermarkSettings)
Q_DECLARE_METATYPE(std::optional<QRectF>)

namespace {

// The page as viewers show it (its crop box), drawn by poppler at 4 pixels per point (288 dpi)
// on white. Poppler's cairo renderer draws an image placed pixel on pixel as it is; pdftoppm's
// own smooths it by half a pixel.
QImage poppler(const QString &pdf, int page)
{
    QTemporaryDir dir;
    QProcess process;
    const QString number = QString::number(page);
    process.start(QStringLiteral("pdftocairo"),
                  {QStringLiteral("-cropbox"),
                   QStringLiteral("-r"),
                   QStringLiteral("288"),
                   QStringLiteral("-f"),
                   number,
                   QStringLiteral("-l"),
                   number,
                   QStringLiteral("-png"),
                   QStringLiteral("-singlefile"),
                   pdf,
                   dir.filePath(QStringLiteral("page"))});
    process.waitForFinished(120000);
    return QImage(dir.filePath(QStringLiteral("page.png"))).convertToFormat(QImage::Format_RGB32);
}

// Pixels where the two images differ by more than tolerance in any channel.
int differingPixels(const QImage &a, const QImage &b, int tolerance = 40)
{
    if (a.size() != b.size()) {
        return a.width() * a.height() + 1;
    }
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32);
    int count = 0;
    for (int row = 0; row < x.height(); ++row) {
        const auto *p = reinterpret_cast<const QRgb *>(x.constScanLine(row));
        const auto *q = reinterpret_cast<const QRgb *>(y.constScanLine(row));
        for (int column = 0; column < x.width(); ++column) {
            if (std::abs(qRed(p[column]) - qRed(q[column])) > tolerance
                || std::abs(qGreen(p[column]) - qGreen(q[column])) > tolerance
                || std::abs(qBlue(p[column]) - qBlue(q[column])) > tolerance) {
                ++count;
            }
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

int maxAlpha(const QImage &image)
{
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    int alpha = 0;
    for (int y = 0; y < argb.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x) {
            alpha = std::max(alpha, qAlpha(line[x]));
        }
    }
    return alpha;
}

// A picture of size pixels declaring dpi: opaque orange, a blue band along its right edge (a
// turn or a mirror shows) and a transparent hole.
QImage testPicture(QSize size, double dpi = 72)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(QColor(255, 128, 0));
    QPainter painter(&image);
    painter.fillRect(
        size.width() * 3 / 4, 0, size.width() - size.width() * 3 / 4, size.height(), Qt::blue);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(
        size.width() / 4, size.height() / 4, size.width() / 4, size.height() / 4, Qt::transparent);
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

// PNG bytes without their pHYs chunk: a picture that declares no resolution.
QByteArray withoutResolution(QByteArray png)
{
    const qsizetype type = png.indexOf("pHYs");
    if (type >= 4) {
        png.remove(type - 4, 4 + 4 + 9 + 4);
    }
    return png;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

// A family that writes Latin text: symbol faces claim Latin too, with pictographs for letters.
bool writesText(const QString &family)
{
    const auto systems = QFontDatabase::writingSystems(family);
    return systems.contains(QFontDatabase::Latin) && !systems.contains(QFontDatabase::Symbol);
}

QString textFamily()
{
    return FontList::resolveFamily(QStringLiteral("Arial"));
}

WatermarkSettings textOnly(const QString &text, qint64 position)
{
    WatermarkSettings settings;
    settings.text = text;
    settings.textFontType = textFamily();
    settings.textPosition = position;
    settings.textOpacity = 1;
    return settings;
}

// The whole canvases of the engine drawn over a page image, as the output must show them.
QImage composite(QImage page, const WatermarkSettings &s)
{
    QPainter painter(&page);
    const QImage picture = PDFTools::CreateImageWatermark(page.size(),
                                                          s.imagePath,
                                                          s.imageOpacity,
                                                          s.scale,
                                                          s.rotationDegrees,
                                                          s.imagePosition,
                                                          s.imageVerticalOffset,
                                                          s.imageHorizontalOffset);
    if (!picture.isNull()) {
        painter.drawImage(0, 0, picture);
    }
    painter.drawImage(0,
                      0,
                      PDFTools::CreateTextWatermark(page.size(),
                                                    s.text,
                                                    s.textFontType,
                                                    s.textFontSize,
                                                    s.textColor,
                                                    s.textOpacity,
                                                    s.textPosition,
                                                    s.textVerticalOffset,
                                                    s.textHorizontalOffset,
                                                    s.useShadow,
                                                    s.useStroke));
    return page;
}

} // namespace

class TestWatermark : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void placement_data();
    void placement();
    void fonts_data();
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
    void selectedPages_data();
    void selectedPages();
    void oneImagePerLook();
    void updateOrWhole_data();
    void updateOrWhole();
    void failures();
    void pictureReplacedBetweenDocuments();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    QString picture(QSize size = {60, 40}, double dpi = 72);
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestWatermark::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

QString TestWatermark::picture(QSize size, double dpi)
{
    const QString file = path(
        QStringLiteral("picture-%1x%2-%3.png").arg(size.width()).arg(size.height()).arg(dpi));
    testPicture(size, dpi).save(file);
    return file;
}

void TestWatermark::placement_data()
{
    QTest::addColumn<qint64>("position");
    QTest::addColumn<QPointF>("offset");                 // points
    QTest::addColumn<std::optional<QRectF>>("expected"); // lower-left corner and size, points
    // A 200 x 40 point text on a US-letter page.
    QTest::newRow("bottom left") << qint64(0) << QPointF() << std::optional(QRectF(0, 0, 200, 40));
    QTest::newRow("bottom right") << qint64(1) << QPointF()
                                  << std::optional(QRectF(412, 0, 200, 40));
    QTest::newRow("top left") << qint64(2) << QPointF() << std::optional(QRectF(0, 752, 200, 40));
    QTest::newRow("top right") << qint64(3) << QPointF()
                               << std::optional(QRectF(412, 752, 200, 40));
    QTest::newRow("center") << qint64(4) << QPointF() << std::optional(QRectF(206, 376, 200, 40));
    QTest::newRow("center moved down 100")
        << qint64(4) << QPointF(0, -100) << std::optional(QRectF(206, 276, 200, 40));
    QTest::newRow("code 5") << qint64(5) << QPointF() << std::optional<QRectF>();
}

void TestWatermark::placement()
{
    QFETCH(qint64, position);
    QFETCH(QPointF, offset);
    QFETCH(std::optional<QRectF>, expected);
    const double k = WatermarkDrawing::CanvasScale;
    const auto rect = WatermarkDrawing::placeRect(position,
                                                  QSizeF(612 * k, 792 * k),
                                                  QSizeF(200 * k, 40 * k),
                                                  offset.x() * k,
                                                  offset.y() * k);
    QCOMPARE(rect.has_value(), expected.has_value());
    if (rect) {
        // The canvas's pixels run downward: the lower-left corner is at the rectangle's bottom.
        const QRectF points(
            rect->x() / k, 792 - rect->bottom() / k, rect->width() / k, rect->height() / k);
        QCOMPARE(points, *expected);
    }
}

void TestWatermark::fonts_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("drawnWith"); // empty: any family that writes Latin
    const QStringList installed = QFontDatabase::families();
    const auto ifInstalled = [&](const char *row, const QString &name, const QString &family) {
        if (installed.contains(family)) {
            QTest::newRow(row) << name << family;
        }
    };
    ifInstalled(
        "Arial by its metric twin", QStringLiteral("Arial"), QStringLiteral("Liberation Sans"));
    ifInstalled("Times New Roman by its metric twin",
                QStringLiteral("Times New Roman"),
                QStringLiteral("Liberation Serif"));
    ifInstalled("Comic Sans MS not by a script face",
                QStringLiteral("Comic Sans MS"),
                QStringLiteral("Comic Neue"));
    ifInstalled("an installed family as it is",
                QStringLiteral("DejaVu Serif"),
                QStringLiteral("DejaVu Serif"));
    QTest::newRow("Impact not by a symbol face") << QStringLiteral("Impact") << QString();
    QTest::newRow("an unknown name") << QStringLiteral("No Such Font 3000") << QString();
    QTest::newRow("no name: the first installed family") << QString() << [&] {
        for (const QString &family : installed) {
            if (writesText(family)) {
                return family;
            }
        }
        return QString();
    }();
}

void TestWatermark::fonts()
{
    QFETCH(QString, name);
    QFETCH(QString, drawnWith);
    const QString family = FontList::resolveFamily(name);
    QVERIFY(QFontDatabase::families().contains(family));
    QVERIFY2(writesText(family), qPrintable(family));
    if (!drawnWith.isEmpty()) {
        QCOMPARE(family, drawnWith);
    }
    // The engine draws a name with the family it resolves to.
    const auto draw = [](const QString &font) {
        return PDFTools::CreateTextWatermark(QSize(800, 200),
                                             QStringLiteral("Copyright"),
                                             font,
                                             30,
                                             Qt::black,
                                             1,
                                             0,
                                             0,
                                             0,
                                             false,
                                             false);
    };
    QCOMPARE(draw(name), draw(family));
    // Every name of the window's list resolves to a family that writes Latin text.
    QCOMPARE(FontList::names().size(), 20);
    QCOMPARE(FontList::names()[FontList::DefaultIndex], QStringLiteral("Arial"));
    for (int i = 0; i < FontList::names().size(); ++i) {
        const QString resolved = FontList::GetTextFontType(i);
        QVERIFY2(writesText(resolved),
                 qPrintable(FontList::names()[i] + QStringLiteral(" -> ") + resolved));
    }
    QCOMPARE(FontList::GetTextFontType(-1), FontList::resolveFamily(QString()));
}

void TestWatermark::naturalSize_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QSizeF>("points");
    const QImage at144 = testPicture({144, 72}, 144);
    const QImage at96 = testPicture({96, 48}, 96);
    QTest::newRow("PNG at 144 dpi") << encoded(at144, "PNG") << QSizeF(72, 36);
    // 96 dpi is also what Qt assumes when a file declares nothing: it must still count.
    QTest::newRow("PNG at 96 dpi") << encoded(at96, "PNG") << QSizeF(72, 36);
    QTest::newRow("PNG declaring nothing")
        << withoutResolution(encoded(at144, "PNG")) << QSizeF(144, 72);
    QTest::newRow("JPEG at 144 dpi") << encoded(at144, "JPEG") << QSizeF(72, 36);
    QTest::newRow("BMP at 144 dpi") << encoded(at144, "BMP") << QSizeF(72, 36);
    QTest::newRow("TIFF at 144 dpi") << encoded(at144, "TIFF") << QSizeF(72, 36);
    QTest::newRow("WebP: no resolution") << encoded(at144, "WEBP") << QSizeF(144, 72);
    QTest::newRow("SVG: its own units are points")
        << QByteArray("<svg xmlns='http://www.w3.org/2000/svg' width='50' height='20'>"
                      "<rect width='50' height='20' fill='red'/></svg>")
        << QSizeF(50, 20);
    QTest::newRow("not a picture") << QByteArray("%PDF-1.4 nothing to see") << QSizeF();
}

void TestWatermark::naturalSize()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QSizeF, points);
    const QString file = path(QStringLiteral("picture"));
    writeFile(file, bytes);
    const PictureFile picture = PictureFile::load(file, 2, 4);
    QCOMPARE(picture.isNull(), points.isEmpty());
    if (!picture.isNull()) {
        // Resolutions are stored in whole pixels per metre: 144 dpi is 5669 of them.
        const QSizeF drawn = picture.drawnSize() / 8;
        QVERIFY2(std::abs(picture.naturalSize().width() - points.width()) < 0.01
                     && std::abs(picture.naturalSize().height() - points.height()) < 0.01
                     && std::abs(drawn.width() - points.width()) < 0.01,
                 qPrintable(QStringLiteral("%1 x %2")
                                .arg(picture.naturalSize().width())
                                .arg(picture.naturalSize().height())));
    }
}

void TestWatermark::textAppearance_data()
{
    QTest::addColumn<bool>("shadow");
    QTest::addColumn<bool>("stroke");
    QTest::addColumn<QColor>("color");
    QTest::addColumn<double>("opacity");
    QTest::addColumn<int>("expectedAlpha"); // of the glyphs' insides
    QTest::newRow("plain black") << false << false << QColor(Qt::black) << 1.0 << 255;
    // The colour's own alpha is not used: the opacity is.
    QTest::newRow("red at half opacity") << false << false << QColor(255, 0, 0, 50) << 0.5 << 128;
    QTest::newRow("outline") << false << true << QColor(Qt::white) << 1.0 << 255;
    QTest::newRow("shadow") << true << false << QColor(Qt::white) << 1.0 << 255;
    QTest::newRow("shadow and outline") << true << true << QColor(Qt::green) << 0.7 << 179;
}

void TestWatermark::textAppearance()
{
    QFETCH(bool, shadow);
    QFETCH(bool, stroke);
    QFETCH(QColor, color);
    QFETCH(double, opacity);
    QFETCH(int, expectedAlpha);
    const QSize canvas(1600, 800);
    const auto draw = [&](bool withShadow, bool withStroke) {
        return PDFTools::CreateTextWatermark(canvas,
                                             QStringLiteral("IH"),
                                             textFamily(),
                                             60,
                                             color,
                                             opacity,
                                             4,
                                             0,
                                             0,
                                             withShadow,
                                             withStroke);
    };
    const QImage image = draw(shadow, stroke);
    QCOMPARE(image.size(), canvas);

    // The glyphs' insides carry the colour's RGB at the opacity (where no shadow shows through).
    const QRect ink = inkRect(draw(false, false), expectedAlpha);
    const QImage noStroke = draw(shadow, false);
    const QImage noShadow = draw(false, stroke);
    const QColor inside = noShadow.pixelColor(ink.center());
    const QColor rgb = color.toRgb();
    QVERIFY2(std::abs(inside.red() - rgb.red()) <= 2 && std::abs(inside.green() - rgb.green()) <= 2
                 && std::abs(inside.blue() - rgb.blue()) <= 2,
             qPrintable(inside.name()));
    QVERIFY(std::abs(inside.alpha() - expectedAlpha) <= 1);
    // Centred: the ink's centre is the canvas's centre, within the glyphs' side bearings.
    QVERIFY(std::abs(ink.center().x() - canvas.width() / 2) < 20);

    // The outline darkens the glyphs' edges; the shadow adds dark pixels around them, more to
    // the right and below. Neither shows when it is off.
    int outline = 0;
    int shadowPixels = 0;
    QPointF shadowSum;
    for (int y = ink.top() - 8; y <= ink.bottom() + 8; ++y) {
        for (int x = ink.left() - 8; x <= ink.right() + 8; ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.alpha() > 100 && noStroke.pixelColor(x, y).lightness() - c.lightness() > 50) {
                ++outline;
            }
            if (c.alpha() > qAlpha(noShadow.pixel(x, y)) + 20 && c.lightness() < 60) {
                ++shadowPixels;
                shadowSum += QPointF(x, y);
            }
        }
    }
    QCOMPARE(outline > 50, stroke && rgb != QColor(Qt::black));
    QCOMPARE(shadowPixels > 50, shadow);
    if (shadow) {
        const QPointF centre = shadowSum / shadowPixels;
        QVERIFY(centre.x() > ink.center().x() && centre.y() > ink.center().y());
    }
}

void TestWatermark::textLayout()
{
    // Two lines at "Center": centred on each other, the block centred on the canvas.
    const QSize canvas(2448, 3168);
    const QImage twoLines = PDFTools::CreateTextWatermark(canvas,
                                                          QStringLiteral("IIIIIIIIII\nII"),
                                                          textFamily(),
                                                          30,
                                                          Qt::black,
                                                          1,
                                                          4,
                                                          0,
                                                          0,
                                                          false,
                                                          false);
    const QRect block = inkRect(twoLines);
    const QRect first = inkRect(twoLines.copy(0, 0, canvas.width(), block.center().y()));
    const QRect second
        = inkRect(twoLines.copy(0, block.center().y(), canvas.width(), canvas.height()));
    QVERIFY(first.width() > 3 * second.width());
    QVERIFY2(std::abs(first.center().x() - second.center().x()) <= 2,
             qPrintable(QStringLiteral("%1 %2").arg(first.center().x()).arg(second.center().x())));
    QVERIFY(std::abs(block.center().x() - canvas.width() / 2) <= 2);
    QVERIFY(std::abs(block.center().y() - canvas.height() / 2) <= 30);

    // A text wider than the canvas wraps at its width; the lines stay on the canvas.
    const QString longText = QStringLiteral("watermark ").repeated(30).trimmed();
    const QImage wrapped = PDFTools::CreateTextWatermark(
        QSize(800, 3000), longText, textFamily(), 30, Qt::black, 1, 0, 0, 0, false, false);
    const QRect wrappedInk = inkRect(wrapped);
    QVERIFY(wrappedInk.left() >= 0 && wrappedInk.right() < 800);
    QVERIFY2(wrappedInk.height() > 5 * 120, "thirty words at 120 pixels wrap over many lines");
    QVERIFY2(wrappedInk.bottom() > wrapped.height() - 60, "the block sits on the bottom edge");

    // Empty text and a position code outside 0 to 4 draw nothing.
    QCOMPARE(maxAlpha(PDFTools::CreateTextWatermark(
                 canvas, QString(), textFamily(), 30, Qt::black, 1, 0, 0, 0, true, true)),
             0);
    QCOMPARE(maxAlpha(PDFTools::CreateTextWatermark(
                 canvas, QStringLiteral("x"), textFamily(), 30, Qt::black, 1, 7, 0, 0, true, true)),
             0);
}

void TestWatermark::pictureCanvas_data()
{
    QTest::addColumn<double>("degrees");
    QTest::addColumn<qint64>("position");
    QTest::addColumn<QSize>("inkSize"); // canvas pixels; empty: nothing drawn
    QTest::addColumn<QPoint>("corner"); // the ink's corner flush with the position's corner
    // A 60 x 40 point picture at scale 0.5 on a 400 x 300 canvas: 120 x 80 pixels.
    QTest::newRow("bottom left") << 0.0 << qint64(0) << QSize(120, 80) << QPoint(0, 299);
    QTest::newRow("top right") << 0.0 << qint64(3) << QSize(120, 80) << QPoint(399, 0);
    QTest::newRow("360 as 0") << 360.0 << qint64(1) << QSize(120, 80) << QPoint(399, 299);
    QTest::newRow("90 swaps the sides") << 90.0 << qint64(3) << QSize(80, 120) << QPoint(399, 0);
    // The bounding box of the turned picture is what is placed: 141.4 x 141.4.
    QTest::newRow("45 by its bounding box")
        << 45.0 << qint64(0) << QSize(142, 142) << QPoint(0, 299);
    QTest::newRow("code 9") << 0.0 << qint64(9) << QSize() << QPoint();
}

void TestWatermark::pictureCanvas()
{
    QFETCH(double, degrees);
    QFETCH(qint64, position);
    QFETCH(QSize, inkSize);
    QFETCH(QPoint, corner);
    const QString file = picture({60, 40});
    const QImage canvas
        = PDFTools::CreateImageWatermark(QSize(400, 300), file, 1, 0.5, degrees, position, 0, 0);
    QCOMPARE(canvas.size(), QSize(400, 300));
    const QRect ink = inkRect(canvas, 100);
    if (inkSize.isEmpty()) {
        QVERIFY(ink.isEmpty());
        return;
    }
    // The picture's transparent quarter may leave a corner of the box empty, but never a side.
    QVERIFY2(std::abs(ink.width() - inkSize.width()) <= 2
                 && std::abs(ink.height() - inkSize.height()) <= 2,
             qPrintable(QStringLiteral("%1x%2").arg(ink.width()).arg(ink.height())));
    QVERIFY(std::abs((corner.x() == 0 ? ink.left() : ink.right()) - corner.x()) <= 1);
    QVERIFY(std::abs((corner.y() == 0 ? ink.top() : ink.bottom()) - corner.y()) <= 1);
    if (degrees == 360) {
        QCOMPARE(canvas,
                 PDFTools::CreateImageWatermark(QSize(400, 300), file, 1, 0.5, 0, position, 0, 0));
    }
    if (degrees == 90) {
        // Counter-clockwise: the blue band on the picture's right edge comes out on top.
        QCOMPARE(canvas.pixelColor(ink.center().x(), ink.top() + 3).blue(), 255);
    }
    // Opacity scales the picture's alpha; 0 leaves nothing.
    QVERIFY(std::abs(maxAlpha(PDFTools::CreateImageWatermark(
                         QSize(400, 300), file, 0.5, 0.5, degrees, position, 0, 0))
                     - 128)
            <= 1);
    QCOMPARE(maxAlpha(PDFTools::CreateImageWatermark(
                 QSize(400, 300), file, 0, 0.5, degrees, position, 0, 0)),
             0);
}

void TestWatermark::stampedPage_data()
{
    QTest::addColumn<QRectF>("mediaBox");
    QTest::addColumn<int>("rotate");
    QTest::addColumn<QRectF>("cropBox"); // empty: none
    QTest::addColumn<WatermarkSettings>("settings");

    WatermarkSettings corner = textOnly(QStringLiteral("Copyright ©"), 0);
    corner.textOpacity = 0.7;
    corner.imagePosition = 1;
    corner.imageOpacity = 0.7;
    QTest::newRow("defaults with a picture") << QRectF(0, 0, 200, 150) << 0 << QRectF() << corner;

    WatermarkSettings moved = textOnly(QStringLiteral("Top right"), 3);
    moved.textHorizontalOffset = -10;
    moved.textVerticalOffset = -20;
    moved.textColor = Qt::red;
    moved.useShadow = true;
    moved.useStroke = true;
    moved.imagePosition = 2;
    moved.imageHorizontalOffset = 15;
    moved.imageVerticalOffset = -5;
    moved.rotationDegrees = 30;
    moved.scale = 1.5;
    QTest::newRow("offsets, shadow, outline, turned picture")
        << QRectF(0, 0, 200, 150) << 0 << QRectF() << moved;

    WatermarkSettings centre = textOnly(QStringLiteral("Two\nlines"), 4);
    centre.imagePosition = 4;
    centre.imageOpacity = 0.5;
    QTest::newRow("center") << QRectF(0, 0, 150, 200) << 0 << QRectF() << centre;

    WatermarkSettings upright = textOnly(QStringLiteral("Upright"), 3);
    upright.imagePosition = 0;
    upright.rotationDegrees = 90;
    for (const int rotate : {90, 180, 270}) {
        QTest::addRow("page turned %d", rotate)
            << QRectF(0, 0, 200, 150) << rotate << QRectF() << upright;
    }
    QTest::newRow("box away from the origin")
        << QRectF(50, 60, 200, 150) << 90 << QRectF() << upright;
    QTest::newRow("crop box: placed in what is shown")
        << QRectF(0, 0, 250, 200) << 0 << QRectF(20, 30, 200, 150) << corner;
    WatermarkSettings off = corner;
    off.textHorizontalOffset = -20;
    off.imageVerticalOffset = -30;
    QTest::newRow("partly off the page") << QRectF(0, 0, 200, 150) << 0 << QRectF() << off;
}

void TestWatermark::stampedPage()
{
    QFETCH(QRectF, mediaBox);
    QFETCH(int, rotate);
    QFETCH(QRectF, cropBox);
    QFETCH(WatermarkSettings, settings);
    settings.imagePath = picture({60, 40});
    TestPdf::Document document = TestPdf::pages(1);
    document.pages[0].mediaBox = mediaBox;
    document.pages[0].rotate = rotate;
    if (!cropBox.isEmpty()) {
        document.pages[0].cropBox = cropBox;
    }
    const QString input = path(QStringLiteral("in.pdf"));
    const QString output = path(QStringLiteral("out.pdf"));
    TestPdf::write(input, document);
    QVERIFY(PDFTools::WatermarkPDF(input, settings, output));

    const QImage before = poppler(input, 1);
    const QImage after = poppler(output, 1);
    const QImage expected = composite(before, settings);
    QCOMPARE(after.size(), before.size());
    const int watermark = differingPixels(expected, before);
    QVERIFY2(watermark > 1000, "the watermark shows");
    const int wrong = differingPixels(after, expected);
    QVERIFY2(wrong <= watermark / 100,
             qPrintable(QStringLiteral("%1 of %2 pixels differ").arg(wrong).arg(watermark)));
}

void TestWatermark::previewMatchesOutput_data()
{
    QTest::addColumn<int>("rotate");
    QTest::addColumn<WatermarkSettings>("settings");
    WatermarkSettings corners = textOnly(QStringLiteral("Copyright ©"), 0);
    corners.textOpacity = 0.7;
    QTest::newRow("text and picture in corners") << 0 << corners;
    WatermarkSettings moved = textOnly(QStringLiteral("Two\nlines"), 4);
    moved.textColor = QColor(0, 0, 200);
    moved.textVerticalOffset = 30;
    moved.imagePosition = 2;
    moved.rotationDegrees = 45;
    moved.scale = 0.8;
    moved.imageHorizontalOffset = 12.5;
    QTest::newRow("centred text, turned picture") << 0 << moved;
    QTest::newRow("page turned 270") << 270 << moved;
}

void TestWatermark::previewMatchesOutput()
{
    // Without shadow and outline, which the preview draws heavier, the preview is the output.
    QFETCH(int, rotate);
    QFETCH(WatermarkSettings, settings);
    settings.imagePath = picture({60, 40});
    TestPdf::Document document = TestPdf::pages(2);
    document.pages[1].mediaBox = QRectF(0, 0, 250, 180);
    document.pages[1].rotate = rotate;
    const QString input = path(QStringLiteral("in.pdf"));
    const QString output = path(QStringLiteral("out.pdf"));
    TestPdf::write(input, document);
    QVERIFY(PDFTools::WatermarkPDF(input, settings, output));

    const QImage preview = ImageTools::DrawWatermarkPreview(input, 2, settings);
    const QImage page = ImageTools::PDFPageToImageWithPdfPath(input, 1);
    const QImage stamped = poppler(output, 2);
    QCOMPARE(preview.size(), stamped.size());
    const int watermark = differingPixels(preview, page);
    QVERIFY2(watermark > 1000, "the watermark shows");
    const int wrong = differingPixels(preview, stamped);
    QVERIFY2(wrong <= watermark / 100,
             qPrintable(QStringLiteral("%1 of %2 pixels differ").arg(wrong).arg(watermark)));
}

void TestWatermark::selectedPages_data()
{
    QTest::addColumn<QList<qint64>>("pages");
    QTest::addColumn<QList<bool>>("stamped");
    QTest::newRow("empty list: every page") << QList<qint64>() << QList<bool>{true, true, true};
    QTest::newRow("1 and 3") << QList<qint64>{1, 3} << QList<bool>{true, false, true};
    QTest::newRow("beyond the document") << QList<qint64>{7} << QList<bool>{false, false, false};
}

void TestWatermark::selectedPages()
{
    QFETCH(QList<qint64>, pages);
    QFETCH(QList<bool>, stamped);
    const QString input = path(QStringLiteral("in.pdf"));
    const QString output = path(QStringLiteral("out.pdf"));
    TestPdf::Document document = TestPdf::pages(3);
    document.title = QStringLiteral("Kept");
    TestPdf::write(input, document);
    WatermarkSettings settings = textOnly(QStringLiteral("Draft"), 0);
    settings.pages = pages;
    QVERIFY(PDFTools::WatermarkPDF(input, settings, output));
    const auto in = TestPdf::read(input);
    const auto out = TestPdf::read(output);
    QVERIFY(out.opened);
    QCOMPARE(out.markers(), in.markers());
    QCOMPARE(out.title, QStringLiteral("Kept"));
    QVERIFY(out.version >= QStringLiteral("1.4"));
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(!out.pages[i].images.isEmpty(), stamped[i]);
        // A page left out is copied unchanged; a stamped one keeps its content, wrapped.
        if (stamped[i]) {
            QVERIFY(out.pages[i].content.startsWith("q\n" + in.pages[i].content));
        } else {
            QCOMPARE(out.pages[i].content, in.pages[i].content);
        }
    }
}

void TestWatermark::oneImagePerLook()
{
    // Pages of three sizes, one of them turned: the text at a corner looks the same on each and
    // is embedded once; centred, it lands on other fractions of a pixel on canvases of odd and
    // even widths (1200, 1601 and 2002 pixels) and heights.
    TestPdf::Document document = TestPdf::pages(30);
    for (int i = 0; i < document.pages.size(); ++i) {
        document.pages[i].mediaBox = QRectF(0, 0, 300 + 100.25 * (i % 3), 400);
        document.pages[i].rotate = i == 7 ? 90 : 0;
    }
    const QString input = path(QStringLiteral("in.pdf"));
    TestPdf::write(input, document);
    const QString corner = path(QStringLiteral("corner.pdf"));
    QVERIFY(PDFTools::WatermarkPDF(input, textOnly(QStringLiteral("Copyright ©"), 2), corner));
    QCOMPARE(TestPdf::read(corner).imageObjects, 1);
    const QString centre = path(QStringLiteral("centre.pdf"));
    QVERIFY(PDFTools::WatermarkPDF(input, textOnly(QStringLiteral("Copyright ©"), 4), centre));
    QCOMPARE(TestPdf::read(centre).imageObjects, 3);
    // Small: a few kilobytes beyond the input for thirty pages.
    QVERIFY(QFileInfo(corner).size() < QFileInfo(input).size() + 30000);
}

void TestWatermark::updateOrWhole_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("encrypted");
    QTest::addColumn<bool>("updated"); // the output starts with the source's bytes
    QTest::addColumn<QString>("written");
    QTest::newRow("1.4: an update") << "1.4" << false << true << "1.4";
    QTest::newRow("1.7: an update") << "1.7" << false << true << "1.7";
    // Soft masks need 1.4, which an update cannot declare.
    QTest::newRow("1.3: whole, as 1.4") << "1.3" << false << false << "1.4";
    QTest::newRow("encrypted: whole") << "1.7" << true << false << "1.7";
}

void TestWatermark::updateOrWhole()
{
    QFETCH(QString, version);
    QFETCH(bool, encrypted);
    QFETCH(bool, updated);
    QFETCH(QString, written);
    TestPdf::Document document = TestPdf::pages(2);
    document.version = version;
    document.encrypt = encrypted;
    const QString input = path(QStringLiteral("in.pdf"));
    const QString output = path(QStringLiteral("out.pdf"));
    TestPdf::write(input, document);
    QVERIFY(PDFTools::WatermarkPDF(input, textOnly(QStringLiteral("Draft"), 0), output));
    const auto bytes = [](const QString &file) {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    QCOMPARE(bytes(output).startsWith(bytes(input)), updated);
    const auto read = TestPdf::read(output);
    QVERIFY(read.clean);
    QCOMPARE(read.version, written);
    QCOMPARE(read.markers(), (QStringList{QStringLiteral("p1"), QStringLiteral("p2")}));
    QCOMPARE(read.pages[1].images.size(), 1);
    QCOMPARE(read.imageObjects, 1);
}

void TestWatermark::failures()
{
    const QString input = path(QStringLiteral("in.pdf"));
    TestPdf::write(input, TestPdf::pages(2));
    const auto contents = [](const QString &file) {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    const QByteArray original = contents(input);
    const WatermarkSettings settings = textOnly(QStringLiteral("x"), 0);

    // A source that does not open: false, and an output with no pages.
    const QString empty = path(QStringLiteral("empty.pdf"));
    QVERIFY(!PDFTools::WatermarkPDF(path(QStringLiteral("missing.pdf")), settings, empty));
    QCOMPARE(TestPdf::read(empty).pages.size(), 0);

    // An output folder that does not exist: false, nothing written, the input untouched.
    QVERIFY(!PDFTools::WatermarkPDF(input, settings, path(QStringLiteral("no/such/out.pdf"))));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("no"))));
    QCOMPARE(contents(input), original);

    // Written over its own input: the whole document, stamped, and no temporary file left. A
    // picture that does not exist leaves the text alone.
    WatermarkSettings withMissingPicture = settings;
    withMissingPicture.imagePath = path(QStringLiteral("no-picture.png"));
    QVERIFY(PDFTools::WatermarkPDF(input, withMissingPicture, input));
    const auto read = TestPdf::read(input);
    QCOMPARE(read.markers(), (QStringList{QStringLiteral("p1"), QStringLiteral("p2")}));
    QCOMPARE(read.pages[0].images.size(), 1);
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files | QDir::Hidden),
             (QStringList{QStringLiteral("empty.pdf"), QStringLiteral("in.pdf")}));
}

void TestWatermark::pictureReplacedBetweenDocuments()
{
    // What is drawn for one document serves the next with the same settings, but not once the
    // picture file has changed under its name.
    const QString input = path(QStringLiteral("in.pdf"));
    TestPdf::Document document = TestPdf::pages(1);
    document.pages[0].mediaBox = QRectF(0, 0, 200, 150);
    TestPdf::write(input, document);
    WatermarkSettings settings;
    settings.text.clear();
    settings.imagePath = path(QStringLiteral("logo.png"));
    settings.imageOpacity = 1;
    settings.imagePosition = 4;
    const QPoint centre(400, 300);
    for (const QColor colour : {QColor(Qt::red), QColor(Qt::green), QColor(Qt::red)}) {
        QImage solid(40, 40, QImage::Format_RGB32);
        solid.fill(colour);
        QVERIFY(solid.save(settings.imagePath));
        const QString output = path(QStringLiteral("out-%1.pdf").arg(colour.name().mid(1)));
        QVERIFY(PDFTools::WatermarkPDF(input, settings, output));
        QCOMPARE(poppler(output, 1).pixelColor(centre), colour);
    }
}

QTEST_MAIN(TestWatermark)
#include "tst_watermark.moc"
