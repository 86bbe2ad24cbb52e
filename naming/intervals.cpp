#include "intervals.h"

#include <QStringList>

#include <algorithm>
#include <optional>
#include <unordered_set>

namespace Naming {

namespace {

// Decimal with an optional sign, nothing else; fails outside the signed 64-bit range.
std::optional<qint64> toInteger(const QString &text)
{
    if (text.isEmpty()) {
        return std::nullopt;
    }
    qsizetype i = 0;
    if (text[0] == QLatin1Char('+') || text[0] == QLatin1Char('-')) {
        i = 1;
    }
    if (i == text.size()) {
        return std::nullopt;
    }
    for (qsizetype k = i; k < text.size(); ++k) {
        if (text[k] < QLatin1Char('0') || text[k] > QLatin1Char('9')) {
            return std::nullopt;
        }
    }
    bool ok = false;
    const qint64 value = text.toLongLong(&ok, 10);
    return ok ? std::optional<qint64>(value) : std::nullopt;
}

enum class Reading { Pages, Intervals };

QList<PageInterval> readItems(const QString &expression, qint64 numberOfPages, Reading reading)
{
    QList<PageInterval> intervals;
    QString text = expression;
    text.remove(QLatin1Char(' ')); // only blanks: a tab or a no-break space spoils its item
    const QStringList items = text.split(QLatin1Char(','));
    for (const QString &item : items) {
        if (item.startsWith(QLatin1Char('[')) && item.endsWith(QLatin1Char(']'))) {
            const QStringList parts = item.split(QLatin1Char('-'));
            if (parts.size() != 2) {
                continue; // "[5]" and "[2-3-4]" are not read as single pages either
            }
            const auto a = toInteger(parts[0].mid(1));
            const auto b = toInteger(parts[1].chopped(1));
            if (!a || !b || *a < 1 || *b < 1) {
                continue;
            }
            const qint64 lo = std::min(*a, *b);
            const qint64 hi = std::min(std::max(*a, *b), numberOfPages);
            if (lo > numberOfPages) {
                continue;
            }
            intervals.append({lo, hi});
        } else {
            const auto n = toInteger(item);
            if (!n || *n < 1) {
                continue;
            }
            if (reading == Reading::Intervals && *n > numberOfPages) {
                continue;
            }
            intervals.append({*n, *n});
        }
    }
    return intervals;
}

} // namespace

QList<qint64> GenerateArrayOfPages(const QString &expression, qint64 numberOfPages)
{
    QList<qint64> pages;
    std::unordered_set<qint64> seen;
    for (const PageInterval &interval : readItems(expression, numberOfPages, Reading::Pages)) {
        for (qint64 page = interval.start; page <= interval.end; ++page) {
            if (seen.insert(page).second) {
                pages.append(page);
            }
        }
    }
    return pages;
}

QList<PageInterval> GenerateArrayOfIntervals(const QString &expression, qint64 numberOfPages)
{
    return readItems(expression, numberOfPages, Reading::Intervals);
}

QList<PageInterval> GenerateConsecutiveIntervals(qint64 numberOfPages, qint64 pagesPerInterval)
{
    QList<PageInterval> intervals;
    if (numberOfPages <= 0 || pagesPerInterval < 1) {
        return intervals;
    }
    for (qint64 start = 1; start <= numberOfPages;) {
        const qint64 end = numberOfPages - start < pagesPerInterval ? numberOfPages
                                                                    : start + pagesPerInterval - 1;
        intervals.append({start, end});
        start = end + 1;
    }
    return intervals;
}

QList<TitledInterval> GenerateBookmarkIntervals(qint64 numberOfPages,
                                                const QList<BookmarkStart> &starts,
                                                const QString &frontTitle)
{
    QList<BookmarkStart> inside;
    for (const BookmarkStart &start : starts) {
        if (start.page >= 1 && start.page <= numberOfPages) {
            inside << start;
        }
    }
    std::stable_sort(
        inside.begin(), inside.end(), [](const auto &a, const auto &b) { return a.page < b.page; });
    QList<TitledInterval> pieces;
    if (!inside.isEmpty() && inside.front().page > 1) {
        pieces.append({{1, inside.front().page - 1}, frontTitle});
    }
    for (qsizetype i = 0; i < inside.size(); ++i) {
        if (i > 0 && inside[i].page == inside[i - 1].page) {
            continue;
        }
        qsizetype next = i + 1;
        while (next < inside.size() && inside[next].page == inside[i].page) {
            ++next;
        }
        const qint64 end = next < inside.size() ? inside[next].page - 1 : numberOfPages;
        pieces.append({{inside[i].page, end}, inside[i].title});
    }
    return pieces;
}

} // namespace Naming
