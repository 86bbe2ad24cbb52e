#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <mutex>

namespace Jobs {

// Documents as they were before a run that edited them in place, kept aside in a private
// temporary folder (a hard link where the file system allows, else a copy) so that the run can
// be undone; the kept files are removed with this object.
class KeptOriginals
{
public:
    KeptOriginals();
    ~KeptOriginals();
    KeptOriginals(const KeptOriginals &) = delete;
    KeptOriginals &operator=(const KeptOriginals &) = delete;

    // Keeps the document's present file; false, with the reason in error, when it cannot be
    // kept. Any thread.
    bool keep(const QString &path, QString *error);
    // Notes the document's file as the run left it. Any thread.
    void noteWritten(const QString &path);

    struct Restored
    {
        int restored = 0;
        QStringList changedSince; // changed on disk after the run: left alone
        QStringList failed;       // could not be written back, with the reason
    };
    // Puts back every document the run wrote, byte for byte, through a temporary file beside
    // it renamed over it; a document whose file changed after the run wrote it is left alone.
    // Afterwards nothing is kept.
    Restored restore();
    // The documents that can be put back.
    int count() const;

private:
    struct Kept
    {
        QString copy;
        QString written; // the file's identity as the run left it; empty: not written
    };
    static QString identity(const QString &path);

    QTemporaryDir m_folder;
    mutable std::mutex m_mutex;
    QHash<QString, Kept> m_kept;
    int m_next = 0;
};

} // namespace Jobs
