// The preview on a dense screen: ctest runs this with QT_SCALE_FACTOR=2, so that every widget
// has two device pixels a point, as on a high-density screen.

#include "preview/previewpane.h"

#include <QPixmap>
#include <QTest>

#include <algorithm>

class TestHiDpi : public QObject
{
    Q_OBJECT

private slots:
    void sharpPreview_data();
    void sharpPreview();
};

void TestHiDpi::sharpPreview_data()
{
    // The image view's size; the greys its device pixels may span inside the page.
    QTest::addColumn<QSize>("viewSize");
    QTest::addColumn<int>("spread");
    // A page image of fine lines (one black column in three, 4 pixels a point) shrunk onto the
    // screen: each device pixel stands for the lines it covers, a near-even grey, where four
    // pixels read of each one drawn show some lines and lose others (a moire of black and
    // white bands).
    QTest::newRow("fitted") << QSize(306, 396) << 100;
    QTest::newRow("fitted, an odd size") << QSize(371, 480) << 100;
    // A pixel of the image for each device pixel: the lines themselves, not a blur.
    QTest::newRow("one to one") << QSize(1224, 1584) << 255;
}

void TestHiDpi::sharpPreview()
{
    QFETCH(QSize, viewSize);
    QFETCH(int, spread);
    QImage lines(2448, 3168, QImage::Format_RGB32);
    for (int x = 0; x < lines.width(); ++x) {
        for (int y = 0; y < lines.height(); ++y) {
            lines.setPixel(x, y, x % 3 == 0 ? 0xff000000 : 0xffffffff);
        }
    }
    PreviewImageView view(nullptr);
    view.resize(viewSize);
    view.setImage(lines);
    const QPixmap shot = view.grab();
    QCOMPARE(shot.devicePixelRatio(), 2.0);
    const QImage shown = shot.toImage().convertToFormat(QImage::Format_Grayscale8);
    QCOMPARE(shown.size(), viewSize * 2);

    // The page inside the letterbox, less a pixel at each edge.
    const QRect page = QRectF(view.imageRect().topLeft() * 2, view.imageRect().size() * 2)
                           .toAlignedRect()
                           .adjusted(2, 2, -2, -2);
    int darkest = 255;
    int lightest = 0;
    for (int y = page.top(); y <= page.bottom(); y += 7) {
        const uchar *row = shown.constScanLine(y);
        for (int x = page.left(); x <= page.right(); ++x) {
            darkest = std::min<int>(darkest, row[x]);
            lightest = std::max<int>(lightest, row[x]);
        }
    }
    QVERIFY2(lightest - darkest <= spread,
             qPrintable(QStringLiteral("greys from %1 to %2").arg(darkest).arg(lightest)));
    if (spread == 255) {
        QCOMPARE(darkest, 0);
        QCOMPARE(lightest, 255);
    }
}

QTEST_MAIN(TestHiDpi)
#include "tst_hidpi.moc"
