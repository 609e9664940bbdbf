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
        QTest::addColumn<int>("status");
        const QUrl zip(u"https://downloads.example.com/director-2.5.0.zip"_s);

        QTest::newRow("only latest")
            << json("{'latest': {'version': '2.5.0', 'build': 2500, 'downloadURL': "
                    "'https://downloads.example.com/director-2.5.0.zip'}}")
            << release(u"2.5.0"_s, u"2500"_s, zip) << 200;
        QTest::newRow("direct before latest")
            << json("{'latest': {'version': '2.4.0'}, 'direct': {'version': '2.5.0'}}")
            << release(u"2.5.0"_s) << 200;
        QTest::newRow("null direct is absent")
            << json("{'direct': null, 'latest': {'version': '2.4.0', 'build': null}}")
            << release(u"2.4.0"_s) << 200;
        QTest::newRow("no entry") << QByteArray("{}") << Release() << 200;
        QTest::newRow("unknown keys")
            << json("{'beta': {'version': 3}, 'direct': {'version': '2.5.0', 'x': 1}}")
            << release(u"2.5.0"_s) << 200;
        QTest::newRow("build zero") << json("{'direct': {'version': '2.5.0', 'build': 0}}")
                                    << release(u"2.5.0"_s, u"0"_s) << 200;
        QTest::newRow("negative build") << json("{'direct': {'version': '2.5.0', 'build': -12}}")
                                        << release(u"2.5.0"_s, u"-12"_s) << 200;
        QTest::newRow("status 299")
            << json("{'direct': {'version': '2.5.0'}}") << release(u"2.5.0"_s) << 299;
    }

    void takesDirectElseLatest() {
        QFETCH(QByteArray, manifest);
        QFETCH(Release, expected);
        QFETCH(int, status);
        const auto outcome = check(answer(manifest, status));
        QVERIFY(!outcome.error);
        QCOMPARE(*outcome.value, expected);
    }

    // A manifest fails whole: a success that does not decode is a decoding error, any other
    // status is refused whatever the body, even one that would decode.
    void refusesWhatIsNotAManifest_data() {
        QTest::addColumn<QByteArray>("manifest");
        QTest::addColumn<int>("status");
        const auto row = [](const char* name, const QByteArray& manifest, int status = 200) {
            QTest::newRow(name) << manifest << status;
        };
        row("build as text", json("{'direct': {'version': '2.5.0', 'build': '2500'}}"));
        row("fractional build", json("{'direct': {'version': '2.5.0', 'build': 2500.5}}"));
        row("direct without version", json("{'direct': {'build': 2500}}"));
        row("version as number", json("{'direct': {'version': 2.5}}"));
        row("bad latest beside good direct",
            json("{'direct': {'version': '2.5.0'}, 'latest': {'version': true}}"));
        row("direct not an object", json("{'direct': '2.5.0'}"));
        row("download address not a URL",
            json("{'direct': {'version': '2.5.0', 'downloadURL': ''}}"));
        row("not JSON", "<html>maintenance</html>");
        row("array", json("[{'version': '2.5.0'}]"));
        const QByteArray good = json("{'direct': {'version': '2.5.0'}}");
        row("204 carries no body", good, 204);
        row("300", good, 300);
        row("304", good, 304);
        row("404", good, 404);
    }

    void refusesWhatIsNotAManifest() {
        QFETCH(QByteArray, manifest);
        QFETCH(int, status);
        const auto outcome = check(answer(manifest, status));
        QVERIFY(outcome.error);
        if (status >= 200 && status <= 299)
            QCOMPARE(outcome.error->domain(), LaunchError::Domain::decoding);
        else
            QVERIFY(outcome.error->isUrlError(LaunchError::badServerResponse));
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
