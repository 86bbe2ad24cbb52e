#include "watermarkcommand.h"

#include "cli/batch.h"
#include "cli/commands.h"
#include "cli/console.h"
#include "drawing/watermarklayers.h"
#include "jobs/documentjobs.h"

#include <QColor>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <cmath>
#include <future>

namespace Cli {

namespace {

QString option(const char *name)
{
    return QString::fromLatin1(name);
}

// A position by name or by its code 0 to 4.
qint64 readPosition(const QCommandLineParser &parser, const QString &name)
{
    static const QStringList names{QStringLiteral("bottom-left"),
                                   QStringLiteral("bottom-right"),
                                   QStringLiteral("top-left"),
                                   QStringLiteral("top-right"),
                                   QStringLiteral("center")};
    const QString value = parser.value(name).trimmed().toLower();
    qsizetype code = names.indexOf(value);
    if (code < 0 && value.size() == 1 && value[0] >= QLatin1Char('0')
        && value[0] <= QLatin1Char('4')) {
        code = value[0].unicode() - '0';
    }
    if (code < 0) {
        throw UsageError{QStringLiteral("--%1 takes bottom-left, bottom-right, top-left, "
                                        "top-right, center or a code 0 to 4, not \"%2\"")
                             .arg(name, parser.value(name))};
    }
    return code;
}

// "DX,DY" in points.
QPointF readOffset(const QCommandLineParser &parser, const QString &name)
{
    const QString text = parser.value(name);
    const QStringList parts = text.split(QLatin1Char(','));
    bool okX = false;
    bool okY = false;
    const double x = parts.value(0).trimmed().toDouble(&okX);
    const double y = parts.value(1).trimmed().toDouble(&okY);
    if (parts.size() != 2 || !okX || !okY || !std::isfinite(x) || !std::isfinite(y)) {
        throw UsageError{
            QStringLiteral("--%1 takes two numbers DX,DY in points, not \"%2\"").arg(name, text)};
    }
    return {x, y};
}

// #RRGGBB or a colour name of the SVG list; nothing else.
std::optional<QColor> colorFromText(const QString &text)
{
    static const QRegularExpression hex(QStringLiteral("^#[0-9A-Fa-f]{6}$"));
    const QString name = text.trimmed().toLower();
    if (!hex.match(name).hasMatch() && !QColor::colorNames().contains(name)) {
        return std::nullopt;
    }
    return QColor(name);
}

// The window's settings: the profile's, or the window's defaults, with the options given here
// put over them.
Jobs::WatermarkSettings readSettings(const QCommandLineParser &parser)
{
    auto s = readProfile<Jobs::WatermarkSettings>(parser).value_or(Jobs::WatermarkSettings());
    const auto given = [&](const char *name) { return parser.isSet(option(name)); };
    const auto number = [&](const char *name, double &value) {
        if (given(name)) {
            value = readNumber(parser, option(name));
        }
    };
    const auto offset = [&](const char *name, double &x, double &y) {
        if (given(name)) {
            const QPointF value = readOffset(parser, option(name));
            x = value.x();
            y = value.y();
        }
    };
    if (given("text")) {
        s.text = parser.value(option("text"));
    }
    if (given("font")) {
        s.font = parser.value(option("font"));
    }
    number("size", s.size);
    if (given("color")) {
        s.color = parser.value(option("color"));
        if (!colorFromText(s.color)) {
            throw UsageError{
                QStringLiteral("--color takes #RRGGBB or a colour name such as red or navy, not "
                               "\"%1\"")
                    .arg(s.color)};
        }
    }
    number("text-opacity", s.textOpacity);
    if (given("text-position")) {
        s.textPosition = readPosition(parser, option("text-position"));
    }
    offset("text-offset", s.textOffsetX, s.textOffsetY);
    s.shadow = s.shadow || given("shadow");
    s.stroke = s.stroke || given("stroke");
    if (given("image")) {
        s.image = parser.value(option("image"));
    }
    number("scale", s.scale);
    number("image-opacity", s.imageOpacity);
    if (given("image-position")) {
        s.imagePosition = readPosition(parser, option("image-position"));
    }
    offset("image-offset", s.imageOffsetX, s.imageOffsetY);
    number("rotate", s.rotation);
    if (given("pages")) {
        s.pagesEnabled = true;
        s.pages = parser.value(option("pages"));
    }
    if (given("name")) {
        s.nameTemplate = parser.value(option("name"));
    }
    if (given("d")) {
        s.folder = parser.value(option("d"));
    }
    return s;
}

// The settings as the drawing takes them: a picture by its absolute path, a colour checked.
Jobs::WatermarkSettings checked(Jobs::WatermarkSettings s)
{
    if (!colorFromText(s.color)) {
        throw UsageError{QStringLiteral("the profile's colour \"%1\" is neither #RRGGBB nor a "
                                        "colour name")
                             .arg(s.color)};
    }
    if (!s.image.isEmpty()) {
        s.image = QFileInfo(s.image).absoluteFilePath();
    }
    return s;
}

void addWatermarkOptions(QCommandLineParser &parser)
{
    const auto add = [&](const char *name, const char *description, const char *valueName = "") {
        parser.addOption(
            {option(name), QString::fromUtf8(description), QString::fromLatin1(valueName)});
    };
    add("text", "Text of the text watermark (default \"Copyright ©\").", "T");
    add("font", "Font family of the text (default Arial).", "FAMILY");
    add("size", "Font size in points (default 30).", "PT");
    add("color", "Colour of the text: #RRGGBB or a colour name (default #000000).", "COLOR");
    add("text-opacity", "Opacity of the text in percent (default 70).", "PCT");
    add("text-position",
        "Where the text goes: bottom-left (the default), bottom-right, top-left, top-right, "
        "center, or a code 0 to 4.",
        "POS");
    add("text-offset", "Moves the text right and up, in points (default 0,0).", "DX,DY");
    add("shadow", "A black drop shadow under the text.");
    add("stroke", "A black outline around the text.");
    add("image", "Picture of the picture watermark (default none).", "FILE");
    add("scale", "Size of the picture in percent of its own size (default 100).", "PCT");
    add("image-opacity", "Opacity of the picture in percent (default 70).", "PCT");
    add("image-position",
        "Where the picture goes, as --text-position (default bottom-right).",
        "POS");
    add("image-offset", "Moves the picture right and up, in points (default 0,0).", "DX,DY");
    add("rotate", "Turns the picture counter-clockwise, in degrees (default 0).", "DEG");
    add("pages", "Stamp only these pages, such as \"[1-3],5,[7-9]\".", "EXPR");
    add("name",
        "Output name template; [FileName] is replaced (default [FileName]_Watermarked).",
        "TEMPLATE");
    add("preview", "Instead of a run: write the preview of page N of FILE (with -o).", "N");
    parser.addOption({{QStringLiteral("o"), QStringLiteral("output")},
                      QStringLiteral("The preview image (PNG), with --preview."),
                      QStringLiteral("OUT.png")});
}

// --preview N -o OUT.png FILE: the page as the Watermark window previews it, drawn by the
// graphical module (the page image needs QtPdf).
int writePreview(const QCommandLineParser &parser,
                 const Jobs::WatermarkSettings &settings,
                 ExtensionLoader graphical)
{
    const QString output = readOutputImage(parser);
    const qint64 page = readPageNumber(parser, option("preview"));
    if (parser.positionalArguments().size() != 1) {
        throw UsageError{QStringLiteral("--preview takes one document")};
    }
    const QString path
        = QDir::cleanPath(QFileInfo(parser.positionalArguments().front()).absoluteFilePath());
    const Extensions *pages = graphical ? graphical() : nullptr;
    return pages ? pages->watermarkPreview(path, page, settings, output) : ExitFailure;
}

} // namespace

int watermarkCommand(const QStringList &args, ExtensionLoader graphical)
{
    QCommandLineParser parser;
    parser.addOption({{QStringLiteral("d"), QStringLiteral("directory")},
                      QStringLiteral("The output folder."),
                      QStringLiteral("DIR")});
    addWatermarkOptions(parser);
    addBatchOptions(parser, true);
    parser.addPositionalArgument(QStringLiteral("INPUT"), QStringLiteral("PDF documents."));
    if (!parseArguments(
            parser,
            args,
            QStringLiteral("quire watermark -d DIR [text options] [image options] "
                           "[--pages EXPR] [--name TEMPLATE] [--profile FILE] "
                           "INPUT...\n"
                           "       quire watermark [text and image options] "
                           "--preview N -o OUT.png FILE"),
            QStringLiteral("Stamp a text and a picture on every page, or on the "
                           "pages given, of each document."),
            QStringLiteral(
                "quire watermark -d out --text DRAFT --size 72 --text-position center *.pdf"))) {
        return ExitSuccess;
    }
    const Jobs::WatermarkSettings settings = checked(readSettings(parser));
    if (parser.isSet(option("preview"))) {
        return writePreview(parser, settings, graphical);
    }
    if (parser.isSet(QStringLiteral("o"))) {
        throw UsageError{QStringLiteral("-o goes with --preview; a run writes into -d DIR")};
    }
    if (settings.folder.isEmpty()) {
        throw UsageError{QStringLiteral("the output folder is missing (-d DIR)")};
    }
    const BatchOptions options = readBatchOptions(parser);
    // The layers are drawn from here on, while the documents are tested and the run is planned.
    const auto layers = WatermarkLayers::forSettings(settings);
    const auto drawing = std::async(
        std::launch::async, [layers] { layers->layersOn(WatermarkLayerSource::FirstCanvas); });
    const Inputs inputs = [&] {
        try {
            return collectInputs(parser.positionalArguments());
        } catch (const UsageError &) {
            // None given, or none left after the load test (which named them).
            throw UsageError{QStringLiteral("There are no PDF documents to watermark.")};
        }
    }();
    Jobs::WatermarkSettings run = settings;
    run.folder = QDir::cleanPath(QFileInfo(settings.folder).absoluteFilePath());
    Jobs::WatermarkJob job(inputs.paths, run, layers);
    return runBatch(job,
                    options,
                    {QStringLiteral("watermark"),
                     QStringLiteral("PDF document(s) watermarked successfully."),
                     QStringLiteral("Could not watermark PDF document(s).")},
                    inputs.anyRejected);
}

} // namespace Cli
