#pragma once

// The drawing of the text and picture watermarks, shared by the engine's canvases and the
// Watermark window's preview. Both draw on a canvas of 4 units per point, origin at the lower-
// left corner and y upward in every setting; the two differ only in the text's shadow and
// outline (TextStyle).

#include "jobs/watermarksettings.h"
#include "picturefile.h"

#include <QColor>
#include <QFont>
#include <QPainterPath>
#include <QRect>
#include <QRectF>
#include <QSize>

#include <optional>

class QPainter;

namespace WatermarkDrawing {

// Canvas units per point.
inline constexpr double CanvasScale = 4;

// The text's shadow and outline. Lengths are canvas units; the offset's y is upward.
struct TextStyle
{
    double shadowBlurRadius;
    double shadowOffsetX;
    double shadowOffsetY;
    double strokeWidthPercent; // of the font size
};

// As stamped into the output.
inline constexpr TextStyle OutputStyle{2.0, 1.0, -1.0, 1.0};
// As previewed: a larger shadow and an outline twice as heavy.
inline constexpr TextStyle PreviewStyle{3.0, 3.0, -3.0, 2.0};

// Where a watermark of size item goes on a canvas with a position code (0 "Bottom Left",
// 1 "Bottom Right", 2 "Top Left", 3 "Top Right", 4 "Center"), flush with the canvas's edges,
// then moved by the offsets (canvas units, positive right and up). The result is in the
// canvas's pixel coordinates (y downward). Nothing for any other code.
std::optional<QRectF> placeRect(
    qint64 position, QSizeF canvas, QSizeF item, double horizontalOffset, double verticalOffset);

// The watermarks of one canvas size, laid out once: the text within the canvas width with its
// lines centred, the picture scaled, turned about its centre and placed by its bounding box.
// Any part of the canvas can then be painted, and every part comes out the same as on a whole
// canvas.
class Canvas
{
public:
    Canvas(QSize size,
           const Jobs::WatermarkSettings &settings,
           const PictureFile &picture,
           const TextStyle &style);

    // The pixels that the watermarks may touch, within the canvas; empty when nothing shows.
    QRect bounds() const { return m_pictureBounds | m_textBounds; }
    QRect pictureBounds() const { return m_pictureBounds; }
    QRect textBounds() const { return m_textBounds; }

    // Paints the picture, then the text over it. The painter's coordinates are the canvas's;
    // pixels outside region may be left out.
    void paint(QPainter &painter, const QRect &region) const;
    // Each on its own: the two drawn one over the other give paint().
    void paintPicture(QPainter &painter, const QRect &region) const;
    void paintText(QPainter &painter, const QRect &region) const;

    // The text's size as laid out (canvas units).
    QSizeF textSize() const { return m_textSize; }

    enum class Layer { Picture, Text };
    // The top-left corner (canvas pixels) of a layer's rectangle, when the layer's pixels are the
    // same on every canvas but for a move by whole pixels: it lies wholly on the canvas, and the
    // text is neither wrapped nor cut at the canvas's size. Two such canvases whose corners
    // have the same fraction of a pixel get the same pixels, moved by the corners' difference.
    std::optional<QPointF> movableCorner(Layer layer) const;

private:
    void layOutText(const Jobs::WatermarkSettings &settings);
    void fillAndStrokeText(QPainter &painter) const;

    QSize m_size;
    TextStyle m_style;
    // Text: outline path in canvas pixels, already placed.
    QPainterPath m_textPath;
    QSizeF m_textSize;
    QColor m_textColor;
    double m_strokeWidth = 0; // 0: no outline
    bool m_shadow = false;
    QRect m_textBody;   // the text's own pixels, on the canvas or not
    QRect m_textReach;  // the same with the shadow
    QRect m_textBounds; // on the canvas, shadow included
    QPointF m_textCorner;
    bool m_textLaidOutAsAnywhere = false; // not wrapped, no line left out
    // Picture.
    const PictureFile &m_picture;
    std::optional<QRectF> m_pictureRect; // bounding box of the turned picture
    double m_rotation = 0;
    double m_pictureOpacity = 0;
    QRect m_pictureReach;  // on the canvas or not
    QRect m_pictureBounds; // on the canvas
};

// The font of a family name and a size in points, in canvas pixels: pixel size (rounded) and
// the factor that brings it to the exact size. A size of zero or less is the default 12 points;
// a family that is not installed resolves as in the font list (FontList::resolveFamily).
struct CanvasFont
{
    QFont font;
    double factor = 1;
};
CanvasFont canvasFont(const QString &family, double pointSize);

} // namespace WatermarkDrawing
