#include "StoreDoubles.h"
#include "foundation/DemoData.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::DemoScenario;
using Launch::InstallationState;
using Kind = AccountSyncState::Kind;

namespace {

const WebsiteAccount customer{u"cust-42"_s, u"Ana Example"_s, u"ana@example.com"_s};

} // namespace

// start(): the order of its steps, the reset it begins with, and what happens when a second
// start() overtakes the first.
class LaunchStoreStartTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void runsStartUpStepsInOrder() {
        StoreFixture fixture;
        const QDateTime savedAt = fixture.clock.addDays(-2);
        fixture.snapshotCache->stored = LaunchAccountSnapshot{1, customer, savedAt};
        fixture.discovery->discover.holdCalls();
        fixture.releaseChecker->latest.holdCalls();
        fixture.catalogue->load.holdCalls();
        fixture.accountProvider->refreshCalls.holdCalls();
        fixture.installer->versions.answerWith(QHash<QString, QString>{{u"coast"_s, u"1.0"_s}});
        auto store = fixture.makeStore();
        store->setMessage(u"left over"_s);

        auto task = store->start();
        // The saved snapshot is shown before anything is discovered.
        QVERIFY(!store->message());
        QCOMPARE(store->accountFlows().account(), customer);
        QCOMPARE(store->accountFlows().syncState(), AccountSyncState::stale(savedAt));
        QCOMPARE(fixture.discovery->discover.pendingCount(), 1);
        QCOMPARE(fixture.releaseChecker->latest.callCount(), 0);

        fixture.discovery->discover.complete({fixture.director(), fixture.creator()});
        QCOMPARE(store->apps().size(), 2);
        QCOMPARE(store->apps()[1].state, InstallationState::included);
        QCOMPARE(fixture.releaseChecker->latest.pendingCount(), 1);
        QCOMPARE(fixture.catalogue->load.callCount(), 0);

        fixture.releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);
        QCOMPARE(fixture.catalogue->load.pendingCount(), 1);

        fixture.catalogue->load.complete(
            {makePack(u"nature"_s, u"Nature & Light"_s),
             makePack(u"coast"_s, u"Coastal Memories"_s, {}, u"1.0"_s)});
        QVERIFY(store->packFlows().hasLoadedPublicCatalogue());
        QCOMPARE(store->packs()[1].installation, Launch::PackInstallation::installed);
        // The automatic sync is the last wait.
        QCOMPARE(store->accountFlows().syncState().kind, Kind::syncing);
        QVERIFY(!task.isReady());

        fixture.accountProvider->refreshCalls.complete(customer);
        QVERIFY(finishes(task));
        QCOMPARE(store->accountFlows().syncState(), AccountSyncState::synced(fixture.clock));
        QCOMPARE(store->selectedPackID(), u"nature"_s);
        QCOMPARE(fixture.snapshotCache->stored->lastSuccessfulSync, fixture.clock);
    }

    void startsWithoutOptionalServices() {
        auto configuration = LaunchConfiguration::production();
        configuration.catalogueURL.reset();
        configuration.releaseMetadataURL.reset();
        StoreFixture fixture(configuration);
        fixture.discovery->discover.answerWith({fixture.director(), fixture.creator()});
        auto store = fixture.makeStore();

        QVERIFY(finishes(store->start()));
        QVERIFY(store->packFlows().publicPacks().isEmpty());
        QVERIFY(!store->packFlows().hasLoadedPublicCatalogue());
        QCOMPARE(store->apps()[0].state, InstallationState::stale);
        QCOMPARE(fixture.catalogue->load.callCount(), 0);
        QCOMPARE(fixture.releaseChecker->latest.callCount(), 0);
        QVERIFY(!store->message());
    }

    void unreadableSnapshotStartsSignedOut() {
        StoreFixture fixture;
        fixture.snapshotCache->failsToLoad = true;
        fixture.answerStartUp();
        auto store = fixture.makeStore();

        QVERIFY(finishes(store->start()));
        QCOMPARE(store->message(),
                 u"Saved website account data could not be read. Sign in again to refresh it."_s);
        QVERIFY(!store->accountFlows().account());
        QCOMPARE(store->accountFlows().syncState(), AccountSyncState::signedOut());
        QCOMPARE(fixture.accountProvider->refreshCalls.callCount(), 0);
    }

    void demoStartOvertakesWaitingDiscovery() {
        StoreFixture fixture;
        fixture.discovery->discover.holdCalls();
        auto store = fixture.makeStore();

        auto production = store->start();
        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        const QList<InstalledApp> demoApps = store->apps();
        QCOMPARE(demoApps[0].id, u"nz.co.halvex.Pellomar"_s);

        fixture.discovery->discover.complete({fixture.missingDirector(), fixture.creator()});
        QVERIFY(finishes(production));
        QCOMPARE(store->apps(), demoApps);
        QCOMPARE(fixture.releaseChecker->latest.callCount(), 0);
    }

    void secondProductionStartDropsTheFirstsResult() {
        StoreFixture fixture;
        fixture.discovery->discover.holdCalls();
        // A function, not a copied empty optional: GCC's sanitizer build takes the latter for
        // uninitialised memory.
        fixture.releaseChecker->latest.answerWith(
            [] { return std::optional<AvailableApplicationRelease>(); });
        fixture.catalogue->load.answerWith(QList<ContentPack>{});
        fixture.installer->versions.answerWith(QHash<QString, QString>{});
        auto store = fixture.makeStore();

        auto first = store->start();
        auto second = store->start();
        fixture.discovery->discover.complete({fixture.missingDirector(), fixture.creator()});
        QVERIFY(finishes(first));
        QVERIFY(store->apps().isEmpty());
        fixture.discovery->discover.complete({fixture.director(), fixture.creator()});
        QVERIFY(finishes(second));
        QVERIFY(store->apps()[0].path.has_value());
        QCOMPARE(fixture.releaseChecker->latest.callCount(), 1);
    }

    void startsDemoScenarios_data() {
        QTest::addColumn<DemoScenario>("scenario");
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<int>("syncKind");
        QTest::newRow("signed out") << DemoScenario::signedOut << false << int(Kind::signedOut);
        QTest::newRow("combined") << DemoScenario::combined << true << int(Kind::synced);
        QTest::newRow("expired session")
            << DemoScenario::expiredSession << true << int(Kind::sessionExpired);
    }

    void startsDemoScenarios() {
        QFETCH(DemoScenario, scenario);
        QFETCH(bool, signedIn);
        QFETCH(int, syncKind);
        StoreFixture fixture;
        fixture.snapshotCache->stored = LaunchAccountSnapshot{1, customer, fixture.clock};
        auto store = fixture.makeStore();
        store->setDemoEnabled(true);
        store->setDemoScenario(scenario);

        QVERIFY(finishes(store->start()));
        // Nothing real is touched.
        QCOMPARE(fixture.discovery->discover.callCount(), 0);
        QCOMPARE(fixture.snapshotCache->loads, 0);
        QCOMPARE(store->packs(), DemoData::packs());
        QCOMPARE(store->selectedPackID(), u"demo-nature-light"_s);
        QCOMPARE(store->accountFlows().accountProvider(), fixture.demoAccountProvider);
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
};

// The automatic account sync and its 60-second window.
class AutomaticSyncTest : public QObject {
    Q_OBJECT

    std::unique_ptr<StoreFixture> m_fixture;
    std::unique_ptr<LaunchStore> m_store;

    void startSignedIn() {
        m_fixture = std::make_unique<StoreFixture>();
        m_fixture->snapshotCache->stored =
            LaunchAccountSnapshot{1, customer, m_fixture->clock.addDays(-1)};
        m_fixture->answerStartUp({}, {}, customer);
        m_store = m_fixture->makeStore();
        QVERIFY(finishes(m_store->start()));
    }

    int refreshes() const { return m_fixture->accountProvider->refreshCalls.callCount(); }

    void syncAfter(int seconds) {
        m_fixture->clock = m_fixture->clock.addSecs(seconds);
        QVERIFY(finishes(m_store->accountFlows().syncAccountIfDue()));
    }

private Q_SLOTS:
    void throttlesAttemptsToOnePerMinute() {
        startSignedIn();
        QCOMPARE(refreshes(), 1); // start-up's own attempt
        syncAfter(30);
        QCOMPARE(refreshes(), 1);
        syncAfter(31);
        QCOMPARE(refreshes(), 2);
        syncAfter(59);
        QCOMPARE(refreshes(), 2);
        syncAfter(1); // exactly 60 s after the last attempt: due again
        QCOMPARE(refreshes(), 3);
    }

    void failedAttemptsCountToo() {
        startSignedIn();
        m_fixture->accountProvider->refreshCalls.failWith(LaunchError::url(LaunchError::timedOut));
        syncAfter(61);
        QCOMPARE(refreshes(), 2);
        QCOMPARE(m_store->accountFlows().syncState().kind, Kind::failed);
        syncAfter(10);
        QCOMPARE(refreshes(), 2);
    }

    void doesNothingWhileBusyOrSignedOut() {
        startSignedIn();
        m_fixture->accountProvider->refreshCalls.holdCalls();
        m_fixture->clock = m_fixture->clock.addSecs(120);
        auto manual =
            m_store->accountFlows().refreshAccount(); // a manual refresh ignores the window
        QCOMPARE(m_store->accountFlows().syncState().kind, Kind::syncing);
        syncAfter(120);
        QCOMPARE(refreshes(), 2);
        m_fixture->accountProvider->refreshCalls.complete(customer);
        QVERIFY(finishes(manual));

        m_fixture->accountProvider->signOutCalls.holdCalls();
        auto signOut = m_store->accountFlows().signOut();
        QVERIFY(m_store->accountFlows().isSigningOut());
        syncAfter(120);
        QCOMPARE(refreshes(), 2);
        m_fixture->accountProvider->signOutCalls.complete({});
        QVERIFY(finishes(signOut));
        syncAfter(120); // signed out now
        QCOMPARE(refreshes(), 2);
    }

    void doesNothingInDemoMode() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        QVERIFY(store->accountFlows().account());
        QVERIFY(finishes(store->accountFlows().syncAccountIfDue()));
        QCOMPARE(fixture.demoAccountProvider->refreshCalls.callCount(), 0);
        QVERIFY(!store->accountFlows().lastAutomaticSyncAttempt());
    }
};

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    int status = 0;
    {
        LaunchStoreStartTest test;
        status |= QTest::qExec(&test, argc, argv);
    }
    {
        AutomaticSyncTest test;
        status |= QTest::qExec(&test, argc, argv);
    }
    return status;
}

#include "LaunchStoreStartTest.moc"
