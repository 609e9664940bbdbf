#include "platform/linux/FreedesktopApplication.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

using namespace Qt::StringLiterals;

QString FreedesktopApplication::objectPath(const QString& applicationID) {
    QString path = u'/' + applicationID;
    path.replace(u'.', u'/').replace(u'-', u'_');
    return path;
}

bool FreedesktopApplication::publish(QDBusConnection& bus, const QString& applicationID) {
    if (!bus.isConnected())
        return false;
    // The object first: a call queued for the name while the desktop activated us must find it.
    if (!bus.registerObject(objectPath(applicationID), this,
                            QDBusConnection::ExportScriptableSlots))
        return false;
    const auto reply =
        bus.interface()->registerService(applicationID, QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return true;
    bus.unregisterObject(objectPath(applicationID));
    return false;
}

void FreedesktopApplication::Activate(const QVariantMap&) {
    Q_EMIT activated();
}

void FreedesktopApplication::Open(const QStringList& uris, const QVariantMap&) {
    QList<QUrl> addresses;
    for (const QString& uri : uris)
        addresses.append(QUrl(uri, QUrl::StrictMode));
    Q_EMIT opened(addresses);
}

// The entry declares no actions; asking for one only brings the launcher forward.
void FreedesktopApplication::ActivateAction(const QString&, const QVariantList&,
                                            const QVariantMap&) {
    Q_EMIT activated();
}
