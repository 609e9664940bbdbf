#include "ApplicationPresentation.h"
#include "ApplicationRowDescription.h"
#include "DateTexts.h"
#include "LauncherInfo.h"
#include "Sections.h"
#include "SymbolImageProvider.h"
#include "SymbolRenderer.h"
#include "SymbolTable.h"
#include "SyncStatusPresenter.h"
#include "UiPalette.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Kind = AccountSyncState::Kind;
using Launch::InstallationState;

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

// A row's state line and buttons, as one line each: "text|symbol|colour" and the button titles.
QStringList badgeLines(const ApplicationRowDescription& row) {
    QStringList lines;
    for (const auto& badge : row.badges)
        lines.append(badge.text + u'|' + badge.symbol + u'|' + badge.color.name());
    return lines;
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

} // namespace

// The texts, icons and colours the screens show; compared character for character.
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
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<QColor>("color");
        QTest::addColumn<QString>("caption");

        const QDateTime last = utc("2026-10-26T10:00:00Z");
        const QString when = u"Oct 26, 2026, 10:00 AM"_s;
        const QString changed =
            u"The account changed. Sign out before signing in to another account."_s;
        QTest::newRow("synced") << AccountSyncState::synced(utc("2026-11-01T08:55:00Z"))
                                << u"Synced 5 minutes ago"_s << u"checkmark.circle.fill"_s
                                << UiPalette::green() << QString();
        QTest::newRow("stale") << AccountSyncState::stale(last)
                               << u"Cached — last synced "_s + when + u". Not refreshed yet."_s
                               << u"clock.badge.exclamationmark"_s << UiPalette::gold()
                               << QString();
        QTest::newRow("offline") << AccountSyncState::offline(last)
                                 << u"Offline — last synced "_s + when << u"wifi.slash"_s
                                 << UiPalette::gold() << QString();
        QTest::newRow("expired without date")
            << AccountSyncState::sessionExpired(std::nullopt) << u"Website session expired"_s
            << u"person.crop.circle.badge.exclamationmark"_s << UiPalette::gold() << QString();
        QTest::newRow("expired with date")
            << AccountSyncState::sessionExpired(last) << u"Website session expired"_s
            << u"person.crop.circle.badge.exclamationmark"_s << UiPalette::gold()
            << u"Showing cached account data — last synced "_s + when;
        QTest::newRow("failed with date")
            << AccountSyncState::failed(changed, last) << u"Sync unavailable: "_s + changed
            << u"exclamationmark.triangle.fill"_s << UiPalette::orange()
            << u"Showing cached account data — last synced "_s + when;
        QTest::newRow("failed without date")
            << AccountSyncState::failed(u"Offline."_s, std::nullopt)
            << u"Sync unavailable: Offline."_s << u"exclamationmark.triangle.fill"_s
            << UiPalette::orange() << QString();
        QTest::newRow("signed out")
            << AccountSyncState::signedOut() << u"Signed out"_s
            << u"person.crop.circle.badge.xmark"_s << UiPalette::slate() << QString();
        QTest::newRow("signing in") << AccountSyncState::signingIn() << u"Signing in\u2026"_s
                                    << u"hourglass"_s << UiPalette::teal() << QString();
        QTest::newRow("syncing") << AccountSyncState::syncing() << u"Syncing\u2026"_s
                                 << u"arrow.triangle.2.circlepath"_s << UiPalette::teal()
                                 << QString();
    }

    void describesEverySyncState() {
        QFETCH(AccountSyncState, state);
        const auto description =
            SyncStatusPresenter::describe(state, utc("2026-11-01T09:00:00Z"), english);
        QTEST(description.text, "text");
        QTEST(description.symbol, "symbol");
        QTEST(description.color, "color");
        QTEST(description.caption, "caption");
        QVERIFY(!SymbolTable::resourcePath(description.symbol).isEmpty());
    }

    void writesRelativeDatesWithNamedForms() {
        const QDateTime now = utc("2026-11-01T09:00:00Z");
        QCOMPARE(DateTexts::relative(now, now), u"now"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-30), now), u"30 seconds ago"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-60), now), u"1 minute ago"_s);
        QCOMPARE(DateTexts::relative(now.addSecs(-3 * 3600), now), u"3 hours ago"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-1), now), u"yesterday"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-2), now), u"2 days ago"_s);
        QCOMPARE(DateTexts::relative(now.addDays(-7), now), u"last week"_s);
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
        InstalledApp app;
        app.name = u"Vantor Director"_s;
        QCOMPARE(ApplicationPresentation::sidebarSymbolFor(app), u"minus.circle"_s);
        QCOMPARE(ApplicationPresentation::sidebarColorFor(app), UiPalette::slate());
        QCOMPARE(ApplicationPresentation::sidebarAccessibleNameFor(app),
                 u"Vantor Director, not installed"_s);
        app.path = QUrl::fromLocalFile(u"/Applications/Vantor Director.app"_s);
        QCOMPARE(ApplicationPresentation::sidebarSymbolFor(app), u"checkmark.circle.fill"_s);
        QCOMPARE(ApplicationPresentation::sidebarColorFor(app), UiPalette::green());
        QCOMPARE(ApplicationPresentation::sidebarAccessibleNameFor(app),
                 u"Vantor Director, installed"_s);
    }

    void describesApplicationRows_data() {
        QTest::addColumn<InstalledApp>("app");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QStringList>("badges");
        QTest::addColumn<QStringList>("buttons");

        const QString green = UiPalette::green().name();
        const QString slate = UiPalette::slate().name();
        const QString gold = UiPalette::gold().name();
        const QString accent = UiPalette::accentBlue().name();
        const QString current = u"Current|checkmark.circle.fill|"_s + green;
        const QString running = u"Running|play.circle.fill|"_s + accent;
        const QStringList openAndReveal = {u"Open"_s, u"Reveal in Finder"_s};

        QTest::newRow("installed with build")
            << application(director, InstallationState::current, u"2.4.1"_s, u"2410"_s)
            << u"Installed 2.4.1 (2410)"_s << QStringList{current} << openAndReveal;
        QTest::newRow("installed without build")
            << application(director, InstallationState::stale, u"2.4.1"_s) << u"Installed 2.4.1"_s
            << QStringList{u"Offline / stale|exclamationmark.circle|"_s + slate} << openAndReveal;
        QTest::newRow("installed without version")
            << application(director, InstallationState::stale, std::nullopt, u"2410"_s)
            << u"Installed \u2014 version unavailable"_s
            << QStringList{u"Offline / stale|exclamationmark.circle|"_s + slate} << openAndReveal;
        QTest::newRow("Director not installed")
            << application(director, InstallationState::notInstalled) << u"Not installed"_s
            << QStringList{u"Not installed|minus.circle|"_s + slate}
            << QStringList{u"Locate app\u2026"_s};
        QTest::newRow("Creator not installed")
            << application(creator, InstallationState::notInstalled) << u"Not installed"_s
            << QStringList{u"Not installed|minus.circle|"_s + slate} << QStringList();
        QTest::newRow("Creator built into the Director")
            << application(creator, InstallationState::included, u"2.4.1"_s, u"2410"_s)
            << u"Built into Vantor Director 2.4.1"_s
            << QStringList{u"Included with Vantor Director|checkmark.seal.fill|"_s + green}
            << QStringList{u"Open in VD"_s, u"Reveal in Finder"_s};
        QTest::newRow("Creator built into a Director without version")
            << application(creator, InstallationState::included) << u"Built into Vantor Director"_s
            << QStringList{u"Included with Vantor Director|checkmark.seal.fill|"_s + green}
            << QStringList{u"Open in VD"_s, u"Reveal in Finder"_s};
        QTest::newRow("Creator with a location of its own")
            << application(creator, InstallationState::current, u"1.8.0"_s, u"1800"_s)
            << u"Installed 1.8.0 (1800)"_s << QStringList{current}
            << QStringList{u"Open in VD"_s, u"Reveal in Finder"_s};
        QTest::newRow("update available")
            << application(director, InstallationState::updateAvailable, u"2.4.1"_s, u"2410"_s)
            << u"Installed 2.4.1 (2410)"_s
            << QStringList{u"Update available|arrow.down.circle.fill|"_s + gold}
            << QStringList{u"Open"_s, u"(update)"_s, u"Reveal in Finder"_s};
        QTest::newRow("updating") << application(director, InstallationState::checking, u"2.4.1"_s,
                                                 u"2410"_s)
                                  << u"Installed 2.4.1 (2410)"_s
                                  << QStringList{u"Checking|exclamationmark.circle|"_s + slate}
                                  << openAndReveal;

        InstalledApp runningUnchecked =
            application(director, InstallationState::running, u"2.4.1"_s, u"2410"_s);
        runningUnchecked.isRunning = true;
        QTest::newRow("running, release not checked")
            << runningUnchecked << u"Installed 2.4.1 (2410)"_s << QStringList{running}
            << openAndReveal;
        // The release check rewrites the state of a running Director; it still shows as running.
        InstalledApp runningCurrent = runningUnchecked;
        runningCurrent.state = InstallationState::current;
        QTest::newRow("running and current") << runningCurrent << u"Installed 2.4.1 (2410)"_s
                                             << QStringList{current, running} << openAndReveal;
        InstalledApp runningOutdated = runningUnchecked;
        runningOutdated.state = InstallationState::updateAvailable;
        QTest::newRow("running with an update")
            << runningOutdated << u"Installed 2.4.1 (2410)"_s
            << QStringList{u"Update available|arrow.down.circle.fill|"_s + gold, running}
            << QStringList{u"Open"_s, u"(update)"_s, u"Reveal in Finder"_s};
    }

    void describesApplicationRows() {
        QFETCH(InstalledApp, app);
        const ApplicationRowDescription row = ApplicationPresentation::describeRow(app, creator);
        QTEST(row.statusText, "status");
        QTEST(badgeLines(row), "badges");
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
        older.lastChecked = now.addDays(-1);
        QCOMPARE(ApplicationPresentation::lastCheckedText({older}, now),
                 u"Last checked yesterday"_s);
        // A clock that went back never makes a check lie in the future.
        newer.lastChecked = now.addSecs(600);
        QCOMPARE(ApplicationPresentation::lastCheckedText({newer}, now), u"Last checked now"_s);
    }

    void listsTheSectionsInOrderWithTheirShortcuts() {
        QStringList rows;
        for (const QVariant& entry : Sections().all()) {
            const QVariantMap section = entry.toMap();
            rows.append(section[u"title"_s].toString() + u'|' + section[u"symbol"_s].toString() +
                        u'|' + section[u"identifier"_s].toString() + u'|' +
                        section[u"shortcut"_s].toString() + u'|' +
                        section[u"section"_s].toString());
        }
        QCOMPARE(rows, QStringList({u"Overview|house|sidebar-Overview|Ctrl+1|0"_s,
                                    u"Content Packs|shippingbox|sidebar-Content Packs|Ctrl+2|1"_s,
                                    u"Help|questionmark.circle|sidebar-Help|Ctrl+3|2"_s}));
    }

    void everySymbolOfTheViewsHasArtwork() {
        const QStringList used = {u"house"_s,
                                  u"shippingbox"_s,
                                  u"questionmark.circle"_s,
                                  u"checkmark.circle.fill"_s,
                                  u"minus.circle"_s,
                                  u"info.circle.fill"_s,
                                  u"xmark"_s,
                                  u"person.crop.circle"_s,
                                  u"person.crop.circle.fill"_s,
                                  u"clock.badge.exclamationmark"_s,
                                  u"wifi.slash"_s,
                                  u"person.crop.circle.badge.exclamationmark"_s,
                                  u"exclamationmark.triangle.fill"_s,
                                  u"person.crop.circle.badge.xmark"_s,
                                  u"hourglass"_s,
                                  u"arrow.triangle.2.circlepath"_s,
                                  u"checkmark.seal.fill"_s,
                                  u"wrench.and.screwdriver"_s,
                                  u"play.square.stack"_s,
                                  u"arrow.down.circle.fill"_s,
                                  u"flask.fill"_s,
                                  u"arrow.clockwise"_s,
                                  u"play.circle.fill"_s,
                                  u"exclamationmark.circle"_s,
                                  u"macwindow"_s,
                                  u"VantorLaunchLogo"_s,
                                  u"VantorDirectorLogo"_s,
                                  u"VantorCreatorLogo"_s};
        for (const QString& name : used) {
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
};

QTEST_GUILESS_MAIN(PresentationTest)
#include "PresentationTest.moc"
