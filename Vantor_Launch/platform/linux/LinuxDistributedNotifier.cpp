#include "platform/linux/LinuxDistributedNotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>

void LinuxDistributedNotifier::post(const QString& name) {
    QDBusMessage signal = QDBusMessage::createSignal(
        QLatin1String(objectPath), QLatin1String(interfaceName), QLatin1String(signalName));
    signal << name;
    // Without a session bus there is nobody to tell; that is not an error.
    QDBusConnection::sessionBus().send(signal);
}
