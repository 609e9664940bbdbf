#include "AppDetailProfile.h"
#include "AppScreenshots.h"
#include "ApplicationPresentation.h"
#include "ApplicationRowDescription.h"
#include "BundleBuilder.h"
#include "DateTexts.h"
#include "LauncherInfo.h"
#include "PackPresentation.h"
#include "StoreDoubles.h"
#include "SymbolImageProvider.h"
#include "SymbolRenderer.h"
#include "SymbolTable.h"
#include "SyncStatusPresenter.h"
#include "UiPalette.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Launch::PackInstallation;

namespace {

QDateTime utc(const char* text) {
    return QDateTime::fromString(QString::fromLatin1(text), Qt::ISODate);
}

const QLocale english(QLocale::English, QLocale::UnitedStates);

const QString director = u"Vantor Director"_s;
const QString creator = u"Vantor Creator"_s;

InstalledApp application(const QString& name, InstallationState state,
                         std::optional<QString> version = std::nullopt,
                         std::optional<QString> build = std::nullopt) {
    InstalledApp app;
    app.id = name;
    app.name = name;
    app.state = state;
    if (state != InstallationState::notInstalled)
        app.path = QUrl::fromLocalFile(u"/Applications/Vantor Director.app"_s);
    app.installedVersion = std::move(version);
    app.build = std::move(build);
    return app;
}

// A row's state badges and the titles of its buttons.
QStringList badgeTexts(const ApplicationRowDescription& row) {
    QStringList texts;
    for (const auto& badge : row.badges)
        texts.append(badge.text);
    return texts;
}

QStringList buttons(const ApplicationRowDescription& row) {
    QStringList titles;
    if (row.showsLocate)
        titles.append(u"Locate app\u2026"_s);
    if (row.showsOpen)
        titles.append(row.openTitle);
    if (row.showsUpdate)
        titles.append(u"(update)"_s);
    if (row.showsReveal)
        titles.append(u"Reveal in Finder"_s);
    return titles;
}

QStringList factLines(const QVariantList& facts) {
    QStringList lines;
    for (const QVariant& fact : facts) {
        const QVariantMap map = fact.toMap();
        lines.append(map.value(u"label"_s).toString() + u": "_s + map.value(u"value"_s).toString());
    }
    return lines;
}

QList<ContentPack> packList(const QStringList& ids) {
    QList<ContentPack> packs;
    for (const QString& id : ids)
        packs.append(makePack(id, id));
    return packs;
}

// A small image of one colour at `path`, with its folders.
void writeImage(const QString& path, const QSize& size) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(image.save(path));
}

} // namespace

// The texts, icons and colours the screens show, the pack screens' actions, facts and progress,
// and the detail screen's profiles and screenshots; texts compared character for character.
class PresentationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        // Absolute dates are written in local time.
        qputenv("TZ", "UTC");
    }

    void describesEverySyncState_data() {
        QTest::addColumn<AccountSyncState>("state");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("caption");

        const QDateTime last = utc("2026-10-26T10:00:00Z");
        const QString when = u"Oct 26, 2026, 10:00 AM"_s;
        const QString cached = u"Showing cached account data — last synced "_s + when;
        const QString changed =
            u"The account changed. Sign out before signing in to another account."_s;
        QTest::newRow("synced") << AccountSyncState::synced(utc("2026-11-01T08:55:00Z"))
                                << u"Synced 5 minutes ago"_s << QString();
        QTest::newRow("stale") << AccountSyncState::stale(last)
                               << u"Cached — last synced "_s + when + u". Not refreshed yet."_s
                               << QString();
        QTest::newRow("offline") << AccountSyncState::offline(last)
                                 << u"Offline — last synced "_s + when << QString();
        QTest::newRow("expired without date") << AccountSyncState::sessionExpired(std::nullopt)
                                              << u"Website session expired"_s << QString();
        QTest::newRow("expired with date")
            << AccountSyncState::sessionExpired(last) << u"Website session expired"_s << cached;
        QTest::newRow("failed with date") << AccountSyncState::failed(changed, last)
                                          << u"Sync unavailable: "_s + changed << cached;
        QTest::newRow("failed without date")
            << AccountSyncState::failed(u"Offline."_s, std::nullopt)
            << u"Sync unavailable: Offline."_s << QString();
        QTest::newRow("signed out")
            << AccountSyncState::signedOut() << u"Signed out"_s << QString();
        QTest::newRow("signing in")
            << AccountSyncState::signingIn() << u"Signing in\u2026"_s << QString();
        QTest::newRow("syncing") << AccountSyncState::syncing() << u"Syncing\u2026"_s << QString();
    }

    void describesEverySyncState() {
        QFETCH(AccountSyncState, state);
        const auto description =
            SyncStatusPresenter::describe(state, utc("2026-11-01T09:00:00Z"), english);
        QTEST(description.text, "text");
        QTEST(description.caption, "caption");
        QVERIFY2(!SymbolTable::resourcePath(description.symbol).isEmpty(),
                 qPrintable(description.symbol));
    }

    void writesRelativeDatesWithNamedForms() {
        const QDateTime now = utc("2026-11-01T09:00:00Z");
        QCOMPARE(DateTexts::relative(now, now), u"now"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-30), now), u"30 seconds ago"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-60), now), u"1 minute ago"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-1), now), u"yesterday"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-2), now), u"2 days ago"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-400), now), u"last year"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(2 * 3600), now), u"in 2 hours"_s);
        QCOMPARE(DateTexts::relative(now.addDays(1), now), u"tomorrow"_s);
    }

    void writesAbsoluteDatesToTheMinuteInTheLocalesOrder() {
        const QDateTime date = utc("2026-10-26T14:05:09Z");
        QCOMPARE(DateTexts::abbreviated(date, english), u"Oct 26, 2026, 2:05 PM"_s);
        // The C locale's short time carries seconds; the status line never does.
        QCOMPARE(DateTexts::abbreviated(date, QLocale::c()), u"26 Oct 2026, 14:05"_s);
    }

    void sidebarRowsSayWhetherAnApplicationIsInstalled() {
        InstalledApp app = application(director, InstallationState::notInstalled);
        QCOMPARE(ApplicationPresentation::sidebarAccessibleNameFor(app),
                 u"Vantor Director, not installed"_s);
        app.path = QUrl::fromLocalFile(u"/Applications/Vantor Director.app"_s);
        QCOMPARE(ApplicationPresentation::sidebarAccessibleNameFor(app),
                 u"Vantor Director, installed"_s);
    }

    void describesApplicationRows_data() {
        QTest::addColumn<InstalledApp>("app");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QStringList>("badges");
        QTest::addColumn<QStringList>("buttons");

        const QStringList stale{u"Offline / stale"_s};
        const QStringList included{u"Included with Vantor Director"_s};
        const QStringList openAndReveal = {u"Open"_s, u"Reveal in Finder"_s};
        const QStringList openInVD = {u"Open in VD"_s, u"Reveal in Finder"_s};
        const QStringList withUpdate = {u"Open"_s, u"(update)"_s, u"Reveal in Finder"_s};

        QTest::newRow("installed with build")
            << application(director, InstallationState::current, u"2.4.1"_s, u"2410"_s)
            << u"Installed 2.4.1 (2410)"_s << QStringList{u"Current"_s} << openAndReveal;
        QTest::newRow("installed without build")
            << application(director, InstallationState::stale, u"2.4.1"_s) << u"Installed 2.4.1"_s
            << stale << openAndReveal;
        QTest::newRow("installed without version")
            << application(director, InstallationState::stale, std::nullopt, u"2410"_s)
            << u"Installed \u2014 version unavailable"_s << stale << openAndReveal;
        QTest::newRow("Director not installed")
            << application(director, InstallationState::notInstalled) << u"Not installed"_s
            << QStringList{u"Not installed"_s} << QStringList{u"Locate app\u2026"_s};
        QTest::newRow("Creator not installed")
            << application(creator, InstallationState::notInstalled) << u"Not installed"_s
            << QStringList{u"Not installed"_s} << QStringList();
        QTest::newRow("Creator built into the Director")
            << application(creator, InstallationState::included, u"2.4.1"_s, u"2410"_s)
            << u"Built into Vantor Director 2.4.1"_s << included << openInVD;
        QTest::newRow("Creator built into a Director without version")
            << application(creator, InstallationState::included) << u"Built into Vantor Director"_s
            << included << openInVD;
        QTest::newRow("Creator with a location of its own")
            << application(creator, InstallationState::current, u"1.8.0"_s, u"1800"_s)
            << u"Installed 1.8.0 (1800)"_s << QStringList{u"Current"_s} << openInVD;
        QTest::newRow("update available")
            << application(director, InstallationState::updateAvailable, u"2.4.1"_s, u"2410"_s)
            << u"Installed 2.4.1 (2410)"_s << QStringList{u"Update available"_s} << withUpdate;
        QTest::newRow("updating") << application(director, InstallationState::checking, u"2.4.1"_s,
                                                 u"2410"_s)
                                  << u"Installed 2.4.1 (2410)"_s << QStringList{u"Checking"_s}
                                  << openAndReveal;

        // The release check rewrites the state of a running Director; it still shows as running.
        const auto running = [](InstallationState state) {
            InstalledApp app = application(director, state, u"2.4.1"_s, u"2410"_s);
            app.isRunning = true;
            return app;
        };
        QTest::newRow("running, release not checked")
            << running(InstallationState::running) << u"Installed 2.4.1 (2410)"_s
            << QStringList{u"Running"_s} << openAndReveal;
        QTest::newRow("running with an update")
            << running(InstallationState::updateAvailable) << u"Installed 2.4.1 (2410)"_s
            << QStringList{u"Update available"_s, u"Running"_s} << withUpdate;
    }

    void describesApplicationRows() {
        QFETCH(InstalledApp, app);
        const ApplicationRowDescription row = ApplicationPresentation::describeRow(app, creator);
        QTEST(row.statusText, "status");
        QTEST(badgeTexts(row), "badges");
        QTEST(buttons(row), "buttons");
        QCOMPARE(row.logoAccessibleName, app.name + u" logo"_s);
        for (const auto& badge : row.badges)
            QVERIFY2(!SymbolTable::resourcePath(badge.symbol).isEmpty(), qPrintable(badge.symbol));
    }

    void saysWhenTheApplicationsWereLastChecked() {
        const QDateTime now = utc("2026-11-01T09:00:00Z");
        InstalledApp unchecked = application(director, InstallationState::notInstalled);
        QCOMPARE(ApplicationPresentation::lastCheckedText({}, now), u"Last checked not yet"_s);
        QCOMPARE(ApplicationPresentation::lastCheckedText({unchecked}, now),
                 u"Last checked not yet"_s);

        InstalledApp older = unchecked;
        older.lastChecked = now.addSecs(-2 * 3600);
        InstalledApp newer = unchecked;
        newer.lastChecked = now.addSecs(-5 * 60);
        QCOMPARE(ApplicationPresentation::lastCheckedText({older, unchecked, newer}, now),
                 u"Last checked 5 minutes ago"_s);
        QCOMPARE(ApplicationPresentation::lastCheckedText({newer, older}, now),
                 u"Last checked 5 minutes ago"_s);
        // A clock that went back never makes a check lie in the future.
        newer.lastChecked = now.addSecs(600);
        QCOMPARE(ApplicationPresentation::lastCheckedText({newer}, now), u"Last checked now"_s);
    }

    void everySymbolAndLogoHasArtwork() {
        for (const QString& name : SymbolTable::symbolNames() + SymbolTable::logoNames()) {
            const QImage image = SymbolRenderer::render(name, QSize(32, 32), UiPalette::paper());
            QVERIFY2(!image.isNull(), qPrintable(name));
            int opaque = 0;
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x)
                    opaque += qAlpha(image.pixel(x, y)) > 128;
            QVERIFY2(opaque > 20, qPrintable(name));
        }
        QVERIFY(SymbolRenderer::render(u"no.such.symbol"_s, QSize(32, 32), Qt::white).isNull());
    }

    void drawsSymbolsInTheirColourWithCutOutsClear() {
        // info.circle.fill: a filled disc with the "i" cut out of it.
        const QImage image =
            SymbolRenderer::render(u"info.circle.fill"_s, QSize(48, 48), UiPalette::gold());
        QCOMPARE(image.size(), QSize(48, 48));
        const QColor disc = image.pixelColor(10, 24);
        QCOMPARE(disc.alpha(), 255);
        QCOMPARE(disc.rgb(), UiPalette::gold().rgb());
        QCOMPARE(image.pixelColor(24, 30).alpha(), 0); // the stem of the "i"
        QCOMPARE(image.pixelColor(1, 1).alpha(), 0);   // outside the disc
    }

    void trayIconsComeFromTheSameArtwork() {
        SymbolImageProvider provider;
        QSize size;
        const QImage icon =
            provider.requestImage(u"arrow.down.circle.fill"_s, &size, QSize(22, 22));
        QCOMPARE(size, QSize(22, 22));
        QCOMPARE(icon.pixelColor(3, 11).rgb(), UiPalette::paper().rgb());
    }

    void keepsTheLogosProportionsAndColours() {
        const qreal ratio = SymbolRenderer::aspectRatio(u"VantorLaunchLogo"_s);
        QVERIFY(ratio > 4 && ratio < 6);
        const QImage logo = SymbolRenderer::render(u"VantorLaunchLogo"_s, QSize(214, 38), {});
        QCOMPARE(logo.height(), 38);
        QVERIFY(logo.width() <= 214);
        QVERIFY(logo.pixelColor(4, 19).blue() > logo.pixelColor(4, 19).red()); // the blue tile
    }

    void helpSaysWhenTheBuildLeftAValueOut() {
        QCOMPARE(LauncherInfo::shownValue(u"2.4.1"_s), u"2.4.1"_s);
        QCOMPARE(LauncherInfo::shownValue(u" "_s), u"Not provided"_s);
        QVERIFY(!LauncherInfo().version().isEmpty());
    }

    void packActionFollowsTheInstallationState_data() {
        QTest::addColumn<PackInstallation>("installation");
        QTest::addColumn<QString>("title");
        QTest::addColumn<bool>("opensCreator");
        QTest::newRow("installed") << PackInstallation::installed << u"Open in Creator"_s << true;
        QTest::newRow("update") << PackInstallation::updateAvailable << u"Update"_s << false;
        QTest::newRow("downloading")
            << PackInstallation::downloading << u"Installing\u2026"_s << false;
        QTest::newRow("not installed") << PackInstallation::notInstalled << u"Install"_s << false;
        QTest::newRow("failed") << PackInstallation::failed << u"Install"_s << false;
        QTest::newRow("unavailable") << PackInstallation::unavailable << u"Install"_s << false;
    }

    void packActionFollowsTheInstallationState() {
        QFETCH(PackInstallation, installation);
        QFETCH(QString, title);
        QFETCH(bool, opensCreator);
        const ContentPack pack = makePack(u"p"_s, u"P"_s, {}, std::nullopt, installation);
        QCOMPARE(PackPresentation::actionTitleFor(pack), title);
        QCOMPARE(PackPresentation::opensCreatorFor(pack), opensCreator);
    }

    void packFactsShowThePresentValuesWithGroupedCounts() {
        ContentPack pack = makePack(u"p"_s, u"P"_s, {}, u"1.2"_s);
        pack.contentCount = 1200;
        QCOMPARE(factLines(PackPresentation::factsFor(pack, english)),
                 QStringList({u"Version: 1.2"_s, u"Included content: 1,200"_s}));
        pack.downloadSize = u"340 MB"_s;
        pack.version.reset();
        QCOMPARE(factLines(PackPresentation::factsFor(pack, english)),
                 QStringList({u"Download size: 340 MB"_s, u"Included content: 1,200"_s}));
        QCOMPARE(factLines(PackPresentation::factsFor(makePack(u"q"_s, u"Q"_s), english)),
                 QStringList());
    }

    void installProgressIsAFractionAndTheAmountReceived_data() {
        QTest::addColumn<qint64>("received");
        QTest::addColumn<qint64>("expected");
        QTest::addColumn<double>("fraction");
        QTest::addColumn<QString>("text");
        QTest::newRow("halfway") << 1'500'000LL << 3'000'000LL << 0.5 << u"1.5 MB of 3.0 MB"_s;
        QTest::newRow("more than announced") << 4'000LL << 2'000LL << 1.0 << u"4.0 kB of 2.0 kB"_s;
        QTest::newRow("size unknown") << 2'500'000LL << 0LL << -1.0 << u"2.5 MB received"_s;
        QTest::newRow("nothing yet") << 0LL << 0LL << -1.0 << QString();
    }

    void installProgressIsAFractionAndTheAmountReceived() {
        QFETCH(qint64, received);
        QFETCH(qint64, expected);
        QFETCH(double, fraction);
        QFETCH(QString, text);
        const QVariantMap progress = PackPresentation::progressFor(received, expected, english);
        QCOMPARE(progress.value(u"fraction"_s).toDouble(), fraction);
        QCOMPARE(progress.value(u"text"_s).toString(), text);
    }

    void arrowKeysMoveThroughTheListAndStopAtItsEnds_data() {
        QTest::addColumn<QString>("current");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QString>("next");
        QTest::newRow("down") << u"a"_s << 1 << u"b"_s;
        QTest::newRow("up") << u"c"_s << -1 << u"b"_s;
        QTest::newRow("past the end") << u"c"_s << 1 << u"c"_s;
        QTest::newRow("before the start") << u"a"_s << -1 << u"a"_s;
        // The selected pack was filtered out of the list: the keys start at the top.
        QTest::newRow("not listed") << u"z"_s << 1 << u"a"_s;
    }

    void arrowKeysMoveThroughTheListAndStopAtItsEnds() {
        QFETCH(QString, current);
        QFETCH(int, offset);
        QFETCH(QString, next);
        const QList<ContentPack> packs = packList({u"a"_s, u"b"_s, u"c"_s});
        QCOMPARE(PackPresentation::adjacentPackIDIn(packs, current, offset), next);
        QCOMPARE(PackPresentation::adjacentPackIDIn({}, current, offset), QString());
    }

    void bothProductProfilesAreCompleteAndTheirScreenshotsShipWithTheLauncher() {
        for (const AppDetailProfile* profile :
             {&AppDetailProfiles::director(), &AppDetailProfiles::creator()}) {
            QVERIFY(!profile->tagline.isEmpty());
            QVERIFY(profile->screenshotNames.size() >= 3);
            for (const QString& name : profile->screenshotNames)
                QVERIFY2(!AppScreenshots::load(name, {}).isNull(), qPrintable(name));
            QVERIFY(!profile->features.isEmpty());
            for (qsizetype i = 0; i < profile->features.size(); ++i) {
                QCOMPARE(profile->features[i].number, i + 1);
                QVERIFY(!profile->features[i].detail.isEmpty());
            }
            QVERIFY(profile->releaseDate.isValid());
            QVERIFY(!profile->recentChanges.isEmpty());
            // The latest release heads the changelog, which runs newest first.
            QCOMPARE(profile->changelog.constFirst().version, profile->releaseVersion);
            for (qsizetype i = 1; i < profile->changelog.size(); ++i)
                QVERIFY(profile->changelog[i].released < profile->changelog[i - 1].released);
        }
        QCOMPARE(&AppDetailProfiles::profileFor(u"Vantor Creator"_s, u"Vantor Creator"_s),
                 &AppDetailProfiles::creator());
        QCOMPARE(&AppDetailProfiles::profileFor(u"Vantor Director"_s, u"Vantor Creator"_s),
                 &AppDetailProfiles::director());
    }

    void screenshotsComeFromTheLauncherFirstThenFromInsideTheApplication_data() {
        QTest::addColumn<QString>("folder");
        QTest::newRow("remote assets") << u"Remote/assets"_s;
        QTest::newRow("embedded bundle") << u"Pellomar_Pellomar.bundle/Remote/assets"_s;
        QTest::newRow("embedded bundle with contents")
            << u"Pellomar_Pellomar.bundle/Contents/Resources/Remote/assets"_s;
    }

    void screenshotsComeFromTheLauncherFirstThenFromInsideTheApplication() {
        QFETCH(QString, folder);
        QTemporaryDir root;
        const QString bundle = root.filePath(u"Vantor Director.app"_s);
        const QString assets = bundle + u"/Contents/Resources/"_s + folder + u'/';
        const QUrl application = QUrl::fromLocalFile(bundle);
        const QString shipped = AppDetailProfiles::director().screenshotNames.constFirst();
        writeImage(assets + shipped, QSize(4, 3));
        writeImage(assets + u"only-inside.png"_s, QSize(5, 2));
        writeFile(assets + u"broken.png"_s, "not an image");

        // Present in both places: the launcher's copy.
        const QSize launcherCopy = AppScreenshots::load(shipped, {}).size();
        QVERIFY(launcherCopy.width() > 5);
        QCOMPARE(AppScreenshots::load(shipped, application).size(), launcherCopy);
        QCOMPARE(AppScreenshots::load(u"only-inside.png"_s, application).size(), QSize(5, 2));
        // Without the installed application only the launcher's screenshots exist.
        QVERIFY(AppScreenshots::load(u"only-inside.png"_s, {}).isNull());
        QVERIFY(AppScreenshots::load(u"broken.png"_s, application).isNull());
        // A name is a file name, never a path out of the folders.
        QVERIFY(AppScreenshots::candidates(u"../../secret.png"_s, application).isEmpty());
        QVERIFY(AppScreenshots::candidates(u"a/b.png"_s, application).isEmpty());
    }
};

QTEST_GUILESS_MAIN(PresentationTest)
#include "PresentationTest.moc"
