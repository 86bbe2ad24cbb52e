#pragma once

#include <QColor>
#include <QList>
#include <QString>

// Watermark settings, in the order the watermark operation takes them. Lengths are points,
// opacities and the picture scale are fractions (0 to 1), angles degrees.
struct WatermarkSettings
{
    QString text;
    QList<qint64> pages; // empty: every page
    QString textFontType;
    double textFontSize = 30;
    QColor textColor = Qt::black;
    double textOpacity = 0.7;
    qint64 textPosition = 0;
    double textVerticalOffset = 0;
    double textHorizontalOffset = 0;
    bool useShadow = false;
    bool useStroke = false;
    QString imagePath;
    double scale = 1;
    double imageOpacity = 0.7;
    qint64 imagePosition = 1;
    double imageVerticalOffset = 0;
    double imageHorizontalOffset = 0;
    double rotationDegrees = 0;
};
