#include "ApplicationPresentation.h"

#include "../ScreenTexts.h"
#include "AppDetailProfile.h"
#include "AppScreenshots.h"
#include "ApplicationRowDescription.h"
#include "BundleBuilder.h"
#include "PanelLocationChooser.h"
#include "StoreDoubles.h"
#include "SymbolTable.h"

#include <QDir>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

namespace {

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

// A small image of one colour at `path`, with its folders.
void writeImage(const QString& path, const QSize& size) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(image.save(path));
}

QUrl local(const QString& path) {
    return QUrl::fromLocalFile(path);
}

ApplicationLocationChooser::Request locateDirector() {
    return {u"Locate Vantor Director"_s, u"Select the Vantor Director application."_s,
            u"Use This Application"_s};
}

// The answer of a request that has finished.
std::optional<QUrl> answer(QCoro::Task<std::optional<QUrl>>& request) {
    return QCoro::waitFor(std::move(request));
}

} // namespace

// The applications' rows in the sidebar and the overview, the detail screen's profiles and
// screenshots, texts compared character for character; and the chooser between the store and the
// folder panel: what the panel is asked to show, and which of its answers end the request.
class ApplicationPresentationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        // Absolute dates are written in local time.
        qputenv("TZ", "UTC");
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

    // Which profile a row presents, and its texts, the window tests read from the real sheet.
    void bothProductProfilesShipTheirScreenshotsAndListTheirReleasesNewestFirst() {
        for (const AppDetailProfile* profile :
             {&AppDetailProfiles::director(), &AppDetailProfiles::creator()}) {
            QVERIFY(profile->screenshotNames.size() >= 3);
            for (const QString& name : profile->screenshotNames)
                QVERIFY2(!AppScreenshots::load(name, {}).isNull(), qPrintable(name));
            for (qsizetype i = 0; i < profile->features.size(); ++i)
                QCOMPARE(profile->features[i].number, i + 1);
            // The latest release heads the changelog.
            QCOMPARE(profile->changelog.constFirst().version, profile->releaseVersion);
            for (qsizetype i = 1; i < profile->changelog.size(); ++i)
                QVERIFY(profile->changelog[i].released < profile->changelog[i - 1].released);
        }
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

    void locationAnswersWithTheApplicationBundleTheUserAccepts() {
        // The window tests see the panel, its title and its message come and go.
        PanelLocationChooser chooser;
        auto request = chooser.chooseApplication(locateDirector());
        QCOMPARE(chooser.prompt(), u"Use This Application"_s);
        QVERIFY(chooser.folder().isLocalFile());

        chooser.accept(local(u"/opt/Stage/Vantor Director.APP/"_s));
        QVERIFY(finishes(request));
        QCOMPARE(answer(request), std::optional(local(u"/opt/Stage/Vantor Director.APP"_s)));
        QVERIFY(!chooser.choosing());
        QCOMPARE(chooser.title(), QString());
    }

    void locationPanelReopensInsideAnotherFolderUntilCancelled() {
        PanelLocationChooser chooser;
        QSignalSpy shown(&chooser, &PanelLocationChooser::panelRequested);
        auto request = chooser.chooseApplication(locateDirector());

        chooser.accept(local(u"/opt/Stage"_s));
        QVERIFY(chooser.choosing());
        QCOMPARE(chooser.folder(), local(u"/opt/Stage"_s));
        QCOMPARE(chooser.title(), u"Locate Vantor Director"_s);
        // Shown again only after the panel has closed from the answer.
        QCOMPARE(shown.count(), 1);
        QTRY_COMPARE(shown.count(), 2);
        QVERIFY(!request.isReady());

        // Cancelled before it could reopen: nothing, and no panel for a request that ended.
        chooser.accept(local(u"/opt"_s));
        chooser.cancel();
        QVERIFY(finishes(request));
        QCOMPARE(answer(request), std::nullopt);
        QVERIFY(!chooser.choosing());
        QTest::qWait(20);
        QCOMPARE(shown.count(), 2);
    }

    void aNewerLocationRequestCancelsTheUnansweredOne() {
        PanelLocationChooser chooser;
        auto first = chooser.chooseApplication(locateDirector());
        auto second = chooser.chooseApplication({u"Locate Vantor Creator"_s, {}, u"Use"_s});
        QVERIFY(finishes(first));
        QCOMPARE(answer(first), std::nullopt);
        QCOMPARE(chooser.title(), u"Locate Vantor Creator"_s);

        chooser.accept(local(u"/Applications/Vantor Creator.app"_s));
        QVERIFY(finishes(second));
        QCOMPARE(answer(second), std::optional(local(u"/Applications/Vantor Creator.app"_s)));
    }

    void onlyLocalFoldersNamedDotAppAreApplications_data() {
        QTest::addColumn<QUrl>("folder");
        QTest::addColumn<bool>("application");
        QTest::newRow("bundle") << local(u"/Applications/Vantor Director.app"_s) << true;
        QTest::newRow("upper case") << local(u"/Applications/VANTOR.App"_s) << true;
        QTest::newRow("trailing slash") << local(u"/Applications/Vantor Director.app/"_s) << true;
        QTest::newRow("plain folder") << local(u"/Applications"_s) << false;
        QTest::newRow("named app") << local(u"/Applications/app"_s) << false;
        QTest::newRow("only the extension") << local(u"/Applications/.app"_s) << false;
        QTest::newRow("later suffix") << local(u"/Applications/Vantor.app.old"_s) << false;
        QTest::newRow("inside a bundle") << local(u"/Applications/Vantor.app/Contents"_s) << false;
        QTest::newRow("remote") << QUrl(u"https://example.com/Vantor.app"_s) << false;
        QTest::newRow("empty") << QUrl() << false;
    }

    void onlyLocalFoldersNamedDotAppAreApplications() {
        QFETCH(QUrl, folder);
        QTEST(PanelLocationChooser::isApplicationBundle(folder), "application");
    }
};

QTEST_GUILESS_MAIN(ApplicationPresentationTest)
#include "ApplicationPresentationTest.moc"
