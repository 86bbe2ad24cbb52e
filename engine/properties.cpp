// Document properties: title, author, subject and keywords from templates, saved in place.
//
// A sound document gets an incremental update after its bytes, holding a new revision of its
// information dictionary (or a new one) and of its XMP packet where it has one. A document that
// needed repair, is encrypted or has hybrid cross-references is rewritten whole instead. Either
// way the new file is written beside the old one, flushed to disk, and renamed over it only when
// complete.

#include "enginesupport.h"
#include "incrementalupdate.h"
#include "pdftools.h"
#include "xmp.h"

#include <QFileInfo>

#include <qpdf/QPDFObjectHandle.hh>

#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Engine;

namespace {

const QString originalToken = QStringLiteral("[Original]");
const QString fileNameToken = QStringLiteral("[FileName]");

using Properties = PDFTools::DocumentProperties;

// The file name the templates see: the last path component with every ".pdf" taken out.
QString templateFileName(const QString &path)
{
    return QFileInfo(path).fileName().remove(QLatin1String(".pdf"));
}

// "[Original]" first, then "[FileName]" over the result: a "[FileName]" inside the old value is
// replaced too.
QString resolvedText(QString pattern, const QString &old, const QString &fileName)
{
    return pattern.replace(originalToken, old).replace(fileNameToken, fileName);
}

// Blanks and commas separate keywords; placeholders count only as whole pieces.
QStringList resolvedKeywords(QString pattern, const QStringList &old, const QString &fileName)
{
    QStringList keywords;
    const QStringList pieces = pattern.replace(QLatin1Char(' '), QLatin1Char(','))
                                   .split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &piece : pieces) {
        if (piece == originalToken) {
            keywords << old;
        } else if (piece == fileNameToken) {
            keywords << fileName;
        } else {
            keywords << piece;
        }
    }
    return keywords;
}

QPDFObjectHandle pdfText(const QString &text)
{
    // PDFDocEncoding where every character fits, else UTF-16BE: both read everywhere, unlike
    // the UTF-8 strings of PDF 2.0.
    return QPDFObjectHandle::newUnicodeString(text.toStdString());
}

// Writable for the user and not marked read-only: a file or folder without any write
// permission is left alone even by a user the system lets write anywhere.
bool writable(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status;
    return ::stat(name.constData(), &status) == 0 && (status.st_mode & 0222) != 0
           && ::access(name.constData(), W_OK) == 0;
}

// The document's XMP packet with the values that changed, or nothing when it has none that can
// be read or none changed. A value the templates kept is left as the packet has it: the packet
// may know an author that the information dictionary lacks.
std::optional<QByteArray>
updatedMetadata(QPDF &pdf, const QString &path, const Properties &old, const Properties &changed)
{
    auto metadata = pdf.getRoot().getKey("/Metadata");
    if (!metadata.isStream()) {
        return std::nullopt;
    }
    XmpProperties values;
    const auto set
        = [](std::optional<QString> &value, const QString &before, const QString &after) {
              if (after != before) {
                  value = after;
              }
          };
    set(values.title, old.title, changed.title);
    set(values.author, old.author, changed.author);
    set(values.subject, old.subject, changed.subject);
    if (changed.keywords != old.keywords) {
        values.keywords = joinKeywords(changed.keywords);
    }
    if (!values.title && !values.author && !values.subject && !values.keywords) {
        return std::nullopt;
    }
    QByteArray packet;
    if (!guarded("Cannot read the XMP metadata of", path, [&] {
            const auto data = metadata.getStreamData(qpdf_dl_all);
            packet = QByteArray(reinterpret_cast<const char *>(data->getBuffer()),
                                qsizetype(data->getSize()));
        })) {
        return std::nullopt;
    }
    QByteArray updated = updatedXmp(packet, values);
    if (updated.isEmpty()) {
        qCInfo(lcEngine).noquote().nospace()
            << path << ": the XMP metadata is not well-formed and is left as it is";
        return std::nullopt;
    }
    return updated;
}

struct Templates
{
    QString title;
    QString author;
    QString subject;
    QString keywords;
};

// The objects an edit changed in the document and those it added.
struct Edit
{
    std::vector<QPDFObjectHandle> changed;
    std::vector<QPDFObjectHandle> added;
};

// Sets the four entries from the templates in the information dictionary (a new one when the
// document has none), and in the XMP packet where the document has one.
Edit applyTemplates(QPDF &pdf, const QString &path, const Templates &templates)
{
    Edit edit;
    auto trailer = pdf.getTrailer();
    auto info = trailer.getKey("/Info");
    if (!info.isDictionary()) {
        info = QPDFObjectHandle::newDictionary();
    }
    const Properties old{infoText(info, "/Title"),
                         infoText(info, "/Author"),
                         infoText(info, "/Subject"),
                         splitKeywords(infoText(info, "/Keywords"))};
    const Properties changed = PDFTools::ResolvePropertyTemplates(
        path, old, templates.title, templates.author, templates.subject, templates.keywords);
    info.replaceKey("/Title", pdfText(changed.title));
    info.replaceKey("/Author", pdfText(changed.author));
    info.replaceKey("/Subject", pdfText(changed.subject));
    info.replaceKey("/Keywords", pdfText(joinKeywords(changed.keywords)));
    if (info.isIndirect()) {
        edit.changed.push_back(info);
    } else {
        info = pdf.makeIndirectObject(info);
        trailer.replaceKey("/Info", info);
        edit.added.push_back(info);
    }
    if (const auto packet = updatedMetadata(pdf, path, old, changed)) {
        // Written as it is: the old filter and its parameters no longer apply.
        auto stream = pdf.getRoot().getKey("/Metadata");
        stream.getDict().removeKey("/DL");
        stream.replaceStreamData(
            packet->toStdString(), QPDFObjectHandle::newNull(), QPDFObjectHandle::newNull());
        edit.changed.push_back(stream);
    }
    return edit;
}

// The document named by path may be replaced: the file and its folder are writable.
bool mayReplace(const QString &path, const QString &target)
{
    if (target.isEmpty() || !QFileInfo(target).isFile()) {
        qCWarning(lcEngine).noquote().nospace() << "Cannot open " << path << ": no such file";
        return false;
    }
    if (!writable(target)) {
        qCWarning(lcEngine).noquote().nospace() << "Cannot save " << path << ": it is read-only";
        return false;
    }
    if (!writable(QFileInfo(target).absolutePath())) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot save " << path << ": its folder is read-only";
        return false;
    }
    return true;
}

} // namespace

bool PDFTools::ChangedDocumentsPropertiesWithPdfPath(const QString &path,
                                                     const QString &title,
                                                     const QString &author,
                                                     const QString &subject,
                                                     const QString &keywords)
{
    // A link is followed: the document it names is edited, and the link stays a link.
    const QFileInfo file(path);
    const QString target = file.isSymLink() ? file.canonicalFilePath() : path;
    if (!mayReplace(path, target)) {
        return false;
    }
    // Only the information dictionary and the XMP packet are read, not every page.
    UpdatableDocument source(target, false);
    if (!source.pdf()) {
        return false;
    }
    bool written = false;
    const bool saved = guarded("Cannot save", path, [&] {
        QPDF &pdf = *source.pdf();
        const Edit edit = applyTemplates(pdf, path, {title, author, subject, keywords});
        WriteSettings settings;
        settings.minimumVersion = versionOf(pdf); // a new version would need a rewrite
        settings.sync = true;
        settings.inPlace = true;
        written = source.write(edit.changed, edit.added, target, settings);
    });
    return saved && written;
}

PDFTools::DocumentProperties PDFTools::ResolvePropertyTemplates(const QString &path,
                                                                const DocumentProperties &old,
                                                                const QString &title,
                                                                const QString &author,
                                                                const QString &subject,
                                                                const QString &keywords)
{
    const QString fileName = templateFileName(path);
    return {resolvedText(title, old.title, fileName),
            resolvedText(author, old.author, fileName),
            resolvedText(subject, old.subject, fileName),
            resolvedKeywords(keywords, old.keywords, fileName)};
}
