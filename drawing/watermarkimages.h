#pragma once

#include <QColor>
#include <QImage>
#include <QSize>
#include <QString>

// The two watermarks each on a whole canvas of a page's size (4 pixels per point), as the
// output draws them: what the layers stamped into a PDF are cut from.
class WatermarkImages
{
public:
    WatermarkImages() = delete;

    // A transparent canvas holding the text. Opacity is a fraction; offsets are points.
    static QImage CreateTextWatermark(QSize canvas,
                                      const QString &text,
                                      const QString &textFontType,
                                      double textFontSize,
                                      const QColor &textColor,
                                      double opacity,
                                      qint64 position,
                                      double verticalOffset,
                                      double horizontalOffset,
                                      bool useShadow,
                                      bool useStroke);
    // A transparent canvas holding the picture; a null image when the picture does not load.
    // Opacity and scale are fractions, the rotation counter-clockwise degrees.
    static QImage CreateImageWatermark(QSize canvas,
                                       const QString &imagePath,
                                       double opacity,
                                       double scale,
                                       double rotationDegrees,
                                       qint64 position,
                                       double verticalOffset,
                                       double horizontalOffset);
};
