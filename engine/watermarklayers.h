#pragma once

// The watermark's layers as pixels ready to go into a PDF: drawn on a canvas of the page's
// size, cut to what shows, split into colour and alpha and deflated. A batch stamps the same
// watermark on every document, so what is made for one document serves the next. No qpdf here.

#include "pdftools.h"
#include "watermarksettings.h"
#include "preview/picturefile.h"

#include <QByteArray>
#include <QRect>
#include <QSize>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace Engine {

class WatermarkLayers
{
public:
    // One layer's visible pixels.
    struct Image
    {
        int width = 0;
        int height = 0;
        std::string colour; // deflated 8-bit RGB, not premultiplied
        std::string alpha;  // deflated 8-bit alpha; empty when every pixel is opaque
        QByteArray digest;  // the same for the same pixels
    };
    // A layer on one canvas: its image and where it goes (canvas pixels, y downward).
    struct Placed
    {
        std::shared_ptr<const Image> image;
        QRect rect;
    };

    // The layers of these settings, shared with every caller that asks for the same settings
    // (the same picture file unchanged) until other settings are asked for. Thread-safe.
    static std::shared_ptr<WatermarkLayers> forSettings(const WatermarkSettings &settings);

    explicit WatermarkLayers(const WatermarkSettings &settings);

    // What shows on a canvas of this size: the picture's layer, then the text's, each left out
    // when nothing of it shows.
    std::vector<Placed> layersOn(QSize canvas);

private:
    // A layer that lies wholly on its canvas has the same pixels wherever it lands on the same
    // fraction of a pixel: it is kept by that fraction (in 1/1024 pixel), its rectangle relative
    // to the whole pixel of its corner. Any other is kept by its canvas's size.
    using Key = std::tuple<int, bool, qint64, qint64>; // layer, movable, fraction or size

    WatermarkSettings m_settings;
    PictureFile m_picture;
    std::mutex m_mutex;
    std::map<Key, std::shared_ptr<const Placed>> m_layers; // null image: nothing shows
};

} // namespace Engine
