#include "platform/SelfUpdater.h"

#include "HttpsTestServer.h"
#include "platform/linux/SelfUpdaterAppcast.h"
#include "platform/linux/SparkleVersionComparator.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using Status = SelfUpdater::Status;

namespace {

QByteArray feed(const QByteArray& items) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">\n"
           "<channel><title>Vantor Launcher</title>\n" +
           items + "</channel></rss>\n";
}

QByteArray item(const QByteArray& body) {
    return "<item><title>Release</title>" + body + "</item>\n";
}

QByteArray enclosure(const QByteArray& file, const QByteArray& attributes = {}) {
    return "<enclosure url=\"https://downloads.example/" + file + "\" length=\"1\" " + attributes +
           "/>";
}

QByteArray version(const QByteArray& build) {
    return "<sparkle:version>" + build + "</sparkle:version>";
}

QByteArray link(const QByteArray& page) {
    return "<link>https://vantor.example/" + page + "</link>";
}

QString shortened(const QUrl& url) {
    QString text = QString::fromUtf8(url.toEncoded());
    for (const QString& prefix : {u"https://downloads.example/"_s, u"https://vantor.example/"_s}) {
        if (text.startsWith(prefix))
            return text.sliced(prefix.size());
    }
    return text;
}

// The release in one line: version, shown version, flags, download and page, and whether it is
// newer than the running build.
QString summary(const std::optional<AppcastRelease>& release, const AppcastHost& host = {}) {
    if (!release)
        return u"none"_s;
    QString text = release->version;
    if (release->shortVersion != release->version)
        text += u" ("_s + release->shortVersion + u")"_s;
    if (release->critical)
        text += u" critical"_s;
    if (release->informational)
        text += u" informational"_s;
    if (!release->channel.isEmpty())
        text += u" channel="_s + release->channel;
    if (!release->downloadURL.isEmpty())
        text += u" download="_s + shortened(release->downloadURL);
    if (!release->infoURL.isEmpty())
        text += u" page="_s + shortened(release->infoURL);
    if (!host.version.isEmpty() && !SelfUpdaterAppcast::isNewer(*release, host))
        text += u" not newer"_s;
    return text;
}

const QDateTime now = QDateTime(QDate(2026, 11, 20), QTime(12, 0), Qt::UTC);

QByteArray published(qint64 secondsAgo) {
    return "<pubDate>" + now.addSecs(-secondsAgo).toString(Qt::RFC2822Date).toUtf8() + "</pubDate>";
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

// The launcher's own update: its check against a real HTTPS server, what it announces and when;
// the reader of its appcast against the feed shapes that real projects publish, each giving the
// release Sparkle would offer; and Sparkle's version order.
class SelfUpdaterTest : public QObject {
    Q_OBJECT

    std::unique_ptr<HttpsTestServer> m_server;
    // Its connections are closed before the server stops, which is then immediate.
    std::shared_ptr<QNetworkAccessManager> m_network;

    // Made on first use: the appcast reader's many rows need none.
    HttpsTestServer& server() {
        if (!m_server) {
            m_server = std::make_unique<HttpsTestServer>();
            m_server->reply(u"GET"_s, u"/appcast.xml"_s,
                            {200, feed(releases), "application/rss+xml", {}, 0});
        }
        return *m_server;
    }

    std::unique_ptr<SelfUpdater> makeUpdater(const QString& build,
                                             const QString& path = u"/appcast.xml"_s) {
        m_network = server().makeNetworkAccess();
        return makeSelfUpdater({server().url(path), u"1.1.0"_s, build, m_network});
    }

private Q_SLOTS:
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
            feed("<item><sparkle:version>15</sparkle:version>"
                 "<sparkle:shortVersionString>1.5.0</sparkle:shortVersionString>"
                 "<sparkle:criticalUpdate/>"
                 "<enclosure url=\"https://downloads.example/Launcher-1.5.0.zip\" "
                 "length=\"1\"/></item>");
        const QByteArray notice =
            feed("<item><sparkle:version>20</sparkle:version>"
                 "<sparkle:shortVersionString>2.0</sparkle:shortVersionString>"
                 "<link>https://vantor.example/launcher-2</link></item>");
        const QString upToDate = u"Vantor Launcher 1.1.0 is up to date."_s;

        // A newer launcher is announced even by a background check; the beta is not offered.
        QTest::newRow("newer, in the background")
            << feed(releases) << u"11"_s << false << Status::updateAvailable
            << u"Vantor Launcher 1.3.0 is available. Download it from Help."_s << true
            << QUrl(u"https://downloads.example/VantorLauncher-1.3.0.zip"_s) << QUrl();
        QTest::newRow("up to date, in the background")
            << feed(releases) << u"13"_s << false << Status::upToDate << upToDate << false << QUrl()
            << QUrl();
        QTest::newRow("up to date, asked") << feed(releases) << u"13"_s << true << Status::upToDate
                                           << upToDate << true << QUrl() << QUrl();
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
        server().reply(u"GET"_s, u"/feed.xml"_s,
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
        QCOMPARE(server().requestCount(u"/feed.xml"_s), 1);
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
        QTRY_COMPARE(server().requestCount(u"/appcast.xml"_s), 1);
        QTRY_COMPARE_WITH_TIMEOUT(server().requestCount(u"/appcast.xml"_s), 2, 3000);
    }

    void ordersVersionsAsSparkleDoes_data() {
        QTest::addColumn<QString>("left");
        QTest::addColumn<QString>("right");
        QTest::addColumn<int>("order");
        const auto row = [](const QString& left, const QString& right, int order) {
            QTest::addRow("%s vs %s", qPrintable(left), qPrintable(right))
                << left << right << order;
        };
        row(u"1.0"_s, u"1.1"_s, -1);
        row(u"1.10"_s, u"1.9"_s, 1);
        row(u"007"_s, u"7"_s, 0);
        row(u"0.1"_s, u"0.0.1"_s, 1);
        row(u"0.1"_s, u"0.1.2"_s, -1);
        // Missing components count as zeros: no update from 1.0 to 1.0.0.
        row(u"1.0"_s, u"1.0.0"_s, 0);
        row(u"2.0.0.2429"_s, u"2.0.0.2430"_s, -1);
        // Letters after the numbers make a pre-release.
        row(u"1.0b5"_s, u"1.0"_s, -1);
        row(u"1.0a1"_s, u"1.0b1"_s, -1);
        row(u"1.0b"_s, u"1.0b2"_s, -1);
        row(u"1.0rc"_s, u"1.0"_s, -1);
        row(u"1.0.1"_s, u"1.0b"_s, 1);
        row(u"1.0pre1"_s, u"1.0.0pre1"_s, 0);
        // A dash ends the version: what follows is a build suffix, so a running 2.1.0-beta.2 is
        // not told to update to 2.1.0.
        row(u"2.1.0-beta.2"_s, u"2.1.0"_s, 0);
        row(u"1.5.5-335d3e2"_s, u"1.5.5-a655360"_s, 0);
        row(u"1.5.5-335d3e2"_s, u"1.5.6-b252311"_s, -1);
        // Build numbers in brackets, and other text after a blank.
        row(u"1.0 (1234)"_s, u"1.0 (1235)"_s, -1);
        row(u"1.0b1 (1234)"_s, u"1.0 (1234)"_s, -1);
        row(u"3.3 (5847)"_s, u"3.3.1b1 (5902)"_s, -1);
        row(u"3.3 (5847)"_s, u"3.3.0 (5847)"_s, 0);
        row(u"3.10 (libxad 13.0, modified)"_s, u"3.9"_s, 1);
        // Build strings that went wrong: an unexpanded build variable and a "v" prefix both rank
        // below any real number.
        row(u"$(MARKETING_VERSION)"_s, u"1.0"_s, -1);
        row(u"v2.0"_s, u"1.9"_s, -1);
        row(u"1,2"_s, u"1.2"_s, -1);
        row(u""_s, u"0"_s, 0);
        row(u"99999999999999999999"_s, u"99999999999999999998"_s, 1);
    }

    void ordersVersionsAsSparkleDoes() {
        QFETCH(QString, left);
        QFETCH(QString, right);
        QFETCH(int, order);
        QCOMPARE(compareSparkleVersions(left, right), order);
        QCOMPARE(compareSparkleVersions(right, left), -order);
    }

    void offersTheReleaseSparkleWouldOffer_data() {
        QTest::addColumn<QByteArray>("items");
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("expected");

        // generate_appcast lists each release's deltas beside its full download.
        QTest::newRow("deltas beside the full download")
            << item(version("15") + enclosure("Update15.zip") + "<sparkle:deltas>" +
                    enclosure("Update15-14.delta", "sparkle:deltaFrom=\"14\"") +
                    enclosure("Update15-12.delta", "sparkle:deltaFrom=\"12\"") +
                    "</sparkle:deltas>") +
                   item(version("14") + enclosure("Update14.zip"))
            << u"12"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("an item that is only a delta")
            << item(version("16") + enclosure("Update16-15.delta", "sparkle:deltaFrom=\"15\"")) +
                   item(version("15") + enclosure("Update15.zip"))
            << u"12"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("items for other systems")
            << item(version("18") + enclosure("Update18.exe", "sparkle:os=\"windows\"")) +
                   item(version("17") + enclosure("Update17.dmg", "sparkle:os=\"macos\"")) +
                   item(version("16") + enclosure("Update16.zip"))
            << u"12"_s << u"16 download=Update16.zip"_s;
        QTest::newRow("a download for this system beside the default one")
            << item(version("16") + enclosure("Update16.zip") +
                    "<sparkle:enclosure url=\"https://downloads.example/Update16.tar.xz\" "
                    "sparkle:os=\"linux\" length=\"1\"/>")
            << u"12"_s << u"16 download=Update16.tar.xz"_s;
        // Today's 3.0 read as 2.4: the versions the notice is for are not the item's version.
        QTest::newRow("informational for the listed build")
            << item(version("3.0") + link("news") + enclosure("Update30.zip") +
                    "<sparkle:informationalUpdate>" + version("2.4") + version("2.3") +
                    "</sparkle:informationalUpdate>")
            << u"2.4"_s << u"3.0 informational page=news"_s;
        QTest::newRow("an ordinary update for builds it does not list")
            << item(version("3.0") + link("news") + enclosure("Update30.zip") +
                    "<sparkle:informationalUpdate>" + version("2.4") +
                    "</sparkle:informationalUpdate>")
            << u"2.5"_s << u"3.0 download=Update30.zip page=news"_s;
        QTest::newRow("informational below a version")
            << item(version("3.0") + link("news") + enclosure("Update30.zip") +
                    "<sparkle:informationalUpdate><sparkle:belowVersion>2.0"
                    "</sparkle:belowVersion></sparkle:informationalUpdate>")
            << u"1.9"_s << u"3.0 informational page=news"_s;
        QTest::newRow("informational for every build")
            << item(version("3.0") + link("news") + enclosure("Update30.zip") +
                    "<sparkle:informationalUpdate/>")
            << u"2.5"_s << u"3.0 informational page=news"_s;
        QTest::newRow("a page and no download")
            << item(version("3.0") + link("news")) << u"2.5"_s << u"3.0 informational page=news"_s;
        QTest::newRow("neither a download nor a page")
            << item(version("19") + "<description>Soon.</description>") +
                   item(version("15") + enclosure("Update15.zip"))
            << u"12"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("a page that is no web address")
            << item(version("19") + "<link>file:///etc/passwd</link>") << u"12"_s << u"none"_s;
        QTest::newRow("critical") << item(version("15") + enclosure("Update15.zip") +
                                          "<sparkle:criticalUpdate/>")
                                  << u"12"_s << u"15 critical download=Update15.zip"_s;
        QTest::newRow("critical in the older tags form")
            << item(version("15") + enclosure("Update15.zip") +
                    "<sparkle:tags><sparkle:criticalUpdate></sparkle:criticalUpdate>"
                    "</sparkle:tags>")
            << u"12"_s << u"15 critical download=Update15.zip"_s;
        QTest::newRow("critical for builds before 14")
            << item(version("15") + enclosure("Update15.zip") +
                    "<sparkle:criticalUpdate sparkle:version=\"14\"/>")
            << u"13"_s << u"15 critical download=Update15.zip"_s;
        QTest::newRow("not critical from 14 on")
            << item(version("15") + enclosure("Update15.zip") +
                    "<sparkle:criticalUpdate sparkle:version=\"14\"/>")
            << u"14"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("the enclosure's versions win over the elements")
            << item(version("20") + "<sparkle:shortVersionString>2.0</sparkle:shortVersionString>" +
                    enclosure("Update21.zip",
                              "sparkle:version=\"21\" sparkle:shortVersionString=\"2.1\""))
            << u"12"_s << u"21 (2.1) download=Update21.zip"_s;
        QTest::newRow("the version from the file name as a last resort")
            << item(enclosure("VantorLauncher_1.4.2.zip")) << u"1.0"_s
            << u"1.4.2 download=VantorLauncher_1.4.2.zip"_s;
        QTest::newRow("other channels are not followed")
            << item(version("16") + "<sparkle:channel>beta</sparkle:channel>" +
                    enclosure("Update16.zip")) +
                   item(version("15") + enclosure("Update15.zip"))
            << u"12"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("an invalid channel name is the default channel")
            << item(version("16") + "<sparkle:channel>beta testers</sparkle:channel>" +
                    enclosure("Update16.zip"))
            << u"12"_s << u"16 download=Update16.zip"_s;
        QTest::newRow("a minimum macOS version does not hold a Linux build back")
            << item(version("16") +
                    "<sparkle:minimumSystemVersion>99.0.0"
                    "</sparkle:minimumSystemVersion>" +
                    enclosure("Update16.zip"))
            << u"12"_s << u"16 download=Update16.zip"_s;
        QTest::newRow("1.0.0 is the running 1.0")
            << item(version("1.0.0") + enclosure("Update100.zip")) << u"1.0"_s
            << u"1.0.0 download=Update100.zip not newer"_s;
        QTest::newRow("the first of equal versions")
            << item(version("15") + enclosure("First.zip")) +
                   item(version("15.0") + enclosure("Second.zip"))
            << u"12"_s << u"15 download=First.zip"_s;
        // Only https addresses reach the desktop; the release is still announced.
        QTest::newRow("a download over plain http")
            << item(version("15") + link("news") +
                    "<enclosure url=\"http://downloads.example/Update15.zip\"/>")
            << u"12"_s << u"15 page=news"_s;
        QTest::newRow("an address relative to the feed")
            << item(version("15") + "<enclosure url=\"files/Update 15.zip\"/>") << u"12"_s
            << u"15 download=launcher/files/Update%2015.zip"_s;
    }

    void offersTheReleaseSparkleWouldOffer() {
        QFETCH(QByteArray, items);
        QFETCH(QString, running);
        QFETCH(QString, expected);
        AppcastHost host;
        host.version = running;
        host.feedURL = QUrl(u"https://vantor.example/launcher/appcast.xml"_s);
        QCOMPARE(summary(SelfUpdaterAppcast::newestRelease(feed(items), host), host), expected);
    }

    void phasedRolloutsHoldBackOnlyLaterGroupsInTheBackground() {
        const QByteArray phased =
            feed(item(version("16") + published(36 * 3600) +
                      "<sparkle:phasedRolloutInterval>86400</sparkle:phasedRolloutInterval>" +
                      enclosure("Update16.zip")) +
                 item(version("15") + enclosure("Update15.zip")));
        const auto newest = [&](int group, bool userInitiated, const QByteArray& document) {
            AppcastHost host;
            host.version = u"12"_s;
            host.rolloutGroup = group;
            host.userInitiated = userInitiated;
            host.now = now;
            return summary(SelfUpdaterAppcast::newestRelease(document, host));
        };
        // A day and a half after publication, groups 0 and 1 have it, group 2 not yet.
        QCOMPARE(newest(1, false, phased), u"16 download=Update16.zip"_s);
        QCOMPARE(newest(2, false, phased), u"15 download=Update15.zip"_s);
        QCOMPARE(newest(6, true, phased), u"16 download=Update16.zip"_s);
        QByteArray critical = phased;
        critical.replace("<sparkle:phasedRolloutInterval>",
                         "<sparkle:criticalUpdate/><sparkle:phasedRolloutInterval>");
        QCOMPARE(newest(6, false, critical), u"16 critical download=Update16.zip"_s);
        const auto release = SelfUpdaterAppcast::newestRelease(phased, AppcastHost{});
        QCOMPARE(release->phasedRolloutInterval, std::optional<qint64>(86400));
    }

    void followsTheChannelsItIsAllowed() {
        const QByteArray document =
            feed(item(version("16") + "<sparkle:channel>beta</sparkle:channel>" +
                      enclosure("Update16.zip")) +
                 item(version("15") + enclosure("Update15.zip")));
        AppcastHost host;
        host.allowedChannels = {u"beta"_s};
        QCOMPARE(summary(SelfUpdaterAppcast::newestRelease(document, host)),
                 u"16 channel=beta download=Update16.zip"_s);
    }

    void readsWhatIsAFeedAndRefusesTheRest() {
        // Sparkle's prefix bound to an older namespace address still counts.
        const QByteArray olderNamespace =
            "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces\"><channel>" +
            item(version("15") + enclosure("Update15.zip")) + "</channel></rss>";
        QCOMPARE(summary(SelfUpdaterAppcast::newestRelease(olderNamespace, {})),
                 u"15 download=Update15.zip"_s);
        QCOMPARE(SelfUpdaterAppcast::newestRelease(feed({}), {}), std::nullopt);

        for (const QByteArray& document :
             {QByteArray("<html><body/></html>"), QByteArray("<rss><channel><item>"),
              QByteArray("<rss><channel/></rss><rss/>"), QByteArray(),
              feed(item(version("15"))).replace("xmlns:sparkle", "xmlns:other")}) {
            QVERIFY_THROWS_EXCEPTION(std::runtime_error,
                                     SelfUpdaterAppcast::newestRelease(document, {}));
        }
        QByteArray huge = feed(item(version("15") + enclosure("Update15.zip")));
        huge.append(QByteArray(SelfUpdaterAppcast::maximumDocumentSize, ' '));
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, SelfUpdaterAppcast::newestRelease(huge, {}));
    }
};

QTEST_GUILESS_MAIN(SelfUpdaterTest)
#include "SelfUpdaterTest.moc"
