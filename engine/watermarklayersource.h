#pragma once

#include <QByteArray>
#include <QRect>
#include <QSize>
#include <QString>

#include <memory>
#include <string>
#include <vector>

// What the watermark stamps, as pixels ready to go into a PDF: for a canvas of a page's size
// (4 pixels per point of the page as shown), the layers that show on it, cut to their visible
// pixels. The drawing side makes them; the engine only embeds and places them.
class WatermarkLayerSource
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

    virtual ~WatermarkLayerSource() = default;

    // The canvas a document asks for first, while it is read: US letter. A layer that lies wholly
    // on it (one at a corner, say) has the same pixels on pages of any size.
    static constexpr QSize FirstCanvas{612 * 4, 792 * 4};

    // What shows on a canvas of this size: the picture's layer, then the text's, each left out
    // when nothing of it shows. Any thread may ask, several at once.
    virtual std::vector<Placed> layersOn(QSize canvas) = 0;
    // Whether layersOn(canvas) has its answer ready, without drawing: a document need not start
    // drawing what an earlier one drew.
    virtual bool drawn(QSize) const { return false; }
    // Why the layers cannot be drawn as the settings ask (a picture that cannot be read); empty
    // when they can.
    virtual QString problem() const { return {}; }
};
