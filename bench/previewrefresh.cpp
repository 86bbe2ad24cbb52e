// The preview pane's refresh, after its half-second wait: quire_bench_preview FILE PAGE... times,
// for each 1-based page, the refresh of a page not yet seen (rendered, then the crop rectangle
// drawn over it) and then several refreshes of the same page with another rectangle (drawn over
// the kept image), from the refresh's start to the image being shown. Run with
// QT_QPA_PLATFORM=offscreen.

#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "preview/previewpane.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

void wait(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// Milliseconds from the refresh's start until its image is shown.
double timedRefresh(PreviewPane &pane)
{
    QEventLoop loop;
    QObject::connect(&pane, &PreviewPane::previewShown, &loop, &QEventLoop::quit);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    QElapsedTimer clock;
    clock.start();
    pane.UpdatePreview();
    loop.exec();
    return double(clock.nsecsElapsed()) / 1e6;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = QApplication::arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: quire_bench_preview FILE PAGE...\n");
        return 2;
    }
    PreviewPane pane;
    double width = 100;
    pane.setDrawingSource([&width]() -> PreviewPane::Drawing {
        const double w = width;
        return [w](const QImage &page, const PageGeometry &geometry) {
            return ImageTools::DrawCropRectangleOnPageImage(page, geometry, 36, 36, w, 300);
        };
    });
    pane.showDocument(args[1]);
    std::printf("%-6s %14s %24s\n", "page", "not seen (ms)", "seen, median of 9 (ms)");
    for (const QString &number : args.mid(2)) {
        // The pane shows page 1 of a new document; Next takes it to the page asked for.
        pane.showDocument(QString());
        pane.showDocument(args[1]);
        wait(300); // the page count, read once per document
        for (qint64 page = 1; page < number.toLongLong(); ++page) {
            pane.OnNextPage();
        }
        const double first = timedRefresh(pane);
        std::vector<double> again;
        for (int i = 0; i < 9; ++i) {
            width += 10;
            again.push_back(timedRefresh(pane));
        }
        std::printf("%-6s %14.1f %24.1f\n", qPrintable(number), first, median(again));
    }
    return 0;
}
