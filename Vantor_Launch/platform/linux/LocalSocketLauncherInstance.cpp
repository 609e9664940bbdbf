#include "platform/linux/LocalSocketLauncherInstance.h"

#include <QCryptographicHash>
#include <QLocalSocket>
#include <QStandardPaths>

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

namespace PlatformServices {

std::unique_ptr<LauncherInstance> makeLauncherInstance() {
    return std::make_unique<LocalSocketLauncherInstance>();
}

} // namespace PlatformServices
