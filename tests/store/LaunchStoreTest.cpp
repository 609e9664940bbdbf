#include "BundleBuilder.h"
#include "StoreDoubles.h"
#include "foundation/DemoData.h"
#include "platform/PlatformServices.h"

#include <QSignalSpy>
#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;
using Launch::DemoScenario;
using Launch::InstallationState;
using Launch::PackFilter;
using Kind = AccountSyncState::Kind;

namespace {

const WebsiteAccount customer{u"cust-42"_s, u"Ana Example"_s, u"ana@example.com"_s};

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

// The store as a whole: start() (the order of its steps, the reset it begins with, a second start()
// that overtakes the first), then what the store does between starts.
class LaunchStoreTest : public QObject {
    Q_OBJECT

    std::unique_ptr<StoreFixture> fixture;
    std::unique_ptr<LaunchStore> store;

    void startDemo() {
        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
    }

private Q_SLOTS:
    void init() {
        store.reset();
        fixture = std::make_unique<StoreFixture>();
        store = fixture->makeStore();
    }

    void runsStartUpStepsInOrder() {
        const QDateTime savedAt = fixture->clock.addDays(-2);
        fixture->snapshotCache->stored = LaunchAccountSnapshot{1, customer, savedAt};
        fixture->discovery->discover.holdCalls();
        fixture->releaseChecker->latest.holdCalls();
        fixture->catalogue->load.holdCalls();
        fixture->accountProvider->refreshCalls.holdCalls();
        fixture->installer->versions.answerWith(QHash<QString, QString>{{u"coast"_s, u"1.0"_s}});
        store->setMessage(u"left over"_s);

        auto task = store->start();
        // The saved snapshot is shown before anything is discovered.
        QVERIFY(!store->message());
        QCOMPARE(store->accountFlows().account(), customer);
        QCOMPARE(store->accountFlows().syncState(), AccountSyncState::stale(savedAt));
        QCOMPARE(fixture->discovery->discover.pendingCount(), 1);
        QCOMPARE(fixture->releaseChecker->latest.callCount(), 0);

        fixture->discovery->discover.complete({fixture->director(), fixture->creator()});
        QCOMPARE(store->apps().size(), 2);
        QCOMPARE(store->apps()[1].state, InstallationState::included);
        QCOMPARE(fixture->releaseChecker->latest.pendingCount(), 1);
        QCOMPARE(fixture->catalogue->load.callCount(), 0);

        fixture->releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);
        QCOMPARE(fixture->catalogue->load.pendingCount(), 1);

        fixture->catalogue->load.complete(
            {makePack(u"nature"_s, u"Nature & Light"_s),
             makePack(u"coast"_s, u"Coastal Memories"_s, {}, u"1.0"_s)});
        QVERIFY(store->packFlows().hasLoadedPublicCatalogue());
        QCOMPARE(store->packs()[1].installation, Launch::PackInstallation::installed);
        // The automatic sync is the last wait.
        QCOMPARE(store->accountFlows().syncState().kind, Kind::syncing);
        QVERIFY(!task.isReady());

        fixture->accountProvider->refreshCalls.complete(customer);
        QVERIFY(finishes(task));
        QCOMPARE(store->accountFlows().syncState(), AccountSyncState::synced(fixture->clock));
        QCOMPARE(store->selectedPackID(), u"nature"_s);
        QCOMPARE(fixture->snapshotCache->stored->lastSuccessfulSync, fixture->clock);
    }

    void startsWithoutOptionalServices() {
        auto configuration = LaunchConfiguration::production();
        configuration.catalogueURL.reset();
        configuration.releaseMetadataURL.reset();
        store.reset();
        fixture = std::make_unique<StoreFixture>(configuration);
        store = fixture->makeStore();
        fixture->discovery->discover.answerWith({fixture->director(), fixture->creator()});

        QVERIFY(finishes(store->start()));
        QVERIFY(store->packFlows().publicPacks().isEmpty());
        QVERIFY(!store->packFlows().hasLoadedPublicCatalogue());
        QCOMPARE(store->apps()[0].state, InstallationState::stale);
        QCOMPARE(fixture->catalogue->load.callCount(), 0);
        QCOMPARE(fixture->releaseChecker->latest.callCount(), 0);
        QVERIFY(!store->message());
    }

    void unreadableSnapshotStartsSignedOut() {
        fixture->snapshotCache->failsToLoad = true;
        fixture->answerStartUp();

        QVERIFY(finishes(store->start()));
        QCOMPARE(store->message(),
                 u"Saved website account data could not be read. Sign in again to refresh it."_s);
        QVERIFY(!store->accountFlows().account());
        QCOMPARE(store->accountFlows().syncState(), AccountSyncState::signedOut());
        QCOMPARE(fixture->accountProvider->refreshCalls.callCount(), 0);
    }

    // A second start() overtakes the first, whether it switched to demo mode or not: what the
    // first one's discovery finds later is dropped.
    void secondStartDropsTheFirstsResult_data() {
        QTest::addColumn<bool>("demo");
        QTest::newRow("demo") << true;
        QTest::newRow("production") << false;
    }

    void secondStartDropsTheFirstsResult() {
        QFETCH(bool, demo);
        fixture->answerStartUp();
        fixture->discovery->discover.holdCalls();

        auto first = store->start();
        store->setDemoEnabled(demo);
        auto second = store->start();
        if (demo)
            QVERIFY(finishes(second));
        const QList<InstalledApp> before = store->apps();
        QCOMPARE(before.isEmpty(), !demo);
        fixture->discovery->discover.complete({fixture->missingDirector(), fixture->creator()});
        QVERIFY(finishes(first));
        QCOMPARE(store->apps(), before);
        if (!demo) {
            fixture->discovery->discover.complete({fixture->director(), fixture->creator()});
            QVERIFY(finishes(second));
            QVERIFY(store->apps()[0].path.has_value());
        }
        QCOMPARE(fixture->releaseChecker->latest.callCount(), demo ? 0 : 1);
    }

    void startsDemoScenarios_data() {
        QTest::addColumn<DemoScenario>("scenario");
        QTest::addColumn<int>("syncKind");
        QTest::newRow("signed out") << DemoScenario::signedOut << int(Kind::signedOut);
        QTest::newRow("combined") << DemoScenario::combined << int(Kind::synced);
        QTest::newRow("expired session")
            << DemoScenario::expiredSession << int(Kind::sessionExpired);
    }

    void startsDemoScenarios() {
        QFETCH(DemoScenario, scenario);
        QFETCH(int, syncKind);
        const bool signedIn = syncKind != int(Kind::signedOut);
        fixture->snapshotCache->stored = LaunchAccountSnapshot{1, customer, fixture->clock};
        store->setDemoEnabled(true);
        store->setDemoScenario(scenario);

        QVERIFY(finishes(store->start()));
        // Nothing real is touched.
        QCOMPARE(fixture->discovery->discover.callCount(), 0);
        QCOMPARE(fixture->snapshotCache->loads, 0);
        QCOMPARE(store->packs(), DemoData::packs());
        QCOMPARE(store->selectedPackID(), u"demo-nature-light"_s);
        QCOMPARE(store->accountFlows().accountProvider(), fixture->demoAccountProvider);
        QCOMPARE(store->accountFlows().account().has_value(), signedIn);
        QCOMPARE(int(store->accountFlows().syncState().kind), syncKind);
        if (signedIn) {
            QCOMPARE(store->accountFlows().account()->id, u"demo-customer"_s);
            QCOMPARE(store->accountFlows().syncState().date, DemoData::referenceDate());
        }

        // The built-in Creator rule applies to demo data too.
        const InstalledApp& creator = store->apps()[1];
        QCOMPARE(creator.state, InstallationState::included);
        QCOMPARE(creator.installedVersion, u"2.4.1"_s);
        QCOMPARE(creator.path, store->apps()[0].path);
        QCOMPARE(store->updateCount(), 1);
    }

    void filtersPacksBySearchAndState() {
        startDemo();
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

    // The built-in Creator mirrors an installed Director, but never runs nor counts as an update of
    // its own; without an installed Director its row stays as discovered.
    void mirrorsDirectorIntoBuiltInCreatorAndCountsUpdates() {
        InstalledApp director = fixture->director(u"2.4.1"_s, u"2410"_s);
        director.isRunning = true;
        director.state = InstallationState::running;
        fixture->answerStartUp(
            {director, fixture->creator()},
            {makePack(u"a"_s, u"A"_s, {}, u"1.10"_s), makePack(u"b"_s, u"B"_s, {}, u"2.0.0"_s)});
        fixture->releaseChecker->latest.answerWith(makeRelease(u"2.5.0"_s));
        // How pack versions compare is PackFlowsTest's; here one pack has an update.
        fixture->installer->versions.answerWith(
            QHash<QString, QString>{{u"a"_s, u"1.9"_s}, {u"b"_s, u"2.0"_s}});
        QVERIFY(finishes(store->start()));

        const InstalledApp& creator = store->apps()[1];
        QCOMPARE(creator.id, u"Vantor Creator"_s);
        QCOMPARE(creator.bundleIdentifier, director.bundleIdentifier);
        QCOMPARE(creator.path, director.path);
        QCOMPARE(creator.installedVersion, u"2.4.1"_s);
        QCOMPARE(creator.build, u"2410"_s);
        QVERIFY(!creator.isRunning);
        QCOMPARE(creator.state, InstallationState::included);
        // The Director's update and one pack.
        QCOMPARE(store->updateCount(), 2);

        fixture->discovery->discover.answerWith({fixture->missingDirector(), fixture->creator()});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QCOMPARE(store->apps()[1].state, InstallationState::notInstalled);
        QVERIFY(!store->apps()[1].path);
    }

    void opensOnlyVerifiedInstallations() {
        store->applicationFlows().open(fixture->missingDirector());
        QCOMPARE(store->message(), u"Vantor Director is not installed at a verified location."_s);
        QVERIFY(fixture->workspace->opened.isEmpty());

        store->applicationFlows().open(fixture->director());
        QCOMPARE(fixture->workspace->opened, QList<QUrl>{*fixture->director().path});

        store->setDemoEnabled(true);
        store->applicationFlows().open(fixture->director());
        QCOMPARE(store->message(),
                 u"Demo mode did not open Vantor Director or change the installed application."_s);
        QCOMPARE(fixture->workspace->opened.size(), 1);
        store->applicationFlows().revealInFileBrowser(fixture->director());
        QCOMPARE(store->message(), u"Demo mode did not reveal a simulated application."_s);
        QVERIFY(fixture->workspace->revealed.isEmpty());
    }

    // A chosen bundle is verified, used at once and remembered. Every discovery that misses the
    // application applies the remembered copy again, or forgets it once it is not verified.
    void remembersAVerifiedLocation() {
        const QString folder = fixture->folder.filePath(u"Chosen"_s);
        const QUrl foreign =
            writeBundle(folder, u"Foreign.app"_s, {u"com.example.Other"_s, u"1.0"_s, {}});
        const QUrl verified =
            writeBundle(folder, u"Vantor Director.app"_s,
                        {u"nz.co.halvex.VantorDirector"_s, u"2.4.0"_s, u"2400"_s});
        // The identifier test is case-sensitive, so the lower-case copy is foreign and forgotten.
        const QUrl lowerCase = writeBundle(folder, u"Other.app"_s,
                                           {u"nz.co.halvex.vantordirector"_s, u"9.0"_s, u"9"_s});
        fixture->settings->setValue(u"selectedApplication.Vantor Creator"_s,
                                    lowerCase.toLocalFile().toUtf8());
        auto collaborators = fixture->collaborators();
        const auto bookmarks = std::make_shared<RecordingBookmarks>();
        collaborators.bookmarks = bookmarks;
        store = std::make_unique<LaunchStore>(collaborators);
        QSignalSpy accessChanges(&store->applicationFlows(),
                                 &ApplicationFlows::securityScopedApplicationURLsChanged);
        fixture->answerStartUp({fixture->missingDirector(), fixture->creator()});
        QVERIFY(finishes(store->start()));
        QVERIFY(!fixture->settings->contains(u"selectedApplication.Vantor Creator"_s));

        fixture->locationChooser->choose.answerWith(std::optional<QUrl>());
        QVERIFY(finishes(store->applicationFlows().chooseApplicationLocation(store->apps()[0])));
        QCOMPARE(fixture->locationChooser->requests[0].title, u"Locate Vantor Director"_s);
        QCOMPARE(
            fixture->locationChooser->requests[0].message,
            u"Select the Vantor Director application. Its bundle identifier will be verified."_s);
        QCOMPARE(fixture->locationChooser->requests[0].prompt, u"Use This Application"_s);
        QVERIFY(!store->message());

        fixture->locationChooser->choose.answerWith(std::optional<QUrl>(foreign));
        QVERIFY(finishes(store->applicationFlows().chooseApplicationLocation(store->apps()[0])));
        QCOMPARE(store->message(),
                 u"The selected application is not a verified Vantor Director installation."_s);
        QVERIFY(!fixture->settings->contains(u"selectedApplication.Vantor Director"_s));

        fixture->locationChooser->choose.answerWith(std::optional<QUrl>(verified));
        QVERIFY(finishes(store->applicationFlows().chooseApplicationLocation(store->apps()[0])));
        QCOMPARE(store->apps()[0].path, verified);
        QCOMPARE(store->apps()[0].bundleIdentifier, u"nz.co.halvex.VantorDirector"_s);
        QVERIFY(fixture->settings->contains(u"selectedApplication.Vantor Director"_s));
        // Access begins as soon as the bundle is chosen, not only when it is remembered later.
        QCOMPARE(bookmarks->accessed, QList{verified});
        QCOMPARE(
            store->applicationFlows().securityScopedApplicationURLs().value(u"Vantor Director"_s),
            verified);
        QCOMPARE(accessChanges.count(), 1);
        QTRY_COMPARE(fixture->releaseChecker->latest.callCount(), 2);

        fixture->clock = fixture->clock.addSecs(60);
        const qsizetype accesses = bookmarks->accessed.size();
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QCOMPARE(bookmarks->accessed.size(), accesses + 1);
        const InstalledApp remembered = store->apps()[0];
        QCOMPARE(remembered.path, verified);
        QCOMPARE(remembered.installedVersion, u"2.4.0"_s);
        QCOMPARE(remembered.build, u"2400"_s);
        QCOMPARE(remembered.state, InstallationState::stale);
        QCOMPARE(remembered.lastChecked, fixture->clock);

        // A bundle that has since gained another identifier is forgotten.
        writeBundle(folder, u"Vantor Director.app"_s,
                    {u"com.example.Impostor"_s, u"2.4.0"_s, u"2400"_s});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QVERIFY(!store->apps()[0].path);
        QVERIFY(!fixture->settings->contains(u"selectedApplication.Vantor Director"_s));
    }

    // Launches and terminations each refresh one at a time, and an unplanned failure of one
    // refresh is reported without ending the following.
    void followsWorkspaceOneRefreshAtATime() {
        fixture->releaseChecker->latest.answerWith(std::nullopt);
        fixture->discovery->discover.holdCalls();
        store->applicationFlows().setFollowsWorkspace(true);

        fixture->workspace->simulateLaunch();
        fixture->workspace->simulateLaunch();
        QCOMPARE(fixture->discovery->discover.pendingCount(), 1);
        fixture->discovery->discover.fail(std::runtime_error("no file descriptors left"));
        QTRY_COMPARE(store->message(), u"Vantor Launcher could not complete the operation."_s);
        QCOMPARE(fixture->discovery->discover.pendingCount(), 1); // the second launch's refresh
        fixture->workspace->simulateTermination(); // terminations have their own queue
        QCOMPARE(fixture->discovery->discover.pendingCount(), 2);
        fixture->discovery->discover.complete({fixture->missingDirector(), fixture->creator()});
        fixture->discovery->discover.complete({fixture->director(), fixture->creator()});
        QCOMPARE(fixture->discovery->discover.callCount(), 3);
        QVERIFY(store->apps()[0].path);

        store->applicationFlows().setFollowsWorkspace(false);
        fixture->workspace->simulateLaunch();
        QCOMPARE(fixture->discovery->discover.callCount(), 3);
    }

    // The views bind to these; the queued update's signal is UpdateFlowTest's.
    void publishedStateNotifiesItsChanges() {
        QSignalSpy provider(&store->accountFlows(), &AccountFlows::accountProviderChanged);
        QSignalSpy attempt(&store->accountFlows(), &AccountFlows::lastAutomaticSyncAttemptChanged);

        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        QCOMPARE(provider.count(), 1);

        fixture->snapshotCache->stored = LaunchAccountSnapshot{1, customer, fixture->clock};
        fixture->answerStartUp({}, {}, customer);
        store->setDemoEnabled(false);
        QVERIFY(finishes(store->start()));
        QCOMPARE(provider.count(), 2);
        QCOMPARE(attempt.count(), 1);
        QCOMPARE(store->accountFlows().lastAutomaticSyncAttempt(), fixture->clock);
    }

    void demoLaunchNotificationRestoresCreatorsOwnRecord() {
        startDemo();
        QCOMPARE(store->apps()[1].state, InstallationState::included);
        store->applicationFlows().setFollowsWorkspace(true);
        fixture->workspace->simulateLaunch();
        QTRY_COMPARE(store->apps()[1].state, InstallationState::current);
        QCOMPARE(store->apps()[1].installedVersion, u"1.8.0"_s);
    }
};

QTEST_GUILESS_MAIN(LaunchStoreTest)
#include "LaunchStoreTest.moc"
