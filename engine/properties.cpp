// Document properties: title, author, subject and keywords from templates, saved in place.
//
// A sound document gets an incremental update: its bytes are copied as they are, then a new
// information dictionary, a new XMP packet where it has one, and a cross-reference section (a
// table or a stream, like the file's last one) whose /Prev leads back to the old sections. A
// document that needed repair, is encrypted or has hybrid cross-references is rewritten whole
// instead. Either way the new file is written beside the old one, flushed to disk, and renamed
// over it only when complete.

#include "enginesupport.h"
#include "pdftools.h"
#include "xmp.h"

#include <QCryptographicHash>
#include <QFileInfo>

#include <qpdf/Buffer.hh>
#include <qpdf/BufferInputSource.hh>
#include <qpdf/FileInputSource.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

using namespace Engine;

namespace {

const QString originalToken = QStringLiteral("[Original]");
const QString fileNameToken = QStringLiteral("[FileName]");
// Offsets in a cross-reference table have ten digits: larger files are rewritten.
constexpr qint64 maxAppendSize = 9'000'000'000LL;

struct Properties
{
    QString title;
    QString author;
    QString subject;
    QStringList keywords;
};

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

// Reads up to length bytes at offset of fd into data; the count read.
size_t readAt(int fd, char *data, size_t length, qint64 offset)
{
    size_t done = 0;
    while (done < length) {
        const ssize_t got = ::pread(fd, data + done, length - done, offset + qint64(done));
        if (got <= 0) {
            break;
        }
        done += size_t(got);
    }
    return done;
}

// The document file, open for reading from the parse to the copy, so both see the same bytes.
// A file of usual size is read into memory once: the parse then costs no system calls, and the
// copy needs the bytes anyway.
class SourceFile
{
public:
    explicit SourceFile(const QString &path)
        : m_name(QFile::encodeName(path).toStdString())
    {
        m_file = std::fopen(m_name.c_str(), "rbe");
        struct stat status;
        if (!m_file || ::fstat(::fileno(m_file), &status) != 0) {
            close();
            return;
        }
        m_size = qint64(status.st_size);
        if (m_size <= inMemoryLimit) {
            m_bytes.resize(size_t(m_size));
            m_bytes.resize(readAt(::fileno(m_file), m_bytes.data(), m_bytes.size(), 0));
            m_size = qint64(m_bytes.size());
            m_loaded = true;
        }
    }
    ~SourceFile() { close(); }
    SourceFile(const SourceFile &) = delete;
    SourceFile &operator=(const SourceFile &) = delete;

    bool isOpen() const { return m_file != nullptr; }
    qint64 size() const { return m_size; }
    void close()
    {
        if (m_file) {
            std::fclose(m_file);
            m_file = nullptr;
        }
    }

    // What qpdf reads the document from; valid while this object lives.
    std::shared_ptr<InputSource> inputSource()
    {
        if (!m_loaded) {
            return std::make_shared<FileInputSource>(m_name.c_str(), m_file, false);
        }
        m_buffer = std::make_unique<Buffer>(reinterpret_cast<unsigned char *>(m_bytes.data()),
                                            m_bytes.size());
        return std::make_shared<BufferInputSource>(m_name, m_buffer.get(), false);
    }

    // Up to length bytes from offset; fewer at the end of the file.
    std::string read(qint64 offset, qint64 length) const
    {
        offset = std::clamp<qint64>(offset, 0, m_size);
        length = std::clamp<qint64>(length, 0, m_size - offset);
        if (m_loaded) {
            return m_bytes.substr(size_t(offset), size_t(length));
        }
        std::string bytes(size_t(length), '\0');
        bytes.resize(readAt(::fileno(m_file), bytes.data(), bytes.size(), offset));
        return bytes;
    }

    // Writes the whole file to output.
    void copyTo(FILE *output) const;

private:
    static constexpr qint64 inMemoryLimit = qint64(128) << 20;
    std::string m_name;
    FILE *m_file = nullptr;
    qint64 m_size = 0;
    bool m_loaded = false;
    std::string m_bytes;
    std::unique_ptr<Buffer> m_buffer;
};

// Where the file's last cross-reference section starts, and what it is.
struct LastSection
{
    qint64 headerOffset = 0; // bytes before "%PDF-": file offsets count from there
    qint64 offset = 0;       // the last "startxref" value
    bool stream = false;     // a cross-reference stream rather than a table
};

std::optional<LastSection> findLastSection(const SourceFile &source)
{
    LastSection last;
    // Bytes before the header are allowed within the first kilobyte, as readers allow them.
    const std::string head = source.read(0, 1024);
    const size_t header = head.find("%PDF-");
    if (header == std::string::npos) {
        return std::nullopt;
    }
    last.headerOffset = qint64(header);
    const qint64 tailStart = std::max<qint64>(0, source.size() - 2048);
    const std::string tail = source.read(tailStart, source.size() - tailStart);
    const size_t keyword = tail.rfind("startxref");
    if (keyword == std::string::npos) {
        return std::nullopt;
    }
    size_t i = keyword + 9;
    while (i < tail.size() && std::isspace(static_cast<unsigned char>(tail[i]))) {
        ++i;
    }
    const size_t digits = i;
    qint64 value = 0;
    while (i < tail.size() && std::isdigit(static_cast<unsigned char>(tail[i]))
           && i - digits < 15) {
        value = value * 10 + (tail[i] - '0');
        ++i;
    }
    if (i == digits) {
        return std::nullopt;
    }
    last.offset = value;
    std::string section = source.read(last.headerOffset + value, 64);
    const size_t start = section.find_first_not_of(" \t\r\n\f");
    if (start == std::string::npos) {
        return std::nullopt;
    }
    section.erase(0, start);
    if (section.rfind("xref", 0) == 0) {
        last.stream = false;
    } else if (std::isdigit(static_cast<unsigned char>(section[0]))
               && section.find("obj") != std::string::npos) {
        last.stream = true; // qpdf has read it: an object there is a cross-reference stream
    } else {
        return std::nullopt;
    }
    return last;
}

// The bytes appended to the document: objects, then a cross-reference section for them and a
// trailer leading back to the file's own sections.
class IncrementalUpdate
{
public:
    IncrementalUpdate(qint64 fileSize, const LastSection &last)
        : m_base(fileSize - last.headerOffset)
        , m_last(last)
    {
        // The file may end without an end-of-line after %%EOF.
        m_bytes = "\n";
    }

    void addObject(QPDFObjGen id, const std::string &body)
    {
        m_entries.push_back({id, offset()});
        m_bytes += objectHeader(id) + body + "\nendobj\n";
    }

    // Finishes the update with a section like the file's last one. trailer is the document's
    // trailer; size the first object number the file does not use.
    const std::string &finish(QPDFObjectHandle trailer, int size, QPDFObjGen info)
    {
        std::string common = " /Root " + trailer.getKey("/Root").unparse() + " /Info "
                             + std::to_string(info.getObj()) + " " + std::to_string(info.getGen())
                             + " R";
        const std::string id = updatedId(trailer.getKey("/ID"));
        if (!id.empty()) {
            common += " /ID " + id;
        }
        common += " /Prev " + std::to_string(m_last.offset);
        if (m_last.stream) {
            finishWithStream(common, size);
        } else {
            finishWithTable(common, size);
        }
        return m_bytes;
    }

private:
    struct Entry
    {
        QPDFObjGen id;
        qint64 offset;
    };

    qint64 offset() const { return m_base + qint64(m_bytes.size()); }

    static std::string objectHeader(QPDFObjGen id)
    {
        return std::to_string(id.getObj()) + " " + std::to_string(id.getGen()) + " obj\n";
    }

    // Runs of consecutive object numbers, as "first count" pairs.
    template <typename Visit> void forEachRun(Visit &&visit)
    {
        std::sort(m_entries.begin(), m_entries.end(), [](const Entry &a, const Entry &b) {
            return a.id.getObj() < b.id.getObj();
        });
        for (size_t first = 0; first < m_entries.size();) {
            size_t end = first + 1;
            while (end < m_entries.size()
                   && m_entries[end].id.getObj() == m_entries[end - 1].id.getObj() + 1) {
                ++end;
            }
            visit(first, end);
            first = end;
        }
    }

    void finishWithTable(const std::string &common, int size)
    {
        const qint64 xref = offset();
        m_bytes += "xref\n";
        forEachRun([&](size_t first, size_t end) {
            m_bytes += std::to_string(m_entries[first].id.getObj()) + " "
                       + std::to_string(end - first) + "\n";
            for (size_t k = first; k < end; ++k) {
                char entry[32];
                std::snprintf(entry,
                              sizeof entry,
                              "%010lld %05d n\r\n",
                              static_cast<long long>(m_entries[k].offset),
                              m_entries[k].id.getGen());
                m_bytes += entry;
            }
        });
        m_bytes += "trailer\n<< /Size " + std::to_string(size) + common + " >>\nstartxref\n"
                   + std::to_string(xref) + "\n%%EOF\n";
    }

    void finishWithStream(const std::string &common, int size)
    {
        // The stream is an object too and lists itself.
        const QPDFObjGen self(size, 0);
        const qint64 xref = offset();
        m_entries.push_back({self, xref});
        int width = 1;
        while (width < 8 && (xref >> (8 * width)) != 0) {
            ++width;
        }
        std::string index;
        std::string data;
        forEachRun([&](size_t first, size_t end) {
            index += std::to_string(m_entries[first].id.getObj()) + " "
                     + std::to_string(end - first) + " ";
            for (size_t k = first; k < end; ++k) {
                data += char(1);
                for (int b = width - 1; b >= 0; --b) {
                    data += char((m_entries[k].offset >> (8 * b)) & 0xff);
                }
                data += char((m_entries[k].id.getGen() >> 8) & 0xff);
                data += char(m_entries[k].id.getGen() & 0xff);
            }
        });
        index.pop_back();
        m_bytes += objectHeader(self) + "<< /Type /XRef /Size " + std::to_string(size + 1)
                   + " /W [1 " + std::to_string(width) + " 2] /Index [" + index + "]" + common
                   + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data
                   + "\nendstream\nendobj\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    }

    // The file identifier keeps its first part; the second changes with every update.
    std::string updatedId(QPDFObjectHandle id) const
    {
        if (!id.isArray() || id.getArrayNItems() != 2 || !id.getArrayItem(0).isString()) {
            return {};
        }
        const std::string first = id.getArrayItem(0).getStringValue();
        QCryptographicHash hash(QCryptographicHash::Md5);
        hash.addData(QByteArrayView(first.data(), qsizetype(first.size())));
        hash.addData(QByteArrayView(m_bytes.data(), qsizetype(m_bytes.size())));
        return "[" + id.getArrayItem(0).unparse() + " <" + hash.result().toHex().toStdString()
               + ">]";
    }

    qint64 m_base;
    LastSection m_last;
    std::string m_bytes;
    std::vector<Entry> m_entries;
};

void writeAll(FILE *output, const std::string &bytes)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), output) != bytes.size()) {
        throw std::runtime_error(std::strerror(errno));
    }
}

// A large file is copied by the kernel, which may share the blocks where the file system can.
void SourceFile::copyTo(FILE *output) const
{
    if (m_loaded) {
        writeAll(output, m_bytes);
        return;
    }
    const qint64 length = m_size;
    const int in = ::fileno(m_file);
    const int out = ::fileno(output);
    if (std::fflush(output) != 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    loff_t inOffset = 0;
    loff_t outOffset = 0;
    bool kernelCopy = true;
    while (inOffset < length) {
        const size_t chunk = size_t(std::min<qint64>(length - inOffset, qint64(1) << 30));
        ssize_t copied = -1;
        if (kernelCopy) {
            copied = ::copy_file_range(in, &inOffset, out, &outOffset, chunk, 0);
            if (copied < 0
                && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
                kernelCopy = false;
                continue;
            }
        } else {
            std::string buffer(std::min<size_t>(chunk, 1 << 20), '\0');
            copied = ::pread(in, buffer.data(), buffer.size(), inOffset);
            if (copied > 0 && ::pwrite(out, buffer.data(), size_t(copied), outOffset) != copied) {
                copied = -1;
            }
            if (copied > 0) {
                inOffset += copied;
                outOffset += copied;
            }
        }
        if (copied < 0) {
            throw std::runtime_error(std::strerror(errno));
        }
        if (copied == 0) {
            throw std::runtime_error("the document became shorter while it was copied");
        }
    }
    if (::lseek(out, outOffset, SEEK_SET) < 0 || std::fseek(output, outOffset, SEEK_SET) != 0) {
        throw std::runtime_error(std::strerror(errno));
    }
}

// The stream dictionary of a rewritten, unfiltered metadata stream.
std::string metadataObject(QPDFObjectHandle stream, const QByteArray &packet)
{
    auto dict = stream.getDict().shallowCopy();
    for (const char *key : {"/Filter", "/DecodeParms", "/DL", "/Length"}) {
        dict.removeKey(key);
    }
    dict.replaceKey("/Length", QPDFObjectHandle::newInteger(packet.size()));
    return dict.unparse() + "\nstream\n" + packet.toStdString() + "\nendstream";
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

// What the cross-reference sections of a sound file say, from one pass over them.
struct CrossReferences
{
    int firstUnused = 1;     // the first object number the file does not use
    bool compressed = false; // some objects are in object streams
};

CrossReferences crossReferences(QPDF &pdf)
{
    CrossReferences facts;
    auto size = pdf.getTrailer().getKey("/Size");
    if (size.isInteger()) {
        facts.firstUnused = std::max(facts.firstUnused, size.getIntValueAsInt());
    }
    for (const auto &[id, entry] : pdf.getXRefTable()) {
        facts.firstUnused = std::max(facts.firstUnused, id.getObj() + 1);
        facts.compressed = facts.compressed || entry.getType() == 2;
    }
    return facts;
}

// A file whose tables are backed by cross-reference streams (/XRefStm) for readers that know
// them. Some readers let those streams override later sections, so an update appended to such
// a file would go unseen there.
bool isHybrid(QPDF &pdf, const LastSection &last, const CrossReferences &facts)
{
    return !last.stream && (facts.compressed || pdf.getTrailer().hasKey("/XRefStm"));
}

// The four entries set from the templates, in the information dictionary that info holds (a new
// one when the document has none), and the XMP packet to match where the document has one.
struct Edit
{
    QPDFObjectHandle info;
    std::optional<QByteArray> metadata;
};

struct Templates
{
    QString title;
    QString author;
    QString subject;
    QString keywords;
};

Edit applyTemplates(QPDF &pdf, const QString &path, const Templates &templates)
{
    Edit edit;
    edit.info = pdf.getTrailer().getKey("/Info");
    if (!edit.info.isDictionary()) {
        edit.info = QPDFObjectHandle::newDictionary();
    }
    auto &info = edit.info;
    const QString fileName = templateFileName(path);
    const Properties old{infoText(info, "/Title"),
                         infoText(info, "/Author"),
                         infoText(info, "/Subject"),
                         splitKeywords(infoText(info, "/Keywords"))};
    const Properties changed{resolvedText(templates.title, old.title, fileName),
                             resolvedText(templates.author, old.author, fileName),
                             resolvedText(templates.subject, old.subject, fileName),
                             resolvedKeywords(templates.keywords, old.keywords, fileName)};
    info.replaceKey("/Title", pdfText(changed.title));
    info.replaceKey("/Author", pdfText(changed.author));
    info.replaceKey("/Subject", pdfText(changed.subject));
    info.replaceKey("/Keywords", pdfText(joinKeywords(changed.keywords)));
    edit.metadata = updatedMetadata(pdf, path, old, changed);
    return edit;
}

// Writes the document's bytes and an update holding the edit into output.
void appendUpdate(QPDF &pdf,
                  const SourceFile &source,
                  const LastSection &last,
                  const CrossReferences &facts,
                  const Edit &edit,
                  FILE *output)
{
    IncrementalUpdate update(source.size(), last);
    auto info = edit.info;
    const QPDFObjGen infoId
        = info.isIndirect() ? info.getObjGen() : QPDFObjGen(facts.firstUnused, 0);
    update.addObject(infoId, info.unparseResolved());
    if (edit.metadata) {
        auto stream = pdf.getRoot().getKey("/Metadata");
        update.addObject(stream.getObjGen(), metadataObject(stream, *edit.metadata));
    }
    const int size = std::max(facts.firstUnused, infoId.getObj() + 1);
    const std::string &bytes = update.finish(pdf.getTrailer(), size, infoId);
    source.copyTo(output);
    writeAll(output, bytes);
}

// Writes the whole document with the edit into output. False when what qpdf read of a damaged
// file holds no page: such a rewrite would keep nothing of it.
bool rewriteWhole(QPDF &pdf, const QString &path, const Edit &edit, PendingOutput &output)
{
    if (pdf.getAllPages().empty()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot save " << path << ": it is damaged and no page of it can be read";
        return false;
    }
    qCInfo(lcEngine).noquote().nospace()
        << path
        << ": rewritten whole (it needed repair, is encrypted or has hybrid "
           "cross-references)";
    auto info = edit.info;
    if (!info.isIndirect()) {
        pdf.getTrailer().replaceKey("/Info", pdf.makeIndirectObject(info));
    }
    if (edit.metadata) {
        pdf.getRoot()
            .getKey("/Metadata")
            .replaceStreamData(edit.metadata->toStdString(),
                               QPDFObjectHandle::newNull(),
                               QPDFObjectHandle::newNull());
    }
    WriteSettings settings;
    settings.inPlace = true;
    return writeDocument(pdf, output, settings);
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
    SourceFile source(target);
    if (!source.isOpen()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot open " << path << ": " << QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    PendingOutput output(target);
    if (!output.file()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot save " << path << ": " << output.errorText();
        return false;
    }
    bool written = false;
    const bool saved = guarded("Cannot save", path, [&] {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processInputSource(source.inputSource());
        const Edit edit = applyTemplates(pdf, path, {title, author, subject, keywords});
        const auto last = findLastSection(source);
        const CrossReferences facts = crossReferences(pdf);
        if (last && !pdf.anyWarnings() && !pdf.isEncrypted() && !isHybrid(pdf, *last, facts)
            && pdf.getTrailer().getKey("/Root").isIndirect() && source.size() < maxAppendSize) {
            appendUpdate(pdf, source, *last, facts, edit, output.file());
            written = true;
        } else {
            logWarnings(pdf, path);
            written = rewriteWhole(pdf, path, edit, output);
        }
    });
    if (!saved || !written) {
        return false;
    }
    // The document is no longer read once its replacement is complete.
    source.close();
    if (!output.commit(true)) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot save " << path << ": " << output.errorText();
        return false;
    }
    return true;
}
