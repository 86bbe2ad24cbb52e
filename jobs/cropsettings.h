#pragma once

#include <QString>

namespace Jobs {

enum class CropUnit { Percents, Points };

// The Crop window's settings: one rectangle (x, y of its lower-left corner, width, height) in
// points or in percent of each page as shown, the pages it applies to, the name template and the
// output folder.
struct CropSettings
{
    static constexpr auto Tool = "crop";

    CropUnit unit = CropUnit::Points;
    double originX = 0;
    double originY = 0;
    double width = 0;
    double height = 0;
    bool pagesEnabled = false; // off: every page is cropped
    QString pages = QStringLiteral("[1-3],5,[7-9]");
    QString nameTemplate = QStringLiteral("[FileName]_Cropped");
    QString folder;

    bool percents() const { return unit == CropUnit::Percents; }

    template <typename Visit> void visit(Visit &&field)
    {
        field("unit", unit, {"percents", "points"});
        field("originX", originX);
        field("originY", originY);
        field("width", width);
        field("height", height);
        field("pagesEnabled", pagesEnabled);
        field("pages", pages);
        field("nameTemplate", nameTemplate);
        field("folder", folder);
    }
};

} // namespace Jobs
