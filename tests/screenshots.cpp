// Pictures of the windows for the README, the help pages and the desktop's software centre:
// quire_screenshots OUTPUT_FOLDER WIDTHxHEIGHT DOCUMENT... opens each window at that size with
// the documents listed (the first selected, the preview shown) and writes <window>.png. Run it
// under xvfb-run (or with QT_QPA_PLATFORM=offscreen; QT_SCALE_FACTOR=2 for a dense screen).

#include "app/documentlist.h"
#include "app/viewcontroller.h"
#include "app/viewcontrollercrop.h"
#include "app/viewcontrollermerge.h"
#include "app/viewcontrollerproperties.h"
#include "app/viewcontrollersplit.h"
#include "app/viewcontrollerwatermark.h"
#include "app/widgetalerts.h"
#include "preview/previewpane.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QTimer>
#include <QUrl>

namespace {

void settle(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

void shoot(QWidget &window, QSize size, const QString &file)
{
    window.resize(size);
    window.show();
    settle(1500);
    window.grab().save(file);
    std::printf("%s\n", qPrintable(file));
}

void list(QWidget &window, const QStringList &documents)
{
    auto *documentList = window.findChild<DocumentList *>();
    QList<QUrl> urls;
    for (const QString &document : documents) {
        urls << QUrl::fromLocalFile(QFileInfo(document).absoluteFilePath());
    }
    documentList->acceptDrop(urls, 0);
    documentList->selectRow(0);
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Quire"));
    const QStringList args = QApplication::arguments();
    if (args.size() < 4) {
        std::fprintf(stderr, "usage: quire_screenshots OUTPUT_FOLDER WIDTHxHEIGHT DOCUMENT...\n");
        return 2;
    }
    const QDir out(args[1]);
    const QStringList size = args[2].split(QLatin1Char('x'));
    const QSize windowSize(size.value(0).toInt(), size.value(1).toInt());
    const QStringList documents = args.mid(3);
    WidgetAlerts alerts;

    ViewController launcher(alerts);
    shoot(launcher, launcher.sizeHint(), out.filePath(QStringLiteral("launcher.png")));
    launcher.hide();

    ViewControllerMerge merge(alerts);
    list(merge, documents);
    shoot(merge, windowSize, out.filePath(QStringLiteral("merge.png")));
    merge.hide();

    ViewControllerSplit split(alerts);
    list(split, documents);
    split.findChild<QLineEdit *>(QStringLiteral("textFieldFolder"))->setText(QDir::homePath());
    shoot(split, windowSize, out.filePath(QStringLiteral("split.png")));
    split.hide();

    ViewControllerCrop crop(alerts);
    list(crop, documents);
    Jobs::CropSettings cropSettings;
    cropSettings.unit = Jobs::CropUnit::Percents;
    cropSettings.originX = 10;
    cropSettings.originY = 10;
    cropSettings.width = 80;
    cropSettings.height = 80;
    cropSettings.folder = QDir::homePath();
    crop.setSettings(cropSettings);
    shoot(crop, windowSize, out.filePath(QStringLiteral("crop.png")));
    crop.hide();

    ViewControllerWatermark watermark(alerts);
    list(watermark, documents);
    Jobs::WatermarkSettings stamp;
    stamp.text = QStringLiteral("DRAFT");
    stamp.size = 72;
    stamp.color = QStringLiteral("#c0392b");
    stamp.textOpacity = 40;
    stamp.textPosition = 4;
    stamp.stroke = true;
    stamp.folder = QDir::homePath();
    watermark.setSettings(stamp);
    watermark.preview().SchedulePreviewUpdate();
    shoot(watermark, windowSize, out.filePath(QStringLiteral("watermark.png")));
    watermark.hide();

    ViewControllerProperties properties(alerts);
    list(properties, documents);
    Jobs::PropertiesSettings titles;
    titles.author = QStringLiteral("Finance Team");
    titles.keywords = QStringLiteral("[Original] 2026");
    properties.setSettings(titles);
    shoot(properties, windowSize, out.filePath(QStringLiteral("properties.png")));
    return 0;
}
