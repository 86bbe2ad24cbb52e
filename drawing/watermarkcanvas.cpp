#include "watermarkcanvas.h"

#include "fontlist.h"
#include "textshadow.h"

#include <QGlyphRun>
#include <QPainter>
#include <QRawFont>
#include <QTextLayout>
#include <QTransform>

#include <cmath>
#include <vector>

namespace WatermarkDrawing {

namespace {

// Glyph outlines are taken at no more than this pixel size and scaled beyond it.
constexpr int MaxFontPixels = 4096;

double clampedFraction(double value)
{
    return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

// The blur's sigma for a shadow blur radius (the radius spans about two standard deviations),
// and how far the blur reaches.
double shadowSigma(const TextStyle &style)
{
    return style.shadowBlurRadius / 2;
}

int shadowReach(const TextStyle &style)
{
    return shadowSigma(style) > 0 ? int(std::ceil(3 * shadowSigma(style))) : 0;
}

// The shadow's offset in pixels (y downward).
QPoint shadowOffset(const TextStyle &style)
{
    return QPointF(style.shadowOffsetX, -style.shadowOffsetY).toPoint();
}

// The colour a setting names (#RRGGBB or a colour name); black for any other text.
QColor textColor(const Jobs::WatermarkSettings &settings)
{
    const QColor color(settings.color.trimmed());
    return color.isValid() ? color.toRgb() : QColor(Qt::black);
}

QString withLineSeparators(QString text)
{
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    text.replace(QLatin1Char('\n'), QChar::LineSeparator);
    return text;
}

} // namespace

std::optional<QRectF> placeRect(
    qint64 position, QSizeF canvas, QSizeF item, double horizontalOffset, double verticalOffset)
{
    const double w = item.width();
    const double h = item.height();
    const double W = canvas.width();
    const double H = canvas.height();
    double x = 0;
    double y = 0; // lower-left corner, y upward
    switch (position) {
    case 0:
        break;
    case 1:
        x = W - w;
        break;
    case 2:
        y = H - h;
        break;
    case 3:
        x = W - w;
        y = H - h;
        break;
    case 4:
        x = (W - w) * 0.5;
        y = (H - h) * 0.5;
        break;
    default:
        return std::nullopt;
    }
    x += horizontalOffset;
    y += verticalOffset;
    // Nothing of a watermark this far off the canvas (or this large) could show, and its pixel
    // rectangle would not fit in whole numbers.
    constexpr double far = 1 << 28;
    const QRectF placed(x, H - y - h, w, h);
    if (!std::isfinite(placed.left()) || !std::isfinite(placed.top()) || !(w < far) || !(h < far)
        || std::abs(placed.left()) > far || std::abs(placed.top()) > far) {
        return std::nullopt;
    }
    return placed;
}

CanvasFont canvasFont(const QString &family, double pointSize)
{
    if (!std::isfinite(pointSize) || pointSize <= 0) {
        pointSize = 12;
    }
    const double pixels = std::min(pointSize * CanvasScale, 1e7);
    const int base = std::clamp(int(std::lround(pixels)), 1, MaxFontPixels);
    CanvasFont result;
    // A family that is not installed is drawn with the one the font list would choose for it,
    // never with a symbol face the system's configuration may offer for the name.
    result.font = QFont(FontList::resolveFamily(family));
    result.font.setPixelSize(base);
    // Outlines as designed: the same shapes and advances at every size and on every device.
    result.font.setHintingPreference(QFont::PreferNoHinting);
    result.font.setStyleStrategy(QFont::ForceOutline);
    result.factor = pixels / base;
    return result;
}

Canvas::Canvas(QSize size,
               const Jobs::WatermarkSettings &settings,
               const PictureFile &picture,
               const TextStyle &style)
    : m_size(size)
    , m_style(style)
    , m_picture(picture)
{
    layOutText(settings);

    const QSizeF drawn = picture.drawnSize();
    m_pictureOpacity = clampedFraction(settings.imageOpacity / 100);
    if (!picture.isNull() && !drawn.isEmpty() && m_pictureOpacity > 0) {
        m_rotation = std::isfinite(settings.rotation) ? settings.rotation : 0;
        QSizeF turned = drawn;
        if (m_rotation != 0 && m_rotation != 360) {
            QTransform turn;
            turn.rotate(m_rotation);
            turned = turn.mapRect(QRectF(QPointF(0, 0), drawn)).size();
        }
        m_pictureRect = placeRect(settings.imagePosition,
                                  QSizeF(size),
                                  turned,
                                  settings.imageOffsetX * CanvasScale,
                                  settings.imageOffsetY * CanvasScale);
        if (m_pictureRect) {
            // Drawing, antialiased edges included, stays within the rectangle's pixels.
            m_pictureReach = m_pictureRect->toAlignedRect();
            m_pictureBounds = m_pictureReach & QRect(QPoint(0, 0), size);
        }
    }
}

void Canvas::layOutText(const Jobs::WatermarkSettings &settings)
{
    const double opacity = clampedFraction(settings.textOpacity / 100);
    if (settings.text.isEmpty() || (opacity <= 0 && !settings.stroke)) {
        return; // nothing would show, not even a shadow
    }
    const CanvasFont canvas = canvasFont(settings.font, settings.size);
    QTextLayout layout(withLineSeparators(settings.text), canvas.font);
    // Lines are laid out from the left and centred here: the layout's own centring rounds
    // positions differently for every width, and pages of different widths would then get
    // different pixels.
    QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    // Lines wrap at the canvas width; lines that would end below the canvas's height are left
    // out, all but the first.
    const double lineWidth = m_size.width() / canvas.factor;
    const double maxHeight = m_size.height() / canvas.factor;
    std::vector<QTextLine> lines;
    double height = 0;
    double width = 0;
    bool cut = false;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLeadingIncluded(true);
        line.setLineWidth(lineWidth);
        if (!lines.empty() && height + line.height() > maxHeight) {
            cut = true;
            break;
        }
        line.setPosition(QPointF(0, height));
        height += line.height();
        width = std::max(width, line.naturalTextWidth());
        lines.push_back(line);
    }
    layout.endLayout();
    m_textLaidOutAsAnywhere
        = !cut && qsizetype(lines.size()) == layout.text().count(QChar::LineSeparator) + 1;

    // The block is as wide as its widest line; each line is centred on it.
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    for (const QTextLine &line : lines) {
        const QPointF centring((width - line.naturalTextWidth()) / 2 - line.x(), 0);
        const auto runs = line.glyphRuns();
        for (const QGlyphRun &run : runs) {
            const QRawFont font = run.rawFont();
            const auto glyphs = run.glyphIndexes();
            const auto positions = run.positions();
            for (qsizetype i = 0; i < glyphs.size(); ++i) {
                QPainterPath glyph = font.pathForGlyph(glyphs[i]);
                glyph.translate(positions[i] + centring);
                path.addPath(glyph);
            }
        }
    }
    m_textSize = QSizeF(width, height) * canvas.factor;
    const auto rect = placeRect(settings.textPosition,
                                QSizeF(m_size),
                                m_textSize,
                                settings.textOffsetX * CanvasScale,
                                settings.textOffsetY * CanvasScale);
    if (!rect || path.isEmpty()) {
        return;
    }
    QTransform place;
    place.translate(rect->x(), rect->y());
    place.scale(canvas.factor, canvas.factor);
    m_textPath = place.map(path);
    m_textCorner = rect->topLeft();

    const QColor rgb = textColor(settings);
    m_textColor = QColor::fromRgbF(rgb.redF(), rgb.greenF(), rgb.blueF(), float(opacity));
    if (settings.stroke) {
        m_strokeWidth = m_style.strokeWidthPercent / 100 * canvas.font.pixelSize() * canvas.factor;
    }
    m_shadow = settings.shadow;

    // The text's own pixels (outline and antialiasing included), also those off the canvas: they
    // may still cast shadow onto it.
    const double halfStroke = m_strokeWidth / 2;
    m_textBody = m_textPath.boundingRect()
                     .adjusted(-halfStroke, -halfStroke, halfStroke, halfStroke)
                     .toAlignedRect()
                     .adjusted(-1, -1, 1, 1);
    m_textReach = m_textBody;
    if (m_shadow) {
        const int reach = shadowReach(m_style);
        m_textReach
            |= m_textBody.translated(shadowOffset(m_style)).adjusted(-reach, -reach, reach, reach);
    }
    m_textBounds = m_textReach & QRect(QPoint(0, 0), m_size);
}

std::optional<QPointF> Canvas::movableCorner(Layer layer) const
{
    const QRect canvas(QPoint(0, 0), m_size);
    if (layer == Layer::Picture) {
        if (!m_pictureRect || !canvas.contains(m_pictureReach)) {
            return std::nullopt;
        }
        return m_pictureRect->topLeft();
    }
    if (m_textPath.isEmpty() || !m_textLaidOutAsAnywhere || !canvas.contains(m_textReach)) {
        return std::nullopt;
    }
    return m_textCorner;
}

void Canvas::paint(QPainter &painter, const QRect &region) const
{
    paintPicture(painter, region);
    paintText(painter, region);
}

void Canvas::paintPicture(QPainter &painter, const QRect &region) const
{
    if (!m_pictureRect || !m_pictureBounds.intersects(region)) {
        return;
    }
    const QSizeF drawn = m_picture.drawnSize();
    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(m_pictureOpacity);
    painter.translate(m_pictureRect->center());
    // Counter-clockwise with y up is clockwise in pixels, whose y runs down.
    painter.rotate(-m_rotation);
    painter.drawImage(QRectF(QPointF(-drawn.width() / 2, -drawn.height() / 2), drawn),
                      m_picture.image());
    painter.restore();
}

void Canvas::fillAndStrokeText(QPainter &painter) const
{
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(m_textPath, m_textColor);
    if (m_strokeWidth > 0) {
        painter.strokePath(
            m_textPath, QPen(Qt::black, m_strokeWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    }
}

void Canvas::paintText(QPainter &painter, const QRect &region) const
{
    if (m_textPath.isEmpty() || !m_textBounds.intersects(region)) {
        return;
    }
    painter.save();
    if (!m_shadow) {
        fillAndStrokeText(painter);
        painter.restore();
        return;
    }
    // The shadow is that of the drawn text (fill and outline, at their opacity), blurred and
    // moved. Only the text within the blur's reach of the region casts shadow into it.
    const int reach = shadowReach(m_style);
    const QPoint offset = shadowOffset(m_style);
    const int around = reach + std::max(std::abs(offset.x()), std::abs(offset.y())) + 1;
    const QRect layerRect = m_textBody & region.adjusted(-around, -around, around, around);
    if (layerRect.isEmpty()) {
        painter.restore();
        return;
    }
    QImage layer(layerRect.size(), QImage::Format_ARGB32_Premultiplied);
    layer.fill(Qt::transparent);
    {
        QPainter text(&layer);
        text.translate(-layerRect.topLeft());
        fillAndStrokeText(text);
    }
    const QImage shadow = shadowOf(layer, shadowSigma(m_style), reach);
    painter.drawImage(layerRect.topLeft() + offset - QPoint(reach, reach), shadow);
    painter.drawImage(layerRect.topLeft(), layer);
    painter.restore();
}

} // namespace WatermarkDrawing
