#include "DateTexts.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

struct Unit {
    qint64 seconds;
    const char* singular;
    const char* plural;
    const char* lastOne; // the named form one unit in the past, or null
    const char* nextOne;
};

constexpr qint64 minute = 60;
constexpr qint64 hour = 60 * minute;
constexpr qint64 day = 24 * hour;

// Largest first: the first unit of which at least one has passed names the distance.
constexpr Unit units[] = {
    {365 * day, "year", "years", "last year", "next year"},
    {30 * day, "month", "months", "last month", "next month"},
    {7 * day, "week", "weeks", "last week", "next week"},
    {day, "day", "days", "yesterday", "tomorrow"},
    {hour, "hour", "hours", nullptr, nullptr},
    {minute, "minute", "minutes", nullptr, nullptr},
    {1, "second", "seconds", nullptr, nullptr},
};

} // namespace

namespace DateTexts {

QString relative(const QDateTime& date, const QDateTime& now) {
    const qint64 distance = date.secsTo(now);
    const bool past = distance >= 0;
    const qint64 magnitude = past ? distance : -distance;
    for (const Unit& unit : units) {
        const qint64 count = magnitude / unit.seconds;
        if (count == 0)
            continue;
        if (count == 1 && unit.lastOne)
            return QString::fromLatin1(past ? unit.lastOne : unit.nextOne);
        const QString amount = QString::number(count) + u' ' +
                               QString::fromLatin1(count == 1 ? unit.singular : unit.plural);
        return past ? amount + u" ago"_s : u"in "_s + amount;
    }
    return u"now"_s;
}

QString abbreviated(const QDateTime& date, const QLocale& locale) {
    // The locale's long date without the weekday and with the month's short name.
    QString pattern = locale.dateFormat(QLocale::LongFormat);
    static const QRegularExpression weekday(u"\\s*dddd[,.]?\\s*"_s);
    pattern.remove(weekday);
    pattern.replace(u"MMMM"_s, u"MMM"_s);
    // The locale's short time, to the minute (some locales' short form carries seconds).
    QString time = locale.timeFormat(QLocale::ShortFormat);
    static const QRegularExpression seconds(u"[:.]ss?"_s);
    time.remove(seconds);
    const QDateTime local = date.toLocalTime();
    return locale.toString(local.date(), pattern.trimmed()) + u", "_s +
           locale.toString(local.time(), time);
}

} // namespace DateTexts
