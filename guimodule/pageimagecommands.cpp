#include "cli/batch.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "drawing/pngfile.h"
#include "imagecommands.h"
#include "jobs/watermarksettings.h"
#include "preview/imagetools.h"

#include <QDir>
#include <QFileInfo>

namespace Cli {

bool writeImage(const QImage &image, const QString &output)
{
    QString error;
    if (!Png::save(image, output, &error)) {
        printError(QStringLiteral("cannot write %1: %2").arg(output, error));
        return false;
    }
    return true;
}

int renderCommand(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("page"),
                      QStringLiteral("The page, counted from 1 (default 1)."),
                      QStringLiteral("N"),
                      QStringLiteral("1")});
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
                      QStringLiteral("The PNG image to write."),
                      QStringLiteral("OUT.png")});
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("A PDF document."));
    if (!parseArguments(parser,
                        args,
                        QStringLiteral("quire render FILE [--page N] -o OUT.png"),
                        QStringLiteral("Write a page as the preview shows it: 4 pixels per point "
                                       "(288 dpi), on white, annotations drawn, rotated as "
                                       "displayed."),
                        QStringLiteral("quire render book.pdf --page 3 -o page3.png"))) {
        return ExitSuccess;
    }
    const QString output = readOutputImage(parser);
    const qint64 page = readPageNumber(parser, QStringLiteral("page"));
    if (parser.positionalArguments().size() != 1) {
        throw UsageError{QStringLiteral("give one document to render")};
    }
    const QString path
        = QDir::cleanPath(QFileInfo(parser.positionalArguments().front()).absoluteFilePath());

    const QImage image = ImageTools::PDFPageToImageWithPdfPath(path, page - 1);
    if (image.isNull()) {
        if (!explainMissingPage(path, page)) {
            printError(QStringLiteral("cannot render page %1 of %2").arg(page).arg(path));
        }
        return ExitFailure;
    }
    return writeImage(image, output) ? ExitSuccess : ExitFailure;
}

int writeCropPreview(const QString &path, qint64 page, const QRectF &rect, const QString &output)
{
    const QImage image = ImageTools::DrawCropRectangleOnPageWithPdfPath(
        path, page, rect.x(), rect.y(), rect.width(), rect.height());
    if (image.isNull()) {
        printError(QStringLiteral("cannot render page %1 of %2").arg(page).arg(path));
        return ExitFailure;
    }
    return writeImage(image, output) ? ExitSuccess : ExitFailure;
}

int writeWatermarkPreview(const QString &path,
                          qint64 page,
                          const Jobs::WatermarkSettings &settings,
                          const QString &output)
{
    const QImage image = ImageTools::DrawWatermarkPreview(path, page, settings);
    if (image.isNull()) {
        if (!explainMissingPage(path, page)) {
            printError(QStringLiteral("cannot preview page %1 of %2").arg(page).arg(path));
        }
        return ExitFailure;
    }
    return writeImage(image, output) ? ExitSuccess : ExitFailure;
}

} // namespace Cli
