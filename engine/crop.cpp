// Crop: the source is opened, the boxes of the chosen pages are changed and the document is
// written to the output. Everything else (page objects, outlines, links, forms, information)
// stays as it is.
//
// Only page dictionaries change, so the output is normally the source's bytes followed by an
// incremental update holding the changed pages: copying the bytes costs a fraction of writing
// every object anew, which for a document of a few hundred pages is most of a crop's time.
// A source that needed repairs, is encrypted or has a structure the update cannot follow is
// written whole instead.

#include "enginesupport.h"
#include "incrementalupdate.h"
#include "pdftools.h"

#include <QSet>

#include <qpdf/QPDFPageObjectHelper.hh>

#include <algorithm>
#include <cmath>

using namespace Engine;

namespace {

// A number as a PDF real, six decimals at most. (qpdf formats reals through a string stream,
// which costs more than the rest of cropping a page.)
QPDFObjectHandle realOf(double value)
{
    return QPDFObjectHandle::newReal(pdfNumber(value, 6));
}

QPDFObjectHandle boxOf(const QRectF &r)
{
    return QPDFObjectHandle::newArray(
        {realOf(r.left()), realOf(r.top()), realOf(r.right()), realOf(r.bottom())});
}

// The page with the 0-based index, found by descending the page tree by the counts its nodes
// state, as viewers find a page to show; null when the counts do not lead to a page. (Reading
// every page of a long document costs more than rendering one.)
QPDFObjectHandle pageAt(QPDF &pdf, qint64 index)
{
    auto node = pdf.getRoot().getKey("/Pages");
    for (int depth = 0; depth < 64 && index >= 0; ++depth) {
        auto kids = node.getKey("/Kids");
        if (!kids.isArray()) {
            break;
        }
        bool descended = false;
        for (auto kid : kids.aitems()) {
            if (!kid.isDictionary()) {
                return QPDFObjectHandle::newNull();
            }
            if (!kid.getKey("/Kids").isArray()) {
                if (index == 0) {
                    return kid;
                }
                --index;
                continue;
            }
            auto count = kid.getKey("/Count");
            if (!count.isInteger() || count.getIntValue() < 0) {
                return QPDFObjectHandle::newNull();
            }
            if (index < count.getIntValue()) {
                node = kid;
                descended = true;
                break;
            }
            index -= count.getIntValue();
        }
        if (!descended) {
            break;
        }
    }
    return QPDFObjectHandle::newNull();
}

struct CropRectangle
{
    double x;
    double y;
    double width;
    double height;
    bool percents;
};

// The rectangle to keep on a page, in user space; nothing when the page stays as it is.
std::optional<QRectF> keptRectangle(const PageGeometry &geometry, const CropRectangle &crop)
{
    const QSizeF page = geometry.displayedSize();
    const QRectF r = crop.percents
                         ? geometry.percentToPoints(crop.x, crop.y, crop.width, crop.height)
                         : QRectF(crop.x, crop.y, crop.width, crop.height);
    const double x = r.x();
    const double y = r.y();
    // Narrower or lower than one point.
    if (!(r.width() >= 1) || !(r.height() >= 1)) {
        return std::nullopt;
    }
    // An origin beyond the right or the top edge; a negative one is pulled in below.
    if ((x >= 0 && x > page.width()) || (y >= 0 && y > page.height())) {
        return std::nullopt;
    }
    const QSizeF kept = PDFTools::CalculateCroppedImageSize(page, x, y, r.width(), r.height());
    if (!(kept.width() > 0) || !(kept.height() > 0) || !std::isfinite(kept.width())
        || !std::isfinite(kept.height())) {
        return std::nullopt;
    }
    const QRectF inCrop(std::max(x, 0.0), std::max(y, 0.0), kept.width(), kept.height());
    return geometry.cropRectToUser(inCrop);
}

// The kept rectangle becomes the media box; the crop, bleed, trim and art boxes are cut to it,
// so every viewer shows the kept area and nothing outside it.
void cropPage(QPDFPageObjectHelper page, const QRectF &kept)
{
    auto object = page.getObjectHandle();
    object.replaceKey("/MediaBox", boxOf(kept));
    // The crop box may come from the page tree: set on the page, it overrides the inherited one.
    auto crop = page.getAttribute("/CropBox", false);
    if (crop.isRectangle()) {
        const QRectF cut = rectangleOf(crop).intersected(kept);
        object.replaceKey("/CropBox", boxOf(cut.isEmpty() ? kept : cut));
    }
    for (const char *key : {"/BleedBox", "/TrimBox", "/ArtBox"}) {
        auto box = object.getKey(key);
        if (!box.isRectangle()) {
            continue;
        }
        const QRectF cut = rectangleOf(box).intersected(kept);
        if (cut.isEmpty()) {
            object.removeKey(key); // it defaults to the crop box
        } else {
            object.replaceKey(key, boxOf(cut));
        }
    }
}

} // namespace

std::optional<PageGeometry> PDFTools::GetPDFPageGeometry(const QString &path, qint64 page)
{
    std::optional<PageGeometry> geometry;
    const auto doc = openDocument(path, nullptr, false);
    if (!doc.pdf || page < 1) {
        return geometry;
    }
    guarded("Cannot read the page boxes of", path, [&] {
        auto object = pageAt(*doc.pdf, page - 1);
        if (object.isNull()) {
            const auto &pages = doc.pdf->getAllPages();
            if (page > qint64(pages.size())) {
                return;
            }
            object = pages[size_t(page - 1)];
        }
        geometry = geometryOf(object);
    });
    return geometry;
}

QSizeF PDFTools::CalculateCroppedImageSize(
    QSizeF pageSize, double originX, double originY, double width, double height)
{
    const double keptWidth = std::min(originX + width, pageSize.width()) - std::max(originX, 0.0);
    const double keptHeight
        = std::min(originY + height, pageSize.height()) - std::max(originY, 0.0);
    if (std::isnan(keptWidth) || std::isnan(keptHeight) || std::isnan(originX)
        || std::isnan(originY) || std::isnan(width) || std::isnan(height)) {
        return QSizeF(0, 0);
    }
    return QSizeF(keptWidth, keptHeight);
}

bool PDFTools::CropPDF(const QString &path,
                       const QList<qint64> &pages,
                       const QString &outputPath,
                       double inputOriginX,
                       double inputOriginY,
                       double inputWidth,
                       double inputHeight,
                       bool percents)
{
    const CropRectangle crop{inputOriginX, inputOriginY, inputWidth, inputHeight, percents};
    if (!std::isfinite(crop.x) || !std::isfinite(crop.y) || !std::isfinite(crop.width)
        || !std::isfinite(crop.height)) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot crop " << path << ": the rectangle " << crop.x << ", " << crop.y << ", "
            << crop.width << ", " << crop.height << " is not made of finite numbers";
        return false;
    }
    UpdatableDocument source(path);
    if (!source.pdf()) {
        // The output holds no pages, as the copy of a document that does not open.
        writeDocumentWithoutPages(outputPath);
        return false;
    }
    QPDF *pdf = source.pdf();
    bool result = true;
    const bool done = guarded("Cannot crop", path, [&] {
        const auto &all = pdf->getAllPages();
        if (all.empty()) {
            qCWarning(lcEngine).noquote().nospace() << "No pages to crop in " << path;
            result = false;
            return;
        }
        // The page list is empty: every page is cropped.
        const QSet<qint64> selected(pages.begin(), pages.end());
        std::vector<QPDFObjectHandle> changed;
        for (size_t i = 0; i < all.size(); ++i) {
            if (!selected.isEmpty() && !selected.contains(qint64(i + 1))) {
                continue;
            }
            QPDFPageObjectHelper page(all[i]);
            if (const auto kept = keptRectangle(geometryOf(page), crop)) {
                cropPage(page, *kept);
                changed.push_back(all[i]);
            }
        }
        result = source.write(changed, {}, outputPath, {versionOf(*pdf)});
    });
    return done && result;
}
