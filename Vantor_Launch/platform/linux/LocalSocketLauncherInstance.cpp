#include "platform/linux/LocalSocketLauncherInstance.h"

#include "platform/linux/FreedesktopApplication.h"
#include "platform/linux/LinuxBrowserSignIn.h"
#include "platform/linux/SchemeHandlerRegistration.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThreadPool>

using namespace Qt::StringLiterals;

QString LocalSocketLauncherInstance::defaultSocketPath() {
    const QByteArray settings =
        QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation).toUtf8();
    const QByteArray name =
        QCryptographicHash::hash(settings, QCryptographicHash::Sha256).toHex().left(16);
    return QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) +
           u"/vantor-launch-"_s + QString::fromLatin1(name);
}

LocalSocketLauncherInstance::LocalSocketLauncherInstance(QString socketPath)
    : m_socketPath(std::move(socketPath)) {}

LocalSocketLauncherInstance::~LocalSocketLauncherInstance() = default;

bool LocalSocketLauncherInstance::claim() {
    if (m_server)
        return true;
    // The connection itself is the request: there is nothing else to say.
    QLocalSocket running;
    running.connectToServer(m_socketPath);
    if (running.waitForConnected(1000)) {
        running.disconnectFromServer();
        return false;
    }

    // Nobody answers: a socket file left by a launcher that crashed would block the name.
    QLocalServer::removeServer(m_socketPath);
    auto server = std::make_unique<QLocalServer>();
    server->setSocketOptions(QLocalServer::UserAccessOption);
    // A launcher that cannot listen still runs; it only cannot be found by the next start.
    if (!server->listen(m_socketPath))
        return true;
    connect(server.get(), &QLocalServer::newConnection, this, [this] {
        while (m_server && m_server->hasPendingConnections()) {
            QLocalSocket* later = m_server->nextPendingConnection();
            connect(later, &QLocalSocket::disconnected, later, &QObject::deleteLater);
            later->disconnectFromServer();
            Q_EMIT activationRequested();
        }
    });
    m_server = std::move(server);
    return true;
}

void LocalSocketLauncherInstance::publishToDesktop() {
    if (!m_server || m_application)
        return;
    auto application = std::make_unique<FreedesktopApplication>();
    connect(application.get(), &FreedesktopApplication::activated, this,
            &LauncherInstance::activationRequested);
    connect(application.get(), &FreedesktopApplication::opened, this,
            [this](const QList<QUrl>& addresses) {
                // The sign-in that waits may be this launcher's or that of a launcher with a home
                // of its own; the sign-in socket reaches either, and checks what it is given. The
                // hand-over waits for the answer, so it runs off this thread.
                for (const QUrl& address : addresses)
                    QThreadPool::globalInstance()->start(
                        [address] { LinuxBrowserSignIn::handOver(address); });
                Q_EMIT activationRequested();
            });
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Without a bus, or with another launcher on it, the desktop still has the entry's Exec line.
    if (application->publish(bus, SchemeHandlerRegistration::applicationID))
        m_application = std::move(application);
}

namespace PlatformServices {

std::unique_ptr<LauncherInstance> makeLauncherInstance() {
    return std::make_unique<LocalSocketLauncherInstance>();
}

} // namespace PlatformServices
