#pragma once

// The watermark's layers as pixels ready to go into a PDF: drawn on a canvas of the page's
// size, cut to what shows, split into colour and alpha and deflated. A batch stamps the same
// watermark on every document, so what is made for one document serves the next.

#include "engine/watermarklayersource.h"
#include "jobs/watermarksettings.h"
#include "picturefile.h"

#include <QRect>
#include <QSize>

#include <map>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

class WatermarkLayers final : public WatermarkLayerSource
{
public:
    // The layers of these settings, shared with every caller that asks for the same settings
    // (the same picture file unchanged) until other settings are asked for. Thread-safe.
    static std::shared_ptr<WatermarkLayers> forSettings(const Jobs::WatermarkSettings &settings);

    explicit WatermarkLayers(const Jobs::WatermarkSettings &settings);

    std::vector<Placed> layersOn(QSize canvas) override;

    // The settings name a picture that cannot be read.
    QString problem() const override;

private:
    // A layer that lies wholly on its canvas has the same pixels wherever it lands on the same
    // fraction of a pixel: it is kept by that fraction (in 1/1024 pixel), its rectangle relative
    // to the whole pixel of its corner. Any other is kept by its canvas's size.
    using Key = std::tuple<int, bool, qint64, qint64>; // layer, movable, fraction or size

    Jobs::WatermarkSettings m_settings;
    PictureFile m_picture;
    std::mutex m_mutex;
    std::map<Key, std::shared_ptr<const Placed>> m_layers; // null image: nothing shows
};
