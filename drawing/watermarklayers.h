#pragma once

// The watermark's layers as pixels ready to go into a PDF: drawn on a canvas of the page's
// size, cut to what shows, split into colour and alpha and deflated. A batch stamps the same
// watermark on every document, so what is made for one document serves the next.

#include "engine/watermarklayersource.h"
#include "jobs/watermarksettings.h"
#include "picturefile.h"
#include "watermarkcanvas.h"

#include <QRect>
#include <QSize>

#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

class WatermarkLayers final : public WatermarkLayerSource
{
public:
    // The layers of these settings, shared with every caller that asks for the same settings
    // (the same picture file unchanged) until other settings are asked for. Thread-safe.
    static std::shared_ptr<WatermarkLayers> forSettings(const Jobs::WatermarkSettings &settings);

    explicit WatermarkLayers(const Jobs::WatermarkSettings &settings);

    // Drawn once for each canvas size: a caller that asks while another draws the same size
    // waits for it (the documents of a batch on several threads share the drawing).
    std::vector<Placed> layersOn(QSize canvas) override;
    bool drawn(QSize canvas) const override;

    // The settings name a picture that cannot be read.
    QString problem() const override;

private:
    using Layer = WatermarkDrawing::Canvas::Layer;
    // A layer that lies wholly on its canvas has the same pixels wherever it lands on the same
    // fraction of a pixel: it is kept by that fraction (in 1/1024 pixel), its rectangle relative
    // to the whole pixel of its corner. Any other is kept by its canvas's size.
    using Key = std::tuple<int, bool, qint64, qint64>; // layer, movable, fraction or size

    std::vector<Placed> drawLayers(QSize canvas);
    // The layer on the canvas; nothing when none of it shows.
    std::optional<Placed> layerOn(Layer layer, QSize size);
    // The canvas of the size laid out with the one layer.
    WatermarkDrawing::Canvas layerCanvas(Layer layer, QSize size) const;
    // How the layer is kept, and the corner its kept rectangle is relative to.
    static std::pair<Key, QPoint>
    placeOf(Layer layer, const WatermarkDrawing::Canvas &canvas, QSize size);
    // Whether the picture on a canvas of the size needs no painting.
    bool pictureKept(QSize size);

    Jobs::WatermarkSettings m_settings;
    PictureFile m_picture;
    mutable std::mutex m_mutex;
    std::map<Key, std::shared_ptr<const Placed>> m_layers; // null image: nothing shows
    std::map<std::pair<int, int>, std::shared_future<std::vector<Placed>>> m_canvases;
};
