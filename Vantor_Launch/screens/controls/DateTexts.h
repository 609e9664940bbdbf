#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

// The two ways the screens write a moment.
namespace DateTexts {

// Relative, with named forms and whole words: "now", "5 minutes ago", "yesterday", "in 2 hours".
QString relative(const QDateTime& date, const QDateTime& now);
// Abbreviated date and short time in the locale's order, in local time: "Oct 26, 2026, 10:00 AM".
QString abbreviated(const QDateTime& date, const QLocale& locale = QLocale());

} // namespace DateTexts
