#include "PrivateKeyring.h"
#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "account/LaunchTokenStore.h"
#include "platform/linux/LinuxSecretStore.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;

// The session in the real Secret Service (GNOME Keyring) on a private session bus, with a
// throwaway home: the user's own keyring is never touched.
class SecretServiceTest : public QObject {
    Q_OBJECT

    ThrowawayHome m_root;
    PrivateKeyring m_keyring;

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
        if (!PrivateKeyring::isAvailable())
            QSKIP("dbus-daemon, gnome-keyring-daemon or secret-tool is missing (install-deps.sh)");
        QVERIFY(m_keyring.start());
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

    // A locked keyring is storage that failed, never a session that ended: reading and saving
    // fail with the storage text, and no token lands in a file instead. Last: it locks the keyring.
    void lockedKeyringIsAStorageFailure() {
        const QString storageFailed = u"Secure session storage is not configured in this build."_s;
        LaunchTokenStore store(std::make_shared<LinuxSecretStore>());
        const QDateTime expiry = QDateTime::fromString(u"2026-01-01T01:00:00Z"_s, Qt::ISODate);
        const LaunchTokens held{u"access-held-0123456789"_s, u"refresh-held-0123456789"_s, expiry};
        const LaunchTokens next{u"access-next-0123456789"_s, u"refresh-next-0123456789"_s, expiry};
        await(store.save(held));

        QDBusMessage lock = QDBusMessage::createMethodCall(
            u"org.freedesktop.secrets"_s, u"/org/freedesktop/secrets"_s,
            u"org.freedesktop.Secret.Service"_s, u"Lock"_s);
        lock << QVariant::fromValue(QList<QDBusObjectPath>{
            QDBusObjectPath(u"/org/freedesktop/secrets/collection/login"_s)});
        const QDBusMessage locked = QDBusConnection::sessionBus().call(lock);
        QVERIFY2(locked.type() == QDBusMessage::ReplyMessage, qPrintable(locked.errorMessage()));

        const auto loaded = outcomeOf(store.load());
        QVERIFY(loaded.error);
        QCOMPARE(loaded.error->description(), storageFailed);
        const auto saved = outcomeOf(store.save(next));
        QVERIFY(saved.error);
        QCOMPARE(saved.error->description(), storageFailed);
        QVERIFY(outcomeOf(store.remove()).value); // silent, as ever

        QCOMPARE(
            filesHolding(m_root.path(), {held.accessToken.toUtf8(), held.refreshToken.toUtf8(),
                                         next.accessToken.toUtf8(), next.refreshToken.toUtf8()}),
            QStringList());
    }
};

QTEST_GUILESS_MAIN(SecretServiceTest)
#include "SecretServiceTest.moc"
