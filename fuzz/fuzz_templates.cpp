// Output-name templates and property templates, any bytes of any length: the output lies in the
// folder given (a "/" typed into a template only goes further down), ends in ".pdf", and the
// property templates make what the window shows from the same values. A bookmark's title, any
// text a document may hold, becomes a file name without "/", control characters, a leading dot
// or blanks at its ends, of at most 120 bytes.

#include "engine/pdftools.h"
#include "naming/outputnames.h"

#include <QFileInfo>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    // The bytes make a template and an input's file name, cut at the first line break.
    const qsizetype cut = text.indexOf(QLatin1Char('\n'));
    const QString nameTemplate = cut < 0 ? text : text.left(cut);
    const QString fileName = cut < 0 ? QStringLiteral("report") : text.mid(cut + 1);
    const QString folder = QStringLiteral("/out");
    const QString input = QStringLiteral("/in/") + fileName + QStringLiteral(".pdf");

    const auto check = [&](const QString &path) {
        if (!path.startsWith(folder + QLatin1Char('/')) || !path.endsWith(QLatin1String(".pdf"))) {
            std::abort();
        }
    };
    check(Naming::OutputPathForDocument(nameTemplate, folder, input));
    for (const auto mode : {Naming::SplitMode::Consecutive,
                            Naming::SplitMode::Intervals,
                            Naming::SplitMode::Bookmarks}) {
        check(Naming::OutputPathForInterval(nameTemplate, folder, input, mode, 3, 7, 9, fileName));
    }
    const QString title = Naming::SafeFileName(text);
    for (const QChar c : title) {
        if (c == QLatin1Char('/') || c.category() == QChar::Other_Control) {
            std::abort();
        }
    }
    if (title.toUtf8().size() > 120 || title.startsWith(QLatin1Char('.'))
        || title != title.trimmed()) {
        std::abort();
    }

    PDFTools::DocumentProperties old{fileName, nameTemplate, QString(), {fileName, nameTemplate}};
    const auto made = PDFTools::ResolvePropertyTemplates(
        input, old, nameTemplate, fileName, QString(), nameTemplate);
    // No keyword holds a separator: blanks and commas cut them. [FileName] is the file's name with
    // every ".pdf" taken out, and stays whole.
    const QString templateName = QFileInfo(input).fileName().remove(QLatin1String(".pdf"));
    for (const QString &keyword : made.keywords) {
        if (keyword == templateName || old.keywords.contains(keyword)) {
            continue; // [FileName] and [Original] are taken as they are
        }
        if (keyword.isEmpty() || keyword.contains(QLatin1Char(' '))
            || keyword.contains(QLatin1Char(','))) {
            std::abort();
        }
    }
    return 0;
}
