#include "account/ProductionWebsiteAccountProvider.h"

#include "FakeWebsite.h"
#include "MemorySecretStore.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "platform/linux/LinuxBrowserSignIn.h"
#include "platform/linux/SchemeHandlerRegistration.h"

#include <QDir>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QUrlQuery>
#include <mutex>

using namespace Qt::StringLiterals;

using namespace website;

namespace {

const QString contentPackText =
    u"Content Pack installation is not yet available on the live Vantor API."_s;

template <typename T>
TaskOutcome<T> outcomeOf(QCoro::Task<T> task, int milliseconds = 20000) {
    TaskOutcome<T> outcome;
    auto recording = recordOutcome(std::move(task), outcome);
    if (!finishes(recording, milliseconds))
        qFatal("a provider call did not finish");
    return outcome;
}

TaskOutcome<bool> outcomeOf(QCoro::Task<> task) {
    TaskOutcome<bool> outcome;
    auto recording = recordOutcome(std::move(task), outcome);
    if (!finishes(recording, 20000))
        qFatal("a provider call did not finish");
    return outcome;
}

} // namespace

class ProductionWebsiteAccountProviderTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;
    std::unique_ptr<HttpsTestServer> m_server;
    std::unique_ptr<FakeWebsite> m_website;
    std::shared_ptr<MemorySecretStore> m_secrets;
    std::shared_ptr<LaunchTokenStore> m_tokens;

    LaunchConfiguration configuration() const {
        LaunchConfiguration configuration = LaunchConfiguration::production();
        // The path of the base is replaced by the endpoints' absolute paths.
        configuration.accountAPIBaseURL = m_server->url(u"/api/"_s);
        configuration.authenticationStartURL =
            m_server->url(authorizePath + u"?option=com_vantordirector&task=launch.authorize"_s);
        return configuration;
    }

    std::unique_ptr<ProductionWebsiteAccountProvider>
    makeProvider(const LaunchConfiguration& configuration,
                 std::shared_ptr<BrowserSignIn> browser = nullptr) const {
        return std::make_unique<ProductionWebsiteAccountProvider>(
            configuration, m_tokens, std::move(browser), m_server->makeNetworkAccess(),
            [] { return QDateTime::currentDateTimeUtc(); });
    }
    std::unique_ptr<ProductionWebsiteAccountProvider> makeProvider() const {
        return makeProvider(configuration());
    }

    // The launcher holds "access-0", expiring this many seconds from now.
    void holdSession(qint64 expiresIn) {
        m_website->startSession();
        const LaunchTokens tokens{u"access-0"_s, u"refresh-0"_s,
                                  QDateTime::currentDateTimeUtc().addSecs(expiresIn)};
        QVERIFY(outcomeOf(m_tokens->save(tokens)).value);
    }

    std::optional<LaunchTokens> storedTokens() { return *outcomeOf(m_tokens->load()).value; }

    QStringList requestedPaths() const {
        QStringList paths;
        for (const auto& request : m_server->requests())
            paths.append(request.method + u' ' + request.path);
        return paths;
    }

private Q_SLOTS:
    void initTestCase() {
        // The second launcher process finds this one's socket in the same runtime folder; neither
        // touches the real user's folders.
        QVERIFY(m_home.isValid());
        for (const auto& [variable, folder] : {std::pair{"HOME", u"home"_s},
                                               {"XDG_RUNTIME_DIR", u"runtime"_s},
                                               {"XDG_DATA_HOME", u"home/.local/share"_s},
                                               {"XDG_CONFIG_HOME", u"home/.config"_s}}) {
            QVERIFY(QDir().mkpath(m_home.filePath(folder)));
            QFile::setPermissions(m_home.filePath(folder),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            qputenv(variable, QFile::encodeName(m_home.filePath(folder)));
        }
    }

    void init() {
        m_server = std::make_unique<HttpsTestServer>();
        m_website = std::make_unique<FakeWebsite>(*m_server);
        m_secrets = std::make_shared<MemorySecretStore>();
        m_tokens = std::make_shared<LaunchTokenStore>(m_secrets);
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
        QCOMPARE(outcome.value, std::optional(WebsiteAccount{u"cust-42"_s, u"Ana Example"_s,
                                                             u"ana@example.com"_s}));
        QCOMPARE(requestedPaths(), requests);

        const auto account = m_server->requests().constLast();
        QCOMPARE(account.headers.value(u"accept"_s), u"application/json"_s);
        if (requests.size() == 2) {
            const auto refresh = m_server->requests().constFirst();
            QCOMPARE(refresh.body, QByteArray("{\"refreshToken\":\"refresh-0\"}"));
            QCOMPARE(refresh.headers.value(u"content-type"_s), u"application/json"_s);
            QVERIFY(!refresh.headers.contains(u"authorization"_s));
            QCOMPARE(storedTokens()->refreshToken, u"refresh-1"_s);
            QVERIFY(storedTokens()->expiresAt > QDateTime::currentDateTimeUtc().addSecs(3590));
        }
    }

    void manifestGetsOneRefreshAfterA401_data() {
        QTest::addColumn<int>("rejections");
        QTest::newRow("accepted after the refresh") << 1;
        QTest::newRow("rejected again") << 2;
    }

    void manifestGetsOneRefreshAfterA401() {
        QFETCH(int, rejections);
        holdSession(3600);
        m_website->rejectManifest(rejections);
        const auto outcome = outcomeOf(makeProvider()->downloadContentPackManifest());
        QCOMPARE(requestedPaths(), (QStringList{u"GET "_s + manifestPath, u"POST "_s + refreshPath,
                                                u"GET "_s + manifestPath}));
        QCOMPARE(storedTokens()->accessToken, u"access-1"_s);
        if (rejections == 1) {
            QVERIFY(outcome.value);
            QCOMPARE(outcome.value->contentPacks.size(), 1u);
            QCOMPARE(outcome.value->contentPacks[0].version, u"2"_s);
            QCOMPARE(outcome.value->assets[0].remoteProtectedAssetURL,
                     QUrl(u"https://cdn.example/a1.zip"_s));
        } else {
            QVERIFY(outcome.error->isUrlError(LaunchError::userAuthenticationRequired));
        }
    }

    void accountRejectionIsNotRetried() {
        holdSession(3600);
        m_server->reply(u"GET"_s, accountPath, answer("{}", 401));
        const auto outcome = outcomeOf(makeProvider()->refreshAccount());
        QVERIFY(outcome.error->isUrlError(LaunchError::userAuthenticationRequired));
        QCOMPARE(requestedPaths(), QStringList{u"GET "_s + accountPath});
        QCOMPARE(storedTokens()->accessToken, u"access-0"_s);
    }

    void statusesMapToErrors_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("description");
        const QString refused = u"The Vantor website refused this request for your account."_s;
        const QString unexpected = u"The server returned an unexpected response."_s;
        QTest::newRow("404 account") << accountPath << 404 << contentPackText;
        QTest::newRow("404 manifest") << manifestPath << 404 << contentPackText;
        QTest::newRow("403") << accountPath << 403 << refused;
        QTest::newRow("500") << accountPath << 500 << unexpected;
        QTest::newRow("418") << manifestPath << 418 << unexpected;
    }

    void statusesMapToErrors() {
        QFETCH(QString, path);
        QFETCH(int, status);
        QFETCH(QString, description);
        holdSession(3600);
        m_server->reply(u"GET"_s, path, answer(json("{'customerID':'x'}"), status));
        const auto provider = makeProvider();
        const auto error = path == accountPath
                               ? outcomeOf(provider->refreshAccount()).error
                               : outcomeOf(provider->downloadContentPackManifest()).error;
        QVERIFY(error);
        QCOMPARE(error->description(), description);
    }

    void bearerTokenNeverFollowsARedirectElsewhere() {
        holdSession(3600);
        Response elsewhere = answer({}, 302);
        elsewhere.headers.append(
            {"Location", m_server->url(accountPath).toEncoded().replace("127.0.0.1", "localhost")});
        m_server->reply(u"GET"_s, accountPath, elsewhere);
        const auto outcome = outcomeOf(makeProvider()->refreshAccount());
        QVERIFY(outcome.error->isUrlError(LaunchError::badServerResponse));
        QCOMPARE(m_server->requests().size(), 1);
    }

    void accountWithoutEmailHasAnEmptyOne() {
        holdSession(3600);
        m_server->reply(u"GET"_s, accountPath,
                        answer(json("{'customerID':'cust-42','displayName':'Ana','email':null}")));
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
        QVERIFY(m_server->requests().isEmpty());
        QCOMPARE(storedTokens(), std::nullopt);
    }

    void signOutAlwaysDeletesTheSession_data() {
        QTest::addColumn<bool>("session");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("requests");
        QTest::newRow("no session: nothing sent") << false << 200 << 0;
        QTest::newRow("website agrees") << true << 200 << 1;
        QTest::newRow("website fails") << true << 500 << 1;
    }

    void signOutAlwaysDeletesTheSession() {
        QFETCH(bool, session);
        QFETCH(int, status);
        QFETCH(int, requests);
        if (session)
            holdSession(3600);
        if (status != 200)
            m_server->reply(u"POST"_s, signOutPath, answer("{}", status));
        QVERIFY(outcomeOf(makeProvider()->signOut()).value);
        QCOMPARE(m_server->requestCount(signOutPath), requests);
        if (requests)
            QCOMPARE(m_server->requests()[0].headers.value(u"authorization"_s),
                     u"Bearer access-0"_s);
        QCOMPARE(m_secrets->removals, 1);
        QCOMPARE(storedTokens(), std::nullopt);
    }

    void signInThroughTheBrowserAndASecondLauncher_data() {
        QTest::addColumn<QString>("change");
        QTest::addColumn<int>("code");
        QTest::newRow("as the website sent it") << QString() << 0;
        QTest::newRow("state in other letter case")
            << u"case"_s << int(LaunchError::userAuthenticationRequired);
        QTest::newRow("error item") << u"error"_s << int(LaunchError::userAuthenticationRequired);
        QTest::newRow("no code") << u"no code"_s << int(LaunchError::cannotParseResponse);
    }

    void signInThroughTheBrowserAndASecondLauncher() {
        QFETCH(QString, change);
        QFETCH(int, code);
        PlayingBrowser browser(*m_server);
        browser.alterCallback = [change](QUrl callback) {
            QUrlQuery query(callback);
            if (change == u"case"_s) {
                const QString state = query.queryItemValue(u"state"_s);
                query.removeQueryItem(u"state"_s);
                query.addQueryItem(u"state"_s,
                                   state.toUpper() == state ? state.toLower() : state.toUpper());
            } else if (change == u"error"_s) {
                query.addQueryItem(u"error"_s, u"access_denied"_s);
            } else if (change == u"no code"_s) {
                query.removeQueryItem(u"code"_s);
            }
            callback.setQuery(query);
            return callback;
        };
        const auto signIn = std::make_shared<LinuxBrowserSignIn>(
            LinuxBrowserSignIn::defaultSocketPath(),
            [&browser](const QUrl& page) { return browser.open(page); });
        const auto outcome = outcomeOf(makeProvider(configuration(), signIn)->signIn());
        QVERIFY(QTest::qWaitFor([&] { return browser.launcherExitCode >= 0; }, 20000));
        QCOMPARE(browser.launcherExitCode, 0); // it handed over and ended
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
            QCOMPARE(m_server->requestCount(tokenPath), 0);
            QCOMPARE(storedTokens(), std::nullopt);
            return;
        }
        QCOMPARE(outcome.value->id, u"cust-42"_s);
        const auto exchange = m_server->requests()[1];
        QCOMPARE(exchange.path, tokenPath);
        QCOMPARE(exchange.body, json("{'authorizationCode':'code-1',"
                                     "'redirectURI':'vantor-launch://auth'}"));
        QCOMPARE(storedTokens()->accessToken, u"access-1"_s);
        QCOMPARE(m_server->requestCount(accountPath), 1);

        // The desktop now sends the scheme to this executable.
        QFile entry(qEnvironmentVariable("XDG_DATA_HOME") +
                    u"/applications/vantor-launcher.desktop"_s);
        QVERIFY(entry.open(QIODevice::ReadOnly));
        QVERIFY(entry.readAll().contains("MimeType=x-scheme-handler/vantor-launch;"));
        QFile mimeapps(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/mimeapps.list"_s);
        QVERIFY(mimeapps.open(QIODevice::ReadOnly));
        QVERIFY(
            mimeapps.readAll().contains("x-scheme-handler/vantor-launch=vantor-launcher.desktop"));
    }

    void registrationKeepsTheUsersOtherHandlers_data() {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        const QString ours = u"x-scheme-handler/vantor-launch=vantor-launcher.desktop"_s;
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

    void cancelledSignInSendsNothing() {
        bool opened = false;
        const auto signIn = std::make_shared<LinuxBrowserSignIn>(
            LinuxBrowserSignIn::defaultSocketPath(),
            [&opened](const QUrl&) { return opened = true; }, [](const QString&) {});
        auto provider = makeProvider(configuration(), signIn);
        TaskOutcome<WebsiteAccount> outcome;
        auto task = recordOutcome(provider->signIn(), outcome);
        QVERIFY(QTest::qWaitFor([&] { return signIn->isWaiting(); }, 5000));
        QVERIFY(opened);
        signIn->cancel();
        QVERIFY(finishes(task));
        QVERIFY(outcome.error->isUrlError(LaunchError::cancelled));
        QVERIFY(!signIn->isWaiting());
        // Nobody listens any more: a late callback finds no sign-in.
        QVERIFY(!LinuxBrowserSignIn::handOver(QUrl(u"vantor-launch://auth?code=x"_s)));
        QVERIFY(m_server->requests().isEmpty());
    }

    void browserThatCannotOpenFailsTheSignIn() {
        const auto signIn = std::make_shared<LinuxBrowserSignIn>(
            LinuxBrowserSignIn::defaultSocketPath(), [](const QUrl&) { return false; },
            [](const QString&) {});
        const auto outcome = outcomeOf(makeProvider(configuration(), signIn)->signIn());
        QVERIFY(outcome.error->isUrlError(LaunchError::cannotLoadFromNetwork));
        QVERIFY(!signIn->isWaiting());
    }
};

QTEST_GUILESS_MAIN(ProductionWebsiteAccountProviderTest)
#include "ProductionWebsiteAccountProviderTest.moc"
