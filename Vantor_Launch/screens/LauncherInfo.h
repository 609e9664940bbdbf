#pragma once

#include <QObject>
#include <QtQmlIntegration>

// The launcher's own version and build, as Help shows them.
class LauncherInfo : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QString version READ version CONSTANT)
    Q_PROPERTY(QString build READ build CONSTANT)

public:
    using QObject::QObject;

    // The value, or "Not provided" when the build left it empty.
    static QString shownValue(const QString& value);
    QString version() const;
    QString build() const;
};
