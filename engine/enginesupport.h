#pragma once

// Engine-internal helpers around qpdf: opening documents, writing outputs safely, and keeping
// qpdf's exceptions inside the engine. Only engine/ includes this header.

#include "blockinputsource.h"
#include "pdftools.h"

#include <QLoggingCategory>
#include <QRectF>
#include <QString>
#include <QStringList>

#include <qpdf/PDFVersion.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

Q_DECLARE_LOGGING_CATEGORY(lcEngine)

namespace Engine {

std::string encodePath(const QString &path);

// Runs body and turns anything it throws into a logged failure: qpdf throws on damaged,
// password-protected and unwritable files, and nothing may leave the engine.
template <typename Body>
bool guarded(const char *operation, const QString &path, Body &&body) noexcept
{
    try {
        body();
        return true;
    } catch (const std::exception &e) {
        qCWarning(lcEngine).noquote().nospace() << operation << " " << path << ": " << e.what();
    } catch (...) {
        qCWarning(lcEngine).noquote().nospace() << operation << " " << path << ": unknown failure";
    }
    return false;
}

// A document opened for reading. Stream data is read from the input while an output is
// written, so it lives as long as the document.
struct OpenDocument
{
    std::unique_ptr<QPDF> pdf;
    std::shared_ptr<BlockInputSource> input;
    const std::vector<QPDFObjectHandle> &pages() const { return pdf->getAllPages(); }
};

enum class OpenFailure { None, Missing, Damaged, Password };

// Opens path; an empty document (no pdf) when it does not open, with the reason in failure.
// With readPages, a page tree that cannot be read also means the document does not open.
// Within a group of files, the file is closed and opened again as the group's limit requires.
OpenDocument openDocument(const QString &path,
                          OpenFailure *failure = nullptr,
                          bool readPages = true,
                          OpenFiles *group = nullptr);

// The pages the page tree holds, found by walking it (its /Count is not trusted).
qint64 pageCount(QPDF &pdf);
// Page 1, found by descending the page tree; null when there is none.
QPDFObjectHandle firstPage(QPDF &pdf);

// The document's PDF version. (qpdf's own getVersionAsPDFVersion compiles a regular expression
// on every call, which costs more than copying a small document's pages.)
PDFVersion versionOf(QPDF &pdf);

// A number as PDF writes it: at most the given decimals, trailing zeros dropped, never "-0".
std::string pdfNumber(double value, int decimals);

// A box as a rectangle in user space (x, y at its lower-left corner), whichever corners the
// array gives first.
QRectF rectangleOf(QPDFObjectHandle box);

// The page's boxes and rotation as viewers read them: inherited from the page tree where the
// page has none, a missing or empty media box taken as US letter, an empty crop box ignored.
PageGeometry geometryOf(QPDFPageObjectHelper page);

// qpdf's warnings for the document (repairs and the like) go to the log at info level.
void logWarnings(QPDF &pdf, const QString &path);

// An entry of the information dictionary info as text (either PDF encoding, or UTF-8); empty
// when it is missing or not a text.
QString infoText(QPDFObjectHandle info, const char *key);

// Keywords are one text in the file: a list is stored joined with ", " and read back by
// splitting on commas and semicolons and trimming blanks.
QString joinKeywords(const QStringList &keywords);
QStringList splitKeywords(const QString &keywords);

// Copies the document information dictionary of source into target.
void copyDocumentInfo(QPDF &source, QPDF &target);

struct WriteSettings
{
    PDFVersion minimumVersion{1, 3};
    // Flush the file to disk before it replaces the target, and the folder after: a crash then
    // finds the old file or the new one.
    bool sync = true;
    // The document replaces itself (in-place edits): it stays encrypted if it was, and keeps
    // the first part of its ID. Outputs are written unencrypted, with an ID from their bytes.
    bool inPlace = false;
};

class PendingOutput;

// Writes pdf to a temporary file beside target and renames it over target when complete.
// Copied streams are written byte for byte; the same document is written as the same bytes. False,
// with the target untouched and no temporary file left, when anything fails (unwritable folder,
// full disk, a damaged input stream).
bool writeDocument(QPDF &pdf, const QString &target, const WriteSettings &settings);
// Writes pdf into output without committing it, for callers that must release the input first.
bool writeDocument(QPDF &pdf, PendingOutput &output, const WriteSettings &settings);

// Removes the temporary files that writes of processes no longer running left in folder (a
// program that was killed cannot remove its own). Cheap enough to call once per folder a run
// writes into.
void removeStaleTemporaries(const QString &folder);

// A temporary file beside a target, renamed over the target by commit(); removed otherwise. Its
// name says it is Quire's and which process made it, and fits the file system's name limit
// whatever the target's name.
class PendingOutput
{
public:
    explicit PendingOutput(const QString &target);
    ~PendingOutput();
    PendingOutput(const PendingOutput &) = delete;
    PendingOutput &operator=(const PendingOutput &) = delete;

    // Null when the temporary file could not be created; errorText() says why.
    FILE *file() const { return m_file; }
    const QString &target() const { return m_target; }
    const std::string &tempPath() const { return m_tempPath; }
    QString errorText() const { return m_error; }
    // Closes the file, synced to disk, gives it the target's permissions, owner and extended
    // attributes (its access control lists among them) where it replaces one, renames it over
    // the target and syncs the folder, so that a crash afterwards finds the old file or the new
    // one, whole.
    bool commit(bool sync = true);

private:
    QString m_target;
    std::string m_tempPath;
    FILE *m_file = nullptr;
    bool m_committed = false;
    QString m_error;
};

// Whether the documents parsed are left to the end of the process (PDFTools::KeepDocumentsUntilExit).
bool keepingDocuments();
// Leaves the documents to the end of the process: never freed.
void keepUntilExit(std::shared_ptr<void> documents);

} // namespace Engine
