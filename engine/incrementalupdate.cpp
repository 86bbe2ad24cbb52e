#include "incrementalupdate.h"

#include "blockinputsource.h"

#include <QCryptographicHash>

#include <qpdf/Buffer.hh>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace Engine {

namespace {

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

// Whether the changes can be written as an update to the source's bytes, and from where.
std::optional<UpdateBase> updateBaseOf(QPDF &pdf,
                                       bool repaired,
                                       int fd,
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
    if (!size.isInteger() || trailer.hasKey("/XRefStm") || !trailer.getKey("/Root").isIndirect()) {
        return std::nullopt;
    }
    UpdateBase base;
    base.size = size.getIntValue();
    // Objects that qpdf made itself (a page object listed twice in the page tree is copied) are
    // not in the source; added ones must not take numbers the source uses.
    for (auto object : changed) {
        if (object.getObjectID() >= base.size) {
            return std::nullopt;
        }
    }
    for (auto object : added) {
        if (object.getObjectID() < base.size) {
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

// The update: the objects as new revisions (or new objects), a cross-reference section for them
// in the source's form, and the trailer.
QByteArray
updateOf(QPDF &pdf, const UpdateBase &base, qint64 fileSize, std::vector<QPDFObjectHandle> objects)
{
    std::sort(objects.begin(), objects.end(), [](QPDFObjectHandle a, QPDFObjectHandle b) {
        return a.getObjectID() < b.getObjectID();
    });
    long long size = base.size;
    struct Entry
    {
        long long object;
        int generation;
        qint64 offset;
    };
    std::vector<Entry> entries;
    QByteArray update("\n");
    update.reserve(qsizetype(objects.size()) * 512);
    for (auto object : objects) {
        entries.push_back(
            {object.getObjectID(), object.getGeneration(), fileSize + qint64(update.size())});
        size = std::max(size, (long long)object.getObjectID() + 1);
        update += QByteArray::number(object.getObjectID()) + ' '
                  + QByteArray::number(object.getGeneration()) + " obj\n" + bodyOf(object)
                  + "\nendobj\n";
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
        update += "trailer\n<< /Size " + QByteArray::number(size) + keys + " >>\n";
    } else {
        // The section is itself a new object, the first free number.
        entries.push_back({size, 0, sectionOffset});
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
        update += QByteArray::number(size) + " 0 obj\n<< /Type /XRef /Size "
                  + QByteArray::number(size + 1) + " /W [1 8 2] /Index [" + index.mid(1) + "]"
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

} // namespace

UpdatableDocument::UpdatableDocument(const QString &path)
    : m_path(path)
    , m_fd(::open(encodePath(path).c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat info;
    if (m_fd < 0 || ::fstat(m_fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        return;
    }
    m_size = info.st_size;
    auto pdf = std::make_unique<QPDF>();
    pdf->setSuppressWarnings(true);
    if (!guarded("Cannot open", path, [&] {
            pdf->processInputSource(
                std::make_shared<BlockInputSource>(m_fd, m_size, encodePath(path)));
            pdf->getAllPages();
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
    m_pdf.reset(); // the document reads from the descriptor until it goes
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

bool UpdatableDocument::write(const std::vector<QPDFObjectHandle> &changed,
                              const std::vector<QPDFObjectHandle> &added,
                              const QString &target,
                              const PDFVersion &minimumVersion)
{
    QPDF &pdf = *m_pdf;
    const PDFVersion version = versionOf(pdf);
    const auto base = version < minimumVersion
                          ? std::nullopt
                          : updateBaseOf(pdf, m_repaired, m_fd, m_size, changed, added);
    if (!base) {
        return writeDocument(pdf, target, {version < minimumVersion ? minimumVersion : version});
    }
    std::vector<QPDFObjectHandle> objects = changed;
    objects.insert(objects.end(), added.begin(), added.end());
    const QByteArray update
        = objects.empty() ? QByteArray() : updateOf(pdf, *base, m_size, objects);
    return writeUpdate(m_fd, m_size, update, target);
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
