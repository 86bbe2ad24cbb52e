#include "enginesupport.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFSystemError.hh>
#include <qpdf/QPDFWriter.hh>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcEngine, "quire.engine", QtWarningMsg)

namespace Engine {

std::string encodePath(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

OpenDocument openDocument(const QString &path, OpenFailure *failure)
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
            auto input = std::make_shared<ClosedFileInputSource>(encodePath(path).c_str());
            input->stayOpen(true);
            pdf->processInputSource(input);
            pdf->getAllPages(); // a page tree that cannot be read means the document does not open
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

void logWarnings(QPDF &pdf, const QString &path)
{
    if (!pdf.anyWarnings() || !lcEngine().isInfoEnabled()) {
        return;
    }
    for (const auto &warning : pdf.getWarnings()) {
        qCInfo(lcEngine).noquote().nospace() << path << ": " << warning.what();
    }
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
    if (!output.file()) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << target << ": " << output.errorText();
        return false;
    }
    const bool written = guarded("Cannot write", target, [&] {
        QPDFWriter writer(pdf);
        writer.setOutputFile(output.tempPath().c_str(), output.file(), false);
        // Copied streams keep their bytes: decoding and re-deflating them costs several times
        // the whole copy and gains nothing.
        writer.setCompressStreams(false);
        writer.setDecodeLevel(qpdf_dl_none);
        writer.setPreserveEncryption(false);
        writer.setMinimumPDFVersion(settings.minimumVersion);
        writer.setDeterministicID(settings.deterministicId);
        writer.write();
    });
    if (!written) {
        return false;
    }
    if (!output.commit(settings.sync)) {
        qCWarning(lcEngine).noquote().nospace()
            << "Cannot write " << target << ": " << output.errorText();
        return false;
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

static QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

PendingOutput::PendingOutput(const QString &target)
    : m_target(target)
{
    const QFileInfo info(target);
    // Hidden, beside the target, so the rename stays within one file system.
    m_tempPath = encodePath(info.absolutePath() + QLatin1String("/.") + info.fileName()
                            + QLatin1String(".quire-XXXXXX"));
    const int fd = ::mkostemp(m_tempPath.data(), O_CLOEXEC);
    if (fd < 0) {
        m_error = errnoText(errno);
        m_tempPath.clear();
        return;
    }
    m_file = ::fdopen(fd, "wb");
    if (!m_file) {
        m_error = errnoText(errno);
        ::close(fd);
    }
}

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
    if (ok && sync && ::fsync(::fileno(file)) != 0) {
        ok = false;
        error = errno;
    }
    // A replaced file keeps its permissions; a new one gets the usual ones for new files.
    mode_t mode = 0;
    struct stat existing;
    const std::string target = encodePath(m_target);
    if (::stat(target.c_str(), &existing) == 0) {
        mode = existing.st_mode & 07777;
    } else {
        mode = 0666 & ~processUmask();
    }
    if (ok && ::fchmod(::fileno(file), mode) != 0) {
        ok = false;
        error = errno;
    }
    if (std::fclose(file) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && ::rename(m_tempPath.c_str(), target.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        m_error = errnoText(error);
        return false;
    }
    m_committed = true;
    return true;
}

} // namespace Engine
