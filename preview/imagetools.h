#pragma once

#include "engine/pagegeometry.h"
#include "jobs/watermarksettings.h"

#include <QImage>
#include <QString>

// Page images for the previews, and the two small image operations the watermark uses. Pure
// functions of their arguments and the file on disk: any thread may call them. A file that does
// not open or a page outside the document gives a null image, never a crash.
class ImageTools
{
public:
    ImageTools() = default;

    // Pixels per point of every page image (288 dpi).
    static constexpr int Scale = 4;

    // The page with the 0-based index at 4 pixels per point, opaque on white, annotations drawn,
    // as displayed (a rotated page comes out rotated).
    static QImage PDFPageToImageWithPdfPath(const QString &path, qint64 page);

    // The page image of the page (1-based) with everything outside the rectangle dimmed by a
    // 60 % black layer, no outline. The rectangle is in crop coordinates (points, see
    // PageGeometry), drawn as given, neither clamped nor rejected as the crop would.
    static QImage DrawCropRectangleOnPageWithPdfPath(const QString &path,
                                                     qint64 page,
                                                     double originX,
                                                     double originY,
                                                     double width,
                                                     double height);

    // The same drawn over the page's image already made (PDFPageToImageWithPdfPath) with the
    // page's geometry: the preview pane keeps a page's image while only the rectangle changes.
    static QImage DrawCropRectangleOnPageImage(QImage page,
                                               const PageGeometry &geometry,
                                               double originX,
                                               double originY,
                                               double width,
                                               double height);

    // The image turned by degrees (counter-clockwise, y up) about its centre, on a transparent
    // canvas just large enough to hold it; the image itself for exactly 0 and 360.
    static QImage RotateImage(const QImage &image, double degrees);

    // The image stretched to exactly width x height pixels.
    static QImage ResizeImage(const QImage &image, double width, double height);

    // The page (1-based) with the watermarks drawn on it as the Watermark window previews them.
    static QImage DrawWatermarkPreview(const QString &path,
                                       qint64 currentPage,
                                       const Jobs::WatermarkSettings &settings);
    // The same drawn over the page's image already made.
    static QImage DrawWatermarkOnPageImage(QImage page, const Jobs::WatermarkSettings &settings);
};
