#include "outputnames.h"

#include <QFileInfo>

namespace Naming {

namespace {

QString resolved(QString nameTemplate, const QString &inputPath)
{
    return nameTemplate.replace(QLatin1String(FileNameToken), BaseName(inputPath));
}

QString joined(const QString &folder, const QString &name)
{
    return folder + QLatin1Char('/') + name + QLatin1String(".pdf");
}

} // namespace

QString BaseName(const QString &path)
{
    const QString name = path.section(QLatin1Char('/'), -1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    // A leading dot starts a hidden name, not an extension.
    return dot <= 0 ? name : name.left(dot);
}

QString
OutputPathForDocument(const QString &nameTemplate, const QString &folder, const QString &inputPath)
{
    const QString t = nameTemplate.isEmpty() ? QString::fromLatin1(FileNameToken) : nameTemplate;
    return joined(folder, resolved(t, inputPath));
}

QString OutputPathForInterval(const QString &nameTemplate,
                              const QString &folder,
                              const QString &inputPath,
                              SplitMode mode,
                              qint64 intervalIndex,
                              qint64 start,
                              qint64 end,
                              const QString &bookmarkName)
{
    const QLatin1String fileName(FileNameToken);
    const QLatin1String startToken(IntervalStartToken);
    const QLatin1String endToken(IntervalEndToken);
    const QLatin1String indexToken(IntervalIndexToken);
    const QLatin1String bookmarkToken(BookmarkNameToken);
    QString t = nameTemplate;
    if (t.isEmpty()) {
        t = fileName;
    } else if (!t.contains(fileName)) {
        const bool pages = t.contains(startToken) && t.contains(endToken);
        if (mode == SplitMode::Consecutive && !t.contains(indexToken)) {
            t += QLatin1String(" (Page[IntervalIndex])");
        } else if (mode == SplitMode::Intervals && !t.contains(indexToken) && !pages) {
            t += QLatin1String(" ([IntervalStart]-[IntervalEnd])");
        } else if (mode == SplitMode::Bookmarks && !t.contains(indexToken)
                   && !t.contains(bookmarkToken) && !pages) {
            t += QLatin1String(" (Page[IntervalIndex])");
        }
    }
    // One token after the other, each over the result of the one before: token text inside
    // the file name is replaced too. A bookmark's title comes last, and is taken as it is.
    t = resolved(t, inputPath);
    if (mode != SplitMode::Consecutive) {
        t.replace(startToken, QString::number(start));
        t.replace(endToken, QString::number(end));
    }
    t.replace(indexToken, QString::number(intervalIndex));
    if (mode == SplitMode::Bookmarks) {
        const QString title = SafeFileName(bookmarkName);
        t.replace(bookmarkToken, title.isEmpty() ? QString::number(intervalIndex) : title);
    }
    return joined(folder, t);
}

QString PieceSuffix(qint64 intervalIndex)
{
    return QStringLiteral(" (Page%1)").arg(intervalIndex);
}

QString SafeFileName(const QString &title)
{
    constexpr qsizetype MaxBytes = 120;
    QString name;
    name.reserve(title.size());
    for (const QChar c : title) {
        if (c == QLatin1Char('/')) {
            name += QLatin1Char('-');
        } else if (c.category() == QChar::Other_Control || c == QChar::LineSeparator
                   || c == QChar::ParagraphSeparator) {
            name += QLatin1Char(' ');
        } else {
            name += c;
        }
    }
    name = name.simplified();
    while (name.startsWith(QLatin1Char('.'))) {
        name = name.mid(1).trimmed();
    }
    const QByteArray utf8 = name.toUtf8();
    if (utf8.size() > MaxBytes) {
        qsizetype cut = MaxBytes;
        while (cut > 0 && (uchar(utf8[cut]) & 0xC0) == 0x80) {
            --cut; // within a character: cut before it
        }
        name = QString::fromUtf8(utf8.left(cut)).trimmed();
    }
    return name;
}

bool SameFile(const QString &a, const QString &b)
{
    if (a == b) {
        return true;
    }
    const QFileInfo fa(a);
    const QFileInfo fb(b);
    if (!fa.exists() || !fb.exists()) {
        return false;
    }
    return fa.canonicalFilePath() == fb.canonicalFilePath();
}

bool OverwritesInput(const QString &outputPath, const QStringList &inputs)
{
    for (const QString &input : inputs) {
        if (SameFile(outputPath, input)) {
            return true;
        }
    }
    return false;
}

bool SelfOverwriteRefused(const QString &outputPath, const QStringList &listPdfPaths)
{
    return listPdfPaths.size() == 1 && SameFile(outputPath, listPdfPaths.front());
}

} // namespace Naming
