#include "watermarklayers.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QFile>
#include <QPainter>

#include <cmath>
#include <cstring>
#include <sys/stat.h>

namespace {

// Deflated at zlib's fastest level: the layers are mostly flat colour and transparency, which
// that level packs nearly as small as the slower ones.
std::string deflated(const QByteArray &data)
{
    // qCompress puts the length in four bytes before the zlib stream; it gives nothing when it
    // runs out of memory.
    const QByteArray packed = qCompress(data, 1);
    if (packed.size() <= 4) {
        throw std::bad_alloc();
    }
    return packed.sliced(4).toStdString();
}

// The smallest rectangle of the image holding every pixel that is not wholly transparent.
QRect visibleRect(const QImage &image)
{
    int top = image.height();
    int bottom = -1;
    int left = image.width();
    int right = -1;
    for (int y = 0; y < image.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        int first = 0;
        while (first < image.width() && qAlpha(line[first]) == 0) {
            ++first;
        }
        if (first == image.width()) {
            continue;
        }
        int last = image.width() - 1;
        while (qAlpha(line[last]) == 0) {
            --last;
        }
        top = std::min(top, y);
        bottom = y;
        left = std::min(left, first);
        right = std::max(right, last);
    }
    return bottom < 0 ? QRect() : QRect(QPoint(left, top), QPoint(right, bottom));
}

// Gives every wholly transparent pixel the colour of a drawn pixel near it. A viewer that scales
// the picture blends each pixel's colour with its neighbours' and the soft mask's alpha
// likewise, separately: with black in the transparent pixels, every edge of the text or picture
// would come out darker than its colour (a grey fringe on red text over white), the more so the
// smaller the page is shown. Two sweeps, down and back up, carry the colours as far as it takes.
void bleedColourIntoTransparency(QByteArray &colour, const QByteArray &alpha, int width, int height)
{
    std::vector<quint8> known(size_t(width) * size_t(height));
    for (size_t i = 0; i < known.size(); ++i) {
        known[i] = alpha[qsizetype(i)] != 0;
    }
    auto *rgb = reinterpret_cast<uchar *>(colour.data());
    const auto sweep = [&](int step) {
        const int first = step > 0 ? 0 : height - 1;
        for (int y = first; y >= 0 && y < height; y += step) {
            const int x0 = step > 0 ? 0 : width - 1;
            for (int x = x0; x >= 0 && x < width; x += step) {
                const size_t at = size_t(y) * size_t(width) + size_t(x);
                if (known[at]) {
                    continue;
                }
                // The neighbours this sweep has passed: beside, and in the row before.
                const int neighbours[4][2]
                    = {{-step, 0}, {-step, -step}, {0, -step}, {step, -step}};
                for (const auto &[dx, dy] : neighbours) {
                    const int nx = x + dx;
                    const int ny = y + dy;
                    if (nx < 0 || ny < 0 || nx >= width || ny >= height) {
                        continue;
                    }
                    const size_t from = size_t(ny) * size_t(width) + size_t(nx);
                    if (known[from]) {
                        std::memcpy(rgb + at * 3, rgb + from * 3, 3);
                        known[at] = 1;
                        break;
                    }
                }
            }
        }
    };
    sweep(1);
    sweep(-1);
}

// The pixels of rect in image (premultiplied ARGB32). The colour goes into the PDF not
// premultiplied: the soft mask applies the alpha.
std::shared_ptr<const WatermarkLayerSource::Image> prepare(const QImage &image, const QRect &rect)
{
    const qsizetype pixels = qsizetype(rect.width()) * rect.height();
    QByteArray colour(pixels * 3, Qt::Uninitialized);
    QByteArray alpha(pixels, Qt::Uninitialized);
    char *c = colour.data();
    char *a = alpha.data();
    bool opaque = true;
    for (int y = rect.top(); y <= rect.bottom(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = rect.left(); x <= rect.right(); ++x) {
            const QRgb pixel = qUnpremultiply(line[x]);
            *c++ = char(qRed(pixel));
            *c++ = char(qGreen(pixel));
            *c++ = char(qBlue(pixel));
            *a++ = char(qAlpha(pixel));
            opaque = opaque && qAlpha(pixel) == 255;
        }
    }
    if (!opaque) {
        bleedColourIntoTransparency(colour, alpha, rect.width(), rect.height());
    }
    auto prepared = std::make_shared<WatermarkLayerSource::Image>();
    prepared->width = rect.width();
    prepared->height = rect.height();
    prepared->colour = deflated(colour);
    if (!opaque) {
        prepared->alpha = deflated(alpha);
    }
    QCryptographicHash digest(QCryptographicHash::Md5);
    digest.addData(QByteArray::number(prepared->width) + 'x'
                   + QByteArray::number(prepared->height));
    digest.addData(QByteArrayView(prepared->colour.data(), qsizetype(prepared->colour.size())));
    digest.addData(QByteArrayView(prepared->alpha.data(), qsizetype(prepared->alpha.size())));
    prepared->digest = digest.result();
    return prepared;
}

// Paints one layer of the canvas within bounds and keeps what shows.
WatermarkLayerSource::Placed paintLayer(const WatermarkDrawing::Canvas &canvas,
                                        WatermarkDrawing::Canvas::Layer layer,
                                        const QRect &bounds)
{
    QImage image(bounds.size(), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) {
        throw std::bad_alloc();
    }
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.translate(-bounds.topLeft());
    if (layer == WatermarkDrawing::Canvas::Layer::Picture) {
        canvas.paintPicture(painter, bounds);
    } else {
        canvas.paintText(painter, bounds);
    }
    painter.end();
    const QRect used = visibleRect(image);
    if (used.isEmpty()) {
        return {};
    }
    return {prepare(image, used), used.translated(bounds.topLeft())};
}

// Everything the layers' pixels depend on, the picture file's identity included.
QByteArray keyOf(const Jobs::WatermarkSettings &settings)
{
    QByteArray key;
    QDataStream out(&key, QIODevice::WriteOnly);
    // The page selection, name and folder change no pixel.
    Jobs::WatermarkSettings s = settings;
    s.pagesEnabled = false;
    s.pages.clear();
    s.nameTemplate.clear();
    s.folder.clear();
    s.visit([&out](const char *, const auto &value, auto &&...) { out << value; });
    // A picture replaced under the same name is another picture.
    struct stat file = {};
    if (!s.image.isEmpty()) {
        ::stat(QFile::encodeName(s.image).constData(), &file);
    }
    out << quint64(file.st_dev) << quint64(file.st_ino) << qint64(file.st_size)
        << qint64(file.st_mtim.tv_sec) << qint64(file.st_mtim.tv_nsec);
    return key;
}

} // namespace

std::shared_ptr<WatermarkLayers>
WatermarkLayers::forSettings(const Jobs::WatermarkSettings &settings)
{
    static std::mutex mutex;
    static QByteArray lastKey;
    static std::shared_ptr<WatermarkLayers> last;
    const QByteArray key = keyOf(settings);
    {
        std::lock_guard lock(mutex);
        if (last && key == lastKey) {
            return last;
        }
    }
    auto layers = std::make_shared<WatermarkLayers>(settings);
    std::lock_guard lock(mutex);
    lastKey = key;
    last = layers;
    return layers;
}

WatermarkLayers::WatermarkLayers(const Jobs::WatermarkSettings &settings)
    : m_settings(settings)
    , m_picture(
          PictureFile::load(settings.image, settings.scale / 100, WatermarkDrawing::CanvasScale))
{}

std::vector<WatermarkLayers::Placed> WatermarkLayers::layersOn(QSize canvas)
{
    std::promise<std::vector<Placed>> drawing;
    std::shared_future<std::vector<Placed>> drawn;
    bool mine = false;
    {
        std::lock_guard lock(m_mutex);
        auto &found = m_canvases[std::make_pair(canvas.width(), canvas.height())];
        if (!found.valid()) {
            found = drawing.get_future().share();
            mine = true;
        }
        drawn = found;
    }
    if (!mine) {
        return drawn.get();
    }
    try {
        drawing.set_value(drawLayers(canvas));
    } catch (...) {
        // The callers waiting now hear of the failure; a later one tries again.
        drawing.set_exception(std::current_exception());
        std::lock_guard lock(m_mutex);
        m_canvases.erase(std::make_pair(canvas.width(), canvas.height()));
    }
    return drawn.get();
}

bool WatermarkLayers::drawn(QSize canvas) const
{
    std::lock_guard lock(m_mutex);
    const auto found = m_canvases.find(std::make_pair(canvas.width(), canvas.height()));
    return found != m_canvases.end()
           && found->second.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

std::vector<WatermarkLayers::Placed> WatermarkLayers::drawLayers(QSize canvas)
{
    // The text waits for the fonts, the picture for nothing: while the picture is painted, the
    // text is drawn on another thread. A picture kept already leaves the text to this thread,
    // whose fonts are loaded once it has drawn text before (each thread loads its own).
    auto text = std::async(pictureKept(canvas) ? std::launch::deferred : std::launch::async,
                           [&] { return layerOn(Layer::Text, canvas); });
    const std::optional<Placed> picture = layerOn(Layer::Picture, canvas);
    std::vector<Placed> placed;
    for (const auto &layer : {picture, text.get()}) {
        if (layer) {
            placed.push_back(*layer);
        }
    }
    return placed;
}

WatermarkDrawing::Canvas WatermarkLayers::layerCanvas(Layer layer, QSize size) const
{
    // Each layer is laid out on a canvas of its own: the picture's needs no fonts.
    static const PictureFile none;
    Jobs::WatermarkSettings settings = m_settings;
    if (layer == Layer::Picture) {
        settings.text.clear();
    }
    return WatermarkDrawing::Canvas(
        size, settings, layer == Layer::Picture ? m_picture : none, WatermarkDrawing::OutputStyle);
}

std::pair<WatermarkLayers::Key, QPoint>
WatermarkLayers::placeOf(Layer layer, const WatermarkDrawing::Canvas &canvas, QSize size)
{
    const auto corner = canvas.movableCorner(layer);
    if (!corner) {
        return {Key{int(layer), false, size.width(), size.height()}, QPoint()};
    }
    const QPoint origin(int(std::floor(corner->x())), int(std::floor(corner->y())));
    return {Key{int(layer),
                true,
                std::llround((corner->x() - origin.x()) * 1024),
                std::llround((corner->y() - origin.y()) * 1024)},
            origin};
}

bool WatermarkLayers::pictureKept(QSize size)
{
    const WatermarkDrawing::Canvas canvas = layerCanvas(Layer::Picture, size);
    if (canvas.pictureBounds().isEmpty()) {
        return true; // nothing to paint
    }
    const Key key = placeOf(Layer::Picture, canvas, size).first;
    std::lock_guard lock(m_mutex);
    return m_layers.count(key) > 0;
}

std::optional<WatermarkLayers::Placed> WatermarkLayers::layerOn(Layer layer, QSize size)
{
    const WatermarkDrawing::Canvas canvas = layerCanvas(layer, size);
    const QRect bounds = layer == Layer::Picture ? canvas.pictureBounds() : canvas.textBounds();
    if (bounds.isEmpty()) {
        return std::nullopt;
    }
    const auto [key, origin] = placeOf(layer, canvas, size);
    std::shared_ptr<const Placed> found;
    {
        std::lock_guard lock(m_mutex);
        const auto it = m_layers.find(key);
        if (it != m_layers.end()) {
            found = it->second;
        }
    }
    if (!found) {
        // Painted outside the lock: canvases of other sizes may paint the same layer at once,
        // and the first one kept wins.
        Placed painted = paintLayer(canvas, layer, bounds);
        painted.rect.translate(-origin);
        std::lock_guard lock(m_mutex);
        found = m_layers.emplace(key, std::make_shared<const Placed>(std::move(painted)))
                    .first->second;
    }
    if (!found->image) {
        return std::nullopt;
    }
    return Placed{found->image, found->rect.translated(origin)};
}

QString WatermarkLayers::problem() const
{
    if (!m_settings.image.isEmpty() && m_picture.isNull()) {
        return QStringLiteral("the picture %1 cannot be read").arg(m_settings.image);
    }
    return {};
}
