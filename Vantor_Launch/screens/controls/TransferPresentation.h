#pragma once

#include <QLocale>
#include <QObject>
#include <QString>
#include <QtQmlIntegration>

// How every screen writes a long transfer (Director's update, a pack's installation): the line
// under its progress bar and the tray's line, so that the row, the detail and the tray agree.
class TransferPresentation : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    // "120 MB of 300 MB — 24 MB/s — about 8 seconds left". What is not known yet is left out;
    // "Calculating…" stands in until the speed is. Arguments as Transfer reports them: -1 for an
    // unknown size or time, 0 for an unknown speed.
    static QString progressTextFor(qint64 received, qint64 expected, double bytesPerSecond,
                                   int secondsRemaining, const QLocale& locale = QLocale());
    // "about 8 seconds left", "about 3 minutes left", "about 1 hour and 5 minutes left".
    static QString timeLeftFor(int seconds, const QLocale& locale = QLocale());
    // The tray's lines: "Updating Vantor Director — 40 %", "Installing Aurora Stage — 40 %", or
    // without the share while the size is unknown (a fraction below 0).
    static QString updatingLineFor(const QString& appName, double fraction,
                                   const QLocale& locale = QLocale());
    static QString installingLineFor(const QString& packName, double fraction,
                                     const QLocale& locale = QLocale());

    Q_INVOKABLE QString progressText(qint64 received, qint64 expected, double bytesPerSecond,
                                     int secondsRemaining) const {
        return progressTextFor(received, expected, bytesPerSecond, secondsRemaining);
    }
};
