#include "incrementalupdate.h"

#include "blockinputsource.h"

#include <QCryptographicHash>

#include <qpdf/Buffer.hh>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace Engine {

namespace {

// Offsets in a cross-reference table have ten digits: a larger file gets no table after it.
constexpr qint64 maxTableFileSize = 9'000'000'000LL;

// The start of an incremental update to a source: where its last cross-reference section is,
// in which form, and the first free object number.
struct UpdateBase
{
    qint64 headerOffset = 0; // bytes before "%PDF-": the file's offsets count from there
    qint64 previous = 0;     // the last "startxref" value
    bool stream = false;     // a cross-reference stream rather than a table
    long long size = 0;      // the first object number no section uses
};

QString errnoText()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Where the file's last cross-reference section starts and in which form; nothing when its
// header or its end is not where an update can find them.
std::optional<UpdateBase> lastSectionOf(BlockInputSource &source, qint64 fileSize)
{
    const auto readAt = [&source](qint64 offset, qint64 length) {
        return QByteArray::fromStdString(source.bytesAt(offset, size_t(length)));
    };
    UpdateBase base;
    // Bytes before the header are allowed within the first kilobyte, as readers allow them.
    const qsizetype header = readAt(0, 1024).indexOf("%PDF-");
    if (header < 0) {
        return std::nullopt;
    }
    base.headerOffset = header;
    const qint64 tailStart = std::max<qint64>(0, fileSize - 2048);
    const QByteArray tail = readAt(tailStart, fileSize - tailStart);
    const qsizetype keyword = tail.lastIndexOf("startxref");
    if (keyword < 0) {
        return std::nullopt;
    }
    qsizetype i = keyword + 9;
    while (i < tail.size() && std::isspace(uchar(tail[i]))) {
        ++i;
    }
    const qsizetype digits = i;
    while (i < tail.size() && std::isdigit(uchar(tail[i])) && i - digits < 15) {
        base.previous = base.previous * 10 + (tail[i] - '0');
        ++i;
    }
    if (i == digits || base.previous <= 0 || base.headerOffset + base.previous >= fileSize) {
        return std::nullopt;
    }
    const QByteArray section = readAt(base.headerOffset + base.previous, 64).trimmed();
    if (section.startsWith("xref")) {
        base.stream = false;
    } else if (!section.isEmpty() && std::isdigit(uchar(section.front()))
               && section.contains("obj")) {
        base.stream = true; // qpdf has read it: an object there is a cross-reference stream
    } else {
        return std::nullopt;
    }
    return base;
}

// Whether the changes can be written as an update to the source's bytes, and from where.
// A document that carries a signature: its form says signatures exist, or a signature field
// has a value.
bool isSigned(QPDF &pdf)
{
    auto form = pdf.getRoot().getKey("/AcroForm");
    if (!form.isDictionary()) {
        return false;
    }
    auto flags = form.getKey("/SigFlags");
    if (flags.isInteger() && (flags.getIntValue() & 1)) {
        return true;
    }
    auto fields = form.getKey("/Fields");
    if (!fields.isArray()) {
        return false;
    }
    for (auto field : fields.aitems()) {
        if (field.isDictionary() && field.getKey("/FT").isNameAndEquals("/Sig")
            && !field.getKey("/V").isNull()) {
            return true;
        }
    }
    return false;
}

std::optional<UpdateBase> updateBaseOf(QPDF &pdf,
                                       bool repaired,
                                       BlockInputSource &source,
                                       qint64 fileSize,
                                       const std::vector<QPDFObjectHandle> &changed,
                                       const std::vector<QPDFObjectHandle> &added)
{
    // A repaired source would be read by others as it is, not as qpdf repaired it.
    if (repaired || pdf.anyWarnings() || pdf.isEncrypted()) {
        return std::nullopt;
    }
    auto trailer = pdf.getTrailer();
    auto size = trailer.getKey("/Size");
    if (!size.isInteger() || !trailer.getKey("/Root").isIndirect()) {
        return std::nullopt;
    }
    auto base = lastSectionOf(source, fileSize);
    if (!base || (!base->stream && fileSize >= maxTableFileSize)) {
        return std::nullopt;
    }
    const auto xref = pdf.getXRefTable();
    base->size = std::max(1LL, size.getIntValue());
    if (!xref.empty()) {
        base->size = std::max(base->size, (long long)xref.rbegin()->first.getObj() + 1);
    }
    // A table backed by cross-reference streams (/XRefStm) for readers that know them, found by
    // the objects only those streams list. Some readers let those streams override later
    // sections, so an update would go unseen there.
    if (!base->stream
        && (trailer.hasKey("/XRefStm")
            || std::any_of(xref.begin(), xref.end(), [](const auto &entry) {
                   return entry.second.getType() == 2;
               }))) {
        return std::nullopt;
    }
    // Objects that qpdf made itself (a page object listed twice in the page tree is copied) are
    // not in the source; added ones must not take numbers the source uses.
    for (auto object : changed) {
        if (xref.count(object.getObjGen()) == 0) {
            return std::nullopt;
        }
    }
    for (auto object : added) {
        if (object.getObjectID() < base->size) {
            return std::nullopt;
        }
    }
    return base;
}

// An object as the update writes it: a stream with its data as it is (filtered or not) and its
// length.
QByteArray bodyOf(QPDFObjectHandle object)
{
    if (!object.isStream()) {
        return QByteArray::fromStdString(object.unparseResolved());
    }
    const auto data = object.getRawStreamData();
    auto dict = object.getDict().shallowCopy();
    dict.replaceKey("/Length", QPDFObjectHandle::newInteger(qint64(data->getSize())));
    return QByteArray::fromStdString(dict.unparse()) + "\nstream\n"
           + QByteArray(reinterpret_cast<const char *>(data->getBuffer()),
                        qsizetype(data->getSize()))
           + "\nendstream";
}

struct Entry
{
    long long object;
    int generation;
    qint64 offset;
};

// Runs of consecutive object numbers among entries sorted by number, as [first, end) ranges.
template <typename Visit> void forEachRun(const std::vector<Entry> &entries, Visit &&visit)
{
    for (size_t first = 0; first < entries.size();) {
        size_t end = first + 1;
        while (end < entries.size() && entries[end].object == entries[end - 1].object + 1) {
            ++end;
        }
        visit(first, end);
        first = end;
    }
}

// The update: the objects as new revisions (or new objects), a cross-reference section for them
// in the source's form, and the trailer.
QByteArray
updateOf(QPDF &pdf, const UpdateBase &base, qint64 fileSize, std::vector<QPDFObjectHandle> objects)
{
    std::sort(objects.begin(), objects.end(), [](QPDFObjectHandle a, QPDFObjectHandle b) {
        return a.getObjectID() < b.getObjectID();
    });
    const qint64 start = fileSize - base.headerOffset;
    long long size = base.size;
    std::vector<Entry> entries;
    // The file may end without an end-of-line after %%EOF.
    QByteArray update("\n");
    update.reserve(qsizetype(objects.size()) * 512);
    for (auto object : objects) {
        entries.push_back(
            {object.getObjectID(), object.getGeneration(), start + qint64(update.size())});
        size = std::max(size, (long long)object.getObjectID() + 1);
        update += QByteArray::number(object.getObjectID()) + ' '
                  + QByteArray::number(object.getGeneration()) + " obj\n" + bodyOf(object)
                  + "\nendobj\n";
    }

    // The same source and the same changes give the same document ID; its first part stays.
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

    const qint64 sectionOffset = start + qint64(update.size());
    if (!base.stream) {
        update += "xref\n";
        forEachRun(entries, [&](size_t first, size_t end) {
            update += QByteArray::number(entries[first].object) + ' '
                      + QByteArray::number(qint64(end - first)) + '\n';
            for (size_t i = first; i < end; ++i) {
                update += QByteArray::number(entries[i].offset).rightJustified(10, '0') + ' '
                          + QByteArray::number(entries[i].generation).rightJustified(5, '0')
                          + " n\r\n";
            }
        });
        update += "trailer\n<< /Size " + QByteArray::number(size) + keys + " >>\n";
    } else {
        // The section is itself a new object, the first free number, and lists itself; its
        // offset is the largest, and sets how many bytes an offset takes.
        entries.push_back({size, 0, sectionOffset});
        int width = 1;
        while (width < 8 && (sectionOffset >> (8 * width)) != 0) {
            ++width;
        }
        QByteArray index;
        QByteArray data;
        forEachRun(entries, [&](size_t first, size_t end) {
            index += ' ' + QByteArray::number(entries[first].object) + ' '
                     + QByteArray::number(qint64(end - first));
            for (size_t i = first; i < end; ++i) {
                data += char(1);
                for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
                    data += char((quint64(entries[i].offset) >> shift) & 0xff);
                }
                data += char((entries[i].generation >> 8) & 0xff);
                data += char(entries[i].generation & 0xff);
            }
        });
        update += QByteArray::number(size) + " 0 obj\n<< /Type /XRef /Size "
                  + QByteArray::number(size + 1) + " /W [1 " + QByteArray::number(width)
                  + " 2] /Index [" + index.mid(1) + "]" + keys + " /Length "
                  + QByteArray::number(data.size()) + " >>\nstream\n" + data
                  + "\nendstream\nendobj\n";
    }
    update += "startxref\n" + QByteArray::number(sectionOffset) + "\n%%EOF\n";
    return update;
}

// Copies length bytes of the source into the output, in the kernel where it can (which may
// share the blocks where the file system can). What went wrong; empty when all was copied.
QString copyBytes(int from, int to, qint64 length)
{
    loff_t offset = 0;
    while (offset < length) {
        const ssize_t copied
            = ::copy_file_range(from, &offset, to, nullptr, size_t(length - offset), 0);
        if (copied > 0 || (copied < 0 && errno == EINTR)) {
            continue;
        }
        if (copied == 0) {
            return QStringLiteral("the document got shorter while it was copied");
        }
        if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP) {
            return errnoText();
        }
        std::vector<char> buffer(1 << 20);
        while (offset < length) {
            const ssize_t got
                = ::pread(from,
                          buffer.data(),
                          size_t(std::min<qint64>(qint64(buffer.size()), length - offset)),
                          offset);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                return errnoText();
            }
            if (got == 0) {
                return QStringLiteral("the document got shorter while it was copied");
            }
            for (ssize_t done = 0; done < got;) {
                const ssize_t put = ::write(to, buffer.data() + done, size_t(got - done));
                if (put < 0 && errno != EINTR) {
                    return errnoText();
                }
                done += std::max<ssize_t>(put, 0);
            }
            offset += got;
        }
    }
    return QString();
}

// The output as the source's bytes and the update, not yet committed.
bool writeUpdate(int source, qint64 fileSize, const QByteArray &update, PendingOutput &output)
{
    FILE *file = output.file();
    QString failure = copyBytes(source, ::fileno(file), fileSize);
    if (failure.isEmpty()
        && (std::fseek(file, 0, SEEK_END) != 0
            || std::fwrite(update.constData(), 1, size_t(update.size()), file)
                   != size_t(update.size()))) {
        failure = errnoText();
    }
    if (!failure.isEmpty()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << output.target() << ": " << failure;
        return false;
    }
    return true;
}

} // namespace

UpdatableDocument::UpdatableDocument(const QString &path, bool readPages)
    : m_path(path)
    , m_fd(::open(encodePath(path).c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat info;
    if (m_fd < 0 || ::fstat(m_fd, &info) != 0) {
        qCWarning(lcEngine).noquote().nospace() << "Cannot open " << path << ": " << errnoText();
        return;
    }
    if (!S_ISREG(info.st_mode)) {
        qCWarning(lcEngine).noquote().nospace() << "Cannot open " << path << ": not a file";
        return;
    }
    m_size = info.st_size;
    auto pdf = std::make_unique<QPDF>();
    pdf->setSuppressWarnings(true);
    if (!guarded("Cannot open", path, [&] {
            m_input = std::make_shared<BlockInputSource>(m_fd, m_size, encodePath(path));
            pdf->processInputSource(m_input);
            if (readPages) {
                pdf->getAllPages();
            }
        })) {
        return;
    }
    // Reading the structure may have needed repairs (the log takes qpdf's warnings away).
    m_repaired = pdf->anyWarnings();
    logWarnings(*pdf, path);
    m_pdf = std::move(pdf);
}

UpdatableDocument::~UpdatableDocument()
{
    if (keepingDocuments() && m_pdf) {
        // Nothing reads from the descriptor once the document is left alone.
        struct Parsed
        {
            std::shared_ptr<BlockInputSource> input;
            std::unique_ptr<QPDF> pdf;
        };
        keepUntilExit(std::make_shared<Parsed>(Parsed{std::move(m_input), std::move(m_pdf)}));
    }
    close();
}

void UpdatableDocument::close()
{
    m_pdf.reset(); // the document reads from the descriptor until it goes
    m_input.reset();
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

bool UpdatableDocument::write(const std::vector<QPDFObjectHandle> &changed,
                              const std::vector<QPDFObjectHandle> &added,
                              const QString &target,
                              const WriteSettings &settings)
{
    QPDF &pdf = *m_pdf;
    const PDFVersion version = versionOf(pdf);
    // A whole new file holds nothing of what the edit replaced (a stamp over the page, an old
    // author): every document is written so, but a signed one, whose signature covers its
    // bytes as they are; its edit follows them as an update.
    const bool keepBytes = isSigned(pdf);
    const auto base = !keepBytes || version < settings.minimumVersion
                          ? std::nullopt
                          : updateBaseOf(pdf, m_repaired, *m_input, m_size, changed, added);
    if (base) {
        qCWarning(lcEngine).noquote().nospace()
            << m_path << " is signed: the change is added after its signed bytes, which stay in "
            << target << " with the earlier version";
    }
    PendingOutput output(target);
    if (!output.file()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << target << ": " << output.errorText();
        return false;
    }
    bool written = false;
    if (base) {
        std::vector<QPDFObjectHandle> objects = changed;
        objects.insert(objects.end(), added.begin(), added.end());
        const QByteArray update
            = objects.empty() ? QByteArray() : updateOf(pdf, *base, m_size, objects);
        written = writeUpdate(m_fd, m_size, update, output);
    } else {
        WriteSettings whole = settings;
        whole.minimumVersion
            = version < settings.minimumVersion ? settings.minimumVersion : version;
        written = writeWhole(output, whole);
    }
    if (!written) {
        return false;
    }
    // The source is no longer read once its replacement is complete.
    if (settings.inPlace) {
        close();
    }
    if (!output.commit(settings.sync)) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << target << ": " << output.errorText();
        return false;
    }
    return true;
}

bool UpdatableDocument::writeWhole(PendingOutput &output, const WriteSettings &settings)
{
    QPDF &pdf = *m_pdf;
    logWarnings(pdf, m_path);
    bool pageless = true;
    if (!guarded(
            "Cannot read the pages of", m_path, [&] { pageless = pdf.getAllPages().empty(); })) {
        return false;
    }
    if (pageless) {
        // What qpdf read of a damaged file holds no page: a rewrite would keep nothing of it.
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << output.target() << ": no page of " << m_path << " can be read";
        return false;
    }
    return writeDocument(pdf, output, settings);
}

void writeDocumentWithoutPages(const QString &target)
{
    guarded("Cannot write", target, [&] {
        QPDF empty;
        empty.emptyPDF();
        writeDocument(empty, target, {});
    });
}

} // namespace Engine
