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
                              qint64 end)
{
    const QLatin1String fileName(FileNameToken);
    const QLatin1String startToken(IntervalStartToken);
    const QLatin1String endToken(IntervalEndToken);
    const QLatin1String indexToken(IntervalIndexToken);
    QString t = nameTemplate;
    if (t.isEmpty()) {
        t = fileName;
    } else if (!t.contains(fileName)) {
        if (mode == SplitMode::Consecutive && !t.contains(indexToken)) {
            t += QLatin1String(" (Page[IntervalIndex])");
        } else if (mode == SplitMode::Intervals && !t.contains(indexToken)
                   && !(t.contains(startToken) && t.contains(endToken))) {
            t += QLatin1String(" ([IntervalStart]-[IntervalEnd])");
        }
    }
    // One token after the other, each over the result of the one before: token text inside
    // the file name is replaced too.
    t = resolved(t, inputPath);
    if (mode == SplitMode::Intervals) {
        t.replace(startToken, QString::number(start));
        t.replace(endToken, QString::number(end));
    }
    t.replace(indexToken, QString::number(intervalIndex));
    return joined(folder, t);
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
