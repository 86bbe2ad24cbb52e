#pragma once

#include <QList>
#include <QString>

// Page-interval expressions such as "[1-3],5,[7-9]", read against one document's page count.
// Pure functions: nothing is reported, unreadable items are skipped.
namespace Naming {

struct PageInterval
{
    qint64 start = 1;
    qint64 end = 1;
    friend bool operator==(const PageInterval &, const PageInterval &) = default;
};

// The pages an expression selects, in first-occurrence order without repeats. A single page
// beyond the document stays in the list (and matches no page); an empty list means every page.
QList<qint64> GenerateArrayOfPages(const QString &expression, qint64 numberOfPages);

// The intervals of an expression in the order typed, repeats and overlaps kept; each becomes
// one output of a split.
QList<PageInterval> GenerateArrayOfIntervals(const QString &expression, qint64 numberOfPages);

// Runs of pagesPerInterval pages (at least 1), the last one shorter.
QList<PageInterval> GenerateConsecutiveIntervals(qint64 numberOfPages, qint64 pagesPerInterval);

// A bookmark that starts a piece: its target page (1-based) and its title.
struct BookmarkStart
{
    qint64 page = 1;
    QString title;
};
struct TitledInterval
{
    PageInterval interval;
    QString title;
    friend bool operator==(const TitledInterval &, const TitledInterval &) = default;
};

// The pieces of a split at bookmarks: each runs from a bookmark's page to the page before the
// next bookmark's, in page order; the pages before the first bookmark form a piece of their
// own, titled frontTitle. Of bookmarks on one page, the first listed names the piece; pages
// outside the document start nothing. No piece when no bookmark lies in the document.
QList<TitledInterval> GenerateBookmarkIntervals(qint64 numberOfPages,
                                                const QList<BookmarkStart> &starts,
                                                const QString &frontTitle);

} // namespace Naming
