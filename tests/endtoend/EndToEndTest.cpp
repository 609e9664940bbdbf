#include "BundleBuilder.h"
#include "BundleProcesses.h"
#include "PlayingBrowser.h"
#include "PrivateKeyring.h"
#include "SampleWebsite.h"
#include "SigningFixture.h"
#include "StoreDoubles.h"
#include "ThrowawayHome.h"
#include "ZipWriter.h"
#include "account/LaunchTokenStore.h"
#include "account/ProductionWebsiteAccountProvider.h"
#include "platform/BundleMetadata.h"
#include "platform/LauncherInstance.h"
#include "platform/SecretStore.h"
#include "store/LaunchStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QProcess>
#include <QTest>
#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Launch::PackInstallation;
using SyncKind = AccountSyncState::Kind;

namespace {

// Unique to this run: the updater refuses while any process runs a bundle with the Director's
// identifier, and other sample Directors may run on this machine.
const QString directorID = u"nz.co.halvex.VantorDirector.e2e%1"_s.arg(::getpid());
const QString packID = u"aurora-stage"_s;
const QString archivePath = u"/updates/VantorDirector-2.5.0.zip"_s;

struct Fault {
    int status = 0;
    int delay = 0;
    qint64 dropAfter = -1;
    bool wrongDigest = false;
    bool expiredSession = false;
};

QString urlError(LaunchError::UrlCode code) {
    return LaunchError::url(code).description();
}

} // namespace

Q_DECLARE_METATYPE(Fault)

// The launcher as the user runs it: the production store and services against the sample website,
// in a throwaway home with its own session bus and keyring, with a real signed Director bundle.
class EndToEndTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_root;
    PrivateKeyring m_keyring;
    std::unique_ptr<HttpsTestServer> m_server;
    std::unique_ptr<SampleWebsite> m_website;
    std::unique_ptr<SigningFixture> m_signing;
    std::unique_ptr<PlayingBrowser> m_browser;
    std::unique_ptr<LauncherInstance> m_instance;
    LaunchConfiguration m_configuration;
    std::unique_ptr<LaunchStore> m_store;

    QString path(const QString& relative) const { return m_root.filePath(relative); }
    QString installed() const { return path(u"home/Applications/Vantor Director.app"_s); }
    QString contentStore() const {
        return path(u"home/.local/share/Vantor Director/Creator Backgrounds"_s);
    }
    QString snapshotFile() const {
        return path(u"home/.local/share/Vantor Launch/website-account-snapshot.json"_s);
    }

    // A signed Director whose executable is a real program that records its starts.
    QString writeDirector(const QString& folder, const QString& version, const QString& build) {
        const BundleSpec spec{directorID, version, build};
        const QUrl bundle = writeBundle(folder, u"Vantor Director.app"_s, spec);
        const QString executable = BundleProcesses::executablePath(bundle, spec);
        if (!QFile::remove(executable) || !QFile::copy(QStringLiteral(BUNDLE_TEST_APP), executable))
            qFatal("could not put the test application into a bundle");
        SigningFixture::sign(bundle, directorID, m_signing->developerA);
        return bundle.toLocalFile();
    }

    // Starts of Director processes so far: each writes a line.
    qsizetype launches() const { return readFile(path(u"launches"_s)).count('\n'); }

    // Ends every process that runs from a bundle of this run, whoever started it.
    void stopDirectors() {
        const QString prefix = m_root.path() + u'/';
        for (const QString& entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
            const qint64 processId = entry.toLongLong();
            if (processId > 0 &&
                QFileInfo(u"/proc/"_s + entry + u"/exe"_s).symLinkTarget().startsWith(prefix))
                ::kill(pid_t(processId), SIGKILL);
        }
    }

    bool startDirector() {
        const qsizetype before = launches();
        return QProcess::startDetached(installed() + u"/Contents/MacOS/launcher-test-app"_s) &&
               QTest::qWaitFor([&] { return launches() == before + 1; }, 10000);
    }

    // The session's tokens as the keyring holds them (QtKeychain keeps the secret in base64); none
    // when the keyring has no item.
    QStringList keyringTokens() {
        QProcess lookup;
        lookup.start(u"secret-tool"_s,
                     {u"lookup"_s, u"server"_s, m_configuration.secretStoreService, u"user"_s,
                      LaunchTokenStore::productionAccount});
        lookup.waitForFinished(10000);
        const QJsonObject secret =
            QJsonDocument::fromJson(QByteArray::fromBase64(lookup.readAllStandardOutput()))
                .object();
        QStringList tokens;
        for (const QString& key : {u"accessToken"_s, u"refreshToken"_s})
            if (secret.value(key).toString().size() > 20)
                tokens.append(secret.value(key).toString());
        return tokens;
    }

    // The production services, with this build's launcher registered for the callback scheme:
    // the test's own executable is not one.
    // Without the background preparation unless asked, so that a fault set later still meets
    // the update's own download.
    LaunchCollaborators production(bool prepareInBackground = false) const {
        LaunchCollaborators collaborators = LaunchCollaborators::production(m_configuration);
        collaborators.preparesUpdatesInBackground = prepareInBackground;
        collaborators.browserSignIn = m_browser->signInWindow(QStringLiteral(LAUNCHER_EXECUTABLE));
        collaborators.productionAccountProvider =
            std::make_shared<ProductionWebsiteAccountProvider>(
                m_configuration,
                std::make_shared<LaunchTokenStore>(PlatformServices::makeSecretStore(),
                                                   m_configuration.secretStoreService),
                collaborators.browserSignIn, collaborators.network, collaborators.now);
        return collaborators;
    }

    // Signs in through the browser and the desktop: the command lines that held the callback.
    QStringList signIn(PlayingBrowser::Desktop desktop) {
        m_browser->desktop = desktop;
        if (!finished(m_store->accountFlows().signIn()) ||
            m_store->accountFlows().syncState().kind != SyncKind::synced)
            return {u"no sign-in"_s};
        return m_browser->stopWatching();
    }

    bool startStore(bool prepareInBackground = false) {
        m_store = std::make_unique<LaunchStore>(production(prepareInBackground));
        m_store->applicationFlows().setFollowsWorkspace(true);
        return finished(m_store->start());
    }

    static bool finished(QCoro::Task<> flow) { return finishes(flow, 30000); }
    QString message() const { return m_store->message().value_or(u"<none>"_s); }

    const InstalledApp& director() const { return m_store->apps().constFirst(); }
    std::optional<PackInstallation> packState() const {
        for (const ContentPack& pack : m_store->packs())
            if (pack.id == packID)
                return pack.installation;
        return std::nullopt;
    }
    QStringList leftovers() const {
        const QStringList any{u"vantor-launch-*"_s, u".vantor-launch-*"_s};
        const auto flags = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden;
        return QDir(path(u"tmp"_s)).entryList(any, flags) +
               QDir(path(u"home/Applications"_s)).entryList(any, flags) +
               QDir(contentStore()).entryList(any, flags);
    }

    // Asks for the update of the running Director and says yes to closing it. Any launch on the
    // machine re-runs discovery, which shows the Director as running until the release check has
    // run again: wait for the offer.
    bool confirmUpdate() {
        if (!QTest::qWaitFor(
                [this] {
                    return director().isRunning &&
                           director().state == InstallationState::updateAvailable;
                },
                10000))
            return false;
        m_store->updateFlow().updateApplication(director());
        if (m_store->updateFlow().runningUpdatePromptAppID() != director().id)
            return false;
        // Director runs on while its update downloads; it is closed for the exchange only.
        m_store->updateFlow().confirmRunningUpdate();
        return true;
    }

private Q_SLOTS:
    void initTestCase() {
        if (!PrivateKeyring::isAvailable())
            QSKIP("dbus-daemon, gnome-keyring-daemon or secret-tool is missing (install-deps.sh)");
        QVERIFY(m_root.isValid());
        // Before anything reads them: nothing of the real user's is read or written.
        for (const auto& [variable, folder] : {std::pair{"HOME", u"home"_s},
                                               {"XDG_RUNTIME_DIR", u"runtime"_s},
                                               {"XDG_DATA_HOME", u"home/.local/share"_s},
                                               {"XDG_CONFIG_HOME", u"home/.config"_s},
                                               {"XDG_CACHE_HOME", u"home/.cache"_s},
                                               {"TMPDIR", u"tmp"_s}}) {
            QVERIFY(QDir().mkpath(path(folder)));
            QFile::setPermissions(path(folder),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            qputenv(variable, QFile::encodeName(path(folder)));
        }
        qputenv("VANTOR_TEST_LAUNCHES", QFile::encodeName(path(u"launches"_s)));
        QVERIFY(m_keyring.start());

        // The release the website publishes: Director 2.5.0 signed by the same team, zipped.
        m_signing = std::make_unique<SigningFixture>();
        QVERIFY(QDir().mkpath(path(u"updates"_s)));
        ZipWriter(path(u"updates/VantorDirector-2.5.0.zip"_s))
            .addTree(writeDirector(path(u"release"_s), u"2.5.0"_s, u"2500"_s),
                     "Vantor Director.app");

        m_server = std::make_unique<HttpsTestServer>();
        SampleWebsite::Options options;
        options.updatesFolder = path(u"updates"_s);
        options.approveAutomatically = true;
        m_website = std::make_unique<SampleWebsite>(*m_server, options);
        m_browser = std::make_unique<PlayingBrowser>(m_server->makeNetworkAccess());
        // As the launcher does at start: the desktop finds it on the session bus.
        m_instance = PlatformServices::makeLauncherInstance();
        QVERIFY(m_instance->claim());
        m_instance->publishToDesktop();

        // The development configuration file, as `--config` reads it.
        writeFile(path(u"website-ca.pem"_s), m_server->authority().certificatePem());
        writeFile(path(u"signing-root.pem"_s), m_signing->authority.certificatePem());
        QJsonObject document = m_website->launcherConfiguration(path(u"website-ca.pem"_s));
        document.insert(u"codeSigningAnchors"_s, QJsonArray{path(u"signing-root.pem"_s)});
        writeFile(path(u"launcher.json"_s), QJsonDocument(document).toJson());
        m_configuration = LaunchConfiguration::fromFile(path(u"launcher.json"_s));
        m_configuration.director.bundleIdentifiers = {directorID};
    }

    void cleanup() {
        m_store.reset();
        if (m_website)
            m_website->faults().clear();
        stopDirectors();
    }

    void wholeRun() {
        writeDirector(path(u"home/Applications"_s), u"2.4.1"_s, u"2410"_s);
        QVERIFY(startDirector());
        QVERIFY(startStore(true));
        QCOMPARE(director().path, std::optional(QUrl::fromLocalFile(installed())));
        QCOMPARE(director().installedVersion, std::optional(u"2.4.1"_s));
        QVERIFY(m_store->updateFlow().availableDirectorRelease());
        QCOMPARE(m_store->updateFlow().availableDirectorRelease()->version, u"2.5.0"_s);
        QVERIFY(m_store->packFlows().hasLoadedPublicCatalogue());
        QCOMPARE(m_store->accountFlows().syncState().kind, SyncKind::signedOut);

        // 2.5.0 is fetched and verified in the background while Director runs; the update then
        // fetches nothing, closes Director politely, installs 2.5.0 and reopens it.
        QTRY_VERIFY_WITH_TIMEOUT(m_store->updateFlow().hasPreparedRelease(), 30000);
        QCOMPARE(m_server->requestCount(archivePath), 1);
        QCOMPARE(readBundleMetadata(QUrl::fromLocalFile(installed()))->version,
                 std::optional(u"2.4.1"_s));
        const qsizetype launched = launches();
        QVERIFY(confirmUpdate());
        QTRY_COMPARE_WITH_TIMEOUT(message(), u"Vantor Director 2.5.0 was installed successfully."_s,
                                  30000);
        QTRY_VERIFY_WITH_TIMEOUT(!m_store->updateFlow().updatingAppID(), 30000);
        QCOMPARE(director().installedVersion, std::optional(u"2.5.0"_s));
        QTRY_COMPARE_WITH_TIMEOUT(director().state, InstallationState::current, 10000);
        QCOMPARE(readBundleMetadata(QUrl::fromLocalFile(installed()))->version,
                 std::optional(u"2.5.0"_s));
        QTRY_COMPARE_WITH_TIMEOUT(launches(), launched + 1, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(director().isRunning, 10000);
        QCOMPARE(m_server->requestCount(archivePath), 1);
        QCOMPARE(leftovers(), QStringList());

        // Sign-in: the desktop runs the entry's Exec line for the callback, whose program hands
        // it to a second launcher on standard input, which passes it on and ends.
        QCOMPARE(signIn(PlayingBrowser::Desktop::execLine), QStringList());
        QVERIFY(m_browser->sawHandOver());
        QTRY_COMPARE_WITH_TIMEOUT(m_browser->handlerExitCode, 0, 10000);
        QVERIFY(m_store->accountFlows().account());
        QCOMPARE(m_store->accountFlows().account()->id, u"cus_sample_0001"_s);
        QVERIFY(QFile::exists(snapshotFile()));

        QVERIFY(finished(m_store->packFlows().installPack(packID)));
        QCOMPARE(message(), u"Aurora Stage is installed and ready in Vantor Creator."_s);
        QCOMPARE(packState(), std::optional(PackInstallation::installed));
        const auto installedPack = filesUnder(contentStore());
        QCOMPARE(installedPack.keys().filter(u".vdasset"_s).size(), 2);
        QCOMPARE(installedPack.keys().filter(u"catalog.json"_s).size(), 1);

        // A restart shows the saved account until the automatic sync has refreshed it.
        m_store = std::make_unique<LaunchStore>(production());
        QList<SyncKind> states;
        connect(&m_store->accountFlows(), &AccountFlows::syncStateChanged, this,
                [&] { states.append(m_store->accountFlows().syncState().kind); });
        QVERIFY(finished(m_store->start()));
        QCOMPARE(states, (QList{SyncKind::stale, SyncKind::syncing, SyncKind::synced}));
        QCOMPARE(packState(), std::optional(PackInstallation::installed));
        QVERIFY(finished(m_store->accountFlows().refreshAccount()));
        QCOMPARE(m_store->accountFlows().syncState().kind, SyncKind::synced);
        QCOMPARE(m_store->accountFlows().account()->displayName, u"Sample Presenter"_s);

        // Sign-out leaves no keyring item, no snapshot, no token in any file and no session.
        const QStringList tokens = keyringTokens();
        QCOMPARE(tokens.size(), 2);
        QVERIFY(finished(m_store->accountFlows().signOut()));
        QCOMPARE(message(), u"You are signed out of Vantor Launcher. Installed applications and "
                            u"content were not changed."_s);
        QVERIFY(!m_store->accountFlows().account());
        QCOMPARE(keyringTokens(), QStringList());
        QVERIFY(!QFile::exists(snapshotFile()));
        QCOMPARE(m_website->sessionCount(), 0);
        QCOMPARE(filesUnder(contentStore()), installedPack);
        QCOMPARE(filesHolding(m_root.path(), {tokens[0].toLatin1(), tokens[1].toLatin1()}),
                 QStringList());
    }

    void faultsChangeNothing_data() {
        QTest::addColumn<QString>("flow");
        QTest::addColumn<QString>("target");
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QString>("expected");
        const QString notUpdated = u"Vantor Director could not be updated: "_s;
        const QString refreshUnavailable =
            u"Website account refresh was unavailable. Your installed applications were not changed."_s;
        const auto row = [](const char* name, const QString& flow, const QString& target,
                            Fault fault, const QString& message) {
            QTest::newRow(name) << flow << target << fault << message;
        };
        row("archive 404", u"update"_s, archivePath, {.status = 404},
            notUpdated + urlError(LaunchError::badServerResponse));
        row("archive dropped", u"update"_s, archivePath, {.dropAfter = 4096},
            notUpdated + urlError(LaunchError::networkConnectionLost));
        row("catalogue 503", u"catalogue"_s, u"/v1/catalogue"_s, {.status = 503},
            u"The public Content Pack catalogue could not be refreshed."_s);
        row("thumbnail 404", u"install"_s, u"/files/aurora-stage/aurora-still.jpg"_s,
            {.status = 404}, u"The content server rejected the download (HTTP 404)."_s);
        row("asset dropped", u"install"_s, u"/files/aurora-stage/aurora-still.vdasset"_s,
            {.dropAfter = 1000}, urlError(LaunchError::networkConnectionLost));
        row("wrong digest", u"install"_s, u"aurora-still"_s, {.wrongDigest = true},
            u"Aurora Still failed its integrity check. Nothing was installed."_s);
        row("expired session, install", u"install"_s, {}, {.expiredSession = true},
            urlError(LaunchError::userAuthenticationRequired));
        row("expired session, refresh", u"refresh"_s, {}, {.expiredSession = true},
            refreshUnavailable);
        row("account 500", u"refresh"_s, u"/v1/launch/account"_s, {.status = 500},
            refreshUnavailable);
        row("slow asset", u"install"_s, u"/files/aurora-stage/aurora-curtain.vdasset"_s,
            {.delay = 1500}, u"Aurora Stage is installed and ready in Vantor Creator."_s);
    }

    // Each fault on a signed-in launcher with an installed pack and Director 2.4.1: the user sees
    // the right message and nothing is lost or half-written.
    void faultsChangeNothing() {
        QFETCH(QString, flow);
        QFETCH(QString, target);
        QFETCH(Fault, fault);
        QFETCH(QString, expected);
        writeDirector(path(u"home/Applications"_s), u"2.4.1"_s, u"2410"_s);
        if (flow == u"update"_s)
            QVERIFY(startDirector());
        QVERIFY(startStore());
        if (!m_store->accountFlows().account()) {
            // This time the desktop opens the entry over D-Bus: the running launcher answers.
            QCOMPARE(signIn(PlayingBrowser::Desktop::dbusActivation), QStringList());
            QCOMPARE(m_browser->openAnswered, std::optional(true));
        }
        if (packState() != PackInstallation::installed)
            QVERIFY(finished(m_store->packFlows().installPack(packID)));
        QCOMPARE(packState(), std::optional(PackInstallation::installed));
        // The account sync of the start re-reads the installed packs without waiting; this read
        // queues behind it, so that it cannot overwrite the outcome of the flow below.
        QVERIFY(finished(m_store->packFlows().refreshPackInstallations()));
        const auto directorFiles = filesUnder(installed());
        const auto content = filesUnder(contentStore());
        const QByteArray snapshot = readFile(snapshotFile());
        const qsizetype launched = launches();
        const int requested = m_server->requestCount(target);

        WebsiteFaults& faults = m_website->faults();
        if (fault.status)
            faults.failPath(target, fault.status);
        if (fault.delay)
            faults.delayPath(target, fault.delay);
        if (fault.dropAfter >= 0)
            faults.dropPathAfterBytes(target, fault.dropAfter);
        if (fault.wrongDigest)
            faults.publishWrongDigest(target);
        faults.setSessionExpired(fault.expiredSession);

        if (flow == u"update"_s) {
            QVERIFY(confirmUpdate());
            QTRY_COMPARE_WITH_TIMEOUT(message(), expected, 30000);
            // The download failed before Director had to close: 2.4.1 runs on, and the update
            // is still on offer.
            QCOMPARE(launches(), launched);
            QVERIFY(director().isRunning);
            QTRY_COMPARE_WITH_TIMEOUT(director().state, InstallationState::updateAvailable, 10000);
            QVERIFY(!m_store->updateFlow().updatingAppID());
        } else if (flow == u"catalogue"_s) {
            const QList<ContentPack> packs = m_store->packs();
            QVERIFY(finished(m_store->packFlows().refreshCatalogue()));
            QCOMPARE(m_store->packs(), packs);
        } else if (flow == u"install"_s) {
            auto install = m_store->packFlows().installPack(packID);
            if (fault.delay) {
                // While the slow file arrives, the new copy is staged and the installed one is
                // untouched.
                QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(target), requested + 1, 10000);
                // Staged inside the content store, with the lock that keeps a sweep away.
                QCOMPARE(leftovers().filter(u"vantor-launch-pack-"_s).size(), 2);
                auto visible = filesUnder(contentStore());
                visible.removeIf([](const auto& item) { return item.key().startsWith(u'.'); });
                QCOMPARE(visible, content);
            }
            QVERIFY(finished(std::move(install)));
            QCOMPARE(packState(), std::optional(fault.delay ? PackInstallation::installed
                                                            : PackInstallation::failed));
        } else {
            QVERIFY(finished(m_store->accountFlows().refreshAccount()));
            QCOMPARE(m_store->accountFlows().syncState().kind,
                     fault.expiredSession ? SyncKind::sessionExpired : SyncKind::failed);
            QVERIFY(m_store->accountFlows().account());
        }
        QCOMPARE(message(), expected);
        QCOMPARE(filesUnder(installed()), directorFiles);
        QCOMPARE(filesUnder(contentStore()), content);
        QCOMPARE(readFile(snapshotFile()), snapshot);
        QCOMPARE(keyringTokens().size(), 2);
        QCOMPARE(leftovers(), QStringList());
    }
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "EndToEndTest.moc"
