#include "watermarkimages.h"

#include "watermarkcanvas.h"

#include <QPainter>

namespace {

QImage wholeCanvas(QSize size, const Jobs::WatermarkSettings &settings, const PictureFile &picture)
{
    if (size.isEmpty()) {
        return {};
    }
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) {
        return {};
    }
    image.fill(Qt::transparent);
    const WatermarkDrawing::Canvas canvas(size, settings, picture, WatermarkDrawing::OutputStyle);
    QPainter painter(&image);
    canvas.paint(painter, image.rect());
    return image;
}

} // namespace

QImage WatermarkImages::CreateTextWatermark(QSize canvas,
                                            const QString &text,
                                            const QString &textFontType,
                                            double textFontSize,
                                            const QColor &textColor,
                                            double opacity,
                                            qint64 position,
                                            double verticalOffset,
                                            double horizontalOffset,
                                            bool useShadow,
                                            bool useStroke)
{
    Jobs::WatermarkSettings settings;
    settings.text = text;
    settings.font = textFontType;
    settings.size = textFontSize;
    settings.color = textColor.name(QColor::HexRgb);
    settings.textOpacity = opacity * 100;
    settings.textPosition = position;
    settings.textOffsetY = verticalOffset;
    settings.textOffsetX = horizontalOffset;
    settings.shadow = useShadow;
    settings.stroke = useStroke;
    settings.image.clear();
    return wholeCanvas(canvas, settings, PictureFile());
}

QImage WatermarkImages::CreateImageWatermark(QSize canvas,
                                             const QString &imagePath,
                                             double opacity,
                                             double scale,
                                             double rotationDegrees,
                                             qint64 position,
                                             double verticalOffset,
                                             double horizontalOffset)
{
    const PictureFile picture = PictureFile::load(imagePath, scale, WatermarkDrawing::CanvasScale);
    if (picture.isNull()) {
        return {};
    }
    Jobs::WatermarkSettings settings;
    settings.text.clear();
    settings.image = imagePath;
    settings.imageOpacity = opacity * 100;
    settings.scale = scale * 100;
    settings.rotation = rotationDegrees;
    settings.imagePosition = position;
    settings.imageOffsetY = verticalOffset;
    settings.imageOffsetX = horizontalOffset;
    return wholeCanvas(canvas, settings, picture);
}
