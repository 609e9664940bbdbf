#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "account/LaunchTokenStore.h"
#include "platform/linux/LinuxSecretStore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;

// The session in the real Secret Service (GNOME Keyring) on a private session bus, with a
// throwaway home: the user's own keyring is never touched.
class SecretServiceTest : public QObject {
    Q_OBJECT

    ThrowawayHome m_root;
    QProcess m_bus;
    QProcess m_keyring;

    template <typename T>
    static T await(QCoro::Task<T> task) {
        auto outcome = outcomeOf(std::move(task));
        if (outcome.error)
            throw *outcome.error;
        if constexpr (!std::is_void_v<T>)
            return *outcome.value;
    }

    // Items of the service as the desktop's own tool lists them.
    int itemsInKeyring(const QString& service) {
        QProcess search;
        search.start(u"secret-tool"_s, {u"search"_s, u"--all"_s, u"server"_s, service, u"user"_s,
                                        LaunchTokenStore::productionAccount});
        if (!search.waitForFinished(10000))
            return -1;
        const QByteArray listing =
            "\n" + search.readAllStandardOutput() + search.readAllStandardError();
        return int(listing.count("\n[/"));
    }

private Q_SLOTS:
    void initTestCase() {
        const QString busDaemon = QStandardPaths::findExecutable(u"dbus-daemon"_s);
        const QString keyringDaemon = QStandardPaths::findExecutable(u"gnome-keyring-daemon"_s);
        if (busDaemon.isEmpty() || keyringDaemon.isEmpty())
            QSKIP("dbus-daemon or gnome-keyring-daemon is not installed (tools/install-deps.sh)");
        QVERIFY(!QStandardPaths::findExecutable(u"secret-tool"_s).isEmpty());

        // The keyring daemon decides which desktop it serves from these; none is ours.
        qunsetenv("GNOME_KEYRING_CONTROL");
        qunsetenv("XDG_CURRENT_DESKTOP");

        m_bus.start(busDaemon, {u"--session"_s, u"--nofork"_s, u"--print-address=1"_s});
        QVERIFY(m_bus.waitForStarted(5000));
        QVERIFY(QTest::qWaitFor([this] { return m_bus.canReadLine(); }, 10000));
        const QByteArray address = m_bus.readLine().trimmed();
        QVERIFY(!address.isEmpty());
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);

        // An empty password unlocks a new login keyring, as a desktop session does at log-in.
        m_keyring.start(keyringDaemon,
                        {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
        QVERIFY(m_keyring.waitForStarted(5000));
        m_keyring.write("\n");
        m_keyring.closeWriteChannel();
        QVERIFY(QTest::qWaitFor(
            [] {
                return QDBusConnection::sessionBus().interface()->isServiceRegistered(
                    u"org.freedesktop.secrets"_s);
            },
            10000));
    }

    void cleanupTestCase() {
        for (QProcess* process : {&m_keyring, &m_bus}) {
            if (process->state() == QProcess::NotRunning)
                continue;
            process->terminate();
            if (!process->waitForFinished(5000))
                process->kill();
        }
    }

    void tokensAreOneItemInTheKeyring() {
        const QString service = LaunchTokenStore::productionService;
        LaunchTokenStore store(std::make_shared<LinuxSecretStore>());
        QCOMPARE(await(store.load()), std::nullopt);

        const QDateTime expiry = QDateTime::fromString(u"2026-01-01T01:00:00Z"_s, Qt::ISODate);
        const LaunchTokens first{u"access-a"_s, u"refresh-a"_s, expiry};
        const LaunchTokens second{u"access-b"_s, u"refresh-b"_s, expiry.addSecs(60)};
        await(store.save(first));
        await(store.save(second));
        QCOMPARE(itemsInKeyring(service), 1);
        QCOMPARE(await(store.load()), std::optional(second));

        await(store.remove());
        QCOMPARE(itemsInKeyring(service), 0);
        QCOMPARE(await(store.load()), std::nullopt);
        await(store.remove());
    }
};

QTEST_GUILESS_MAIN(SecretServiceTest)
#include "SecretServiceTest.moc"
