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
