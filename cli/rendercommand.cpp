#include "batch.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "preview/imagetools.h"
#include "preview/pngfile.h"

#include <QDir>
#include <QFileInfo>

namespace Cli {

qint64 readPageNumber(const QCommandLineParser &parser, const QString &name)
{
    bool ok = false;
    const QString text = parser.value(name);
    const qint64 page = text.trimmed().toLongLong(&ok);
    if (!ok || page < 1) {
        throw UsageError{
            QStringLiteral("--%1 takes a page number from 1 on, not \"%2\"").arg(name, text)};
    }
    return page;
}

QString readOutputImage(const QCommandLineParser &parser)
{
    if (!parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("the output image is missing (-o OUT.png)")};
    }
    return QDir::cleanPath(QFileInfo(parser.value(QStringLiteral("o"))).absoluteFilePath());
}

bool explainMissingPage(const QString &path, qint64 page)
{
    const auto status = PDFTools::LoadTest(path);
    if (status != PDFTools::LoadStatus::Loadable && status != PDFTools::LoadStatus::Encrypted) {
        printError(QStringLiteral("%1: %2").arg(path, PDFTools::LoadStatusText(status)));
        return true;
    }
    const qint64 count = PDFTools::GetPDFNumberOfPages(path);
    if (page > count) {
        printError(QStringLiteral("%1 has no page %2 (it has %3)").arg(path).arg(page).arg(count));
        return true;
    }
    return false;
}

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
                                       "displayed."))) {
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

} // namespace Cli
