// Crop: the source is opened, the boxes of the chosen pages are changed and the document is
// written to the output. Everything else (page objects, outlines, links, forms, information)
// stays as it is.
//
// Only page dictionaries change, so the output is normally the source's bytes followed by an
// incremental update holding the changed pages: copying the bytes costs a fraction of writing
// every object anew, which for a document of a few hundred pages is most of a crop's time.
// A source that needed repairs, is encrypted or has a structure the update cannot follow is
// written whole instead.

#include "blockinputsource.h"
#include "enginesupport.h"
#include "pdftools.h"

#include <QCryptographicHash>
#include <QScopeGuard>
#include <QSet>

#include <qpdf/QPDFPageObjectHelper.hh>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Engine;

namespace {

// A number as a PDF real: six decimals at most, trailing zeros dropped. (qpdf formats reals
// through a string stream, which costs more than the rest of cropping a page.)
QPDFObjectHandle realOf(double value)
{
    QByteArray text = QByteArray::number(value, 'f', 6);
    while (text.endsWith('0')) {
        text.chop(1);
    }
    if (text.endsWith('.')) {
        text.chop(1);
    }
    if (text == "-0" || text.isEmpty()) {
        text = "0";
    }
    return QPDFObjectHandle::newReal(text.toStdString());
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
    return geometry.cropToUser().mapRect(inCrop);
}

// The start of an incremental update to a source: where its last cross-reference section is,
// in which form, and the first free object number.
struct UpdateBase
{
    qint64 previous = 0;
    bool stream = false; // a cross-reference stream rather than a table
    long long size = 0;  // the trailer's /Size
};

QByteArray readAt(int fd, qint64 offset, qint64 length)
{
    QByteArray bytes(length, Qt::Uninitialized);
    const ssize_t got = ::pread(fd, bytes.data(), size_t(length), off_t(offset));
    bytes.resize(got < 0 ? 0 : qsizetype(got));
    return bytes;
}

// Whether the changed pages can be written as an update to the source's bytes, and from where.
std::optional<UpdateBase> updateBaseOf(
    QPDF &pdf, bool repaired, int fd, qint64 fileSize, const std::vector<QPDFObjectHandle> &changed)
{
    // A repaired source would be read by others as it is, not as qpdf repaired it.
    if (repaired || pdf.anyWarnings() || pdf.isEncrypted()) {
        return std::nullopt;
    }
    auto trailer = pdf.getTrailer();
    auto size = trailer.getKey("/Size");
    if (!size.isInteger() || trailer.hasKey("/XRefStm") || !trailer.getKey("/Root").isIndirect()) {
        return std::nullopt;
    }
    UpdateBase base;
    base.size = size.getIntValue();
    // Pages that qpdf made itself (a page object listed twice in the page tree is copied) are
    // not in the source.
    for (auto page : changed) {
        if (page.getObjectID() >= base.size) {
            return std::nullopt;
        }
    }
    // Offsets are counted from the header; one that does not start the file would shift them.
    if (!readAt(fd, 0, 5).startsWith("%PDF-")) {
        return std::nullopt;
    }
    const qint64 tailStart = std::max<qint64>(0, fileSize - 1024);
    const QByteArray tail = readAt(fd, tailStart, fileSize - tailStart);
    const qsizetype key = tail.lastIndexOf("startxref");
    if (key < 0) {
        return std::nullopt;
    }
    bool ok = false;
    base.previous = tail.mid(key + 9).trimmed().split('\n').front().trimmed().toLongLong(&ok);
    if (!ok || base.previous <= 0 || base.previous >= fileSize) {
        return std::nullopt;
    }
    const QByteArray section = readAt(fd, base.previous, 32);
    if (section.startsWith("xref")) {
        base.stream = false;
    } else if (!section.isEmpty() && std::isdigit(uchar(section.front()))
               && section.contains("obj")) {
        base.stream = true;
    } else {
        return std::nullopt;
    }
    return base;
}

// The update: the changed pages as new revisions of their objects, a cross-reference section
// for them in the source's form, and the trailer.
QByteArray
updateOf(QPDF &pdf, const UpdateBase &base, qint64 fileSize, std::vector<QPDFObjectHandle> changed)
{
    std::sort(changed.begin(), changed.end(), [](QPDFObjectHandle a, QPDFObjectHandle b) {
        return a.getObjectID() < b.getObjectID();
    });
    struct Entry
    {
        long long object;
        int generation;
        qint64 offset;
    };
    std::vector<Entry> entries;
    QByteArray update("\n");
    update.reserve(qsizetype(changed.size()) * 512);
    for (auto page : changed) {
        entries.push_back(
            {page.getObjectID(), page.getGeneration(), fileSize + qint64(update.size())});
        update += QByteArray::number(page.getObjectID()) + ' '
                  + QByteArray::number(page.getGeneration()) + " obj\n"
                  + QByteArray::fromStdString(page.unparseResolved()) + "\nendobj\n";
    }

    // The same source and the same changes give the same document ID.
    QCryptographicHash digest(QCryptographicHash::Md5);
    digest.addData(QByteArray::number(fileSize));
    digest.addData(update);
    const QByteArray newId = '<' + digest.result().toHex() + '>';
    auto trailer = pdf.getTrailer();
    auto id = trailer.getKey("/ID");
    const QByteArray firstId
        = id.isArray() && id.getArrayNItems() == 2 && id.getArrayItem(0).isString()
              ? QByteArray::fromStdString(id.getArrayItem(0).unparse())
              : newId;
    QByteArray keys = " /Root " + QByteArray::fromStdString(trailer.getKey("/Root").unparse());
    auto info = trailer.getKey("/Info");
    if (info.isIndirect()) {
        keys += " /Info " + QByteArray::fromStdString(info.unparse());
    }
    keys += " /ID [" + firstId + ' ' + newId + "] /Prev " + QByteArray::number(base.previous);

    const qint64 sectionOffset = fileSize + qint64(update.size());
    if (!base.stream) {
        update += "xref\n";
        for (size_t i = 0; i < entries.size();) {
            size_t end = i + 1;
            while (end < entries.size() && entries[end].object == entries[end - 1].object + 1) {
                ++end;
            }
            update += QByteArray::number(entries[i].object) + ' '
                      + QByteArray::number(qint64(end - i)) + '\n';
            for (; i < end; ++i) {
                update += QByteArray::number(entries[i].offset).rightJustified(10, '0') + ' '
                          + QByteArray::number(entries[i].generation).rightJustified(5, '0')
                          + " n\r\n";
            }
        }
        update += "trailer\n<< /Size " + QByteArray::number(base.size) + keys + " >>\n";
    } else {
        // The section is itself a new object, the first free number.
        entries.push_back({base.size, 0, sectionOffset});
        QByteArray index;
        QByteArray data;
        for (const Entry &entry : entries) {
            index += ' ' + QByteArray::number(entry.object) + " 1";
            data += char(1);
            for (int shift = 56; shift >= 0; shift -= 8) {
                data += char((quint64(entry.offset) >> shift) & 0xff);
            }
            data += char((entry.generation >> 8) & 0xff);
            data += char(entry.generation & 0xff);
        }
        update += QByteArray::number(base.size) + " 0 obj\n<< /Type /XRef /Size "
                  + QByteArray::number(base.size + 1) + " /W [1 8 2] /Index [" + index.mid(1) + "]"
                  + keys + " /Length " + QByteArray::number(data.size()) + " >>\nstream\n" + data
                  + "\nendstream\nendobj\n";
    }
    update += "startxref\n" + QByteArray::number(sectionOffset) + "\n%%EOF\n";
    return update;
}

// Copies length bytes of the source into the output, in the kernel where it can.
bool copyBytes(int from, int to, qint64 length)
{
    loff_t offset = 0;
    while (offset < length) {
        const ssize_t copied
            = ::copy_file_range(from, &offset, to, nullptr, size_t(length - offset), 0);
        if (copied > 0) {
            continue;
        }
        if (copied == 0) {
            return false; // the source got shorter
        }
        if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP) {
            return false;
        }
        std::vector<char> buffer(1 << 20);
        while (offset < length) {
            const ssize_t got
                = ::pread(from,
                          buffer.data(),
                          size_t(std::min<qint64>(qint64(buffer.size()), length - offset)),
                          offset);
            if (got <= 0) {
                return false;
            }
            for (ssize_t done = 0; done < got;) {
                const ssize_t put = ::write(to, buffer.data() + done, size_t(got - done));
                if (put < 0 && errno != EINTR) {
                    return false;
                }
                done += std::max<ssize_t>(put, 0);
            }
            offset += got;
        }
    }
    return true;
}

// The output as the source's bytes and the update.
bool writeUpdate(int source, qint64 fileSize, const QByteArray &update, const QString &target)
{
    PendingOutput output(target);
    FILE *file = output.file();
    if (!file) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << target << ": " << output.errorText();
        return false;
    }
    if (!copyBytes(source, ::fileno(file), fileSize) || std::fseek(file, 0, SEEK_END) != 0
        || std::fwrite(update.constData(), 1, size_t(update.size()), file) != size_t(update.size())
        || !output.commit(false)) {
        const QString reason = output.errorText().isEmpty()
                                   ? QString::fromLocal8Bit(std::strerror(errno))
                                   : output.errorText();
        qCWarning(lcEngine).noquote().nospace() << "Cannot write " << target << ": " << reason;
        return false;
    }
    return true;
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
    // One open file for reading the structure and for copying the bytes, so both see the same
    // document even if the file is replaced meanwhile. It outlives the document read from it.
    const int source = ::open(encodePath(path).c_str(), O_RDONLY | O_CLOEXEC);
    const auto closeSource = qScopeGuard([source] {
        if (source >= 0) {
            ::close(source);
        }
    });
    struct stat info;
    auto pdf = std::make_unique<QPDF>();
    pdf->setSuppressWarnings(true);
    const bool opened = source >= 0 && ::fstat(source, &info) == 0 && S_ISREG(info.st_mode)
                        && guarded("Cannot open", path, [&] {
                               pdf->processInputSource(std::make_shared<BlockInputSource>(
                                   source, info.st_size, encodePath(path)));
                               pdf->getAllPages();
                           });
    if (!opened) {
        // The output holds no pages, as the copy of a document that does not open.
        qCWarning(lcEngine).noquote().nospace() << "Cannot open " << path;
        guarded("Cannot write", outputPath, [&] {
            QPDF empty;
            empty.emptyPDF();
            writeDocument(empty, outputPath, {});
        });
        return false;
    }
    // Reading the structure may have needed repairs (the log takes qpdf's warnings away).
    const bool repaired = pdf->anyWarnings();
    logWarnings(*pdf, path);
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
        const qint64 fileSize = info.st_size;
        if (const auto base = updateBaseOf(*pdf, repaired, source, fileSize, changed)) {
            const QByteArray update
                = changed.empty() ? QByteArray() : updateOf(*pdf, *base, fileSize, changed);
            result = writeUpdate(source, fileSize, update, outputPath);
        } else {
            result = writeDocument(*pdf, outputPath, {versionOf(*pdf)});
        }
    });
    return done && result;
}
