#include "PlayingBrowser.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "WebsiteFixture.h"
#include "account/FileAccountSnapshotCache.h"
#include "account/LaunchTokenStore.h"
#include "account/ProductionWebsiteAccountProvider.h"
#include "platform/linux/LinuxBrowserSignIn.h"
#include "platform/linux/LinuxSecretStore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDirIterator>
#include <QSignalSpy>
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

    // Sign-in through the browser and a second launcher, refresh and sign-out, as the launcher
    // runs them: afterwards no file under the home folder holds a token.
    void accountEndToEnd() {
        SampleWebsite::Options approved;
        approved.approveAutomatically = true;
        WebsiteFixture website(approved);
        HttpsTestServer& server = website.server();
        PlayingBrowser browser(server);
        StoreFixture fixture;
        fixture.answerStartUp();

        LaunchConfiguration configuration = LaunchConfiguration::production();
        configuration.accountAPIBaseURL = server.url(u"/"_s);
        configuration.authenticationStartURL = website.website().authorizationStartURL();
        LaunchCollaborators collaborators = fixture.collaborators();
        const auto signIn = std::make_shared<LinuxBrowserSignIn>(
            LinuxBrowserSignIn::defaultSocketPath(),
            [&browser](const QUrl& page) { return browser.open(page); });
        const auto tokens =
            std::make_shared<LaunchTokenStore>(std::make_shared<LinuxSecretStore>());
        collaborators.browserSignIn = signIn;
        collaborators.productionAccountProvider =
            std::make_shared<ProductionWebsiteAccountProvider>(
                configuration, tokens, signIn, server.makeNetworkAccess(),
                [] { return QDateTime::currentDateTimeUtc(); });
        const auto cache = std::make_shared<FileAccountSnapshotCache>();
        QVERIFY(cache->filePath().startsWith(m_root.path()));
        collaborators.snapshotCache = cache;
        LaunchStore store(collaborators);
        await(store.start());

        QSignalSpy waiting(&store, &LaunchStore::isWaitingForBrowserChanged);
        await(store.signIn());
        QCOMPARE(waiting.count(), 2); // the sheet showed and went
        QCOMPARE(store.syncState().kind, AccountSyncState::Kind::synced);
        QCOMPARE(store.account()->id, u"cus_sample_0001"_s);
        QCOMPARE(cache->load()->account.id, u"cus_sample_0001"_s);
        QCOMPARE(itemsInKeyring(LaunchTokenStore::productionService), 1);
        const LaunchTokens session = *await(tokens->load());

        await(store.refreshAccount());
        QCOMPARE(store.syncState().kind, AccountSyncState::Kind::synced);
        QCOMPARE(server.requestCount(u"/v1/launch/account"_s), 2);

        await(store.signOut());
        QVERIFY(!store.account());
        QCOMPARE(website.website().sessionCount(), 0);
        QCOMPARE(itemsInKeyring(LaunchTokenStore::productionService), 0);
        QVERIFY(!QFile::exists(cache->filePath()));

        QDirIterator files(m_root.path(), QDir::Files | QDir::Hidden | QDir::System,
                           QDirIterator::Subdirectories);
        int read = 0;
        while (files.hasNext()) {
            QFile file(files.next());
            if (!file.open(QIODevice::ReadOnly))
                continue;
            ++read;
            const QByteArray content = file.readAll();
            QVERIFY2(!content.contains(session.accessToken.toUtf8()) &&
                         !content.contains(session.refreshToken.toUtf8()),
                     qPrintable(file.fileName()));
        }
        QVERIFY(read > 0); // the keyring itself is among them
    }
};

QTEST_GUILESS_MAIN(SecretServiceTest)
#include "SecretServiceTest.moc"
