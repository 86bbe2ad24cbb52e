#include "enginesupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFSystemError.hh>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDFWriter.hh>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <utility>
#include <unistd.h>
// The hash is compiled in: no library to load for it.
#define XXH_INLINE_ALL
#include <xxhash.h>

Q_LOGGING_CATEGORY(lcEngine, "quire.engine", QtWarningMsg)

namespace Engine {

namespace {

// What the writer writes, on its way into the output file: digested for the document's ID as it
// passes (instead of reading the whole file back), and, for a synced output, handed to the disk
// every few megabytes, so that the sync at the end waits for the last ones only.
class OutputPipeline final : public Pipeline
{
public:
    OutputPipeline(FILE *file, bool writeBack)
        : Pipeline("output", nullptr)
        , m_file(file)
        , m_writeBack(writeBack)
        , m_digest(XXH3_createState())
    {
        if (!m_digest) {
            throw std::bad_alloc();
        }
        XXH3_128bits_reset(m_digest);
        m_pending.reserve(PendingBytes);
    }
    ~OutputPipeline() override { XXH3_freeState(m_digest); }
    OutputPipeline(const OutputPipeline &) = delete;
    OutputPipeline &operator=(const OutputPipeline &) = delete;

    void write(unsigned char const *data, size_t length) override
    {
        if (length == 0) {
            return;
        }
        XXH3_128bits_update(m_digest, data, length);
        // The writer passes objects and streams on one by one: gathered here, they reach the
        // file in a few large writes rather than one or two for every stream.
        if (m_pending.size() + length > PendingBytes) {
            if (!passOn()) {
                throw std::system_error(errno, std::generic_category(), "write");
            }
        }
        if (length >= PendingBytes) {
            if (std::fwrite(data, 1, length, m_file) != length) {
                throw std::system_error(errno, std::generic_category(), "write");
            }
            m_written += length;
        } else {
            m_pending.insert(m_pending.end(), data, data + length);
        }
        if (m_writeBack && m_written - m_handedOver >= WriteBackBytes
            && std::fflush(m_file) == 0) {
            ::sync_file_range(::fileno(m_file),
                              off_t(m_handedOver),
                              off_t(m_written - m_handedOver),
                              SYNC_FILE_RANGE_WRITE);
            m_handedOver = m_written;
        }
    }
    // qpdf calls this after every stream it writes, and while it unwinds from an error: what
    // was gathered waits for more, and flush() ends the document.
    void finish() override {}
    // Writes what was gathered and flushes the file; false when the file refused it.
    bool flush() { return passOn() && std::fflush(m_file) == 0; }
    // 16 bytes, the same for the same bytes written on any machine.
    QByteArray digest() const
    {
        XXH128_canonical_t canonical;
        XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(m_digest));
        return QByteArray(reinterpret_cast<const char *>(canonical.digest),
                          qsizetype(sizeof(canonical.digest)));
    }

private:
    static constexpr size_t WriteBackBytes = 4 << 20;
    static constexpr size_t PendingBytes = 1 << 20;

    // Writes what was gathered; false when the file refused it.
    bool passOn()
    {
        const size_t length = m_pending.size();
        const bool written = std::fwrite(m_pending.data(), 1, length, m_file) == length;
        m_pending.clear();
        m_written += length;
        return written;
    }

    FILE *m_file;
    bool m_writeBack;
    XXH3_state_t *m_digest;
    size_t m_written = 0; // passed on to the file
    size_t m_handedOver = 0;
    std::vector<unsigned char> m_pending;
};

} // namespace

static bool stampDocumentId(FILE *file, const QByteArray &digest);

std::string encodePath(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

OpenDocument
openDocument(const QString &path, OpenFailure *failure, bool readPages, OpenFiles *group)
{
    OpenDocument doc;
    OpenFailure reason = OpenFailure::None;
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isFile() || !info.isReadable()) {
        qCInfo(lcEngine).noquote().nospace() << "Cannot read " << path;
        reason = OpenFailure::Missing;
    } else {
        try {
            auto pdf = std::make_unique<QPDF>();
            pdf->setSuppressWarnings(true);
            auto input = BlockInputSource::open(encodePath(path), group);
            pdf->processInputSource(input);
            if (readPages) {
                pdf->getAllPages();
            }
            logWarnings(*pdf, path);
            doc.pdf = std::move(pdf);
            doc.input = std::move(input);
        } catch (const QPDFExc &e) {
            reason = e.getErrorCode() == qpdf_e_password ? OpenFailure::Password
                                                         : OpenFailure::Damaged;
            qCInfo(lcEngine).noquote().nospace() << "Cannot open " << path << ": " << e.what();
        } catch (const QPDFSystemError &e) {
            reason = OpenFailure::Missing;
            qCInfo(lcEngine).noquote().nospace() << "Cannot open " << path << ": " << e.what();
        } catch (const std::exception &e) {
            reason = OpenFailure::Damaged;
            qCInfo(lcEngine).noquote().nospace() << "Cannot open " << path << ": " << e.what();
        }
    }
    if (failure) {
        *failure = reason;
    }
    return doc;
}

qint64 pageCount(QPDF &pdf)
{
    // The count the page tree claims, read without walking the tree (a 1,300-page manual is
    // counted in 0.03 s instead of 0.7), as long as the file could hold that many pages: each
    // page is an object of its own. A tree that claims more (a million million pages, which
    // would make a run plan as many) is counted page by page.
    if (!pdf.everCalledGetAllPages()) {
        auto count = pdf.getRoot().getKey("/Pages").getKey("/Count");
        if (count.isInteger() && count.getIntValue() >= 0
            && count.getIntValue() <= qint64(pdf.getXRefTable().size())) {
            return count.getIntValue();
        }
    }
    return qint64(pdf.getAllPages().size());
}

static QPDFObjectHandle firstLeaf(QPDFObjectHandle node, int depth)
{
    auto kids = node.getKey("/Kids");
    if (!kids.isArray()) {
        return node.isDictionary() && node.hasKey("/Type")
                       && !node.getKey("/Type").isNameAndEquals("/Pages")
                   ? node
                   : QPDFObjectHandle::newNull();
    }
    if (depth > 64) { // a tree that loops
        return QPDFObjectHandle::newNull();
    }
    for (auto kid : kids.aitems()) {
        auto page = firstLeaf(kid, depth + 1);
        if (!page.isNull()) {
            return page;
        }
    }
    return QPDFObjectHandle::newNull();
}

QPDFObjectHandle firstPage(QPDF &pdf)
{
    auto page = firstLeaf(pdf.getRoot().getKey("/Pages"), 0);
    if (page.isNull() && !pdf.getAllPages().empty()) {
        page = pdf.getAllPages().front();
    }
    return page;
}

PDFVersion versionOf(QPDF &pdf)
{
    const std::string text = pdf.getPDFVersion();
    const auto dot = text.find('.');
    int major = 1;
    int minor = 3;
    try {
        major = std::stoi(text.substr(0, dot));
        minor = dot == std::string::npos ? 0 : std::stoi(text.substr(dot + 1));
    } catch (const std::exception &) {
        return PDFVersion(1, 3);
    }
    return PDFVersion(major, minor, pdf.getExtensionLevel());
}

std::string pdfNumber(double value, int decimals)
{
    QByteArray text = QByteArray::number(value, 'f', decimals);
    if (text.contains('.')) {
        while (text.endsWith('0')) {
            text.chop(1);
        }
        if (text.endsWith('.')) {
            text.chop(1);
        }
    }
    if (text == "-0" || text.isEmpty()) {
        text = "0";
    }
    return text.toStdString();
}

QRectF rectangleOf(QPDFObjectHandle box)
{
    const auto r = box.getArrayAsRectangle();
    return QRectF(QPointF(std::min(r.llx, r.urx), std::min(r.lly, r.ury)),
                  QPointF(std::max(r.llx, r.urx), std::max(r.lly, r.ury)));
}

PageGeometry geometryOf(QPDFPageObjectHelper page)
{
    const QRectF letter(0, 0, 612, 792);
    PageGeometry geometry;
    auto media = page.getAttribute("/MediaBox", false);
    geometry.mediaBox = media.isRectangle() ? rectangleOf(media) : letter;
    if (geometry.mediaBox.isEmpty()) {
        geometry.mediaBox = letter;
    }
    geometry.visibleBox = geometry.mediaBox;
    auto crop = page.getAttribute("/CropBox", false);
    if (crop.isRectangle() && !rectangleOf(crop).isEmpty()) {
        geometry.visibleBox = rectangleOf(crop).intersected(geometry.mediaBox);
    }
    auto rotate = page.getAttribute("/Rotate", false);
    if (rotate.isNumber() && std::isfinite(rotate.getNumericValue())
        && std::fabs(rotate.getNumericValue()) < 1e9) {
        // Whole quarter turns; a value between them counts as the one below it.
        const int quarters = (int(rotate.getNumericValue()) / 90) % 4;
        geometry.rotation = (quarters < 0 ? quarters + 4 : quarters) * 90;
    }
    return geometry;
}

void logWarnings(QPDF &pdf, const QString &path)
{
    if (!pdf.anyWarnings() || !lcEngine().isInfoEnabled()) {
        return;
    }
    for (const auto &warning : pdf.getWarnings()) {
        qCInfo(lcEngine).noquote().nospace() << path << ": " << warning.what();
    }
}

QString infoText(QPDFObjectHandle info, const char *key)
{
    auto value = info.getKey(key);
    return value.isString() ? QString::fromStdString(value.getUTF8Value()) : QString();
}

QString joinKeywords(const QStringList &keywords)
{
    return keywords.join(QLatin1String(", "));
}

QStringList splitKeywords(const QString &keywords)
{
    QStringList list;
    for (const QString &piece : keywords.split(QRegularExpression(QStringLiteral("[,;]")))) {
        const QString keyword = piece.trimmed();
        if (!keyword.isEmpty()) {
            list << keyword;
        }
    }
    return list;
}

void copyDocumentInfo(QPDF &source, QPDF &target)
{
    auto info = source.getTrailer().getKey("/Info");
    if (!info.isDictionary()) {
        return;
    }
    if (info.isIndirect()) {
        target.getTrailer().replaceKey("/Info", target.copyForeignObject(info));
        return;
    }
    // copyForeignObject refuses direct objects: a direct dictionary is copied entry by entry,
    // keeping the texts, names and numbers it holds.
    auto copy = QPDFObjectHandle::newDictionary();
    for (auto [key, value] : info.ditems()) {
        if (value.isIndirect()) {
            copy.replaceKey(key, target.copyForeignObject(value));
        } else if (value.isString() || value.isName() || value.isNumber() || value.isBool()) {
            copy.replaceKey(key, value.shallowCopy());
        }
    }
    target.getTrailer().replaceKey("/Info", target.makeIndirectObject(copy));
}

bool writeDocument(QPDF &pdf, const QString &target, const WriteSettings &settings)
{
    PendingOutput output(target);
    if (!writeDocument(pdf, output, settings)) {
        return false;
    }
    if (!output.commit(settings.sync)) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << target << ": " << output.errorText();
        return false;
    }
    return true;
}

bool writeDocument(QPDF &pdf, PendingOutput &output, const WriteSettings &settings)
{
    if (!output.file()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << output.target() << ": " << output.errorText();
        return false;
    }
    std::optional<OutputPipeline> pipeline;
    const bool written = guarded("Cannot write", output.target(), [&] {
        pipeline.emplace(output.file(), settings.sync);
        QPDFWriter writer(pdf);
        writer.setOutputPipeline(&*pipeline);
        // Copied streams keep their bytes: decoding and re-deflating them costs several times
        // the whole copy and gains nothing.
        writer.setCompressStreams(false);
        writer.setDecodeLevel(qpdf_dl_none);
        writer.setPreserveEncryption(settings.inPlace);
        writer.setMinimumPDFVersion(settings.minimumVersion);
        // A placeholder ID, replaced below by one derived from the written bytes. A document
        // that replaces itself keeps the first part of its own ID, which its encryption may
        // depend on.
        writer.setStaticID(!settings.inPlace);
        writer.write();
        if (!pipeline->flush()) {
            throw std::system_error(errno, std::generic_category(), "write");
        }
    });
    if (!written) {
        return false;
    }
    if (!settings.inPlace && !stampDocumentId(output.file(), pipeline->digest())) {
        qCInfo(lcEngine).noquote().nospace() << "No document ID written into " << output.target();
    }
    return true;
}

// The umask, read without changing it (umask() cannot be read without setting it, which would
// race with other threads creating files).
static mode_t processUmask()
{
    static const mode_t mask = [] {
        QFile status(QStringLiteral("/proc/self/status"));
        if (status.open(QIODevice::ReadOnly)) {
            const QList<QByteArray> lines = status.readAll().split('\n');
            for (const QByteArray &line : lines) {
                if (line.startsWith("Umask:")) {
                    bool ok = false;
                    const uint value = line.mid(6).trimmed().toUInt(&ok, 8);
                    if (ok) {
                        return mode_t(value);
                    }
                }
            }
        }
        return mode_t(022);
    }();
    return mask;
}

// The same document gets the same ID, so a run gives the same bytes however it is scheduled,
// and two different documents get different IDs: a digest of every byte written. The ID qpdf
// wrote is a fixed placeholder in the trailer; the digest was taken with it in place.
static bool stampDocumentId(FILE *file, const QByteArray &digest)
{
    static constexpr QLatin1String placeholder("<31415926535897932384626433832795>");
    static constexpr qint64 tailSize = 8 * 1024;
    if (std::fflush(file) != 0) {
        return false;
    }
    const int fd = ::fileno(file);
    struct stat info;
    if (::fstat(fd, &info) != 0) {
        return false;
    }
    const qint64 size = info.st_size;
    // The trailer, or the dictionary of the cross-reference stream, is at the end.
    const qint64 tailStart = std::max<qint64>(0, size - tailSize);
    QByteArray tail(size - tailStart, Qt::Uninitialized);
    if (::pread(fd, tail.data(), size_t(tail.size()), off_t(tailStart)) != tail.size()) {
        return false;
    }
    const qsizetype idKey = tail.lastIndexOf("/ID [");
    if (idKey < 0) {
        return false;
    }
    const QByteArray id = '<' + digest.toHex() + '>';
    bool stamped = false;
    for (qsizetype at = tail.indexOf(placeholder.data(), idKey);
         at >= 0 && at < idKey + 5 + 2 * placeholder.size();
         at = tail.indexOf(placeholder.data(), at + 1)) {
        if (::pwrite(fd, id.constData(), size_t(id.size()), off_t(tailStart + at)) != id.size()) {
            return false;
        }
        stamped = true;
    }
    return stamped;
}

static QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

namespace {

constexpr char temporaryMark[] = ".quire-";

// The file-name limit of the folder's file system (255 on most).
size_t nameLimit(const std::string &folder)
{
    const long limit = ::pathconf(folder.c_str(), _PC_NAME_MAX);
    return limit > 0 ? size_t(limit) : 255;
}

// At most bytes of a UTF-8 name, not cutting a character in two.
std::string cutUtf8(std::string name, size_t bytes)
{
    if (name.size() <= bytes) {
        return name;
    }
    size_t end = bytes;
    while (end > 0 && (uchar(name[end]) & 0xC0) == 0x80) {
        --end;
    }
    name.resize(end);
    return name;
}

// Copies the extended attributes of one open file to another (access control lists are some);
// what the file system refuses is left out.
void copyExtendedAttributes(int from, int to)
{
    const ssize_t length = ::flistxattr(from, nullptr, 0);
    if (length <= 0) {
        return;
    }
    std::string names(size_t(length), '\0');
    if (::flistxattr(from, names.data(), names.size()) != length) {
        return;
    }
    for (size_t at = 0; at < names.size(); at += std::strlen(names.c_str() + at) + 1) {
        const char *name = names.c_str() + at;
        const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
        if (size < 0) {
            continue;
        }
        std::string value(size_t(size), '\0');
        if (::fgetxattr(from, name, value.data(), value.size()) == size) {
            [[maybe_unused]] const int ignored
                = ::fsetxattr(to, name, value.data(), value.size(), 0);
        }
    }
}

} // namespace

void removeStaleTemporaries(const QString &folder)
{
    const QDir dir(folder);
    const QStringList candidates
        = dir.entryList({QLatin1String("*") + QLatin1String(temporaryMark) + QLatin1String("*")},
                        QDir::Files | QDir::Hidden | QDir::System);
    static const QRegularExpression made(QStringLiteral("\\.quire-(\\d+)-[A-Za-z0-9]{6}$"));
    for (const QString &name : candidates) {
        const auto match = made.match(name);
        if (!match.hasMatch()) {
            continue;
        }
        // Another process's file while it runs; a dead one's is left over.
        const pid_t pid = pid_t(match.captured(1).toLongLong());
        if (pid == ::getpid() || ::kill(pid, 0) == 0 || errno != ESRCH) {
            continue;
        }
        QFile::remove(dir.filePath(name));
    }
}

PendingOutput::PendingOutput(const QString &target)
    : m_target(target)
{
    const QFileInfo info(target);
    // Hidden, beside the target, so the rename stays within one file system; the target's name
    // is cut where the whole would pass the name limit.
    const std::string folder = encodePath(info.absolutePath());
    const std::string mark = temporaryMark + std::to_string(::getpid()) + "-XXXXXX";
    const std::string name
        = cutUtf8(encodePath(info.fileName()), nameLimit(folder) - mark.size() - 1);
    m_tempPath = folder + "/." + name + mark;
    const int fd = ::mkostemp(m_tempPath.data(), O_CLOEXEC);
    if (fd < 0) {
        m_error = errnoText(errno);
        m_tempPath.clear();
        return;
    }
    m_file = ::fdopen(fd, "w+b"); // read back to derive the document ID
    if (m_file) {
        std::setvbuf(m_file, nullptr, _IOFBF, 256 * 1024);
    }
    if (!m_file) {
        m_error = errnoText(errno);
        ::close(fd);
    }
}

namespace {

void syncFolder(const std::string &folder)
{
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

} // namespace

// The outputs waiting to be put in place, on a thread where an OutputCommitGroup is alive.
struct GroupedOutput
{
    std::string tempPath;
    std::string target;
    QString targetName;
};
thread_local std::vector<GroupedOutput> *groupedOutputs = nullptr;

PendingOutput::~PendingOutput()
{
    if (m_file) {
        std::fclose(m_file);
    }
    if (!m_committed && !m_tempPath.empty()) {
        ::unlink(m_tempPath.c_str());
    }
}

bool PendingOutput::commit(bool sync)
{
    if (!m_file) {
        return false;
    }
    FILE *file = m_file;
    m_file = nullptr;
    bool ok = std::fflush(file) == 0 && !std::ferror(file);
    int error = ok ? 0 : errno;
    if (ok && sync && !groupedOutputs && ::fsync(::fileno(file)) != 0) {
        ok = false;
        error = errno;
    }
    // A replaced file keeps its permissions, its extended attributes, and its owner where the
    // system allows; a new one gets the usual permissions for new files.
    mode_t mode = 0;
    struct stat existing;
    const std::string target = encodePath(m_target);
    if (::stat(target.c_str(), &existing) == 0) {
        mode = existing.st_mode & 07777;
        if (existing.st_uid != ::geteuid() || existing.st_gid != ::getegid()) {
            [[maybe_unused]] const int ignored
                = ::fchown(::fileno(file), existing.st_uid, existing.st_gid);
        }
        const int old = ::open(target.c_str(), O_RDONLY | O_CLOEXEC);
        if (old >= 0) {
            copyExtendedAttributes(old, ::fileno(file));
            ::close(old);
        }
    } else {
        mode = 0666 & ~processUmask();
    }
    if (ok && ::fchmod(::fileno(file), mode) != 0) {
        ok = false;
        error = errno;
    }
    if (ok && sync && groupedOutputs) {
        // Its bytes start on their way to the disk now; the group waits for them with the others.
        ::sync_file_range(::fileno(file), 0, 0, SYNC_FILE_RANGE_WRITE);
    }
    if (std::fclose(file) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && sync && groupedOutputs) {
        groupedOutputs->push_back({m_tempPath, target, m_target});
        m_committed = true;
        return true;
    }
    if (ok && ::rename(m_tempPath.c_str(), target.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (ok && sync) {
        // The rename itself reaches the disk with the folder.
        const std::string folder = encodePath(QFileInfo(m_target).absolutePath());
        if (FolderSyncs::s_current) {
            FolderSyncs::s_current->add(folder);
        } else {
            syncFolder(folder);
        }
    }
    if (!ok) {
        m_error = errnoText(error);
        return false;
    }
    m_committed = true;
    return true;
}

namespace {

std::atomic<bool> keepDocuments = false;

} // namespace

bool keepingDocuments()
{
    return keepDocuments;
}

void keepUntilExit(std::shared_ptr<void> documents)
{
    static std::mutex mutex;
    static auto *kept = new std::vector<std::shared_ptr<void>>;
    std::lock_guard lock(mutex);
    kept->push_back(std::move(documents));
}

} // namespace Engine

void PDFTools::KeepDocumentsUntilExit(bool keep)
{
    Engine::keepDocuments = keep;
}

thread_local FolderSyncs *FolderSyncs::s_current = nullptr;

struct FolderSyncs::Private
{
    std::mutex mutex;
    std::set<std::string> folders;
};

FolderSyncs::FolderSyncs()
    : d(std::make_unique<Private>())
{}

FolderSyncs::~FolderSyncs()
{
    finish();
}

FolderSyncs::Scope::Scope(FolderSyncs &syncs)
    : m_previous(s_current)
{
    s_current = &syncs;
}

FolderSyncs::Scope::~Scope()
{
    s_current = m_previous;
}

void FolderSyncs::add(const std::string &folder)
{
    std::lock_guard lock(d->mutex);
    d->folders.insert(folder);
}

void FolderSyncs::finish()
{
    std::set<std::string> folders;
    {
        std::lock_guard lock(d->mutex);
        folders.swap(d->folders);
    }
    for (const std::string &folder : folders) {
        Engine::syncFolder(folder);
    }
}

struct OutputCommitGroup::Private
{
    std::vector<Engine::GroupedOutput> outputs;
};

OutputCommitGroup::OutputCommitGroup()
    : d(std::make_unique<Private>())
{
    Q_ASSERT(!Engine::groupedOutputs);
    Engine::groupedOutputs = &d->outputs;
}

OutputCommitGroup::~OutputCommitGroup()
{
    Engine::groupedOutputs = nullptr;
    for (const Engine::GroupedOutput &output : d->outputs) {
        ::unlink(output.tempPath.c_str());
    }
}

QList<OutputCommitGroup::Failure> OutputCommitGroup::finish()
{
    Engine::groupedOutputs = nullptr;
    QList<Failure> failures;
    // The first sync commits what every file of the group needs; the others find it done.
    std::vector<bool> synced(d->outputs.size(), false);
    for (size_t k = 0; k < d->outputs.size(); ++k) {
        const Engine::GroupedOutput &output = d->outputs[k];
        const int fd = ::open(output.tempPath.c_str(), O_RDONLY | O_CLOEXEC);
        int error = fd < 0 ? errno : 0;
        if (fd >= 0) {
            if (::fdatasync(fd) != 0) {
                error = errno;
            }
            ::close(fd);
        }
        if (error == 0 && ::rename(output.tempPath.c_str(), output.target.c_str()) != 0) {
            error = errno;
        }
        if (error != 0) {
            ::unlink(output.tempPath.c_str());
            failures.append({output.targetName, Engine::errnoText(error)});
        } else {
            synced[k] = true;
        }
    }
    std::set<std::string> folders;
    for (size_t k = 0; k < d->outputs.size(); ++k) {
        if (synced[k]) {
            folders.insert(Engine::encodePath(QFileInfo(d->outputs[k].targetName).absolutePath()));
        }
    }
    for (const std::string &folder : folders) {
        Engine::syncFolder(folder);
    }
    d->outputs.clear();
    return failures;
}
