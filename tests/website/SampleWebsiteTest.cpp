#include "SampleWebsite.h"

#include "HttpsTestServer.h"
#include "account/WebsiteResponses.h"
#include "applications/ReleaseManifest.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace {

struct Answer {
    int status = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QByteArray body;
    QString location;
    QJsonObject object() const { return QJsonDocument::fromJson(body).object(); }
};

} // namespace

// The website's endpoints against a real HTTPS client, as the launcher will meet them.
class SampleWebsiteTest : public QObject {
    Q_OBJECT

    std::unique_ptr<HttpsTestServer> m_server;
    std::unique_ptr<SampleWebsite> m_website;
    std::shared_ptr<QNetworkAccessManager> m_network;
    QTemporaryDir m_updates;

    // Open connections would hold the old server's stop for seconds.
    void stopWebsite() {
        if (m_network)
            m_network->clearConnectionCache();
        m_network.reset();
        m_website.reset();
        m_server.reset();
    }

    void startWebsite(SampleWebsite::Options options = {}) {
        stopWebsite();
        m_server = std::make_unique<HttpsTestServer>();
        options.updatesFolder = m_updates.path();
        m_website = std::make_unique<SampleWebsite>(*m_server, options);
        m_network = m_server->makeNetworkAccess();
    }

    Answer send(const QString& method, const QUrl& url, const QString& bearer = {},
                const QJsonObject& body = {}) {
        QNetworkRequest request(url);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::ManualRedirectPolicy);
        if (!bearer.isEmpty())
            request.setRawHeader("Authorization", "Bearer " + bearer.toLatin1());
        request.setRawHeader("Content-Type", "application/json");
        std::unique_ptr<QNetworkReply> reply(
            method == u"POST"_s ? m_network->post(request, QJsonDocument(body).toJson())
                                : m_network->get(request));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if (!reply->isFinished())
            [&] { QVERIFY(finished.wait(10000)); }();
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->error(),
                reply->readAll(), QString::fromUtf8(reply->rawHeader("Location"))};
    }
    Answer get(const QString& path, const QString& bearer = {}) {
        return send(u"GET"_s, m_server->url(path), bearer);
    }
    Answer post(const QString& path, const QJsonObject& body, const QString& bearer = {}) {
        return send(u"POST"_s, m_server->url(path), bearer, body);
    }

    // The browser's part of sign-in: the page, the approval, the hand-over to the launcher.
    QString authorizationCode(const QString& state) {
        QUrl page = m_website->authorizationStartURL();
        QUrlQuery query(page);
        query.addQueryItem(u"state"_s, state);
        page.setQuery(query);
        const Answer shown = send(u"GET"_s, page);
        if (shown.status != 200 || !shown.body.contains(state.toUtf8()))
            return {};
        const Answer approved = send(u"GET"_s, m_website->approvalURL(state));
        const QUrl callback(approved.location);
        if (approved.status != 302 || callback.scheme() != u"vantor-launch"_s ||
            callback.host() != u"auth"_s || QUrlQuery(callback).queryItemValue(u"state"_s) != state)
            return {};
        return QUrlQuery(callback).queryItemValue(u"code"_s);
    }

    QJsonObject signIn() {
        const QString code = authorizationCode(u"state-1"_s);
        return post(u"/v1/launch/token"_s, {{u"authorizationCode"_s, code},
                                            {u"redirectURI"_s, SampleWebsite::callbackURL}})
            .object();
    }

private Q_SLOTS:
    void init() { startWebsite(); }
    void cleanup() { stopWebsite(); }

    void publishesTheReleaseAndTheCatalogueWithAbsoluteAddresses() {
        QFile archive(m_updates.filePath(u"VantorDirector-2.5.0.zip"_s));
        QVERIFY(archive.open(QIODevice::WriteOnly));
        archive.write(QByteArray(70000, 'z'));
        archive.close();
        startWebsite();

        const QJsonObject release =
            get(u"/updates/macos.json"_s).object().value(u"direct"_s).toObject();
        QCOMPARE(release.value(u"version"_s).toString(), u"2.5.0"_s);
        const QUrl download(release.value(u"downloadURL"_s).toString());
        QCOMPARE(download, m_server->url(u"/updates/VantorDirector-2.5.0.zip"_s));
        QCOMPARE(send(u"GET"_s, download).body, QByteArray(70000, 'z'));

        const QJsonArray packs =
            get(u"/v1/catalogue"_s).object().value(u"contentPacks"_s).toArray();
        QCOMPARE(packs.size(), 3);
        const QUrl thumbnail(packs.first().toObject().value(u"thumbnailURL"_s).toString());
        QCOMPARE(thumbnail.host(), u"127.0.0.1"_s);
        QVERIFY(send(u"GET"_s, thumbnail).body.startsWith("\xFF\xD8"));
    }

    void signInHandsOverACodeThatBuysOneSession() {
        const QString code = authorizationCode(u"abc-_123"_s);
        QVERIFY(!code.isEmpty());
        const QJsonObject wrongRedirect{{u"authorizationCode"_s, code},
                                        {u"redirectURI"_s, u"vantor-launch://other"_s}};
        QCOMPARE(post(u"/v1/launch/token"_s, wrongRedirect).status, 400);
        const QJsonObject exchange{{u"authorizationCode"_s, code},
                                   {u"redirectURI"_s, SampleWebsite::callbackURL}};
        // The refused attempt above did not use the code up; the first real exchange does.
        const QJsonObject tokens = post(u"/v1/launch/token"_s, exchange).object();
        QCOMPARE(tokens.value(u"expiresIn"_s).toInt(), 3600);
        QCOMPARE(post(u"/v1/launch/token"_s, exchange).status, 400);

        const QString access = tokens.value(u"accessToken"_s).toString();
        QCOMPARE(get(u"/v1/launch/account"_s, access).object().value(u"customerID"_s).toString(),
                 u"cus_sample_0001"_s);
        QCOMPARE(get(u"/v1/launch/account"_s).status, 401);
        QCOMPARE(get(u"/v1/launch/account"_s, access + u"x"_s).status, 401);

        // A refresh rotates both tokens; the old ones stop working.
        const QJsonObject oldRefresh{{u"refreshToken"_s, tokens.value(u"refreshToken"_s)}};
        const QJsonObject renewed = post(u"/v1/launch/token/refresh"_s, oldRefresh).object();
        const QString newAccess = renewed.value(u"accessToken"_s).toString();
        QVERIFY(!newAccess.isEmpty() && newAccess != access);
        QCOMPARE(get(u"/v1/launch/account"_s, access).status, 401);
        QCOMPARE(post(u"/v1/launch/token/refresh"_s, oldRefresh).status, 401);
        QCOMPARE(get(u"/v1/launch/creator-backgrounds"_s, newAccess).status, 200);

        const Answer signedOut = post(u"/v1/launch/sign-out"_s, {}, newAccess);
        QCOMPARE(signedOut.object().value(u"ok"_s).toBool(), true);
        QCOMPARE(get(u"/v1/launch/account"_s, newAccess).status, 401);
        QCOMPARE(m_website->sessionCount(), 0);
    }

    void deniedSignInHandsOverAnError() {
        const QUrl denial(m_server->url(u"/index.php"_s));
        QNetworkRequest request(denial);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::ManualRedirectPolicy);
        request.setRawHeader("Content-Type", "application/x-www-form-urlencoded");
        std::unique_ptr<QNetworkReply> reply(m_network->post(request, "state=s1&decision=deny"));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        QVERIFY(finished.wait(10000));
        QCOMPARE(QString::fromUtf8(reply->rawHeader("Location")),
                 u"vantor-launch://auth?error=access_denied&state=s1"_s);
    }

    void accessTokensExpireAndRefreshTokensOutliveThem() {
        SampleWebsite::Options shortLived;
        shortLived.accessTokenLifetimeSeconds = 0;
        startWebsite(shortLived);
        const QJsonObject tokens = signIn();
        QCOMPARE(get(u"/v1/launch/account"_s, tokens.value(u"accessToken"_s).toString()).status,
                 401);
        const QJsonObject renewed = post(u"/v1/launch/token/refresh"_s,
                                         {{u"refreshToken"_s, tokens.value(u"refreshToken"_s)}})
                                        .object();
        QVERIFY(renewed.contains(u"accessToken"_s));

        startWebsite();
        const QString access = signIn().value(u"accessToken"_s).toString();
        m_website->endAllSessions();
        QCOMPARE(get(u"/v1/launch/account"_s, access).status, 401);
    }

    // The sample run's website restarts with each run; a signed-in launcher stays signed in.
    void rememberedSessionsOutliveARestartWithoutKeepingTokens() {
        QTemporaryDir state;
        SampleWebsite::Options remembering;
        remembering.sessionsFile = state.filePath(u"sessions.json"_s);
        startWebsite(remembering);
        const QJsonObject tokens = signIn();
        const QJsonObject refresh{{u"refreshToken"_s, tokens.value(u"refreshToken"_s)}};
        QFile file(remembering.sessionsFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray saved = file.readAll();
        QVERIFY(!saved.contains(tokens.value(u"refreshToken"_s).toString().toUtf8()));
        QVERIFY(!saved.contains(tokens.value(u"accessToken"_s).toString().toUtf8()));

        startWebsite(remembering);
        QCOMPARE(get(u"/v1/launch/account"_s, tokens.value(u"accessToken"_s).toString()).status,
                 200);
        const QJsonObject renewed = post(u"/v1/launch/token/refresh"_s, refresh).object();
        QVERIFY(renewed.contains(u"accessToken"_s));
        QCOMPARE(post(u"/v1/launch/token/refresh"_s, refresh).status, 401);
        QCOMPARE(get(u"/v1/launch/account"_s, renewed.value(u"accessToken"_s).toString()).status,
                 200);
    }

    void publishesTheRealDigestOfEveryAssetUnlessToldOtherwise() {
        const QString access = signIn().value(u"accessToken"_s).toString();
        m_website->faults().publishWrongDigest(u"aurora-still"_s);
        const QJsonObject manifest = get(u"/v1/launch/creator-backgrounds"_s, access).object();
        const QJsonArray assets = manifest.value(u"assets"_s).toArray();
        QCOMPARE(assets.size(), 3);
        for (const QJsonValue& value : assets) {
            const QJsonObject asset = value.toObject();
            const QByteArray file =
                send(u"GET"_s, QUrl(asset.value(u"remoteProtectedAssetURL"_s).toString())).body;
            QVERIFY(!file.isEmpty());
            QCOMPARE(asset.value(u"fileSizeBytes"_s).toInteger(), file.size());
            const QString digest = QString::fromLatin1(
                QCryptographicHash::hash(file, QCryptographicHash::Sha256).toHex());
            const bool isTold = asset.value(u"id"_s).toString() == u"aurora-still"_s;
            QCOMPARE(asset.value(u"protectedSHA256Hex"_s).toString() == digest, !isTold);
            QCOMPARE(send(u"GET"_s, QUrl(asset.value(u"remoteThumbnailURL"_s).toString())).status,
                     200);
        }
    }

    // The sample data and the endpoints speak the contract as the launcher reads it.
    void servedDocumentsDecodeAsTheLauncherReadsThem() {
        const auto release = decodeReleaseManifest(get(u"/updates/macos.json"_s).body);
        QVERIFY(release);
        QCOMPARE(release->build, u"2500"_s);

        const QString code = authorizationCode(u"state-2"_s);
        const QJsonObject exchange{{u"authorizationCode"_s, code},
                                   {u"redirectURI"_s, SampleWebsite::callbackURL}};
        const auto tokens =
            WebsiteResponses::decodeTokenResponse(post(u"/v1/launch/token"_s, exchange).body);
        const auto account = WebsiteResponses::decodeAccountResponse(
            get(u"/v1/launch/account"_s, tokens.accessToken).body);
        QCOMPARE(account.email, u"presenter@vantor.example"_s);
        const auto manifest = WebsiteResponses::decodeContentPackManifest(
            get(u"/v1/launch/creator-backgrounds"_s, tokens.accessToken).body);
        QCOMPARE(manifest.contentPacks.size(), 2u);
        QCOMPARE(manifest.contentPacks.back().version, u"3"_s);
        QCOMPARE(manifest.assets.front().protectedSHA256Hex->size(), 64);
        WebsiteResponses::decodeSignOutResponse(
            post(u"/v1/launch/sign-out"_s, {}, tokens.accessToken).body);
    }

    void faultSwitchesFromTheCommandLine_data() {
        QTest::addColumn<QStringList>("failures");
        QTest::addColumn<QStringList>("drops");
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("complete");

        const QString asset = u"/files/aurora-stage/aurora-curtain.vdasset"_s;
        QTest::newRow("status for one path") << QStringList{u"/v1/catalogue=503"_s} << QStringList{}
                                             << u"/v1/catalogue"_s << 503 << true;
        QTest::newRow("status for every path")
            << QStringList{u"*=500"_s} << QStringList{} << asset << 500 << true;
        QTest::newRow("one path wins over every path")
            << QStringList{u"*=500"_s, asset + u"=404"_s} << QStringList{} << asset << 404 << true;
        QTest::newRow("dropped after bytes")
            << QStringList{} << QStringList{asset + u"=1000"_s} << asset << 200 << false;
        QTest::newRow("drop elsewhere leaves the file whole")
            << QStringList{} << QStringList{u"/v1/catalogue=10"_s} << asset << 200 << true;
    }

    void faultSwitchesFromTheCommandLine() {
        QFETCH(QStringList, failures);
        QFETCH(QStringList, drops);
        QFETCH(QString, path);
        QFETCH(int, status);
        QFETCH(bool, complete);
        QVERIFY(m_website->faults().applyArguments(failures, {}, drops).isEmpty());
        const Answer answer = get(path);
        QCOMPARE(answer.status, status);
        if (status == 200)
            QCOMPARE(answer.body.size() == 48000, complete);
        QCOMPARE(answer.error == QNetworkReply::NoError, status == 200 && complete);
    }

    void faultSwitchesThatDoNotRead() {
        const QStringList unreadable = m_website->faults().applyArguments(
            {u"/v1/catalogue"_s, u"/v1/catalogue=abc"_s}, {u"*=-5"_s}, {u"=3"_s});
        QCOMPARE(unreadable.size(), 4);
        QCOMPARE(get(u"/v1/catalogue"_s).status, 200);
    }

    void expiredSessionAndDelayFaults() {
        const QJsonObject tokens = signIn();
        m_website->faults().setSessionExpired(true);
        QCOMPARE(get(u"/v1/launch/creator-backgrounds"_s, tokens.value(u"accessToken"_s).toString())
                     .status,
                 401);
        QCOMPARE(post(u"/v1/launch/token/refresh"_s,
                      {{u"refreshToken"_s, tokens.value(u"refreshToken"_s)}})
                     .status,
                 401);

        m_website->faults().clear();
        m_website->faults().delayPath(u"/v1/catalogue"_s, 300);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(get(u"/v1/catalogue"_s).status, 200);
        QVERIFY(timer.elapsed() >= 300);
    }
};

QTEST_GUILESS_MAIN(SampleWebsiteTest)
#include "SampleWebsiteTest.moc"
