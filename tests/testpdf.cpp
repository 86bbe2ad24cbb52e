#include "testpdf.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <qpdf/Pl_Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFNameTreeObjectHelper.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <map>
#include <set>
#include <stdexcept>

namespace TestPdf {

namespace {

QPDFObjectHandle rectangle(const QRectF &r)
{
    return QPDFObjectHandle::newFromRectangle(
        {r.x(), r.y(), r.x() + r.width(), r.y() + r.height()});
}

QRectF toRect(QPDFObjectHandle box)
{
    const auto r = box.getArrayAsRectangle();
    return QRectF(r.llx, r.lly, r.urx - r.llx, r.ury - r.lly);
}

QPDFObjectHandle text(const QString &s)
{
    return QPDFObjectHandle::newUnicodeString(s.toStdString());
}

QPDFObjectHandle linkAnnotation(QPDF &pdf)
{
    auto annot = QPDFObjectHandle::newDictionary();
    annot.replaceKey("/Type", QPDFObjectHandle::newName("/Annot"));
    annot.replaceKey("/Subtype", QPDFObjectHandle::newName("/Link"));
    annot.replaceKey("/Rect", rectangle({10, 10, 50, 20}));
    annot.replaceKey("/Border", QPDFObjectHandle::parse("[0 0 0]"));
    return pdf.makeIndirectObject(annot);
}

} // namespace

Document pages(int n, const QString &prefix)
{
    Document document;
    for (int i = 1; i <= n; ++i) {
        Page page;
        page.marker = prefix + QString::number(i);
        document.pages << page;
    }
    return document;
}

void write(const QString &path, const Document &document)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper helper(pdf);
    std::vector<QPDFObjectHandle> made;
    for (const Page &page : document.pages) {
        auto dict = QPDFObjectHandle::newDictionary();
        dict.replaceKey("/Type", QPDFObjectHandle::newName("/Page"));
        if (!(document.inheritMediaBox && made.empty())) {
            dict.replaceKey("/MediaBox", rectangle(page.mediaBox));
        }
        if (page.rotate && !page.inheritBoxes) {
            dict.replaceKey("/Rotate", QPDFObjectHandle::newInteger(page.rotate));
        }
        if (page.cropBox && !page.inheritBoxes) {
            dict.replaceKey("/CropBox", rectangle(*page.cropBox));
        }
        if (page.trimBox) {
            dict.replaceKey("/TrimBox", rectangle(*page.trimBox));
        }
        const std::string content
            = "% marker:" + page.marker.toStdString() + "\n0 0 1 rg 10 10 100 100 re f\n";
        dict.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content));
        dict.replaceKey("/Resources", QPDFObjectHandle::newDictionary());
        auto object = pdf.makeIndirectObject(dict);
        helper.addPage(QPDFPageObjectHelper(object), false);
        made.push_back(pdf.getAllPages().back());
    }
    if (document.inheritMediaBox && !document.pages.isEmpty()) {
        pdf.getRoot().getKey("/Pages").replaceKey("/MediaBox",
                                                  rectangle(document.pages.front().mediaBox));
    }
    // Pages that inherit their rotation and crop box get a node of their own in the page tree.
    auto root = pdf.getRoot().getKey("/Pages");
    auto kids = root.getKey("/Kids");
    for (int i = 0; i < document.pages.size(); ++i) {
        const Page &page = document.pages[i];
        if (!page.inheritBoxes) {
            continue;
        }
        auto node = QPDFObjectHandle::newDictionary();
        node.replaceKey("/Type", QPDFObjectHandle::newName("/Pages"));
        node.replaceKey("/Kids", QPDFObjectHandle::newArray({made[size_t(i)]}));
        node.replaceKey("/Count", QPDFObjectHandle::newInteger(1));
        node.replaceKey("/Parent", root);
        if (page.rotate) {
            node.replaceKey("/Rotate", QPDFObjectHandle::newInteger(page.rotate));
        }
        if (page.cropBox) {
            node.replaceKey("/CropBox", rectangle(*page.cropBox));
        }
        node = pdf.makeIndirectObject(node);
        made[size_t(i)].replaceKey("/Parent", node);
        kids.setArrayItem(i, node);
    }
    std::map<std::string, QPDFObjectHandle> names;
    for (int i = 0; i < document.pages.size(); ++i) {
        const Page &page = document.pages[i];
        auto annots = QPDFObjectHandle::newArray();
        if (page.linkTo) {
            auto annot = linkAnnotation(pdf);
            auto dest = QPDFObjectHandle::newArray();
            dest.appendItem(made[size_t(*page.linkTo)]);
            dest.appendItem(QPDFObjectHandle::newName("/Fit"));
            annot.replaceKey("/Dest", dest);
            annots.appendItem(annot);
        }
        if (page.namedLinkTo) {
            const std::string name = "target." + std::to_string(*page.namedLinkTo);
            auto annot = linkAnnotation(pdf);
            auto action = QPDFObjectHandle::newDictionary();
            action.replaceKey("/S", QPDFObjectHandle::newName("/GoTo"));
            action.replaceKey("/D", QPDFObjectHandle::newString(name));
            annot.replaceKey("/A", action);
            annots.appendItem(annot);
            names[name] = QPDFObjectHandle::parse("[null /Fit]");
            names[name].setArrayItem(0, made[size_t(*page.namedLinkTo)]);
        }
        if (page.redStamp) {
            const QRectF &r = *page.redStamp;
            auto appearance
                = QPDFObjectHandle::newStream(&pdf,
                                              QStringLiteral("1 0 0 rg 0 0 %1 %2 re f\n")
                                                  .arg(r.width())
                                                  .arg(r.height())
                                                  .toStdString());
            auto dict = appearance.getDict();
            dict.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
            dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/Form"));
            dict.replaceKey("/BBox", rectangle({0, 0, r.width(), r.height()}));
            auto ap = QPDFObjectHandle::newDictionary();
            ap.replaceKey("/N", appearance);
            auto annot = QPDFObjectHandle::newDictionary();
            annot.replaceKey("/Type", QPDFObjectHandle::newName("/Annot"));
            annot.replaceKey("/Subtype", QPDFObjectHandle::newName("/Square"));
            annot.replaceKey("/Rect", rectangle(r));
            annot.replaceKey("/AP", ap);
            annots.appendItem(pdf.makeIndirectObject(annot));
        }
        if (annots.getArrayNItems() > 0) {
            made[size_t(i)].replaceKey("/Annots", annots);
        }
    }
    if (!names.empty()) {
        auto tree = QPDFNameTreeObjectHelper::newEmpty(pdf);
        for (auto &[name, dest] : names) {
            tree.insert(name, dest);
        }
        auto namesDict = QPDFObjectHandle::newDictionary();
        namesDict.replaceKey("/Dests", tree.getObjectHandle());
        pdf.getRoot().replaceKey("/Names", namesDict);
    }
    if (!document.noInfo) {
        auto info = pdf.makeIndirectObject(QPDFObjectHandle::newDictionary());
        if (!document.title.isNull()) {
            info.replaceKey("/Title", text(document.title));
        }
        if (!document.author.isNull()) {
            info.replaceKey("/Author", text(document.author));
        }
        if (!document.subject.isNull()) {
            info.replaceKey("/Subject", text(document.subject));
        }
        if (!document.keywords.isNull()) {
            info.replaceKey("/Keywords", text(document.keywords));
        }
        pdf.getTrailer().replaceKey("/Info", info);
    }
    if (!document.xmp.isNull()) {
        auto metadata = QPDFObjectHandle::newStream(&pdf, document.xmp.toStdString());
        metadata.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/Metadata"));
        metadata.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/XML"));
        pdf.getRoot().replaceKey("/Metadata", metadata);
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
        QPDF written;
        written.processFile(fileName.constData());
        auto trailer = written.getTrailer();
        QFile file(path);
        if (!file.open(QIODevice::ReadWrite)) {
            throw std::runtime_error("cannot reopen the test document");
        }
        const QByteArray bytes = file.readAll();
        const qsizetype keyword = bytes.lastIndexOf("startxref");
        const QByteArray stream = bytes.mid(keyword + 9).trimmed().split('\n').front().trimmed();
        const std::string table
            = "xref\n0 1\n0000000000 65535 f\r\ntrailer\n<< /Size "
              + trailer.getKey("/Size").unparse() + " /Root " + trailer.getKey("/Root").unparse()
              + " /Info " + trailer.getKey("/Info").unparse() + " /XRefStm " + stream.toStdString()
              + " >>\nstartxref\n" + std::to_string(bytes.size()) + "\n%%EOF\n";
        file.write(table.data(), qint64(table.size()));
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
        const auto &pages = pdf.getAllPages();
        std::map<QPDFObjGen, int> index;
        std::set<QPDFObjGen> images;
        for (size_t i = 0; i < pages.size(); ++i) {
            index[pages[i].getObjGen()] = int(i);
        }
        QPDFObjectHandle nameTree;
        auto names = pdf.getRoot().getKey("/Names");
        if (names.isDictionary()) {
            nameTree = names.getKey("/Dests");
        }
        for (auto page : pages) {
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
            const auto data = buffer.getBufferSharedPointer();
            const std::string content(reinterpret_cast<const char *>(data->getBuffer()),
                                      data->getSize());
            const auto match = QRegularExpression(QStringLiteral("marker:(\\S+)"))
                                   .match(QString::fromStdString(content));
            if (match.hasMatch()) {
                read.marker = match.captured(1);
            }
            read.content = QByteArray::fromStdString(content);
            auto resources = helper.getAttribute("/Resources", false);
            auto xobjects = resources.isDictionary() ? resources.getKey("/XObject")
                                                     : QPDFObjectHandle::newNull();
            if (xobjects.isDictionary()) {
                for (auto [name, xobject] : xobjects.ditems()) {
                    if (xobject.isStream()
                        && xobject.getDict().getKey("/Subtype").isNameAndEquals("/Image")) {
                        read.images << QString::fromStdString(name);
                        images.insert(xobject.getObjGen());
                    }
                }
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
                if (dest.isString() && nameTree.isDictionary()) {
                    QPDFNameTreeObjectHelper tree(nameTree, pdf);
                    QPDFObjectHandle found;
                    dest = tree.findObject(dest.getUTF8Value(), found)
                               ? found
                               : QPDFObjectHandle::newNull();
                }
                int target = -1;
                if (dest.isArray() && dest.getArrayNItems() > 0
                    && dest.getArrayItem(0).isIndirect()) {
                    const auto found = index.find(dest.getArrayItem(0).getObjGen());
                    target = found == index.end() ? -1 : found->second;
                }
                read.links << target;
            }
            result.pages << read;
        }
        auto info = pdf.getTrailer().getKey("/Info");
        const auto infoText = [&](const char *key) {
            auto value = info.isDictionary() ? info.getKey(key) : QPDFObjectHandle::newNull();
            return value.isString() ? QString::fromStdString(value.getUTF8Value()) : QString();
        };
        result.title = infoText("/Title");
        result.author = infoText("/Author");
        result.subject = infoText("/Subject");
        result.keywords = infoText("/Keywords");
        auto metadata = pdf.getRoot().getKey("/Metadata");
        if (metadata.isStream()) {
            const auto data = metadata.getStreamData();
            result.xmp = QByteArray(reinterpret_cast<const char *>(data->getBuffer()),
                                    qsizetype(data->getSize()));
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
