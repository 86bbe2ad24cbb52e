#pragma once

#include <QString>
#include <QStringList>

// Output paths made from a name template, an input document and an output folder.
namespace Naming {

inline constexpr auto FileNameToken = "[FileName]";
inline constexpr auto IntervalStartToken = "[IntervalStart]";
inline constexpr auto IntervalEndToken = "[IntervalEnd]";
inline constexpr auto IntervalIndexToken = "[IntervalIndex]";

enum class SplitMode { Consecutive, Intervals };

// The last component of path without its last extension ("report.final.pdf" -> "report.final").
QString BaseName(const QString &path);

// Crop and watermark: folder + "/" + template with "[FileName]" replaced + ".pdf".
QString
OutputPathForDocument(const QString &nameTemplate, const QString &folder, const QString &inputPath);

// Split: one path per interval (index counted from 1). A template that could give two intervals
// of a document the same name gets a suffix that tells them apart.
QString OutputPathForInterval(const QString &nameTemplate,
                              const QString &folder,
                              const QString &inputPath,
                              SplitMode mode,
                              qint64 intervalIndex,
                              qint64 start,
                              qint64 end);

// True when writing outputPath must be refused because it is the only listed document.
bool SelfOverwriteRefused(const QString &outputPath, const QStringList &listPdfPaths);

// True when outputPath is one of the input documents: writing it would replace a document that
// the run reads (or has yet to read).
bool OverwritesInput(const QString &outputPath, const QStringList &inputs);

// True when two paths name the same file: the same text, or the same file reached another way.
bool SameFile(const QString &a, const QString &b);

} // namespace Naming
