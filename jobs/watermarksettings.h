#pragma once

#include <QString>

namespace Jobs {

// The Watermark window's settings, in the window's units: points, percent, degrees, position
// codes 0 to 4 ("Bottom Left", "Bottom Right", "Top Left", "Top Right", "Center"). The drawing
// reads them as they are: opacities and the scale divided by 100, the colour as #RRGGBB or a
// colour name, the font as the font list names it.
struct WatermarkSettings
{
    static constexpr auto Tool = "watermark";

    QString text = QStringLiteral("Copyright ©");
    QString font = QStringLiteral("Arial");
    double size = 30;
    QString color = QStringLiteral("#000000");
    double textOpacity = 70;
    qint64 textPosition = 0;
    double textOffsetX = 0; // to the right
    double textOffsetY = 0; // up
    bool shadow = false;
    bool stroke = false;
    QString image; // empty: no picture
    double scale = 100;
    double imageOpacity = 70;
    double rotation = 0; // counter-clockwise
    qint64 imagePosition = 1;
    double imageOffsetX = 0;
    double imageOffsetY = 0;
    bool pagesEnabled = false; // off: every page is stamped
    QString pages = QStringLiteral("[1-3],5,[7-9]");
    QString nameTemplate = QStringLiteral("[FileName]_Watermarked");
    QString folder;

    template <typename Visit> void visit(Visit &&field)
    {
        field("text", text);
        field("font", font);
        field("size", size);
        field("color", color);
        field("textOpacity", textOpacity);
        field("textPosition", textPosition);
        field("textOffsetX", textOffsetX);
        field("textOffsetY", textOffsetY);
        field("shadow", shadow);
        field("stroke", stroke);
        field("image", image);
        field("scale", scale);
        field("imageOpacity", imageOpacity);
        field("rotation", rotation);
        field("imagePosition", imagePosition);
        field("imageOffsetX", imageOffsetX);
        field("imageOffsetY", imageOffsetY);
        field("pagesEnabled", pagesEnabled);
        field("pages", pages);
        field("nameTemplate", nameTemplate);
        field("folder", folder);
    }
};

} // namespace Jobs
