#pragma once

#include "naming/outputnames.h"

#include <QString>

namespace Jobs {

// The Split window's settings: runs of a fixed number of pages, page intervals or the bookmarks
// of one outline level, the name template and the output folder.
struct SplitSettings
{
    static constexpr auto Tool = "split";

    Naming::SplitMode mode = Naming::SplitMode::Consecutive;
    qint64 pagesPerInterval = 1; // the whole-number part of what was typed
    QString expression = QStringLiteral("[1-4],5,[6-9]");
    qint64 bookmarkLevel = 1; // the outline level cut at: 1, the top level
    QString nameTemplate = QStringLiteral("[FileName](Page[IntervalIndex])");
    QString folder;

    // The profile's keys and the settings they hold.
    template <typename Visit> void visit(Visit &&field)
    {
        field("mode", mode, {"consecutive", "intervals", "bookmarks"});
        field("pagesPerInterval", pagesPerInterval);
        field("expression", expression);
        field("bookmarkLevel", bookmarkLevel);
        field("nameTemplate", nameTemplate);
        field("folder", folder);
    }
};

} // namespace Jobs
