#include "BundleBuilder.h"
#include "StoreDoubles.h"
#include "platform/PlatformServices.h"

#include <QSignalSpy>
#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Launch::PackFilter;

namespace {

std::unique_ptr<LaunchStore> startedDemoStore(StoreFixture& fixture) {
    auto store = fixture.makeStore();
    store->setDemoEnabled(true);
    auto task = store->start();
    if (!finishes(task))
        qFatal("demo start did not finish");
    return store;
}

QStringList names(const QList<ContentPack>& packs) {
    QStringList result;
    for (const ContentPack& pack : packs)
        result.append(pack.name);
    return result;
}

// The desktop's bookmark store, noting which bundles were opened for access.
class RecordingBookmarks : public BookmarkStore {
public:
    std::shared_ptr<BookmarkStore> real = PlatformServices::makeBookmarkStore();
    QList<QUrl> accessed;

    std::optional<QByteArray> createBookmark(const QUrl& bundle) override {
        return real->createBookmark(bundle);
    }
    std::optional<Resolution> resolve(const QByteArray& bookmark) override {
        return real->resolve(bookmark);
    }
    void startAccessing(const QUrl& bundle) override { accessed.append(bundle); }
};

} // namespace

class LaunchStoreOperationsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void filtersPacksBySearchAndState() {
        StoreFixture fixture;
        auto store = startedDemoStore(fixture);
        QSignalSpy changes(store.get(), &LaunchStore::filteredPacksChanged);

        QCOMPARE(store->filteredPacks().size(), 3);
        store->setSearchText(u"coast"_s);
        QCOMPARE(names(store->filteredPacks()), QStringList{u"Coastal Memories"_s});
        store->setSearchText(u"GARDEN"_s); // summaries count, case does not
        QCOMPARE(names(store->filteredPacks()), QStringList{u"Floral Reflections"_s});
        store->setSearchText({});
        store->setPackFilter(PackFilter::installed);
        QCOMPARE(names(store->filteredPacks()), QStringList{u"Floral Reflections"_s});
        store->setSearchText(u"coast"_s);
        QVERIFY(store->filteredPacks().isEmpty());
        QCOMPARE(changes.count(), 5);
    }

    void countsApplicationAndPackUpdates() {
        StoreFixture fixture;
        fixture.discovery->discover.answerWith({fixture.director(u"2.4.1"_s), fixture.creator()});
        fixture.releaseChecker->latest.answerWith(
            AvailableApplicationRelease{u"2.5.0"_s, std::nullopt, std::nullopt});
        // How pack versions compare is PackFlowsTest's; here one pack has an update.
        fixture.catalogue->load.answerWith(
            {makePack(u"a"_s, u"A"_s, {}, u"1.10"_s), makePack(u"b"_s, u"B"_s, {}, u"2.0.0"_s)});
        fixture.installer->versions.answerWith(
            QHash<QString, QString>{{u"a"_s, u"1.9"_s}, {u"b"_s, u"2.0"_s}});
        auto store = fixture.makeStore();

        QVERIFY(finishes(store->start()));
        // The Director's update and one pack; the built-in Creator never counts.
        QCOMPARE(store->updateCount(), 2);
    }

    void mirrorsDirectorIntoBuiltInCreator() {
        StoreFixture fixture;
        InstalledApp director = fixture.director(u"2.4.1"_s, u"2410"_s);
        director.isRunning = true;
        director.state = InstallationState::running;
        fixture.answerStartUp({director, fixture.creator()});
        auto store = fixture.makeStore();
        QVERIFY(finishes(store->start()));

        const InstalledApp& creator = store->apps()[1];
        QCOMPARE(creator.id, u"Vantor Creator"_s);
        QCOMPARE(creator.bundleIdentifier, director.bundleIdentifier);
        QCOMPARE(creator.path, director.path);
        QCOMPARE(creator.installedVersion, u"2.4.1"_s);
        QCOMPARE(creator.build, u"2410"_s);
        QVERIFY(!creator.isRunning);
        QCOMPARE(creator.state, InstallationState::included);

        // Without an installed Director the Creator row stays as discovered.
        fixture.discovery->discover.answerWith({fixture.missingDirector(), fixture.creator()});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QCOMPARE(store->apps()[1].state, InstallationState::notInstalled);
        QVERIFY(!store->apps()[1].path);
    }

    void opensOnlyVerifiedInstallations() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        store->applicationFlows().open(fixture.missingDirector());
        QCOMPARE(store->message(), u"Vantor Director is not installed at a verified location."_s);
        QVERIFY(fixture.workspace->opened.isEmpty());

        store->applicationFlows().open(fixture.director());
        QCOMPARE(fixture.workspace->opened, QList<QUrl>{*fixture.director().path});

        store->setDemoEnabled(true);
        store->applicationFlows().open(fixture.director());
        QCOMPARE(store->message(),
                 u"Demo mode did not open Vantor Director or change the installed application."_s);
        QCOMPARE(fixture.workspace->opened.size(), 1);
        store->applicationFlows().revealInFileBrowser(fixture.director());
        QCOMPARE(store->message(), u"Demo mode did not reveal a simulated application."_s);
        QVERIFY(fixture.workspace->revealed.isEmpty());
    }

    // A chosen bundle is verified, used at once and remembered. Every discovery that misses the
    // application applies the remembered copy again, or forgets it once it is not verified.
    void remembersAVerifiedLocation() {
        StoreFixture fixture;
        const QString folder = fixture.folder.filePath(u"Chosen"_s);
        const QUrl foreign =
            writeBundle(folder, u"Foreign.app"_s, {u"com.example.Other"_s, u"1.0"_s, {}});
        const QUrl verified =
            writeBundle(folder, u"Vantor Director.app"_s,
                        {u"nz.co.halvex.VantorDirector"_s, u"2.4.0"_s, u"2400"_s});
        // The identifier test is case-sensitive, so the lower-case copy is foreign and forgotten.
        const QUrl lowerCase = writeBundle(folder, u"Other.app"_s,
                                           {u"nz.co.halvex.vantordirector"_s, u"9.0"_s, u"9"_s});
        fixture.settings->setValue(u"selectedApplication.Vantor Creator"_s,
                                   lowerCase.toLocalFile().toUtf8());
        auto collaborators = fixture.collaborators();
        const auto bookmarks = std::make_shared<RecordingBookmarks>();
        collaborators.bookmarks = bookmarks;
        auto store = std::make_unique<LaunchStore>(collaborators);
        QSignalSpy accessChanges(&store->applicationFlows(),
                                 &ApplicationFlows::securityScopedApplicationURLsChanged);
        fixture.answerStartUp({fixture.missingDirector(), fixture.creator()});
        QVERIFY(finishes(store->start()));
        QVERIFY(!fixture.settings->contains(u"selectedApplication.Vantor Creator"_s));

        fixture.locationChooser->choose.answerWith(std::optional<QUrl>());
        QVERIFY(finishes(store->applicationFlows().chooseApplicationLocation(store->apps()[0])));
        QCOMPARE(fixture.locationChooser->requests[0].title, u"Locate Vantor Director"_s);
        QCOMPARE(
            fixture.locationChooser->requests[0].message,
            u"Select the Vantor Director application. Its bundle identifier will be verified."_s);
        QCOMPARE(fixture.locationChooser->requests[0].prompt, u"Use This Application"_s);
        QVERIFY(!store->message());

        fixture.locationChooser->choose.answerWith(std::optional<QUrl>(foreign));
        QVERIFY(finishes(store->applicationFlows().chooseApplicationLocation(store->apps()[0])));
        QCOMPARE(store->message(),
                 u"The selected application is not a verified Vantor Director installation."_s);
        QVERIFY(!fixture.settings->contains(u"selectedApplication.Vantor Director"_s));

        fixture.locationChooser->choose.answerWith(std::optional<QUrl>(verified));
        QVERIFY(finishes(store->applicationFlows().chooseApplicationLocation(store->apps()[0])));
        QCOMPARE(store->apps()[0].path, verified);
        QCOMPARE(store->apps()[0].bundleIdentifier, u"nz.co.halvex.VantorDirector"_s);
        QVERIFY(fixture.settings->contains(u"selectedApplication.Vantor Director"_s));
        // Access begins as soon as the bundle is chosen, not only when it is remembered later.
        QCOMPARE(bookmarks->accessed, QList{verified});
        QCOMPARE(
            store->applicationFlows().securityScopedApplicationURLs().value(u"Vantor Director"_s),
            verified);
        QCOMPARE(accessChanges.count(), 1);
        QTRY_COMPARE(fixture.releaseChecker->latest.callCount(), 2);

        fixture.clock = fixture.clock.addSecs(60);
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        const InstalledApp remembered = store->apps()[0];
        QCOMPARE(remembered.path, verified);
        QCOMPARE(remembered.installedVersion, u"2.4.0"_s);
        QCOMPARE(remembered.build, u"2400"_s);
        QCOMPARE(remembered.state, InstallationState::stale);
        QCOMPARE(remembered.lastChecked, fixture.clock);

        // A bundle that has since gained another identifier is forgotten.
        writeBundle(folder, u"Vantor Director.app"_s,
                    {u"com.example.Impostor"_s, u"2.4.0"_s, u"2400"_s});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QVERIFY(!store->apps()[0].path);
        QVERIFY(!fixture.settings->contains(u"selectedApplication.Vantor Director"_s));
    }

    // Launches and terminations each refresh one at a time, and an unplanned failure of one
    // refresh is reported without ending the following.
    void followsWorkspaceOneRefreshAtATime() {
        StoreFixture fixture;
        fixture.releaseChecker->latest.answerWith(std::nullopt);
        fixture.discovery->discover.holdCalls();
        auto store = fixture.makeStore();
        store->applicationFlows().setFollowsWorkspace(true);

        fixture.workspace->simulateLaunch();
        fixture.workspace->simulateLaunch();
        QCOMPARE(fixture.discovery->discover.pendingCount(), 1);
        fixture.discovery->discover.fail(std::runtime_error("no file descriptors left"));
        QTRY_COMPARE(store->message(), u"Vantor Launcher could not complete the operation."_s);
        QCOMPARE(fixture.discovery->discover.pendingCount(), 1); // the second launch's refresh
        fixture.workspace->simulateTermination(); // terminations have their own queue
        QCOMPARE(fixture.discovery->discover.pendingCount(), 2);
        fixture.discovery->discover.complete({fixture.missingDirector(), fixture.creator()});
        fixture.discovery->discover.complete({fixture.director(), fixture.creator()});
        QCOMPARE(fixture.discovery->discover.callCount(), 3);
        QVERIFY(store->apps()[0].path);

        store->applicationFlows().setFollowsWorkspace(false);
        fixture.workspace->simulateLaunch();
        QCOMPARE(fixture.discovery->discover.callCount(), 3);
    }

    // The views bind to these; the queued update's signal is UpdateFlowTest's.
    void publishedStateNotifiesItsChanges() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        QSignalSpy provider(&store->accountFlows(), &AccountFlows::accountProviderChanged);
        QSignalSpy attempt(&store->accountFlows(), &AccountFlows::lastAutomaticSyncAttemptChanged);

        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        QCOMPARE(provider.count(), 1);

        const WebsiteAccount customer{u"cust-42"_s, u"Ana Example"_s, u"ana@example.com"_s};
        fixture.snapshotCache->stored = LaunchAccountSnapshot{1, customer, fixture.clock};
        fixture.answerStartUp({}, {}, customer);
        store->setDemoEnabled(false);
        QVERIFY(finishes(store->start()));
        QCOMPARE(provider.count(), 2);
        QCOMPARE(attempt.count(), 1);
        QCOMPARE(store->accountFlows().lastAutomaticSyncAttempt(), fixture.clock);
    }

    void demoLaunchNotificationRestoresCreatorsOwnRecord() {
        StoreFixture fixture;
        auto store = startedDemoStore(fixture);
        QCOMPARE(store->apps()[1].state, InstallationState::included);
        store->applicationFlows().setFollowsWorkspace(true);
        fixture.workspace->simulateLaunch();
        QTRY_COMPARE(store->apps()[1].state, InstallationState::current);
        QCOMPARE(store->apps()[1].installedVersion, u"1.8.0"_s);
    }
};

QTEST_GUILESS_MAIN(LaunchStoreOperationsTest)
#include "LaunchStoreOperationsTest.moc"
