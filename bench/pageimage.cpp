// In-process timing of the preview's page image: quire_bench_pageimage FILE PAGE... prints, for
// each 1-based page, the median and the range of several calls of the renderer, each call with
// its own document as the preview makes them.

#include "preview/imagetools.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: quire_bench_pageimage FILE PAGE...\n");
        return 2;
    }
    const int rounds = 9;
    for (qsizetype i = 2; i < args.size(); ++i) {
        const qint64 page = args[i].toLongLong();
        std::vector<double> times;
        QSize size;
        for (int round = 0; round < rounds; ++round) {
            QElapsedTimer timer;
            timer.start();
            const QImage image = ImageTools::PDFPageToImageWithPdfPath(args[1], page - 1);
            times.push_back(double(timer.nsecsElapsed()) / 1e6);
            size = image.size();
        }
        std::sort(times.begin(), times.end());
        std::printf("page %lld (%dx%d): median %.1f ms (%.1f-%.1f) over %d calls\n",
                    page,
                    size.width(),
                    size.height(),
                    times[times.size() / 2],
                    times.front(),
                    times.back(),
                    rounds);
    }
    return 0;
}
