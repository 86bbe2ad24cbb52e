#pragma once

#include <QtGlobal>

#include <cmath>
#include <optional>

namespace Jobs {

// The whole-number part of a number a user gave (a field, an option, a profile), as a count:
// nothing when it is not a number or no count could be that large.
inline std::optional<qint64> wholeNumber(double value)
{
    const double whole = std::trunc(value);
    if (!(std::abs(whole) < 9.0e18)) {
        return std::nullopt;
    }
    return qint64(whole);
}

} // namespace Jobs
