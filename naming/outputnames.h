#pragma once

#include <QString>
#include <QStringList>

// Output paths made from a name template, an input document and an output folder.
namespace Naming {

inline constexpr auto FileNameToken = "[FileName]";
inline constexpr auto IntervalStartToken = "[IntervalStart]";
inline constexpr auto IntervalEndToken = "[IntervalEnd]";
inline constexpr auto IntervalIndexToken = "[IntervalIndex]";
inline constexpr auto BookmarkNameToken = "[BookmarkName]";

enum class SplitMode { Consecutive, Intervals, Bookmarks };

// The last component of path without its last extension ("report.final.pdf" -> "report.final").
QString BaseName(const QString &path);

// Crop and watermark: folder + "/" + template with "[FileName]" replaced + ".pdf".
QString
OutputPathForDocument(const QString &nameTemplate, const QString &folder, const QString &inputPath);

// Split: one path per interval (index counted from 1). A template that could give two intervals
// of a document the same name gets a suffix that tells them apart. At bookmarks, bookmarkName
// is the title of the bookmark that starts the piece, made safe as a file name.
QString OutputPathForInterval(const QString &nameTemplate,
                              const QString &folder,
                              const QString &inputPath,
                              SplitMode mode,
                              qint64 intervalIndex,
                              qint64 start,
                              qint64 end,
                              const QString &bookmarkName = QString());

// The suffix that tells apart two pieces of a split with the same name: " (Page3)" for the
// third piece.
QString PieceSuffix(qint64 intervalIndex);

// A title as a file name: no "/" (a "-" in its place), control characters and runs of blanks
// as one space, no blanks at either end and no leading dot (which would hide the file), at
// most 120 bytes in UTF-8 (cut between characters). Empty when nothing is left.
QString SafeFileName(const QString &title);

// True when writing outputPath must be refused because it is the only listed document.
bool SelfOverwriteRefused(const QString &outputPath, const QStringList &listPdfPaths);

// True when outputPath is one of the input documents: writing it would replace a document that
// the run reads (or has yet to read).
bool OverwritesInput(const QString &outputPath, const QStringList &inputs);

// True when two paths name the same file: the same text, or the same file reached another way.
bool SameFile(const QString &a, const QString &b);

} // namespace Naming
