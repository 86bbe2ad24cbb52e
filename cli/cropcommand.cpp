#include "batch.h"
#include "commandline.h"
#include "commands.h"
#include "console.h"
#include "engine/pdftools.h"
#include "jobs/documentjobs.h"

#include <QDir>
#include <QFileInfo>

#include <array>
#include <cmath>

namespace Cli {

namespace {

struct Rectangle
{
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
};

Rectangle readRectangle(const QCommandLineParser &parser)
{
    const QString text = parser.value(QStringLiteral("rect"));
    const QStringList parts = text.split(QLatin1Char(','));
    std::array<double, 4> values{};
    bool ok = parts.size() == 4;
    for (qsizetype i = 0; ok && i < 4; ++i) {
        values[size_t(i)] = parts[i].trimmed().toDouble(&ok);
        ok = ok && std::isfinite(values[size_t(i)]);
    }
    if (!ok) {
        throw UsageError{QStringLiteral("--rect takes four numbers X,Y,W,H, not \"%1\"").arg(text)};
    }
    return {values[0], values[1], values[2], values[3]};
}

// The crop preview of one page, written as PNG instead of a run.
int writePreview(const QCommandLineParser &parser, const Rectangle &rect, bool percents)
{
    const QString output = readOutputImage(parser);
    const qint64 page = readPageNumber(parser, QStringLiteral("preview"));
    if (parser.positionalArguments().size() != 1) {
        throw UsageError{QStringLiteral("--preview takes one document")};
    }
    const Inputs inputs = collectInputs(parser.positionalArguments());
    const QString &path = inputs.paths.front();
    const auto geometry = PDFTools::GetPDFPageGeometry(path, page);
    if (!geometry) {
        explainMissingPage(path, page);
        return ExitFailure;
    }
    // Percentages of this page, converted as the Crop window converts them.
    const QRectF r = percents ? geometry->percentToPoints(rect.x, rect.y, rect.width, rect.height)
                              : QRectF(rect.x, rect.y, rect.width, rect.height);
    const Extensions *drawing = extensions();
    return drawing ? drawing->cropPreview(path, page, r, output) : ExitFailure;
}

} // namespace

int cropCommand(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addOption({{QStringLiteral("d"), QStringLiteral("directory")},
                      QStringLiteral("The output folder."),
                      QStringLiteral("DIR")});
    parser.addOption({QStringLiteral("rect"),
                      QStringLiteral("The rectangle to keep: X,Y of its lower-left corner, "
                                     "width and height, in points (or percent of each page)."),
                      QStringLiteral("X,Y,W,H")});
    parser.addOption({QStringLiteral("percent"),
                      QStringLiteral("The rectangle is in percent of each page's width and "
                                     "height.")});
    parser.addOption({QStringLiteral("pages"),
                      QStringLiteral("Crop only these pages, such as \"[1-3],5,[7-9]\"; the "
                                     "others are copied unchanged."),
                      QStringLiteral("EXPR")});
    parser.addOption({QStringLiteral("name"),
                      QStringLiteral("Output name template; [FileName] is replaced."),
                      QStringLiteral("TEMPLATE"),
                      QStringLiteral("[FileName]_Cropped")});
    parser.addOption({QStringLiteral("preview"),
                      QStringLiteral("Instead of a run, write the preview of page N with the "
                                     "rectangle, as the Crop window shows it, to -o."),
                      QStringLiteral("N")});
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
                      QStringLiteral("The preview image (PNG), with --preview."),
                      QStringLiteral("OUT.png")});
    addBatchOptions(parser, true);
    parser.addPositionalArgument(QStringLiteral("INPUT"), QStringLiteral("PDF documents."));
    if (!parseArguments(
            parser,
            args,
            QStringLiteral("quire crop -d DIR --rect X,Y,W,H [--percent] [--pages EXPR] "
                           "[--name TEMPLATE] [--profile FILE] INPUT...\n"
                           "       quire crop --rect X,Y,W,H [--percent] --preview N -o OUT.png "
                           "FILE"),
            QStringLiteral("Cut each page, or the chosen pages, of each document to one "
                           "rectangle."),
            QStringLiteral(
                "quire crop -d cropped --rect 36,36,540,720 --pages \"[1-3]\" scan.pdf"))) {
        return ExitSuccess;
    }
    const bool percents = parser.isSet(QStringLiteral("percent"));
    if (parser.isSet(QStringLiteral("preview"))) {
        // The window starts with an empty rectangle: the whole page dimmed.
        const Rectangle rect
            = parser.isSet(QStringLiteral("rect")) ? readRectangle(parser) : Rectangle();
        return writePreview(parser, rect, percents);
    }
    if (parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("-o goes with --preview; a run writes into -d DIR")};
    }
    // The profile gives the settings the command line leaves out.
    const auto profile = readProfile<Jobs::CropSettings>(parser);
    Jobs::CropSettings settings = profile.value_or(Jobs::CropSettings());
    if (parser.isSet(QStringLiteral("rect"))) {
        const Rectangle rect = readRectangle(parser);
        settings.unit = percents ? Jobs::CropUnit::Percents : Jobs::CropUnit::Points;
        settings.originX = rect.x;
        settings.originY = rect.y;
        settings.width = rect.width;
        settings.height = rect.height;
    } else if (!profile) {
        throw UsageError{QStringLiteral("the rectangle is missing (--rect X,Y,W,H)")};
    } else if (percents) {
        settings.unit = Jobs::CropUnit::Percents;
    }
    if (parser.isSet(QStringLiteral("pages"))) {
        settings.pagesEnabled = true;
        settings.pages = parser.value(QStringLiteral("pages"));
    }
    if (parser.isSet(QStringLiteral("name")) || !profile) {
        settings.nameTemplate = parser.value(QStringLiteral("name"));
    }
    if (parser.isSet(QStringLiteral("d"))) {
        settings.folder = parser.value(QStringLiteral("d"));
    }
    if (settings.folder.isEmpty()) {
        throw UsageError{QStringLiteral("the output folder is missing (-d DIR)")};
    }
    settings.folder = QDir::cleanPath(QFileInfo(settings.folder).absoluteFilePath());
    const BatchOptions options = readBatchOptions(parser);
    if (parser.positionalArguments().isEmpty()) {
        throw UsageError{QStringLiteral("There are no PDF documents to crop.")};
    }
    const Inputs inputs = collectInputs(parser.positionalArguments());

    Jobs::CropJob job(inputs.paths, settings);
    return runBatch(job,
                    options,
                    {QStringLiteral("crop"),
                     QStringLiteral("PDF document(s) cropped successfully."),
                     QStringLiteral("Could not crop PDF document(s).")},
                    inputs.anyRejected);
}

} // namespace Cli
