#include "keptoriginals.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <sys/stat.h>
#include <unistd.h>

namespace Jobs {

KeptOriginals::KeptOriginals()
    : m_folder(QDir::tempPath() + QStringLiteral("/quire-undo-XXXXXX"))
{}

KeptOriginals::~KeptOriginals() = default;

QString KeptOriginals::identity(const QString &path)
{
    struct stat file = {};
    if (::stat(QFile::encodeName(path).constData(), &file) != 0) {
        return {};
    }
    return QStringLiteral("%1:%2:%3:%4.%5")
        .arg(file.st_dev)
        .arg(file.st_ino)
        .arg(file.st_size)
        .arg(file.st_mtim.tv_sec)
        .arg(file.st_mtim.tv_nsec);
}

bool KeptOriginals::keep(const QString &document, QString *error)
{
    // A link is kept and put back as the file it leads to.
    const QString canonical = QFileInfo(document).canonicalFilePath();
    const QString path = canonical.isEmpty() ? document : canonical;
    if (!m_folder.isValid()) {
        *error = QStringLiteral("no folder for the copies kept for Undo: %1")
                     .arg(m_folder.errorString());
        return false;
    }
    QString copy;
    {
        std::lock_guard lock(m_mutex);
        copy = m_folder.filePath(QString::number(m_next++));
    }
    // The edit puts a new file in the document's place: a second name of the old one keeps it.
    const bool linked
        = ::link(QFile::encodeName(path).constData(), QFile::encodeName(copy).constData()) == 0;
    if (!linked && !QFile::copy(path, copy)) {
        *error = QStringLiteral("it could not be kept aside for Undo");
        return false;
    }
    std::lock_guard lock(m_mutex);
    m_kept.insert(path, Kept{copy, QString()});
    return true;
}

void KeptOriginals::noteWritten(const QString &document)
{
    const QString canonical = QFileInfo(document).canonicalFilePath();
    const QString path = canonical.isEmpty() ? document : canonical;
    const QString written = identity(path);
    std::lock_guard lock(m_mutex);
    const auto found = m_kept.find(path);
    if (found != m_kept.end()) {
        found->written = written;
    }
}

int KeptOriginals::count() const
{
    std::lock_guard lock(m_mutex);
    return int(std::count_if(
        m_kept.begin(), m_kept.end(), [](const Kept &k) { return !k.written.isEmpty(); }));
}

KeptOriginals::Restored KeptOriginals::restore()
{
    Restored result;
    std::lock_guard lock(m_mutex);
    for (auto it = m_kept.begin(); it != m_kept.end(); ++it) {
        const QString &path = it.key();
        if (it->written.isEmpty()) {
            continue; // the run did not change it
        }
        if (identity(path) != it->written) {
            result.changedSince << path;
            continue;
        }
        QFile kept(it->copy);
        QSaveFile target(path);
        if (!kept.open(QIODevice::ReadOnly) || !target.open(QIODevice::WriteOnly)) {
            result.failed << QStringLiteral("%1: %2").arg(
                path, kept.isOpen() ? target.errorString() : kept.errorString());
            continue;
        }
        bool written = true;
        while (written && !kept.atEnd()) {
            const QByteArray block = kept.read(1 << 20);
            written = !block.isEmpty() && target.write(block) == block.size();
        }
        if (!written || !target.commit()) {
            result.failed << QStringLiteral("%1: %2").arg(path, target.errorString());
            continue;
        }
        ++result.restored;
    }
    for (const Kept &kept : std::as_const(m_kept)) {
        QFile::remove(kept.copy);
    }
    m_kept.clear();
    return result;
}

} // namespace Jobs
