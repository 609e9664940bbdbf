#include "applications/DirectorReleaseChecker.h"

#include "HttpsTestServer.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"

#include <QTcpServer>
#include <QTest>

using namespace Qt::StringLiterals;
using Release = std::optional<AvailableApplicationRelease>;

Q_DECLARE_METATYPE(Release)

namespace {

const QString manifestPath = u"/updates/macos.json"_s;

HttpsTestServer::Response answer(const QByteArray& body, int status = 200, int delay = 0) {
    return {status, body, "application/json", {}, delay};
}

Release release(const QString& version, std::optional<QString> build = std::nullopt,
                std::optional<QUrl> downloadURL = std::nullopt) {
    return AvailableApplicationRelease{version, std::move(build), std::move(downloadURL)};
}

} // namespace

class DirectorReleaseCheckerTest : public QObject {
    Q_OBJECT

private:
    HttpsTestServer m_server;

    static TaskOutcome<Release> check(DirectorReleaseChecker& checker) {
        return outcomeOf(checker.latestRelease(), 30000);
    }

    TaskOutcome<Release> check(const HttpsTestServer::Response& response) {
        m_server.reply(u"GET"_s, manifestPath, response);
        DirectorReleaseChecker checker(m_server.url(manifestPath), m_server.makeNetworkAccess());
        return check(checker);
    }

private Q_SLOTS:
    void takesDirectElseLatest_data() {
        QTest::addColumn<QByteArray>("manifest");
        QTest::addColumn<Release>("expected");
        const QUrl zip(u"https://downloads.example.com/director-2.5.0.zip"_s);

        QTest::newRow("only latest")
            << json("{'latest': {'version': '2.5.0', 'build': 2500, 'downloadURL': "
                    "'https://downloads.example.com/director-2.5.0.zip'}}")
            << release(u"2.5.0"_s, u"2500"_s, zip);
        QTest::newRow("direct before latest")
            << json("{'latest': {'version': '2.4.0'}, 'direct': {'version': '2.5.0'}}")
            << release(u"2.5.0"_s);
        QTest::newRow("null direct is absent")
            << json("{'direct': null, 'latest': {'version': '2.4.0', 'build': null}}")
            << release(u"2.4.0"_s);
        QTest::newRow("no entry") << QByteArray("{}") << Release();
        QTest::newRow("unknown keys")
            << json("{'beta': {'version': 3}, 'direct': {'version': '2.5.0', 'x': 1}}")
            << release(u"2.5.0"_s);
        QTest::newRow("build zero")
            << json("{'direct': {'version': '2.5.0', 'build': 0}}") << release(u"2.5.0"_s, u"0"_s);
        QTest::newRow("negative build") << json("{'direct': {'version': '2.5.0', 'build': -12}}")
                                        << release(u"2.5.0"_s, u"-12"_s);
    }

    void takesDirectElseLatest() {
        QFETCH(QByteArray, manifest);
        QFETCH(Release, expected);
        const auto outcome = check(answer(manifest));
        QVERIFY(!outcome.error);
        QCOMPARE(*outcome.value, expected);
    }

    void malformedManifestsFailWhole_data() {
        QTest::addColumn<QByteArray>("manifest");
        QTest::newRow("build as text") << json("{'direct': {'version': '2.5.0', 'build': '2500'}}");
        QTest::newRow("fractional build")
            << json("{'direct': {'version': '2.5.0', 'build': 2500.5}}");
        QTest::newRow("direct without version") << json("{'direct': {'build': 2500}}");
        QTest::newRow("version as number") << json("{'direct': {'version': 2.5}}");
        QTest::newRow("bad latest beside good direct")
            << json("{'direct': {'version': '2.5.0'}, 'latest': {'version': true}}");
        QTest::newRow("direct not an object") << json("{'direct': '2.5.0'}");
        QTest::newRow("download address not a URL")
            << json("{'direct': {'version': '2.5.0', 'downloadURL': ''}}");
        QTest::newRow("not JSON") << QByteArray("<html>maintenance</html>");
        QTest::newRow("array") << json("[{'version': '2.5.0'}]");
    }

    void malformedManifestsFailWhole() {
        QFETCH(QByteArray, manifest);
        const auto outcome = check(answer(manifest));
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->domain(), LaunchError::Domain::decoding);
    }

    void acceptsOnlySuccessStatuses_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("204") << 204 << true;
        QTest::newRow("299") << 299 << true;
        QTest::newRow("300") << 300 << false;
        QTest::newRow("304") << 304 << false;
        QTest::newRow("404") << 404 << false;
    }

    void acceptsOnlySuccessStatuses() {
        QFETCH(int, status);
        QFETCH(bool, accepted);
        // A body that would decode fine does not rescue the answer.
        const auto outcome = check(answer(json("{'direct': {'version': '2.5.0'}}"), status));
        if (accepted) {
            // A 204 carries no body, which then fails to decode; the status itself passes.
            QVERIFY(!outcome.error || outcome.error->domain() == LaunchError::Domain::decoding);
            if (status != 204)
                QCOMPARE(outcome.value->value().version, u"2.5.0"_s);
        } else {
            QVERIFY(outcome.error);
            QVERIFY(outcome.error->isUrlError(LaunchError::badServerResponse));
        }
    }

    void asksTheServerEveryTime() {
        m_server.reply(u"GET"_s, manifestPath, answer(json("{'direct': {'version': '2.5.0'}}")));
        DirectorReleaseChecker checker(m_server.url(manifestPath), m_server.makeNetworkAccess());
        QCOMPARE(check(checker).value->value().version, u"2.5.0"_s);

        m_server.reply(u"GET"_s, manifestPath, answer(json("{'direct': {'version': '2.6.0'}}")));
        QCOMPARE(check(checker).value->value().version, u"2.6.0"_s);
        const auto requests = m_server.requests();
        QCOMPARE(requests.last().method, u"GET"_s);
        QVERIFY(requests.last().body.isEmpty());
        QVERIFY(!requests.last().headers.contains(u"authorization"_s));
    }

    void transportFailuresAreUrlErrors() {
        // A port that nothing listens on any more.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const quint16 port = closed.serverPort();
        closed.close();
        DirectorReleaseChecker refused(QUrl(u"https://127.0.0.1:%1/updates/macos.json"_s.arg(port)),
                                       m_server.makeNetworkAccess());
        auto outcome = check(refused);
        QVERIFY(outcome.error);
        QVERIFY(outcome.error->isUrlError(LaunchError::cannotConnectToHost));
        QVERIFY(outcome.error->isOffline());

        // An untrusted certificate: ProductionWiringTest.
        // A server that does not answer in time.
        m_server.reply(u"GET"_s, u"/slow.json"_s, answer("{}", 200, 1000));
        DirectorReleaseChecker slow(m_server.url(u"/slow.json"_s), m_server.makeNetworkAccess(),
                                    std::chrono::milliseconds(200));
        outcome = check(slow);
        QVERIFY(outcome.error);
        QVERIFY(outcome.error->isUrlError(LaunchError::timedOut));
    }
};

QTEST_GUILESS_MAIN(DirectorReleaseCheckerTest)
#include "DirectorReleaseCheckerTest.moc"
