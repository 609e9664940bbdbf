#include "TransferPresentation.h"

#include <QStringList>
#include <cmath>

namespace {

// Decimal units, with one decimal only below ten ("1.5 MB", "24 MB"): more digits only flicker
// at a few redraws a second.
QString sizeText(double bytes, const QLocale& locale) {
    const qint64 shown = std::llround(std::max(0.0, bytes));
    const int power = shown > 0 ? std::min(6, int(std::floor(std::log10(double(shown)) / 3))) : 0;
    const double scaled = double(shown) / std::pow(1000.0, power);
    const int precision = power > 0 && std::round(scaled * 10) < 100 ? 1 : 0;
    // 999,999 bytes would round to "1,000 kB": written as the next unit instead.
    if (power > 0 && power < 6 && std::round(scaled) >= 1000)
        return locale.formattedDataSize(qint64(std::pow(1000.0, power + 1)), 1,
                                        QLocale::DataSizeSIFormat);
    return locale.formattedDataSize(shown, precision, QLocale::DataSizeSIFormat);
}

QString percentText(double fraction, const QLocale& locale) {
    // Rounded down, so that 100 % means done; the nudge keeps 0.4 from reading 39 %.
    const int percent = int(std::floor(std::clamp(fraction, 0.0, 1.0) * 100 + 1e-9));
    return TransferPresentation::tr("%1 %").arg(locale.toString(percent));
}

} // namespace

QString TransferPresentation::progressTextFor(qint64 received, qint64 expected,
                                              double bytesPerSecond, int secondsRemaining,
                                              const QLocale& locale) {
    QStringList parts;
    const double got = double(std::max<qint64>(received, 0));
    if (expected > 0)
        parts.append(tr("%1 of %2").arg(sizeText(got, locale), sizeText(double(expected), locale)));
    else if (got > 0)
        parts.append(tr("%1 received").arg(sizeText(got, locale)));
    if (bytesPerSecond > 0)
        parts.append(tr("%1/s").arg(sizeText(bytesPerSecond, locale)));
    if (secondsRemaining >= 0)
        parts.append(timeLeftFor(secondsRemaining, locale));
    else if (bytesPerSecond <= 0)
        parts.append(tr("Calculating…"));
    return parts.join(tr(" — "));
}

QString TransferPresentation::timeLeftFor(int seconds, const QLocale& locale) {
    if (seconds < 1)
        return tr("almost done");
    if (seconds < 60) {
        return seconds == 1 ? tr("about 1 second left")
                            : tr("about %1 seconds left").arg(locale.toString(seconds));
    }
    // Minutes and hours are rounded: the speed they come from moves all the time.
    const int minutes = int(std::lround(seconds / 60.0));
    if (minutes < 60) {
        return minutes == 1 ? tr("about 1 minute left")
                            : tr("about %1 minutes left").arg(locale.toString(minutes));
    }
    const int hours = minutes / 60;
    const int rest = minutes % 60;
    const QString hoursText =
        hours == 1 ? tr("1 hour") : tr("%1 hours").arg(locale.toString(hours));
    if (rest == 0)
        return tr("about %1 left").arg(hoursText);
    const QString restText =
        rest == 1 ? tr("1 minute") : tr("%1 minutes").arg(locale.toString(rest));
    return tr("about %1 and %2 left").arg(hoursText, restText);
}

QString TransferPresentation::updatingLineFor(const QString& appName, double fraction,
                                              const QLocale& locale) {
    if (fraction < 0)
        return tr("Updating %1…").arg(appName);
    return tr("Updating %1 — %2").arg(appName, percentText(fraction, locale));
}

QString TransferPresentation::installingLineFor(const QString& packName, double fraction,
                                                const QLocale& locale) {
    if (fraction < 0)
        return tr("Installing %1…").arg(packName);
    return tr("Installing %1 — %2").arg(packName, percentText(fraction, locale));
}
