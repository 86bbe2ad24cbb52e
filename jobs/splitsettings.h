#pragma once

#include "naming/outputnames.h"

#include <QString>

namespace Jobs {

// The Split window's settings: runs of a fixed number of pages or page intervals, the name
// template and the output folder.
struct SplitSettings
{
    static constexpr auto Tool = "split";

    Naming::SplitMode mode = Naming::SplitMode::Consecutive;
    qint64 pagesPerInterval = 1; // the whole-number part of what was typed
    QString expression = QStringLiteral("[1-4],5,[6-9]");
    QString nameTemplate = QStringLiteral("[FileName](Page[IntervalIndex])");
    QString folder;

    // The profile's keys and the settings they hold.
    template <typename Visit> void visit(Visit &&field)
    {
        field("mode", mode, {"consecutive", "intervals"});
        field("pagesPerInterval", pagesPerInterval);
        field("expression", expression);
        field("nameTemplate", nameTemplate);
        field("folder", folder);
    }
};

} // namespace Jobs
