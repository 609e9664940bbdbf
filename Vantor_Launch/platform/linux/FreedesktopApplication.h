#pragma once

#include <QList>
#include <QObject>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

class QDBusConnection;

// The launcher as a desktop that honours "DBusActivatable" in the launcher's desktop entry
// addresses it: the org.freedesktop.Application interface on the session bus, under the name
// the entry is called by. Opening an address this way puts it on no process's command line.
class FreedesktopApplication : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    // "/nz/co/halvex/VantorLaunch" for "nz.co.halvex.VantorLaunch", as the interface requires.
    static QString objectPath(const QString& applicationID);

    using QObject::QObject;

    // Exports the interface and takes the name on the bus. False when there is no bus or another
    // process holds the name already (a launcher with a home of its own, for example).
    bool publish(QDBusConnection& bus, const QString& applicationID);

public Q_SLOTS:
    Q_SCRIPTABLE void Activate(const QVariantMap& platformData);
    Q_SCRIPTABLE void Open(const QStringList& uris, const QVariantMap& platformData);
    Q_SCRIPTABLE void ActivateAction(const QString& actionName, const QVariantList& parameter,
                                     const QVariantMap& platformData);

Q_SIGNALS:
    void activated();
    void opened(const QList<QUrl>& addresses);
};
