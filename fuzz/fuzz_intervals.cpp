// Page-interval expressions, read both ways, runs of pages and pieces at bookmarks, against page
// counts up to 10^9: nothing read lies outside the document, every interval runs forward, and the
// work stays in proportion to the expression.

#include "naming/intervals.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 8) {
        return 0;
    }
    uint32_t countBits = 0;
    uint32_t runBits = 0;
    std::memcpy(&countBits, data, 4);
    std::memcpy(&runBits, data + 4, 4);
    const qint64 pages = qint64(countBits % 1000000001u);
    const QString expression
        = QString::fromUtf8(reinterpret_cast<const char *>(data + 8), qsizetype(size - 8));

    // The interval list holds an entry per item typed, whatever the document's size.
    for (const auto &interval : Naming::GenerateArrayOfIntervals(expression, pages)) {
        if (interval.start < 1 || interval.end < interval.start || interval.end > pages) {
            std::abort();
        }
    }
    // A page list names each page once: read against a count it can hold.
    const qint64 listed = pages % 100001;
    for (const qint64 page : Naming::GenerateArrayOfPages(expression, listed)) {
        if (page < 1) {
            std::abort();
        }
    }
    // Runs of pages cover the document once, in order, the last run the shorter.
    const qint64 run = std::max<qint64>(1, qint64(runBits) + pages / 100000);
    qint64 next = 1;
    for (const auto &interval : Naming::GenerateConsecutiveIntervals(pages, run)) {
        if (interval.start != next || interval.end < interval.start
            || interval.end - interval.start + 1 > run) {
            std::abort();
        }
        next = interval.end + 1;
    }
    if (pages > 0 && next != pages + 1) {
        std::abort();
    }
    // Pieces at bookmarks (the expression's numbers as their pages, in any order) cover the
    // document once, in order, from page 1, when any bookmark lies in it.
    QList<Naming::BookmarkStart> starts;
    for (const auto &interval : Naming::GenerateArrayOfIntervals(expression, pages)) {
        starts << Naming::BookmarkStart{interval.end, expression};
    }
    next = 1;
    const auto pieces = Naming::GenerateBookmarkIntervals(pages, starts, QString());
    for (const auto &piece : pieces) {
        if (piece.interval.start != next || piece.interval.end < piece.interval.start) {
            std::abort();
        }
        next = piece.interval.end + 1;
    }
    if (!pieces.isEmpty() && next != pages + 1) {
        std::abort();
    }
    return 0;
}
