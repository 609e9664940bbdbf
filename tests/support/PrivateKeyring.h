#pragma once

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

// A session bus of the test's own with a real GNOME Keyring on it, so that the Secret Service
// is the desktop's own and the user's keyring is never touched. Start it inside a throwaway home,
// before anything connects to the session bus.
class PrivateKeyring {
public:
    // Whether the daemons and the desktop's own secret tool are installed.
    static bool isAvailable() {
        for (const auto* program : {"dbus-daemon", "gnome-keyring-daemon", "secret-tool"})
            if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty())
                return false;
        return true;
    }

    ~PrivateKeyring() {
        for (QProcess* process : {&m_keyring, &m_bus}) {
            if (process->state() == QProcess::NotRunning)
                continue;
            process->terminate();
            if (!process->waitForFinished(5000))
                process->kill();
        }
    }

    // True once the keyring answers on the private bus.
    bool start() {
        // The keyring daemon decides which desktop it serves from these; none is ours.
        qunsetenv("GNOME_KEYRING_CONTROL");
        qunsetenv("XDG_CURRENT_DESKTOP");
        m_bus.start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--session"), QStringLiteral("--nofork"),
                     QStringLiteral("--print-address=1")});
        if (!m_bus.waitForStarted(5000) ||
            !QTest::qWaitFor([this] { return m_bus.canReadLine(); }, 10000))
            return false;
        const QByteArray address = m_bus.readLine().trimmed();
        if (address.isEmpty())
            return false;
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);

        // An empty password unlocks a new login keyring, as a desktop session does at log-in.
        m_keyring.start(QStringLiteral("gnome-keyring-daemon"),
                        {QStringLiteral("--foreground"), QStringLiteral("--unlock"),
                         QStringLiteral("--components=secrets")});
        if (!m_keyring.waitForStarted(5000))
            return false;
        m_keyring.write("\n");
        m_keyring.closeWriteChannel();
        return QTest::qWaitFor(
            [] {
                return QDBusConnection::sessionBus().interface()->isServiceRegistered(
                    QStringLiteral("org.freedesktop.secrets"));
            },
            10000);
    }

private:
    QProcess m_bus;
    QProcess m_keyring;
};
