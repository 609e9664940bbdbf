#include "platform/SelfUpdater.h"

#include "HttpsTestServer.h"
#include "platform/linux/SelfUpdaterAppcast.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using Status = SelfUpdater::Status;

namespace {

QByteArray appcast(const QByteArray& items) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">\n"
           "<channel><title>Vantor Launcher</title>\n" +
           items + "</channel></rss>\n";
}

// Two releases, one in the element form and one in the older attribute form, and a beta.
const QByteArray releases =
    "<item><title>1.2.0</title>"
    "<sparkle:version>12</sparkle:version>"
    "<sparkle:shortVersionString>1.2.0</sparkle:shortVersionString>"
    "<enclosure url=\"https://downloads.example/VantorLauncher-1.2.0.zip\" length=\"1\"/>"
    "</item>\n"
    "<item><title>1.3.0</title>"
    "<enclosure url=\"https://downloads.example/VantorLauncher-1.3.0.zip\" "
    "sparkle:version=\"13\" sparkle:shortVersionString=\"1.3.0\" length=\"1\"/>"
    "</item>\n"
    "<item><title>1.4.0 beta</title>"
    "<sparkle:channel>beta</sparkle:channel>"
    "<sparkle:version>14</sparkle:version>"
    "<enclosure url=\"https://downloads.example/VantorLauncher-1.4.0b1.zip\" length=\"1\"/>"
    "</item>\n";

} // namespace

// The launcher's own update check against a real HTTPS server: what it announces, and when.
class SelfUpdaterTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SelfUpdater> makeUpdater(const QString& build,
                                             const QString& path = u"/appcast.xml"_s) {
        m_network = m_server->makeNetworkAccess();
        return makeSelfUpdater({m_server->url(path), u"1.1.0"_s, build, m_network});
    }

    std::unique_ptr<HttpsTestServer> m_server;
    // Its connections are closed before the server stops, which is then immediate.
    std::shared_ptr<QNetworkAccessManager> m_network;

private Q_SLOTS:
    void init() {
        m_server = std::make_unique<HttpsTestServer>();
        m_server->reply(u"GET"_s, u"/appcast.xml"_s,
                        {200, appcast(releases), "application/rss+xml", {}, 0});
    }

    void cleanup() {
        if (m_network)
            m_network->clearConnectionCache();
        m_network.reset();
        m_server.reset();
    }

    void announcesWhatTheFeedOffers_data() {
        QTest::addColumn<QByteArray>("feed"); // empty: the server fails
        QTest::addColumn<QString>("build");
        QTest::addColumn<bool>("asked");
        QTest::addColumn<Status>("status");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("announced");
        QTest::addColumn<QUrl>("download");
        QTest::addColumn<QUrl>("page");
        const QByteArray critical =
            appcast("<item><sparkle:version>15</sparkle:version>"
                    "<sparkle:shortVersionString>1.5.0</sparkle:shortVersionString>"
                    "<sparkle:criticalUpdate/>"
                    "<enclosure url=\"https://downloads.example/Launcher-1.5.0.zip\" "
                    "length=\"1\"/></item>");
        const QByteArray notice =
            appcast("<item><sparkle:version>20</sparkle:version>"
                    "<sparkle:shortVersionString>2.0</sparkle:shortVersionString>"
                    "<link>https://vantor.example/launcher-2</link></item>");
        const QString upToDate = u"Vantor Launcher 1.1.0 is up to date."_s;

        // A newer launcher is announced even by a background check; the beta is not offered.
        QTest::newRow("newer, in the background")
            << appcast(releases) << u"11"_s << false << Status::updateAvailable
            << u"Vantor Launcher 1.3.0 is available. Download it from Help."_s << true
            << QUrl(u"https://downloads.example/VantorLauncher-1.3.0.zip"_s) << QUrl();
        QTest::newRow("up to date, in the background")
            << appcast(releases) << u"13"_s << false << Status::upToDate << upToDate << false
            << QUrl() << QUrl();
        QTest::newRow("up to date, asked")
            << appcast(releases) << u"13"_s << true << Status::upToDate << upToDate << true
            << QUrl() << QUrl();
        QTest::newRow("critical") << critical << u"11"_s << false << Status::updateAvailable
                                  << u"Vantor Launcher 1.5.0 is a critical update. Download it "
                                     u"from Help."_s
                                  << true << QUrl(u"https://downloads.example/Launcher-1.5.0.zip"_s)
                                  << QUrl();
        QTest::newRow("informational")
            << notice << u"11"_s << true << Status::updateAvailable
            << u"Vantor Launcher 2.0 is available. Its page is linked in Help."_s << true << QUrl()
            << QUrl(u"https://vantor.example/launcher-2"_s);
        QTest::newRow("informational, up to date") << notice << u"20"_s << true << Status::upToDate
                                                   << upToDate << true << QUrl() << QUrl();
        // Failures reach the user only when asked.
        QTest::newRow("unreadable, in the background")
            << QByteArray("<rss><channel><item>") << u"1"_s << false << Status::failed
            << u"The launcher's update feed could not be read."_s << false << QUrl() << QUrl();
        QTest::newRow("unreachable, asked")
            << QByteArray() << u"1"_s << true << Status::failed
            << u"The launcher's update feed could not be reached."_s << true << QUrl() << QUrl();
    }

    void announcesWhatTheFeedOffers() {
        QFETCH(QByteArray, feed);
        QFETCH(QString, build);
        QFETCH(bool, asked);
        QFETCH(Status, status);
        QFETCH(QString, text);
        QFETCH(bool, announced);
        QFETCH(QUrl, download);
        QFETCH(QUrl, page);
        m_server->reply(u"GET"_s, u"/feed.xml"_s,
                        {feed.isEmpty() ? 500 : 200, feed, "application/rss+xml", {}, 0});
        auto updater = makeUpdater(build, u"/feed.xml"_s);
        QSignalSpy announcements(updater.get(), &SelfUpdater::announced);
        if (asked)
            updater->checkForUpdates();
        else
            updater->checkForUpdatesInBackground();
        QTRY_COMPARE(updater->status(), status);
        QCOMPARE(updater->statusText(), text);
        QCOMPARE(announcements.count(), announced ? 1 : 0);
        if (announced)
            QCOMPARE(announcements[0][0].toString(), text);
        QCOMPARE(updater->downloadURL(), download);
        QCOMPARE(updater->releasePageURL(), page);
        QCOMPARE(updater->criticalUpdate(), text.contains(u"critical"_s));
        QCOMPARE(m_server->requestCount(u"/feed.xml"_s), 1);
    }

    void withoutAFeedSaysThatNothingIsConfigured() {
        auto updater = makeSelfUpdater({std::nullopt, u"1.1.0"_s, u"1"_s, nullptr});
        QCOMPARE(updater->status(), Status::notConfigured);
        QSignalSpy announcements(updater.get(), &SelfUpdater::announced);
        updater->startAutomaticChecks(std::chrono::seconds(21600));
        QCOMPARE(announcements.count(), 0);
        updater->checkForUpdates();
        QCOMPARE(announcements.count(), 1);
        QCOMPARE(announcements[0][0].toString(),
                 u"Launcher updates are not configured in this build."_s);
    }

    void refusesAFeedThatIsNotHttps() {
        auto updater = makeSelfUpdater(
            {QUrl(u"http://127.0.0.1:9/appcast.xml"_s), u"1.1.0"_s, u"1"_s, nullptr});
        updater->checkForUpdates();
        QCOMPARE(updater->status(), Status::failed);
        QCOMPARE(updater->statusText(), u"The launcher's update feed must use HTTPS."_s);
    }

    void checksAtStartAndThenOnItsSchedule() {
        auto updater = makeUpdater(u"13"_s);
        updater->startAutomaticChecks(std::chrono::seconds(1));
        QTRY_COMPARE(m_server->requestCount(u"/appcast.xml"_s), 1);
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(u"/appcast.xml"_s), 2, 3000);
    }
};

QTEST_GUILESS_MAIN(SelfUpdaterTest)
#include "SelfUpdaterTest.moc"
