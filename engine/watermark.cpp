// The watermark. What a page gets depends only on the size of the page as shown and on the
// settings: the picture and the text over it are drawn as the parts of a canvas of 4 pixels per
// point that show anything (a WatermarkLayerSource, shared by the documents of a batch), embedded
// once each as an image with a soft mask, and drawn on every selected page where the whole canvas,
// stretched over the page as shown, would put them. The source's pages change in place: their
// content is wrapped in q/Q and followed by a small stream that draws the images, so everything
// else about them and the document stays as it was. The output is the document written anew, whole
// (a signed one: its bytes followed by an incremental update, which keeps the signature valid).

#include "enginesupport.h"
#include "incrementalupdate.h"
#include "pdftools.h"
#include "watermarklayersource.h"

#include <qpdf/QPDFPageObjectHelper.hh>

#include <cmath>
#include <future>
#include <map>
#include <tuple>

using namespace Engine;

namespace {

// Canvas pixels per point.
constexpr double CanvasScale = 4;

// The canvas of a page: 4 pixels per point of the page as shown, whole pixels as the preview's
// page image has them.
QSize canvasOf(const PageGeometry &page)
{
    const auto pixels = [](double points) {
        return int(std::clamp(std::floor(points * CanvasScale + 1e-6), 1.0, double(1 << 20)));
    };
    const QSizeF shown = page.visibleSize();
    return QSize(pixels(shown.width()), pixels(shown.height()));
}

// From canvas pixels to the page's user space: the whole canvas stretched over the page as
// shown, upright whatever the page's rotation.
AffineMatrix canvasToUser(const PageGeometry &page, QSize canvas)
{
    const QSizeF shown = page.visibleSize();
    const AffineMatrix stretch{
        shown.width() / canvas.width(), 0, 0, shown.height() / canvas.height(), 0, 0};
    return stretch.then(page.userToImage(1).inverted());
}

// The matrix that draws an image (its unit square) over the rectangle of canvas pixels.
std::string placement(const QRect &r, const AffineMatrix &toUser)
{
    const AffineMatrix m = AffineMatrix{double(r.width()),
                                        0,
                                        0,
                                        -double(r.height()),
                                        double(r.x()),
                                        double(r.y() + r.height())}
                               .then(toUser);
    std::string matrix;
    for (const double value : {m.m11, m.m12, m.m21, m.m22, m.dx, m.dy}) {
        if (!matrix.empty()) {
            matrix += ' ';
        }
        matrix += pdfNumber(value, 4);
    }
    return matrix;
}

// Stamps the watermark on pages of one document.
class Stamper
{
public:
    Stamper(QPDF &pdf, WatermarkLayerSource &layers)
        : m_pdf(pdf)
        , m_layers(layers)
    {}

    // Stamps the page; false when nothing shows on pages of its size, which stay as they are.
    bool stamp(QPDFPageObjectHelper page);
    // The objects made for the stamps.
    const std::vector<QPDFObjectHandle> &added() const { return m_added; }

private:
    // One embedded image and where it goes on the canvas.
    struct Part
    {
        QPDFObjectHandle image;
        QRect rect;
    };
    // What pages of one canvas size get: the picture's part, then the text's; none when
    // nothing shows.
    struct Stamp
    {
        std::vector<Part> parts;
        int index = 0;
    };

    Stamp &stampFor(QSize canvas);
    QPDFObjectHandle imageObject(const WatermarkLayerSource::Image &image);
    std::vector<std::string> useStamp(QPDFPageObjectHelper &page, const Stamp &stamp);
    QPDFObjectHandle stream(const std::string &data);

    QPDF &m_pdf;
    WatermarkLayerSource &m_layers;
    std::map<std::pair<int, int>, Stamp> m_stamps;
    // Pages of different sizes often get the very same pixels (a corner's watermark does not
    // move with the far edges): each distinct image is embedded once.
    std::map<QByteArray, QPDFObjectHandle> m_images;
    // Resource dictionaries shared by several pages get one copy per stamp, shared again.
    std::map<std::pair<QPDFObjGen, int>, std::pair<QPDFObjectHandle, std::vector<std::string>>>
        m_resources;
    // The content stream that draws the stamp, by the page's visible box, rotation and the
    // stamp's names among its resources.
    std::map<std::tuple<double, double, double, double, int, std::string>, QPDFObjectHandle>
        m_drawings;
    QPDFObjectHandle m_save;
    std::vector<QPDFObjectHandle> m_added;
};

QPDFObjectHandle Stamper::stream(const std::string &data)
{
    m_added.push_back(QPDFObjectHandle::newStream(&m_pdf, data));
    return m_added.back();
}

QPDFObjectHandle Stamper::imageObject(const WatermarkLayerSource::Image &image)
{
    auto &object = m_images[image.digest];
    if (object.isInitialized()) {
        return object;
    }
    const auto imageStream = [&](const std::string &data, const char *colourSpace) {
        auto made = stream(data);
        made.replaceDict(QPDFObjectHandle::parse(
            "<< /Type /XObject /Subtype /Image /BitsPerComponent 8 /Filter /FlateDecode >>"));
        auto dict = made.getDict();
        dict.replaceKey("/Width", QPDFObjectHandle::newInteger(image.width));
        dict.replaceKey("/Height", QPDFObjectHandle::newInteger(image.height));
        dict.replaceKey("/ColorSpace", QPDFObjectHandle::newName(colourSpace));
        return made;
    };
    object = imageStream(image.colour, "/DeviceRGB");
    if (!image.alpha.empty()) {
        object.getDict().replaceKey("/SMask", imageStream(image.alpha, "/DeviceGray"));
    }
    return object;
}

Stamper::Stamp &Stamper::stampFor(QSize canvas)
{
    const auto key = std::make_pair(canvas.width(), canvas.height());
    const auto found = m_stamps.find(key);
    if (found != m_stamps.end()) {
        return found->second;
    }
    Stamp stamp;
    stamp.index = int(m_stamps.size());
    for (const auto &layer : m_layers.layersOn(canvas)) {
        stamp.parts.push_back({imageObject(*layer.image), layer.rect});
    }
    return m_stamps.emplace(key, std::move(stamp)).first->second;
}

// Makes the stamp's images resources of the page; returns their names there.
std::vector<std::string> Stamper::useStamp(QPDFPageObjectHelper &page, const Stamp &stamp)
{
    auto resources = page.getAttribute("/Resources", false);
    const bool shared = resources.isIndirect();
    const auto key = std::make_pair(resources.getObjGen(), stamp.index);
    if (shared) {
        const auto found = m_resources.find(key);
        if (found != m_resources.end()) {
            page.getObjectHandle().replaceKey("/Resources", found->second.first);
            return found->second.second;
        }
    }
    auto copy
        = resources.isDictionary() ? resources.shallowCopy() : QPDFObjectHandle::newDictionary();
    auto xobjects = copy.getKey("/XObject");
    xobjects = xobjects.isDictionary() ? xobjects.shallowCopy() : QPDFObjectHandle::newDictionary();
    copy.replaceKey("/XObject", xobjects);
    std::vector<std::string> names;
    int suffix = 0;
    for (const Part &part : stamp.parts) {
        names.push_back(copy.getUniqueResourceName("/Wm", suffix));
        xobjects.replaceKey(names.back(), part.image);
    }
    if (shared) {
        copy = m_pdf.makeIndirectObject(copy);
        m_added.push_back(copy);
        m_resources.emplace(key, std::make_pair(copy, names));
    }
    page.getObjectHandle().replaceKey("/Resources", copy);
    return names;
}

bool Stamper::stamp(QPDFPageObjectHelper page)
{
    const PageGeometry geometry = geometryOf(page);
    const QSize canvas = canvasOf(geometry);
    const Stamp &stamp = stampFor(canvas);
    if (stamp.parts.empty()) {
        return false;
    }
    const std::vector<std::string> names = useStamp(page, stamp);
    const QRectF &box = geometry.visibleBox;
    std::string key;
    for (const std::string &name : names) {
        key += name;
    }
    auto &content = m_drawings[std::make_tuple(
        box.left(), box.top(), box.right(), box.bottom(), geometry.rotation, std::move(key))];
    if (!content.isInitialized()) {
        // Where the whole canvas, stretched over the page as shown, puts each part's pixels.
        const AffineMatrix toUser = canvasToUser(geometry, canvas);
        std::string drawing = "\nQ\n";
        for (size_t i = 0; i < stamp.parts.size(); ++i) {
            drawing
                += "q " + placement(stamp.parts[i].rect, toUser) + " cm " + names[i] + " Do Q\n";
        }
        content = stream(drawing);
    }
    if (!m_save.isInitialized()) {
        m_save = stream("q\n");
    }
    page.addPageContents(m_save, true);
    page.addPageContents(content, false);
    return true;
}

} // namespace

bool PDFTools::WatermarkPDF(const QString &path,
                            const QList<qint64> &selectedPages,
                            WatermarkLayerSource &layers,
                            const QString &outputPath)
{
    // The layers are drawn while the document is read.
    std::future<void> drawn;
    if (!layers.drawn(WatermarkLayerSource::FirstCanvas)) {
        drawn = std::async(std::launch::async,
                           [&layers] { layers.layersOn(WatermarkLayerSource::FirstCanvas); });
    }
    UpdatableDocument source(path);
    if (!source.pdf()) {
        // The output holds no pages, as the copy of a document that does not open.
        writeDocumentWithoutPages(outputPath);
        return false;
    }
    QPDF &pdf = *source.pdf();
    bool result = true;
    const bool written = guarded("Cannot watermark", path, [&] {
        auto pages = pdf.getAllPages(); // qpdf's handles have no const accessors
        if (pages.empty()) {
            qCWarning(lcEngine).noquote().nospace() << path << " has no pages to watermark";
            result = false;
            return;
        }
        // The page list is empty: every page is stamped. Numbers beyond the document match no
        // page.
        std::vector<bool> selected(pages.size(), selectedPages.isEmpty());
        for (const qint64 number : selectedPages) {
            if (number >= 1 && number <= qint64(pages.size())) {
                selected[size_t(number - 1)] = true;
            }
        }
        if (drawn.valid()) {
            drawn.get();
        }
        Stamper stamper(pdf, layers);
        std::vector<QPDFObjectHandle> stamped;
        for (size_t i = 0; i < pages.size(); ++i) {
            if (!selected[i]) {
                continue;
            }
            try {
                if (stamper.stamp(QPDFPageObjectHelper(pages[i]))) {
                    stamped.push_back(pages[i]);
                }
            } catch (const std::exception &e) {
                // The page stays as it was; the run reports the document as not watermarked.
                qCWarning(lcEngine).noquote().nospace()
                    << "Error occurred in creating page " << (i + 1) << " of " << path << ": "
                    << e.what();
                result = false;
            }
        }
        // Soft masks came with PDF 1.4.
        if (!source.write(stamped, stamper.added(), outputPath, {PDFVersion(1, 4)})) {
            result = false;
        }
    });
    return written && result;
}
