#include "StoreDoubles.h"
#include "foundation/DemoData.h"

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

    // A second start() overtakes the first, whether it switched to demo mode or not: what the
    // first one's discovery finds later is dropped.
    void secondStartDropsTheFirstsResult_data() {
        QTest::addColumn<bool>("demo");
        QTest::newRow("demo") << true;
        QTest::newRow("production") << false;
    }

    void secondStartDropsTheFirstsResult() {
        QFETCH(bool, demo);
        StoreFixture fixture;
        fixture.answerStartUp();
        fixture.discovery->discover.holdCalls();
        auto store = fixture.makeStore();

        auto first = store->start();
        store->setDemoEnabled(demo);
        auto second = store->start();
        if (demo)
            QVERIFY(finishes(second));
        const QList<InstalledApp> before = store->apps();
        QCOMPARE(before.isEmpty(), !demo);
        fixture.discovery->discover.complete({fixture.missingDirector(), fixture.creator()});
        QVERIFY(finishes(first));
        QCOMPARE(store->apps(), before);
        if (!demo) {
            fixture.discovery->discover.complete({fixture.director(), fixture.creator()});
            QVERIFY(finishes(second));
            QVERIFY(store->apps()[0].path.has_value());
        }
        QCOMPARE(fixture.releaseChecker->latest.callCount(), demo ? 0 : 1);
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

QTEST_GUILESS_MAIN(LaunchStoreStartTest)
#include "LaunchStoreStartTest.moc"
