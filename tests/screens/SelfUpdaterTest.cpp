#include "platform/SelfUpdater.h"

#include "HttpsTestServer.h"
#include "platform/linux/SelfUpdaterAppcast.h"
#include "platform/linux/SparkleVersionComparator.h"

#include <QRegularExpression>
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

QByteArray shortVersion(const QByteArray& shown) {
    return "<sparkle:shortVersionString>" + shown + "</sparkle:shortVersionString>";
}

QByteArray link(const QByteArray& page) {
    return "<link>https://vantor.example/" + page + "</link>";
}

// An item of that build with `more` in it and its full download, Update<build>.zip.
QByteArray update(const QByteArray& build, const QByteArray& more = {}) {
    return item(version(build) + more + enclosure("Update" + build + ".zip"));
}

// A link without the test servers' common prefixes.
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

// Two releases, one in the element form and one in the older attribute form, and a beta.
const QByteArray releases =
    item(version("12") + shortVersion("1.2.0") + enclosure("VantorLauncher-1.2.0.zip")) +
    item(enclosure("VantorLauncher-1.3.0.zip",
                   "sparkle:version=\"13\" sparkle:shortVersionString=\"1.3.0\"")) +
    item(version("14") + "<sparkle:channel>beta</sparkle:channel>" +
         enclosure("VantorLauncher-1.4.0b1.zip"));

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
            feed(item(version("15") + shortVersion("1.5.0") + "<sparkle:criticalUpdate/>" +
                      enclosure("Launcher-1.5.0.zip")));
        const QByteArray notice = feed(item(version("20") + shortVersion("2.0") + link("v2")));
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
        QTest::newRow("critical")
            << critical << u"11"_s << false << Status::updateAvailable
            << u"Vantor Launcher 1.5.0 is a critical update. Download it from Help."_s << true
            << QUrl(u"https://downloads.example/Launcher-1.5.0.zip"_s) << QUrl();
        QTest::newRow("informational")
            << notice << u"11"_s << true << Status::updateAvailable
            << u"Vantor Launcher 2.0 is available. Its page is linked in Help."_s << true << QUrl()
            << QUrl(u"https://vantor.example/v2"_s);
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
        QFETCH(QString, text);
        QFETCH(bool, announced);
        server().reply(u"GET"_s, u"/feed.xml"_s,
                       {feed.isEmpty() ? 500 : 200, feed, "application/rss+xml", {}, 0});
        auto updater = makeUpdater(build, u"/feed.xml"_s);
        QSignalSpy announcements(updater.get(), &SelfUpdater::announced);
        QFETCH(bool, asked);
        if (asked)
            updater->checkForUpdates();
        else
            updater->checkForUpdatesInBackground();
        QFETCH(Status, status);
        QTRY_COMPARE(updater->status(), status);
        QCOMPARE(updater->statusText(), text);
        QCOMPARE(announcements.count(), announced ? 1 : 0);
        if (announced)
            QCOMPARE(announcements[0][0].toString(), text);
        QTEST(updater->downloadURL(), "download");
        QTEST(updater->releasePageURL(), "page");
        QCOMPARE(updater->criticalUpdate(), text.contains(u"critical"_s));
        QCOMPARE(server().requestCount(u"/feed.xml"_s), 1);
    }

    void withoutAUsableFeedChecksNothing() {
        auto updater = makeSelfUpdater({std::nullopt, u"1.1.0"_s, u"1"_s, nullptr});
        QCOMPARE(updater->status(), Status::notConfigured);
        QSignalSpy announcements(updater.get(), &SelfUpdater::announced);
        updater->startAutomaticChecks(std::chrono::seconds(21600));
        QCOMPARE(announcements.count(), 0);
        updater->checkForUpdates();
        QCOMPARE(announcements.count(), 1);
        QCOMPARE(announcements[0][0].toString(),
                 u"Launcher updates are not configured in this build."_s);

        updater = makeSelfUpdater(
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
        QTest::addColumn<QString>("comparison");
        for (const char* comparison :
             {"1.0 < 1.1", "1.10 > 1.9", "007 = 7", "0.1 > 0.0.1", "0.1 < 0.1.2",
              // Missing components count as zeros: no update from 1.0 to 1.0.0.
              "1.0 = 1.0.0", "2.0.0.2429 < 2.0.0.2430",
              // Letters after the numbers make a pre-release.
              "1.0b5 < 1.0", "1.0a1 < 1.0b1", "1.0b < 1.0b2", "1.0rc < 1.0", "1.0.1 > 1.0b",
              "1.0pre1 = 1.0.0pre1",
              // A dash ends the version: what follows is a build suffix, so a running
              // 2.1.0-beta.2 is not told to update to 2.1.0.
              "2.1.0-beta.2 = 2.1.0", "1.5.5-335d3e2 = 1.5.5-a655360",
              "1.5.5-335d3e2 < 1.5.6-b252311",
              // Build numbers in brackets, and other text after a blank.
              "1.0 (1234) < 1.0 (1235)", "1.0b1 (1234) < 1.0 (1234)", "3.3 (5847) < 3.3.1b1 (5902)",
              "3.3 (5847) = 3.3.0 (5847)", "3.10 (libxad 13.0, modified) > 3.9",
              // Build strings that went wrong: an unexpanded build variable and a "v" prefix
              // both rank below any real number.
              "$(MARKETING_VERSION) < 1.0", "v2.0 < 1.9", "1,2 < 1.2", " = 0",
              "99999999999999999999 > 99999999999999999998"})
            QTest::newRow(comparison) << QString::fromLatin1(comparison);
    }

    void ordersVersionsAsSparkleDoes() {
        QFETCH(QString, comparison);
        const auto parts = QRegularExpression(u"^(.*) ([<=>]) (.*)$"_s).match(comparison);
        QVERIFY(parts.hasMatch());
        const int order = parts.captured(2) == u"<"_s ? -1 : parts.captured(2) == u">"_s ? 1 : 0;
        QCOMPARE(compareSparkleVersions(parts.captured(1), parts.captured(3)), order);
        QCOMPARE(compareSparkleVersions(parts.captured(3), parts.captured(1)), -order);
    }

    void offersTheReleaseSparkleWouldOffer_data() {
        QTest::addColumn<QByteArray>("items");
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("expected");
        const QByteArray news = version("3.0") + link("news") + enclosure("Update30.zip");

        // generate_appcast lists each release's deltas beside its full download.
        QTest::newRow("deltas beside the full download")
            << update("15", "<sparkle:deltas>" +
                                enclosure("Update15-14.delta", "sparkle:deltaFrom=\"14\"") +
                                enclosure("Update15-12.delta", "sparkle:deltaFrom=\"12\"") +
                                "</sparkle:deltas>") +
                   update("14")
            << u"12"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("an item that is only a delta")
            << item(version("16") + enclosure("Update16-15.delta", "sparkle:deltaFrom=\"15\"")) +
                   update("15")
            << u"12"_s << u"15 download=Update15.zip"_s;
        QTest::newRow("items for other systems")
            << item(version("18") + enclosure("Update18.exe", "sparkle:os=\"windows\"")) +
                   item(version("17") + enclosure("Update17.dmg", "sparkle:os=\"macos\"")) +
                   update("16")
            << u"12"_s << u"16 download=Update16.zip"_s;
        QTest::newRow("a download for this system beside the default one")
            << update("16", "<sparkle:enclosure url=\"https://downloads.example/Update16.tar.xz\" "
                            "sparkle:os=\"linux\" length=\"1\"/>")
            << u"12"_s << u"16 download=Update16.tar.xz"_s;
        // Today's 3.0 read as 2.4: the versions the notice is for are not the item's version.
        QTest::newRow("informational for the listed build")
            << item(news + "<sparkle:informationalUpdate>" + version("2.4") + version("2.3") +
                    "</sparkle:informationalUpdate>")
            << u"2.4"_s << u"3.0 informational page=news"_s;
        QTest::newRow("an ordinary update for builds it does not list")
            << item(news + "<sparkle:informationalUpdate>" + version("2.4") +
                    "</sparkle:informationalUpdate>")
            << u"2.5"_s << u"3.0 download=Update30.zip page=news"_s;
        QTest::newRow("informational below a version")
            << item(news + "<sparkle:informationalUpdate><sparkle:belowVersion>2.0"
                           "</sparkle:belowVersion></sparkle:informationalUpdate>")
            << u"1.9"_s << u"3.0 informational page=news"_s;
        QTest::newRow("informational for every build")
            << item(news + "<sparkle:informationalUpdate/>") << u"2.5"_s
            << u"3.0 informational page=news"_s;
        QTest::newRow("neither a download nor a page")
            << item(version("19") + "<description>Soon.</description>") + update("15") << u"12"_s
            << u"15 download=Update15.zip"_s;
        QTest::newRow("a page that is no web address")
            << item(version("19") + "<link>file:///etc/passwd</link>") << u"12"_s << u"none"_s;
        // An unconditional critical update is read through the whole check, above.
        QTest::newRow("critical in the older tags form")
            << update("15", "<sparkle:tags><sparkle:criticalUpdate></sparkle:criticalUpdate>"
                            "</sparkle:tags>")
            << u"12"_s << u"15 critical download=Update15.zip"_s;
        QTest::newRow("critical for builds before 14")
            << update("15", "<sparkle:criticalUpdate sparkle:version=\"14\"/>") << u"13"_s
            << u"15 critical download=Update15.zip"_s;
        QTest::newRow("not critical from 14 on")
            << update("15", "<sparkle:criticalUpdate sparkle:version=\"14\"/>") << u"14"_s
            << u"15 download=Update15.zip"_s;
        QTest::newRow("the enclosure's versions win over the elements")
            << item(version("20") + shortVersion("2.0") +
                    enclosure("Update21.zip",
                              "sparkle:version=\"21\" sparkle:shortVersionString=\"2.1\""))
            << u"12"_s << u"21 (2.1) download=Update21.zip"_s;
        QTest::newRow("the version from the file name as a last resort")
            << item(enclosure("VantorLauncher_1.4.2.zip")) << u"1.0"_s
            << u"1.4.2 download=VantorLauncher_1.4.2.zip"_s;
        QTest::newRow("other channels are not followed")
            << update("16", "<sparkle:channel>beta</sparkle:channel>") + update("15") << u"12"_s
            << u"15 download=Update15.zip"_s;
        QTest::newRow("an invalid channel name is the default channel")
            << update("16", "<sparkle:channel>beta testers</sparkle:channel>") << u"12"_s
            << u"16 download=Update16.zip"_s;
        QTest::newRow("a minimum macOS version does not hold a Linux build back")
            << update("16", "<sparkle:minimumSystemVersion>99.0.0</sparkle:minimumSystemVersion>")
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
        AppcastHost host;
        host.version = running;
        host.feedURL = QUrl(u"https://vantor.example/launcher/appcast.xml"_s);
        QTEST(summary(SelfUpdaterAppcast::newestRelease(feed(items), host), host), "expected");
    }

    // What the running launcher's own settings change: its rollout group, whether the user asked,
    // and the channels it may follow.
    void followsTheRolloutGroupAndTheChannelsOfTheHost() {
        const QByteArray phased = feed(
            update("16", "<pubDate>" + now.addSecs(-36 * 3600).toString(Qt::RFC2822Date).toUtf8() +
                             "</pubDate>"
                             "<sparkle:phasedRolloutInterval>86400"
                             "</sparkle:phasedRolloutInterval>") +
            update("15"));
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

        AppcastHost beta;
        beta.allowedChannels = {u"beta"_s};
        const QByteArray channels = feed(update("16", "<sparkle:channel>beta</sparkle:channel>"));
        QCOMPARE(summary(SelfUpdaterAppcast::newestRelease(channels, beta)),
                 u"16 channel=beta download=Update16.zip"_s);
    }

    void readsWhatIsAFeedAndRefusesTheRest() {
        // Sparkle's prefix bound to an older namespace address still counts.
        const QByteArray olderNamespace =
            "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces\"><channel>" +
            update("15") + "</channel></rss>";
        QCOMPARE(summary(SelfUpdaterAppcast::newestRelease(olderNamespace, {})),
                 u"15 download=Update15.zip"_s);
        QCOMPARE(SelfUpdaterAppcast::newestRelease(feed({}), {}), std::nullopt);

        QByteArray huge = feed(update("15"));
        huge.append(QByteArray(SelfUpdaterAppcast::maximumDocumentSize, ' '));
        for (const QByteArray& document :
             {QByteArray("<html><body/></html>"), QByteArray("<rss><channel/></rss><rss/>"),
              QByteArray(), feed(item(version("15"))).replace("xmlns:sparkle", "xmlns:other"),
              huge}) {
            QVERIFY_THROWS_EXCEPTION(std::runtime_error,
                                     SelfUpdaterAppcast::newestRelease(document, {}));
        }
    }
};

QTEST_GUILESS_MAIN(SelfUpdaterTest)
#include "SelfUpdaterTest.moc"
