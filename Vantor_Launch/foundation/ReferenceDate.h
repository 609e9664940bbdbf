#pragma once

#include <QDateTime>
#include <cmath>
#include <optional>

// Dates in the launcher's own files and secrets: seconds since 2001-01-01T00:00:00Z as a
// floating-point number.
namespace ReferenceDate {

inline constexpr qint64 referenceEpochMilliseconds = 978'307'200'000;

inline double secondsFromDate(const QDateTime& date) {
    return double(date.toMSecsSinceEpoch() - referenceEpochMilliseconds) / 1000.0;
}

// None for a number that names no representable date (not finite, or beyond ± 100,000 years).
inline std::optional<QDateTime> dateFromSeconds(double seconds) {
    constexpr double limit = 3.2e12;
    if (!(seconds > -limit && seconds < limit))
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(
        qint64(std::llround(seconds * 1000.0)) + referenceEpochMilliseconds, Qt::UTC);
}

} // namespace ReferenceDate
