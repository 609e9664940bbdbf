#include "SampleWebsite.h"

#include "BundleBuilder.h"
#include "WebsiteFixture.h"

#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;
using Answer = WebsiteFixture::Answer;

// The website's endpoints against a real HTTPS client, as the launcher will meet them.
class SampleWebsiteTest : public QObject {
    Q_OBJECT

    std::unique_ptr<WebsiteFixture> m_site;
    SampleWebsite* m_website = nullptr;
    HttpsTestServer* m_server = nullptr;
    std::shared_ptr<QNetworkAccessManager> m_network;
    QTemporaryDir m_updates;

    void startWebsite(SampleWebsite::Options options = {}) {
        if (m_network)
            m_network->clearConnectionCache();
        m_site.reset();
        options.updatesFolder = m_updates.path();
        m_site = std::make_unique<WebsiteFixture>(options);
        m_website = &m_site->website();
        m_server = &m_site->server();
        m_network = m_server->makeNetworkAccess();
    }

    Answer send(const QString& method, const QUrl& url) { return m_site->send(method, url); }
    Answer get(const QString& path, const QString& bearer = {}) {
        return m_site->get(path, bearer);
    }
    Answer post(const QString& path, const QJsonObject& body, const QString& bearer = {}) {
        return m_site->post(path, body, bearer);
    }

    // The browser's part of sign-in: the page names the state, the approval hands over a code.
    QString authorizationCode(const QString& state) {
        QUrl page = m_website->authorizationStartURL();
        QUrlQuery query(page);
        query.addQueryItem(u"state"_s, state);
        page.setQuery(query);
        const Answer shown = send(u"GET"_s, page);
        if (shown.status != 200 || !shown.body.contains(state.toUtf8()))
            return {};
        return m_site->authorizationCode(state);
    }

    struct Served {
        int status = 0;
        QByteArray body;
        QHash<QByteArray, QByteArray> headers; // names in lower case
    };

    // A GET with these request headers, and the answer's headers as they came.
    Served fetch(const QString& path, const QList<std::pair<QByteArray, QByteArray>>& headers) {
        QNetworkRequest request(m_server->url(path));
        for (const auto& [name, value] : headers)
            request.setRawHeader(name, value);
        std::unique_ptr<QNetworkReply> reply(m_network->get(request));
        if (!QTest::qWaitFor([&] { return reply->isFinished(); }, 10000))
            qFatal("the website did not answer");
        Served served{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                      reply->readAll(),
                      {}};
        for (const auto& [name, value] : reply->rawHeaderPairs())
            served.headers.insert(name.toLower(), value);
        return served;
    }

private Q_SLOTS:
    void init() { startWebsite(); }
    void cleanup() {
        // Open connections would hold the server's stop.
        m_network->clearConnectionCache();
        m_network.reset();
        m_site.reset();
    }

    void publishesTheReleaseWithAbsoluteAddresses() {
        writeFile(m_updates.filePath(u"VantorDirector-2.5.0.zip"_s), QByteArray(70000, 'z'));
        startWebsite();

        const QJsonObject release =
            get(u"/updates/macos.json"_s).object().value(u"direct"_s).toObject();
        QCOMPARE(release.value(u"version"_s).toString(), u"2.5.0"_s);
        const QUrl download(release.value(u"downloadURL"_s).toString());
        QCOMPARE(download, m_server->url(u"/updates/VantorDirector-2.5.0.zip"_s));
        QCOMPARE(send(u"GET"_s, download).body, QByteArray(70000, 'z'));
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

        const Answer denied =
            m_site->send(u"POST"_s, m_server->url(u"/index.php"_s), {}, "state=s1&decision=deny");
        QCOMPARE(denied.location, u"vantor-launch://auth?error=access_denied&state=s1"_s);
    }

    // The sample run's website restarts with each run; a signed-in launcher stays signed in.
    void rememberedSessionsOutliveARestartWithoutKeepingTokens() {
        QTemporaryDir state;
        SampleWebsite::Options remembering;
        remembering.sessionsFile = state.filePath(u"sessions.json"_s);
        startWebsite(remembering);
        const QJsonObject tokens =
            post(u"/v1/launch/token"_s, {{u"authorizationCode"_s, authorizationCode(u"s"_s)},
                                         {u"redirectURI"_s, SampleWebsite::callbackURL}})
                .object();
        const QJsonObject refresh{{u"refreshToken"_s, tokens.value(u"refreshToken"_s)}};
        const QByteArray saved = readFile(remembering.sessionsFile);
        QVERIFY(!saved.isEmpty());
        QVERIFY(!saved.contains(tokens.value(u"refreshToken"_s).toString().toUtf8()));
        QVERIFY(!saved.contains(tokens.value(u"accessToken"_s).toString().toUtf8()));

        startWebsite(remembering);
        QCOMPARE(get(u"/v1/launch/account"_s, tokens.value(u"accessToken"_s).toString()).status,
                 200);
        const QJsonObject renewed = post(u"/v1/launch/token/refresh"_s, refresh).object();
        QVERIFY(renewed.contains(u"accessToken"_s));
        QCOMPARE(post(u"/v1/launch/token/refresh"_s, refresh).status, 401);
        const QString access = renewed.value(u"accessToken"_s).toString();
        QCOMPARE(get(u"/v1/launch/account"_s, access).status, 200);
        m_website->endAllSessions();
        QCOMPARE(get(u"/v1/launch/account"_s, access).status, 401);
    }

    // A file's validators, and the one range a download asks for when it resumes, as any web
    // server answers them; what HTTP lets a server ignore brings the whole file.
    void servesRangesOfItsFiles_data() {
        QTest::addColumn<QByteArray>("range");
        QTest::addColumn<QByteArray>("ifRange"); // "tag" and "date" name the file's own
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("contentRange");

        QTest::newRow("closed") << QByteArray("bytes=100-199") << QByteArray() << 206
                                << QByteArray("bytes 100-199/48000");
        QTest::newRow("to the end") << QByteArray("bytes=47000-") << QByteArray() << 206
                                    << QByteArray("bytes 47000-47999/48000");
        QTest::newRow("last bytes") << QByteArray("bytes=-500") << QByteArray() << 206
                                    << QByteArray("bytes 47500-47999/48000");
        QTest::newRow("beyond the end") << QByteArray("bytes=47990-99999") << QByteArray() << 206
                                        << QByteArray("bytes 47990-47999/48000");
        QTest::newRow("past the end")
            << QByteArray("bytes=48000-") << QByteArray() << 416 << QByteArray("bytes */48000");
        QTest::newRow("current tag") << QByteArray("bytes=1000-") << QByteArray("tag") << 206
                                     << QByteArray("bytes 1000-47999/48000");
        QTest::newRow("current date") << QByteArray("bytes=1000-") << QByteArray("date") << 206
                                      << QByteArray("bytes 1000-47999/48000");
        QTest::newRow("another tag: whole file")
            << QByteArray("bytes=1000-") << QByteArray("\"other\"") << 200 << QByteArray();
        QTest::newRow("several ranges: whole file")
            << QByteArray("bytes=0-1,5-6") << QByteArray() << 200 << QByteArray();
    }

    void servesRangesOfItsFiles() {
        QFETCH(QByteArray, range);
        QFETCH(QByteArray, ifRange);
        QFETCH(int, status);
        QFETCH(QByteArray, contentRange);
        const QString path = u"/files/aurora-stage/aurora-curtain.vdasset"_s;
        const QByteArray file = readFile(QStringLiteral(LAUNCHER_SAMPLE_WEBSITE_DATA) +
                                         u"/files/aurora-stage/aurora-curtain.vdasset"_s);
        const Served whole = fetch(path, {});
        QCOMPARE(whole.body, file);
        QCOMPARE(whole.headers.value("accept-ranges"), QByteArray("bytes"));
        const QByteArray tag = whole.headers.value("etag");
        QVERIFY(tag.size() > 2 && tag.startsWith('"') && tag.endsWith('"'));
        const QByteArray date = whole.headers.value("last-modified");
        QVERIFY(date.endsWith(" GMT"));

        QList<std::pair<QByteArray, QByteArray>> headers{{"Range", range}};
        if (!ifRange.isEmpty())
            headers.append({"If-Range", ifRange == "tag"    ? tag
                                        : ifRange == "date" ? date
                                                            : ifRange});
        const Served served = fetch(path, headers);
        QCOMPARE(served.status, status);
        QCOMPARE(served.headers.value("content-range"), contentRange);
        QCOMPARE(served.headers.value("etag"), tag);
        if (status == 200) {
            QCOMPARE(served.body, file);
        } else if (status == 206) {
            const QList<QByteArray> bounds = contentRange.sliced(6).split('/').first().split('-');
            const qint64 first = bounds[0].toLongLong();
            QCOMPARE(served.body, file.mid(first, bounds[1].toLongLong() - first + 1));
        }
    }

    // Without validators the file still comes in ranges, but If-Range can name nothing current.
    void withheldValidatorsLeaveNothingToResumeWith() {
        const QString path = u"/files/harbour-lights/thumbnail.jpg"_s;
        const QByteArray tag = fetch(path, {}).headers.value("etag");
        QVERIFY(!tag.isEmpty());
        m_website->faults().withholdValidators(path);
        const Served served = fetch(path, {{"Range", "bytes=10-"}, {"If-Range", tag}});
        QCOMPARE(served.status, 200);
        QVERIFY(!served.headers.contains("etag"));
        QVERIFY(!served.headers.contains("last-modified"));
        QCOMPARE(fetch(path, {{"Range", "bytes=10-"}}).status, 206);
    }

    // The command-line drop made once fires once per time it is given; the plain one every time,
    // at the same byte of the file.
    void dropsMadeOnceCountDown() {
        const QString path = u"/files/aurora-stage/aurora-curtain.vdasset"_s;
        QVERIFY(m_website->faults()
                    .applyArguments({}, {}, {}, {path + u"=1000"_s, path + u"=2000"_s})
                    .isEmpty());
        QCOMPARE(fetch(path, {}).body.size(), qsizetype(1000));
        QCOMPARE(fetch(path, {{"Range", "bytes=100-"}}).body.size(), qsizetype(2000));
        QCOMPARE(fetch(path, {}).body.size(), qsizetype(48000));
        m_website->faults().dropPathAfterBytes(path, 3000);
        QCOMPARE(fetch(path, {{"Range", "bytes=1000-"}}).body.size(), qsizetype(2000));
        QCOMPARE(fetch(path, {{"Range", "bytes=5000-"}}).body.size(), qsizetype(0));
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
};

QTEST_GUILESS_MAIN(SampleWebsiteTest)
#include "SampleWebsiteTest.moc"
