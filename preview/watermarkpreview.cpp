// The Watermark window's preview: the page as rendered for the preview, with the watermarks drawn
// on it as the output will show them (only the text's shadow and outline are drawn heavier).

#include "drawing/watermarkcanvas.h"
#include "imagetools.h"

#include <QPainter>

QImage ImageTools::DrawWatermarkPreview(const QString &path,
                                        qint64 currentPage,
                                        const Jobs::WatermarkSettings &settings)
{
    // A document that does not open, or a page outside it, gives an empty preview.
    return DrawWatermarkOnPageImage(PDFPageToImageWithPdfPath(path, currentPage - 1), settings);
}

QImage ImageTools::DrawWatermarkOnPageImage(QImage page, const Jobs::WatermarkSettings &settings)
{
    if (page.isNull()) {
        return page;
    }
    const PictureFile picture
        = PictureFile::load(settings.image, settings.scale / 100, WatermarkDrawing::CanvasScale);
    const WatermarkDrawing::Canvas canvas(
        page.size(), settings, picture, WatermarkDrawing::PreviewStyle);
    QPainter painter(&page);
    canvas.paint(painter, page.rect());
    painter.end();
    return page;
}
