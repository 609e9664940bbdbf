#pragma once

#include <QDateTime>
#include <QLocale>

// The fixed dates and locale that the views' texts are compared in, character for character.
inline QDateTime utc(const char* text) {
    return QDateTime::fromString(QString::fromLatin1(text), Qt::ISODate);
}

inline const QLocale english(QLocale::English, QLocale::UnitedStates);
