#include "PrivateKeyring.h"
#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "account/LaunchTokenStore.h"
#include "platform/linux/LinuxSecretStore.h"

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
};

QTEST_GUILESS_MAIN(SecretServiceTest)
#include "SecretServiceTest.moc"
