#include "account/ProductionWebsiteAccountProvider.h"

#include "BundleBuilder.h"
#include "MemorySecretStore.h"
#include "PlayingBrowser.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "WebsiteFixture.h"
#include "platform/linux/LinuxBrowserSignIn.h"
#include "platform/linux/LinuxSecretStore.h"
#include "platform/linux/SchemeHandlerRegistration.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

const QString tokenPath = u"/v1/launch/token"_s;
const QString refreshPath = u"/v1/launch/token/refresh"_s;
const QString accountPath = u"/v1/launch/account"_s;
const QString signOutPath = u"/v1/launch/sign-out"_s;
const QString manifestPath = u"/v1/launch/creator-backgrounds"_s;
const QString contentPackText =
    u"Content Pack installation is not yet available on the live Vantor API."_s;
const WebsiteAccount sampleAccount{u"cus_sample_0001"_s, u"Sample Presenter"_s,
                                   u"presenter@vantor.example"_s};

// A secret store that remembers what it was asked to keep, so that the test knows which tokens
// to look for where they must not be.
struct RecordingSecretStore : SecretStore {
    std::shared_ptr<SecretStore> store;
    QByteArrayList written;
    explicit RecordingSecretStore(std::shared_ptr<SecretStore> store)
        : store(std::move(store)) {}
    QCoro::Task<ReadResult> read(QString s, QString a) override { return store->read(s, a); }
    QCoro::Task<Status> remove(QString s, QString a) override { return store->remove(s, a); }
    QCoro::Task<Status> write(QString s, QString a, QByteArray secret) override {
        written.append(secret);
        return store->write(s, a, secret);
    }
};

} // namespace

// The provider against the sample website: sessions, refresh, sign-out and the browser sign-in.
class ProductionWebsiteAccountProviderTest : public QObject {
    Q_OBJECT

    // The second launcher process finds this one's socket in the same runtime folder.
    ThrowawayHome m_home;
    std::unique_ptr<WebsiteFixture> m_website;
    std::shared_ptr<MemorySecretStore> m_secrets;
    std::shared_ptr<LaunchTokenStore> m_tokens;
    LaunchTokens m_held;
    qsizetype m_requestsBefore = 0;

    HttpsTestServer& server() { return m_website->server(); }

    LaunchConfiguration configuration() {
        LaunchConfiguration configuration = LaunchConfiguration::production();
        // The path of the base is replaced by the endpoints' absolute paths.
        configuration.accountAPIBaseURL = m_website->url(u"/api/"_s);
        configuration.authenticationStartURL = m_website->website().authorizationStartURL();
        return configuration;
    }

    std::unique_ptr<ProductionWebsiteAccountProvider>
    makeProvider(std::optional<LaunchConfiguration> configuration = std::nullopt,
                 std::shared_ptr<BrowserSignIn> browser = nullptr) {
        return std::make_unique<ProductionWebsiteAccountProvider>(
            configuration.value_or(this->configuration()), m_tokens, std::move(browser),
            server().makeNetworkAccess(), [] { return QDateTime::currentDateTimeUtc(); });
    }

    // The launcher holds a session of the website, expiring for it this many seconds from now.
    void holdSession(qint64 expiresIn, const QString& accessToken = {}) {
        m_held = m_website->signIn();
        if (!accessToken.isEmpty())
            m_held.accessToken = accessToken;
        m_held.expiresAt = QDateTime::currentDateTimeUtc().addSecs(expiresIn);
        QVERIFY(outcomeOf(m_tokens->save(m_held)).value);
        m_requestsBefore = server().requests().size();
    }

    std::optional<LaunchTokens> storedTokens() { return *outcomeOf(m_tokens->load()).value; }

    // The requests the provider sent, after those that set up the session.
    QList<HttpsTestServer::Request> sent() { return server().requests().mid(m_requestsBefore); }
    QStringList sentPaths() {
        QStringList paths;
        for (const auto& request : sent())
            paths.append(request.method + u' ' + request.path);
        return paths;
    }

private Q_SLOTS:
    void initTestCase() {
        // No session bus, so no secret service: the real store must fail without a fallback,
        // and nothing reaches the user's own bus.
        qputenv("DBUS_SESSION_BUS_ADDRESS",
                "unix:path=" + QFile::encodeName(m_home.filePath(u"no-bus"_s)));
    }

    void init() {
        SampleWebsite::Options options;
        options.approveAutomatically = true; // as for a user who approved the launcher before
        m_website = std::make_unique<WebsiteFixture>(options);
        m_secrets = std::make_shared<MemorySecretStore>();
        m_tokens = std::make_shared<LaunchTokenStore>(m_secrets);
        m_requestsBefore = 0;
    }

    void refreshesTokensCloseToExpiryFirst_data() {
        QTest::addColumn<qint64>("expiresIn");
        QTest::addColumn<QStringList>("requests");
        QTest::newRow("29 s left")
            << qint64(29) << QStringList{u"POST "_s + refreshPath, u"GET "_s + accountPath};
        QTest::newRow("31 s left") << qint64(31) << QStringList{u"GET "_s + accountPath};
    }

    void refreshesTokensCloseToExpiryFirst() {
        QFETCH(qint64, expiresIn);
        QFETCH(QStringList, requests);
        holdSession(expiresIn);
        const auto outcome = outcomeOf(makeProvider()->refreshAccount());
        QCOMPARE(outcome.value, std::optional(sampleAccount));
        QCOMPARE(sentPaths(), requests);

        QCOMPARE(sent().constLast().headers.value(u"accept"_s), u"application/json"_s);
        if (requests.size() == 2) {
            const auto refresh = sent().constFirst();
            QCOMPARE(refresh.body, "{\"refreshToken\":\"" + m_held.refreshToken.toUtf8() + "\"}");
            QCOMPARE(refresh.headers.value(u"content-type"_s), u"application/json"_s);
            QVERIFY(!refresh.headers.contains(u"authorization"_s));
            QVERIFY(storedTokens()->refreshToken != m_held.refreshToken);
            QVERIFY(storedTokens()->expiresAt > QDateTime::currentDateTimeUtc().addSecs(3590));
        }
    }

    // A rejected token buys one refresh, never a second one.
    void manifestGetsOneRefreshAfterA401_data() {
        QTest::addColumn<bool>("rejectedAgain");
        QTest::newRow("accepted after the refresh") << false;
        QTest::newRow("rejected again") << true;
    }

    void manifestGetsOneRefreshAfterA401() {
        QFETCH(bool, rejectedAgain);
        if (rejectedAgain) {
            SampleWebsite::Options expiring; // every access token is out of date at once
            expiring.accessTokenLifetimeSeconds = 0;
            m_website = std::make_unique<WebsiteFixture>(expiring);
        }
        holdSession(3600, rejectedAgain ? QString() : u"unknown-access-token"_s);
        const auto outcome = outcomeOf(makeProvider()->downloadContentPackManifest());
        QCOMPARE(sentPaths(), (QStringList{u"GET "_s + manifestPath, u"POST "_s + refreshPath,
                                           u"GET "_s + manifestPath}));
        QVERIFY(storedTokens()->accessToken != m_held.accessToken);
        if (rejectedAgain) {
            QVERIFY(outcome.error->isUrlError(LaunchError::userAuthenticationRequired));
            return;
        }
        QCOMPARE(outcome.value->contentPacks.size(), 2u);
        QCOMPARE(outcome.value->contentPacks[1].version, u"3"_s);
        QCOMPARE(outcome.value->assets[0].remoteProtectedAssetURL,
                 m_website->url(u"/files/aurora-stage/aurora-curtain.vdasset"_s));
    }

    // Only a 401 from the pack manifest buys a refresh: every other failure, and a 401 from the
    // account, is reported at once, after one request, and the stored session stays as it was.
    // Both requests share one reading of the status, so each status needs only one of them.
    void failuresAreReportedWithoutARefresh_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("status"); // 0: the connection drops instead
        QTest::addColumn<QString>("description");
        const QString refused = u"The Vantor website refused this request for your account."_s;
        const QString unexpected = u"The server returned an unexpected response."_s;
        const QString lost = LaunchError::url(LaunchError::networkConnectionLost).description();
        QTest::newRow("401 account")
            << accountPath << 401
            << LaunchError::url(LaunchError::userAuthenticationRequired).description();
        QTest::newRow("404 manifest") << manifestPath << 404 << contentPackText;
        QTest::newRow("403 manifest") << manifestPath << 403 << refused;
        QTest::newRow("500 manifest") << manifestPath << 500 << unexpected;
        QTest::newRow("manifest dropped") << manifestPath << 0 << lost;
    }

    void failuresAreReportedWithoutARefresh() {
        QFETCH(QString, path);
        QFETCH(int, status);
        QFETCH(QString, description);
        holdSession(3600);
        if (status)
            m_website->faults().failPath(path, status);
        else
            m_website->faults().dropPathAfterBytes(path, 0);
        const auto provider = makeProvider();
        const auto error = path == accountPath
                               ? outcomeOf(provider->refreshAccount()).error
                               : outcomeOf(provider->downloadContentPackManifest()).error;
        QVERIFY(error);
        QCOMPARE(error->description(), description);
        QCOMPARE(sentPaths(), QStringList{u"GET "_s + path});
        QCOMPARE(storedTokens(), std::optional(m_held));
    }

    // Bytes the website never sends: a redirect of the account API to another host.
    void bearerTokenNeverFollowsARedirectElsewhere() {
        holdSession(3600);
        HttpsTestServer::Response elsewhere(302);
        elsewhere.headers.append(
            {"Location",
             m_website->url(accountPath).toEncoded().replace("127.0.0.1", "localhost")});
        server().reply(u"GET"_s, accountPath, elsewhere);
        const auto outcome = outcomeOf(makeProvider()->refreshAccount());
        QVERIFY(outcome.error->isUrlError(LaunchError::badServerResponse));
        QCOMPARE(sent().size(), 1);
    }

    void accountWithoutEmailHasAnEmptyOne() {
        m_website = std::make_unique<WebsiteFixture>(
            SampleWebsite::Options{},
            QHash<QString, QByteArray>{
                {u"account.json"_s,
                 "{\"customerID\": \"cust-42\", \"displayName\": \"Ana\", \"email\": null}"}});
        holdSession(3600);
        QCOMPARE(outcomeOf(makeProvider()->refreshAccount()).value,
                 std::optional(WebsiteAccount{u"cust-42"_s, u"Ana"_s, QString()}));
    }

    void noBaseURLFailsBeforeAnyConnection() {
        holdSession(3600);
        LaunchConfiguration withoutAPI = configuration();
        withoutAPI.accountAPIBaseURL.reset();
        const auto provider = makeProvider(withoutAPI);
        QVERIFY(outcomeOf(provider->refreshAccount()).error->isUrlError(LaunchError::badURL));
        QVERIFY(outcomeOf(provider->downloadContentPackManifest())
                    .error->isUrlError(LaunchError::badURL));
        QVERIFY(outcomeOf(provider->signOut()).value);
        QVERIFY(sent().isEmpty());
        QCOMPARE(storedTokens(), std::nullopt);
    }

    void signOutAlwaysDeletesTheSession_data() {
        QTest::addColumn<bool>("session");
        QTest::addColumn<int>("failure");
        QTest::newRow("no session: nothing sent") << false << 0;
        QTest::newRow("website agrees") << true << 0;
        QTest::newRow("website fails") << true << 500;
    }

    void signOutAlwaysDeletesTheSession() {
        QFETCH(bool, session);
        QFETCH(int, failure);
        if (session)
            holdSession(3600);
        if (failure)
            m_website->faults().failPath(signOutPath, failure);
        QVERIFY(outcomeOf(makeProvider()->signOut()).value);
        QCOMPARE(sentPaths(), session ? QStringList{u"POST "_s + signOutPath} : QStringList());
        if (session)
            QCOMPARE(sent()[0].headers.value(u"authorization"_s),
                     u"Bearer "_s + m_held.accessToken);
        QCOMPARE(m_website->website().sessionCount(), failure ? 1 : 0);
        QCOMPARE(m_secrets->removals, 1);
        QCOMPARE(storedTokens(), std::nullopt);
    }

    void signInThroughTheBrowserAndTheDesktopEntry_data() {
        QTest::addColumn<QString>("change");
        QTest::addColumn<int>("code");
        const int refused = int(LaunchError::userAuthenticationRequired);
        QTest::newRow("as the website sent it") << QString() << 0;
        QTest::newRow("state in other letter case") << u"case"_s << refused;
        QTest::newRow("no state") << u"no state"_s << refused;
        QTest::newRow("empty state") << u"empty state"_s << refused;
        QTest::newRow("state twice") << u"state twice"_s << refused;
        QTest::newRow("error item") << u"error"_s << refused;
        QTest::newRow("no code") << u"no code"_s << int(LaunchError::cannotParseResponse);
    }

    // The browser opens the website's redirect with the entry the launcher registered, as the
    // desktop does without D-Bus activation: the entry's program hands the address to the
    // waiting sign-in, and no command line ever shows its code or state.
    void signInThroughTheBrowserAndTheDesktopEntry() {
        QFETCH(QString, change);
        QFETCH(int, code);
        if (code != 0)
            holdSession(3600); // a refused callback must leave it alone
        PlayingBrowser browser(server().makeNetworkAccess());
        browser.alterCallback = [change](QUrl callback) {
            QUrlQuery query(callback);
            const QString state = query.queryItemValue(u"state"_s);
            if (change == u"case"_s || change == u"no state"_s || change == u"empty state"_s)
                query.removeQueryItem(u"state"_s);
            if (change == u"case"_s)
                query.addQueryItem(u"state"_s,
                                   state.toUpper() == state ? state.toLower() : state.toUpper());
            else if (change == u"empty state"_s)
                query.addQueryItem(u"state"_s, QString());
            else if (change == u"state twice"_s)
                query.addQueryItem(u"state"_s, state);
            else if (change == u"error"_s)
                query.addQueryItem(u"error"_s, u"access_denied"_s);
            else if (change == u"no code"_s)
                query.removeQueryItem(u"code"_s);
            callback.setQuery(query);
            return callback;
        };
        const auto signIn = browser.signInWindow(QStringLiteral(LAUNCHER_EXECUTABLE));
        const auto outcome = outcomeOf(makeProvider(configuration(), signIn)->signIn());
        QVERIFY(QTest::qWaitFor([&] { return browser.handlerExitCode >= 0; }, 20000));
        QCOMPARE(browser.handlerExitCode, 0); // it handed over and ended
        QCOMPARE(browser.stopWatching(), QStringList());
        QVERIFY(browser.sawHandOver());
        QVERIFY(!signIn->isWaiting());

        // The page keeps its own items and gets the state last: 43 characters of base64url.
        const QUrlQuery page(browser.openedPages.value(0));
        QCOMPARE(page.queryItems().size(), 3);
        QCOMPARE(page.queryItems()[0].first, u"option"_s);
        QCOMPARE(page.queryItems()[1].first, u"task"_s);
        QVERIFY(QRegularExpression(u"^[A-Za-z0-9_-]{43}$"_s)
                    .match(page.queryItemValue(u"state"_s))
                    .hasMatch());

        if (code != 0) {
            QVERIFY(outcome.error);
            QCOMPARE(outcome.error->code(), code);
            QVERIFY(!sentPaths().contains(u"POST "_s + tokenPath));
            QCOMPARE(storedTokens(), std::optional(m_held));
            return;
        }
        QCOMPARE(outcome.value, std::optional(sampleAccount));
        const auto exchange = server().requests()[1];
        QCOMPARE(exchange.path, tokenPath);
        QCOMPARE(QJsonDocument::fromJson(exchange.body).object(),
                 (QJsonObject{{u"authorizationCode"_s,
                               QUrlQuery(browser.handedOver).queryItemValue(u"code"_s)},
                              {u"redirectURI"_s, u"vantor-launch://auth"_s}}));
        QCOMPARE(m_website->website().sessionCount(), 1);
        QCOMPARE(server().requestCount(accountPath), 1);
        const auto session = storedTokens();
        QVERIFY(session);

        // The same callback once more finds no sign-in and changes nothing.
        QVERIFY(!LinuxBrowserSignIn::handOver(browser.handedOver));
        QCOMPARE(server().requestCount(tokenPath), 1);
        QCOMPARE(storedTokens(), session);

        // A desktop with D-Bus activation starts the launcher itself when none runs to answer.
        QFile service(qEnvironmentVariable("XDG_DATA_HOME") +
                      u"/dbus-1/services/nz.co.halvex.VantorLaunch.service"_s);
        QVERIFY(service.open(QIODevice::ReadOnly));
        QCOMPARE(service.readAll(), "[D-BUS Service]\nName=nz.co.halvex.VantorLaunch\nExec=" +
                                        QByteArray(LAUNCHER_EXECUTABLE) + '\n');
    }

    // Without a secret service the session cannot be kept: the sign-in fails with the storage
    // text after the website issued the tokens, and neither they nor the code reach a file.
    void signInWithoutASecretServiceKeepsNoToken() {
        const auto secrets =
            std::make_shared<RecordingSecretStore>(std::make_shared<LinuxSecretStore>());
        m_tokens = std::make_shared<LaunchTokenStore>(secrets);
        PlayingBrowser browser(server().makeNetworkAccess());
        const auto provider = makeProvider(
            configuration(), browser.signInWindow(QStringLiteral(LAUNCHER_EXECUTABLE)));
        const QString storageFailed = u"Secure session storage is not configured in this build."_s;
        QCOMPARE(outcomeOf(provider->signIn()).error->description(), storageFailed);
        // Reading fails as storage too: the user is not told that the session ended.
        QCOMPARE(outcomeOf(provider->refreshAccount()).error->description(), storageFailed);
        QCOMPARE(server().requestCount(tokenPath), 1);
        QCOMPARE(server().requestCount(accountPath), 0);
        QCOMPARE(secrets->written.size(), 1);
        const LaunchTokens issued = LaunchTokens::decode(secrets->written.constFirst());
        // The tokens and the code as they are, and the item in the base64 of QtKeychain.
        QCOMPARE(filesHolding(m_home.path(),
                              {issued.accessToken.toUtf8(), issued.refreshToken.toUtf8(),
                               QUrlQuery(browser.handedOver).queryItemValue(u"code"_s).toUtf8(),
                               secrets->written.constFirst().toBase64()}),
                 QStringList());
    }

    void registrationKeepsTheUsersOtherHandlers_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        const QString ours = u"x-scheme-handler/vantor-launch=nz.co.halvex.VantorLaunch.desktop"_s;
        QTest::newRow("no file") << QString() << u"[Default Applications]\n"_s + ours + u'\n';
        QTest::newRow("other handlers")
            << u"[Added Associations]\ntext/html=web.desktop;\n[Default Applications]\n"
               "x-scheme-handler/https=web.desktop\n"_s
            << u"[Added Associations]\ntext/html=web.desktop;\n[Default Applications]\n"_s + ours +
                   u"\nx-scheme-handler/https=web.desktop\n"_s;
        QTest::newRow("another handler of ours")
            << u"[Default Applications]\nx-scheme-handler/vantor-launch=old.desktop\n"
               "[Removed Associations]\n"_s
            << u"[Default Applications]\n"_s + ours + u"\n[Removed Associations]\n"_s;
    }

    void registrationKeepsTheUsersOtherHandlers() {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QCOMPARE(SchemeHandlerRegistration::withDefaultHandler(before, u"vantor-launch"_s), after);
    }

    void registrationNamesTheLauncherAsXdgOpenReadsIt() {
        QCOMPARE(SchemeHandlerRegistration::execProgram(u"/opt/vantor/bin/vantor-launcher"_s),
                 u"/opt/vantor/bin/vantor-launcher"_s);
        QCOMPARE(SchemeHandlerRegistration::execProgram(u"/home/a b/$x\"q\\"_s),
                 u"\"/home/a b/\\$x\\\"q\\\\\""_s);
    }

    void installedLauncherLeavesTheSchemeToItsEntry() {
        QTemporaryDir root;
        const QString executable = root.filePath(u"usr/bin/vantor-launcher"_s);
        const QString data = root.filePath(u"data"_s);
        const QString config = root.filePath(u"config"_s);
        const QString entry =
            root.filePath(u"usr/share/applications/nz.co.halvex.VantorLaunch.desktop"_s);
        writeFile(entry, {});
        SchemeHandlerRegistration::registerForUser(u"vantor-launch"_s, executable, data, config);
        QVERIFY(!QFileInfo::exists(data));
        QVERIFY(!QFileInfo::exists(config));

        // Without the entry beside it, as in the build folder, the launcher registers itself.
        QVERIFY(QFile::remove(entry));
        SchemeHandlerRegistration::registerForUser(u"vantor-launch"_s, executable, data, config);
        QVERIFY(QFileInfo::exists(config + u"/mimeapps.list"_s));
    }

    // A sign-in that ends without a callback sends nothing, keeps the stored session and leaves
    // nobody listening for a late callback.
    void signInWithoutACallbackChangesNothing_data() {
        QTest::addColumn<bool>("browserOpens");
        QTest::newRow("cancelled") << true;
        QTest::newRow("no browser") << false;
    }

    void signInWithoutACallbackChangesNothing() {
        QFETCH(bool, browserOpens);
        holdSession(3600);
        const auto signIn = std::make_shared<LinuxBrowserSignIn>(
            LinuxBrowserSignIn::defaultSocketPath(),
            [browserOpens](const QUrl&) { return browserOpens; }, [](const QString&) {});
        auto provider = makeProvider(configuration(), signIn);
        TaskOutcome<WebsiteAccount> outcome;
        auto task = recordOutcome(provider->signIn(), outcome);
        if (browserOpens) {
            QVERIFY(QTest::qWaitFor([&] { return signIn->isWaiting(); }, 5000));
            signIn->cancel();
        }
        QVERIFY(finishes(task));
        QVERIFY(outcome.error->isUrlError(browserOpens ? LaunchError::cancelled
                                                       : LaunchError::cannotLoadFromNetwork));
        QVERIFY(!signIn->isWaiting());
        QVERIFY(!LinuxBrowserSignIn::handOver(QUrl(u"vantor-launch://auth?code=x"_s)));
        QVERIFY(sent().isEmpty());
        QCOMPARE(storedTokens(), std::optional(m_held));
    }
};

QTEST_GUILESS_MAIN(ProductionWebsiteAccountProviderTest)
#include "ProductionWebsiteAccountProviderTest.moc"
