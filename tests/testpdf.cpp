#include "testpdf.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <qpdf/Pl_Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFNameTreeObjectHelper.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageLabelDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <functional>
#include <map>
#include <set>

namespace TestPdf {

namespace {

using Object = QPDFObjectHandle;

// A rectangle as a PDF array.
std::string box(const QRectF &r)
{
    const auto n = [](double v) { return QString::number(v, 'g', 12); };
    return QStringLiteral("[%1 %2 %3 %4]")
        .arg(n(r.x()), n(r.y()), n(r.x() + r.width()), n(r.y() + r.height()))
        .toStdString();
}

QByteArray toBytes(const std::shared_ptr<Buffer> &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer->getBuffer()),
                      qsizetype(buffer->getSize()));
}

QRectF toRect(Object box)
{
    const auto r = box.getArrayAsRectangle();
    return QRectF(r.llx, r.lly, r.urx - r.llx, r.ury - r.lly);
}

// The document's bookmarks, linked as a viewer expects them (or looping, when asked); targets
// given by name are added to names, or to the catalog's /Dests dictionary.
void writeOutline(QPDF &pdf,
                  const Document &document,
                  const std::vector<Object> &pages,
                  std::map<std::string, Object> &names)
{
    if (document.outline.isEmpty()) {
        return;
    }
    auto root = pdf.makeIndirectObject(Object::parse("<< /Type /Outlines >>"));
    std::vector<Object> items;
    std::vector<int> parents;
    std::vector<int> above{-1}; // the latest item of each level, the root first
    for (const Bookmark &b : document.outline) {
        auto item = pdf.makeIndirectObject(Object::newDictionary());
        item.replaceKey("/Title",
                        b.titleNotText ? Object::newInteger(7)
                                       : Object::newUnicodeString(b.title.toStdString()));
        if (b.red) {
            item.replaceKey("/C", Object::parse("[1 0 0]"));
            item.replaceKey("/F", Object::newInteger(2));
        }
        if (b.page >= 0) {
            // A page beyond the document is a page object the page tree does not hold.
            const Object page = size_t(b.page) < pages.size()
                                    ? pages[size_t(b.page)]
                                    : pdf.makeIndirectObject(Object::parse("<< /Type /Page >>"));
            const std::string name = "target." + std::to_string(b.page);
            const auto explicitDest = Object::newArray({page, Object::newName("/Fit")});
            switch (b.target) {
            case Bookmark::Target::Dest:
                item.replaceKey("/Dest", explicitDest);
                break;
            case Bookmark::Target::GoTo:
                item.replaceKey("/A", Object::parse("<< /S /GoTo >>"));
                item.getKey("/A").replaceKey("/D", explicitDest);
                break;
            case Bookmark::Target::NamedString:
                item.replaceKey("/Dest", Object::newString(name));
                names[name] = explicitDest;
                break;
            case Bookmark::Target::NamedName: {
                auto dests = pdf.getRoot().getKey("/Dests");
                if (!dests.isDictionary()) {
                    pdf.getRoot().replaceKey("/Dests", Object::newDictionary());
                    dests = pdf.getRoot().getKey("/Dests");
                }
                dests.replaceKey("/" + name, explicitDest);
                item.replaceKey("/Dest", Object::newName("/" + name));
                break;
            }
            case Bookmark::Target::UnknownName:
                item.replaceKey("/Dest", Object::newString("unknown." + name));
                break;
            }
        }
        above.resize(size_t(std::max(b.level, 1)));
        const int parent = above.back();
        above.push_back(int(items.size()));
        auto parentItem = parent < 0 ? root : items[size_t(parent)];
        item.replaceKey("/Parent", parentItem);
        auto last = parentItem.getKey("/Last");
        if (last.isDictionary()) {
            last.replaceKey("/Next", item);
            item.replaceKey("/Prev", last);
        } else {
            parentItem.replaceKey("/First", item);
        }
        parentItem.replaceKey("/Last", item);
        items.push_back(item);
        parents.push_back(parent);
    }
    // Counts: what each item shows when open, children after their parents.
    std::vector<long long> shown(items.size(), 0);
    long long top = 0;
    for (size_t i = items.size(); i-- > 0;) {
        const long long own = 1 + (document.outline[qsizetype(i)].open ? shown[i] : 0);
        (parents[i] < 0 ? top : shown[size_t(parents[i])]) += own;
    }
    for (size_t i = 0; i < items.size(); ++i) {
        if (shown[i] > 0) {
            items[i].replaceKey(
                "/Count",
                Object::newInteger(document.outline[qsizetype(i)].open ? shown[i] : -shown[i]));
        }
    }
    root.replaceKey("/Count", Object::newInteger(top));
    if (document.outlineLoops) {
        root.getKey("/Last").replaceKey("/Next", root.getKey("/First"));
        if (!items.back().hasKey("/First")) {
            items.back().replaceKey("/First", root.getKey("/First"));
            items.back().replaceKey("/Count", Object::newInteger(1));
        }
    }
    pdf.getRoot().replaceKey("/Outlines", root);
}

// What a destination leads to: the marker of its page ("#3" for page 3 without a marker), or
// "nowhere".
QString targetOf(QPDF &pdf,
                 Object destination,
                 const std::map<QPDFObjGen, int> &index,
                 const QStringList &markers)
{
    if (destination.isString()) {
        auto names = pdf.getRoot().getKey("/Names");
        Object tree = names.isDictionary() ? names.getKey("/Dests") : Object();
        Object found;
        destination = tree.isDictionary()
                              && QPDFNameTreeObjectHelper(tree, pdf).findObject(
                                  destination.getUTF8Value(), found)
                          ? found
                          : Object::newNull();
    } else if (destination.isName()) {
        auto dests = pdf.getRoot().getKey("/Dests");
        destination = dests.isDictionary() ? dests.getKey(destination.getName()) : Object();
    }
    if (destination.isDictionary()) {
        destination = destination.getKey("/D");
    }
    const auto target = destination.isArray() && destination.getArrayNItems() > 0
                            ? index.find(destination.getArrayItem(0).getObjGen())
                            : index.end();
    if (target == index.end()) {
        return QStringLiteral("nowhere");
    }
    const QString &marker = markers[target->second];
    return marker.isEmpty() ? "#" + QString::number(target->second + 1) : marker;
}

// The outline, checking every link between its items on the way.
void readOutline(QPDF &pdf,
                 ReadDocument &result,
                 const std::map<QPDFObjGen, int> &index,
                 const QStringList &markers)
{
    auto root = pdf.getRoot().getKey("/Outlines");
    if (!root.isDictionary()) {
        return;
    }
    std::set<QPDFObjGen> seen;
    const auto same = [](Object a, Object b) {
        return a.isIndirect() && b.isIndirect() ? a.getObjGen() == b.getObjGen()
                                                : a.isNull() == b.isNull() && a.isNull();
    };
    // Returns what parent shows when open.
    std::function<long long(Object, int)> walk = [&](Object parent, int level) -> long long {
        long long shown = 0;
        Object previous = Object::newNull();
        for (auto item = parent.getKey("/First");
             item.isDictionary() && seen.insert(item.getObjGen()).second;
             item = item.getKey("/Next")) {
            result.outlineConsistent = result.outlineConsistent
                                       && same(item.getKey("/Parent"), parent)
                                       && same(item.getKey("/Prev"), previous);
            auto destination = item.getKey("/Dest");
            auto action = item.getKey("/A");
            if (destination.isNull() && action.isDictionary()) {
                destination = action.getKey("/D");
            }
            auto title = item.getKey("/Title");
            auto count = item.getKey("/Count");
            const bool kids = item.getKey("/First").isDictionary();
            const bool open = kids && count.isInteger() && count.getIntValue() > 0;
            result.outline << QString(level - 1, '-')
                                  + (title.isString() ? QString::fromStdString(title.getUTF8Value())
                                                      : QString())
                                  + ">" + targetOf(pdf, destination, index, markers)
                                  + (open ? "+" : "")
                                  + (item.getKey("/C").unparse() == "[ 1 0 0 ]"
                                             && item.getKey("/F").isInteger()
                                         ? "(red)"
                                         : "");
            const long long below = walk(item, level + 1);
            if (kids) {
                result.outlineConsistent = result.outlineConsistent && count.isInteger()
                                           && count.getIntValue() == (open ? below : -below);
            }
            shown += 1 + (open ? below : 0);
            previous = item;
        }
        result.outlineConsistent
            = result.outlineConsistent && same(parent.getKey("/Last"), previous);
        return shown;
    };
    const long long shown = walk(root, 1);
    result.outlineConsistent
        = result.outlineConsistent && (shown == 0 || root.getKey("/Count").getIntValue() == shown);
}

// The names of the /Names /Dests tree in order, checking their order and each node's limits.
void readNames(QPDF &pdf, ReadDocument &result)
{
    auto names = pdf.getRoot().getKey("/Names");
    auto tree = names.isDictionary() ? names.getKey("/Dests") : Object();
    std::vector<std::string> keys;
    std::function<void(Object, bool)> walk = [&](Object node, bool isRoot) {
        const size_t first = keys.size();
        auto entries = node.getKey("/Names");
        for (int i = 0; entries.isArray() && i + 1 < entries.getArrayNItems(); i += 2) {
            keys.push_back(entries.getArrayItem(i).getStringValue());
        }
        auto kids = node.getKey("/Kids");
        for (int i = 0; kids.isArray() && i < kids.getArrayNItems(); ++i) {
            walk(kids.getArrayItem(i), false);
        }
        auto limits = node.getKey("/Limits");
        if (!isRoot && keys.size() > first) {
            result.namesConsistent = result.namesConsistent && limits.isArray()
                                     && limits.getArrayItem(0).getStringValue() == keys[first]
                                     && limits.getArrayItem(1).getStringValue() == keys.back();
        }
    };
    if (tree.isDictionary()) {
        walk(tree, true);
    }
    result.namesConsistent = result.namesConsistent && std::is_sorted(keys.begin(), keys.end())
                             && std::adjacent_find(keys.begin(), keys.end()) == keys.end();
    for (const auto &key : keys) {
        result.destinationNames << QString::fromStdString(key);
    }
}

} // namespace

Document pages(int n, const QString &prefix)
{
    Document document;
    for (int i = 1; i <= n; ++i) {
        document.pages << Page();
        document.pages.back().marker = prefix + QString::number(i);
    }
    return document;
}

void write(const QString &path, const Document &document)
{
    QPDF pdf;
    pdf.emptyPDF();
    std::vector<Object> made;
    for (const Page &page : document.pages) {
        std::string dict = "<< /Type /Page /Resources << >>";
        if (!(document.inheritMediaBox && made.empty())) {
            dict += " /MediaBox " + box(page.mediaBox);
        }
        if (page.rotate && !page.inheritBoxes) {
            dict += " /Rotate " + std::to_string(page.rotate);
        }
        if (page.cropBox && !page.inheritBoxes) {
            dict += " /CropBox " + box(*page.cropBox);
        }
        if (page.trimBox) {
            dict += " /TrimBox " + box(*page.trimBox);
        }
        auto object = pdf.makeIndirectObject(Object::parse(dict + " >>"));
        const std::string content
            = "% marker:" + page.marker.toStdString() + "\n0 0 1 rg 10 10 100 100 re f\n";
        object.replaceKey("/Contents", Object::newStream(&pdf, content));
        QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(object), false);
        made.push_back(pdf.getAllPages().back());
    }
    auto root = pdf.getRoot().getKey("/Pages");
    if (document.inheritMediaBox && !document.pages.isEmpty()) {
        root.replaceKey("/MediaBox", Object::parse(box(document.pages.front().mediaBox)));
    }
    std::map<std::string, Object> names;
    const std::string link = "<< /Type /Annot /Subtype /Link /Rect [10 10 50 20] /Border [0 0 0]";
    for (size_t i = 0; i < made.size(); ++i) {
        const Page &page = document.pages[qsizetype(i)];
        // A page that inherits its rotation and crop box gets a node of its own in the tree.
        if (page.inheritBoxes) {
            std::string dict = "<< /Type /Pages /Count 1";
            if (page.rotate) {
                dict += " /Rotate " + std::to_string(page.rotate);
            }
            if (page.cropBox) {
                dict += " /CropBox " + box(*page.cropBox);
            }
            auto node = pdf.makeIndirectObject(Object::parse(dict + " >>"));
            node.replaceKey("/Kids", Object::newArray({made[i]}));
            node.replaceKey("/Parent", root);
            made[i].replaceKey("/Parent", node);
            root.getKey("/Kids").setArrayItem(int(i), node);
        }
        auto annots = Object::newArray();
        if (page.linkTo) {
            auto annot = pdf.makeIndirectObject(Object::parse(link + " >>"));
            annot.replaceKey(
                "/Dest", Object::newArray({made[size_t(*page.linkTo)], Object::newName("/Fit")}));
            annots.appendItem(annot);
        }
        if (page.namedLinkTo) {
            const std::string name = "target." + std::to_string(*page.namedLinkTo);
            annots.appendItem(pdf.makeIndirectObject(
                Object::parse(link + " /A << /S /GoTo /D (" + name + ") >> >>")));
            names[name]
                = Object::newArray({made[size_t(*page.namedLinkTo)], Object::newName("/Fit")});
        }
        if (page.redStamp) {
            const QRectF r = *page.redStamp;
            const std::string bbox = box({0, 0, r.width(), r.height()}); // "[0 0 w h]"
            auto appearance = Object::newStream(
                &pdf, "1 0 0 rg " + bbox.substr(1, bbox.size() - 2) + " re f\n");
            appearance.replaceDict(
                Object::parse("<< /Type /XObject /Subtype /Form /BBox " + bbox + " >>"));
            auto annot = pdf.makeIndirectObject(Object::parse(
                "<< /Type /Annot /Subtype /Square /Rect " + box(r) + " /AP << >> >>"));
            annot.getKey("/AP").replaceKey("/N", appearance);
            annots.appendItem(annot);
        }
        if (annots.getArrayNItems() > 0) {
            made[i].replaceKey("/Annots", annots);
        }
    }
    writeOutline(pdf, document, made, names);
    if (!document.labels.isEmpty()) {
        auto nums = Object::newArray();
        for (const Label &label : document.labels) {
            auto dict = Object::newDictionary();
            if (!label.style.isEmpty()) {
                dict.replaceKey("/S", Object::newName("/" + label.style.toStdString()));
            }
            if (!label.prefix.isEmpty()) {
                dict.replaceKey("/P", Object::newUnicodeString(label.prefix.toStdString()));
            }
            dict.replaceKey("/St", Object::newInteger(label.start));
            nums.appendItem(Object::newInteger(label.page));
            nums.appendItem(dict);
        }
        pdf.getRoot().replaceKey("/PageLabels", Object::parse("<< >>"));
        pdf.getRoot().getKey("/PageLabels").replaceKey("/Nums", nums);
    }
    if (document.showOutline) {
        pdf.getRoot().replaceKey("/PageMode", Object::newName("/UseOutlines"));
    }
    if (!names.empty()) {
        auto tree = QPDFNameTreeObjectHelper::newEmpty(pdf);
        for (auto &[name, dest] : names) {
            tree.insert(name, dest);
        }
        pdf.getRoot().replaceKey("/Names", Object::parse("<< >>"));
        pdf.getRoot().getKey("/Names").replaceKey("/Dests", tree.getObjectHandle());
    }
    if (document.signedForm) {
        pdf.getRoot().replaceKey("/AcroForm", Object::parse("<< /Fields [ ] /SigFlags 3 >>"));
    }
    if (!document.noInfo) {
        auto info = pdf.makeIndirectObject(Object::newDictionary());
        const std::pair<const char *, QString> texts[] = {{"/Title", document.title},
                                                          {"/Author", document.author},
                                                          {"/Subject", document.subject},
                                                          {"/Keywords", document.keywords}};
        for (const auto &[key, value] : texts) {
            if (!value.isNull()) {
                info.replaceKey(key, Object::newUnicodeString(value.toStdString()));
            }
        }
        pdf.getTrailer().replaceKey("/Info", info);
    }

    const QByteArray fileName = QFile::encodeName(path);
    {
        QPDFWriter writer(pdf, fileName.constData());
        writer.setStaticID(true);
        writer.setMinimumPDFVersion(document.version.toStdString());
        if (document.objectStreams || document.hybrid) {
            writer.setObjectStreamMode(qpdf_o_generate);
        }
        if (document.encrypt || document.userPassword) {
            writer.setR6EncryptionParameters(document.userPassword ? "user" : "",
                                             "owner",
                                             true,
                                             true,
                                             true,
                                             true,
                                             true,
                                             true,
                                             qpdf_r3p_full,
                                             true);
        }
        writer.write();
    }
    if (document.hybrid) {
        // A cross-reference table after the stream, leading to it through /XRefStm.
        QPDF written;
        written.processFile(fileName.constData());
        auto trailer = written.getTrailer();
        const QByteArray bytes = contents(path);
        const QByteArray stream
            = bytes.mid(bytes.lastIndexOf("startxref") + 9).trimmed().split('\n').front().trimmed();
        const std::string table
            = "xref\n0 1\n0000000000 65535 f\r\ntrailer\n<< /Size "
              + trailer.getKey("/Size").unparse() + " /Root " + trailer.getKey("/Root").unparse()
              + " /Info " + trailer.getKey("/Info").unparse() + " /XRefStm " + stream.toStdString()
              + " >>\nstartxref\n" + std::to_string(bytes.size()) + "\n%%EOF\n";
        writeBytes(path, bytes + QByteArray::fromStdString(table));
    }
    if (document.wrongStartxref) {
        QByteArray bytes = contents(path);
        const qsizetype at = bytes.lastIndexOf("startxref\n") + 10;
        writeBytes(path, bytes.replace(at, bytes.indexOf('\n', at) - at, "17"));
    }
}

QStringList ReadDocument::markers() const
{
    QStringList list;
    for (const ReadPage &page : pages) {
        list << page.marker;
    }
    return list;
}

ReadDocument read(const QString &path)
{
    ReadDocument result;
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(QFile::encodeName(path).constData());
        result.version = QString::fromStdString(pdf.getPDFVersion());
        std::map<QPDFObjGen, int> index;
        for (const auto &page : pdf.getAllPages()) {
            index.emplace(page.getObjGen(), int(index.size()));
        }
        auto names = pdf.getRoot().getKey("/Names");
        Object nameTree = names.isDictionary() ? names.getKey("/Dests") : Object();
        std::set<QPDFObjGen> images;
        for (auto page : pdf.getAllPages()) {
            QPDFPageObjectHelper helper(page);
            ReadPage read;
            read.mediaBox = toRect(helper.getMediaBox());
            if (page.getKey("/CropBox").isRectangle()) {
                read.cropBox = toRect(page.getKey("/CropBox"));
            }
            if (page.getKey("/TrimBox").isRectangle()) {
                read.trimBox = toRect(page.getKey("/TrimBox"));
            }
            auto rotate = helper.getAttribute("/Rotate", false);
            read.rotate = rotate.isInteger() ? rotate.getIntValueAsInt() : 0;
            Pl_Buffer buffer("contents");
            helper.pipeContents(&buffer);
            read.content = toBytes(buffer.getBufferSharedPointer());
            read.marker = QRegularExpression("marker:(\\S+)").match(read.content).captured(1);
            for (auto [name, xobject] : helper.getImages()) {
                read.images << QString::fromStdString(name);
                images.insert(xobject.getObjGen());
            }
            auto annots = page.getKey("/Annots");
            for (int k = 0; annots.isArray() && k < annots.getArrayNItems(); ++k) {
                auto annot = annots.getArrayItem(k);
                if (!annot.getKey("/Subtype").isNameAndEquals("/Link")) {
                    continue;
                }
                auto dest = annot.getKey("/Dest");
                if (dest.isNull() && annot.getKey("/A").isDictionary()) {
                    dest = annot.getKey("/A").getKey("/D");
                }
                Object found;
                if (dest.isString() && nameTree.isDictionary()) {
                    dest = QPDFNameTreeObjectHelper(nameTree, pdf)
                                   .findObject(dest.getUTF8Value(), found)
                               ? found
                               : Object::newNull();
                }
                const auto target = dest.isArray() && dest.getArrayNItems() > 0
                                        ? index.find(dest.getArrayItem(0).getObjGen())
                                        : index.end();
                read.links << (target == index.end() ? -1 : target->second);
            }
            result.pages << read;
        }
        readOutline(pdf, result, index, result.markers());
        readNames(pdf, result);
        result.showsOutline = pdf.getRoot().getKey("/PageMode").isNameAndEquals("/UseOutlines");
        QPDFPageLabelDocumentHelper labels(pdf);
        for (int i = 0; labels.hasPageLabels() && i < result.pages.size(); ++i) {
            auto label = labels.getLabelForPage(i);
            const auto text = [&](const char *key) {
                auto value = label.getKey(key);
                return value.isName()      ? QString::fromStdString(value.getName().substr(1))
                       : value.isString()  ? QString::fromStdString(value.getUTF8Value())
                       : value.isInteger() ? QString::number(value.getIntValue())
                                           : QString();
            };
            result.labels << text("/S") + ":" + text("/P") + ":" + text("/St");
        }
        auto info = pdf.getTrailer().getKey("/Info");
        const auto infoText = [&](const char *key) {
            auto value = info.isDictionary() ? info.getKey(key) : Object::newNull();
            return value.isString() ? QString::fromStdString(value.getUTF8Value()) : QString();
        };
        result.title = infoText("/Title");
        result.author = infoText("/Author");
        result.subject = infoText("/Subject");
        result.keywords = infoText("/Keywords");
        auto metadata = pdf.getRoot().getKey("/Metadata");
        if (metadata.isStream()) {
            result.xmp = toBytes(metadata.getStreamData());
        }
        result.clean = !pdf.anyWarnings();
        result.imageObjects = int(images.size());
        // Every object read, as a check of the whole file would.
        for (auto object : pdf.getAllObjects()) {
            if (object.isStream()) {
                object.getRawStreamData();
            }
        }
        result.warnings = int(pdf.getWarnings().size());
        result.opened = true;
    } catch (const std::exception &) {
        result.opened = false;
    }
    return result;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QStringList files(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

} // namespace TestPdf
