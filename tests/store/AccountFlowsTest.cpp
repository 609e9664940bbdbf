#include "StoreDoubles.h"
#include "account/FileAccountSnapshotCache.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;
using Kind = AccountSyncState::Kind;

namespace {

const WebsiteAccount customer{u"cust-42"_s, u"Ana Example"_s, u"ana@example.com"_s};
const QString refreshUnavailable =
    u"Website account refresh was unavailable. Your installed applications were not changed."_s;

} // namespace

// Sign-in, refresh and sign-out against a scripted website, including what happens when flows
// overlap at their waits.
class AccountFlowsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<StoreFixture> m_fixture;
    std::unique_ptr<LaunchStore> m_store;

    // A production store after start-up, signed in (with a saved snapshot) or not; the snapshot
    // in memory or in a real file.
    void startStore(bool signedIn, bool snapshotOnDisk = false) {
        m_fixture = std::make_unique<StoreFixture>();
        auto collaborators = m_fixture->collaborators();
        if (snapshotOnDisk)
            collaborators.snapshotCache =
                std::make_shared<FileAccountSnapshotCache>(snapshotFile());
        if (signedIn)
            collaborators.snapshotCache->save(
                LaunchAccountSnapshot{1, customer, m_fixture->clock.addDays(-1)});
        m_fixture->answerStartUp({}, {makePack(u"p1"_s, u"First"_s)}, customer);
        m_store = std::make_unique<LaunchStore>(collaborators);
        QVERIFY(finishes(m_store->start()));
        m_fixture->accountProvider->refreshCalls.holdCalls();
        m_fixture->accountProvider->signInCalls.holdCalls();
        m_fixture->accountProvider->signOutCalls.holdCalls();
    }

    QString snapshotFile() const {
        return m_fixture->folder.filePath(u"website-account-snapshot.json"_s);
    }

    auto& provider() { return *m_fixture->accountProvider; }
    AccountFlows& flows() { return m_store->accountFlows(); }

    [[nodiscard]] bool syncAfter(int seconds) {
        m_fixture->clock = m_fixture->clock.addSecs(seconds);
        return finishes(flows().syncAccountIfDue());
    }

private Q_SLOTS:
    // A failed sign-in is reported and saves nothing; a good one applies and saves the account.
    void signInReportsFailuresThenAppliesAndSavesTheAccount() {
        startStore(false);
        auto failing = flows().signIn();
        provider().signInCalls.fail(LaunchError::notConfigured(u"Website account sign-in"_s));
        QVERIFY(finishes(failing));
        const QString text = u"Website account sign-in is not configured in this build."_s;
        QCOMPARE(flows().syncState(), AccountSyncState::failed(text, std::nullopt));
        QCOMPARE(m_store->message(), text);

        auto blank = flows().signIn();
        provider().signInCalls.complete(WebsiteAccount{u"  "_s, u"Nobody"_s, {}});
        QVERIFY(finishes(blank));
        QVERIFY(!flows().account());
        QCOMPARE(flows().syncState(),
                 AccountSyncState::failed(u"The website returned an invalid account identity."_s,
                                          std::nullopt));
        QVERIFY(!m_fixture->snapshotCache->stored);

        m_store->setMessage(std::nullopt);
        auto task = flows().signIn();
        QCOMPARE(flows().syncState().kind, Kind::signingIn);
        QCOMPARE(m_fixture->snapshotCache->clears, 3);
        QVERIFY(finishes(flows().signIn())); // pressed twice: one web sign-in
        QCOMPARE(provider().signInCalls.callCount(), 3);
        provider().signInCalls.complete(customer);
        QVERIFY(finishes(task));
        QCOMPARE(flows().account(), customer);
        QCOMPARE(flows().syncState(), AccountSyncState::synced(m_fixture->clock));
        QCOMPARE(m_fixture->snapshotCache->stored->account, customer);
        QCOMPARE(m_store->selectedPackID(), u"p1"_s);
        QVERIFY(!m_store->message());
    }

    void demoSwitchDropsAWaitingSignIn() {
        startStore(false);
        auto signIn = flows().signIn();
        m_store->setDemoEnabled(true);
        QVERIFY(finishes(m_store->start()));
        provider().signInCalls.complete(customer);
        QVERIFY(finishes(signIn));
        QCOMPARE(flows().account()->id, u"demo-customer"_s);
        QVERIFY(!m_fixture->snapshotCache->stored);
    }

    void refreshClassifiesFailures_data() {
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("expected");
        QTest::newRow("offline after a sync")
            << int(LaunchError::notConnectedToInternet) << int(Kind::offline);
        QTest::newRow("session over")
            << int(LaunchError::userAuthenticationRequired) << int(Kind::sessionExpired);
        QTest::newRow("other") << int(LaunchError::badServerResponse) << int(Kind::failed);
    }

    void refreshClassifiesFailures() {
        QFETCH(int, code);
        QFETCH(int, expected);
        startStore(true);
        const auto lastSync = flows().lastSuccessfulSync();
        auto task = flows().refreshAccount();
        provider().refreshCalls.fail(LaunchError::url(LaunchError::UrlCode(code)));
        QVERIFY(finishes(task));
        QCOMPARE(int(flows().syncState().kind), expected);
        QCOMPARE(m_store->message(), refreshUnavailable);
        // Nothing is removed by a failed refresh.
        QCOMPARE(flows().account(), customer);
        QVERIFY(m_fixture->snapshotCache->stored);
        QCOMPARE(flows().syncState().date, lastSync);
    }

    // An answer for another account is refused and changes nothing; an offline copy that cannot
    // be saved is reported, though the refresh itself worked.
    void refreshRefusesAnotherAccountAndReportsAnUnsavedCopy() {
        startStore(true);
        const auto saved = m_fixture->snapshotCache->stored;
        auto task = flows().refreshAccount();
        provider().refreshCalls.complete(WebsiteAccount{u"someone-else"_s, u"Other"_s, {}});
        QVERIFY(finishes(task));
        QCOMPARE(flows().account(), customer);
        QCOMPARE(m_fixture->snapshotCache->stored, saved);
        QCOMPARE(flows().syncState(),
                 AccountSyncState::failed(
                     u"The account changed. Sign out before signing in to another account."_s,
                     flows().lastSuccessfulSync()));

        m_fixture->snapshotCache->failsToSave = true;
        provider().refreshCalls.answerWith(customer);
        QVERIFY(finishes(flows().refreshAccount()));
        QCOMPARE(flows().syncState().kind, Kind::synced);
        QCOMPARE(m_store->message(),
                 u"Account refreshed, but its offline copy could not be saved."_s);
    }

    void signOutClearsBeforeAskingTheWebsite() {
        startStore(true);
        auto refresh = flows().refreshAccount();
        auto task = flows().signOut();
        QVERIFY(!flows().account());
        QVERIFY(!m_fixture->snapshotCache->stored);
        QVERIFY(flows().isSigningOut());

        QVERIFY(finishes(flows().signIn()));
        QCOMPARE(m_store->message(),
                 u"Sign-out is still finishing. Please try signing in again shortly."_s);

        // The refresh that started before the sign-out returns late and is dropped.
        provider().refreshCalls.complete(customer);
        QVERIFY(finishes(refresh));
        QVERIFY(!flows().account());
        provider().signOutCalls.complete({});
        QVERIFY(finishes(task));
        QVERIFY(!flows().isSigningOut());
        QCOMPARE(m_store->message(), u"You are signed out of Vantor Launcher. Installed "
                                     u"applications and content were not changed."_s);
    }

    void aThrowingSignOutStillEnds() {
        startStore(true);
        provider().signOutCalls.failWith(std::runtime_error("socket"));
        m_store->requestSignOut();
        QTRY_COMPARE(m_store->message(), u"Vantor Launcher could not complete the operation."_s);
        QVERIFY(!flows().isSigningOut());
        QVERIFY(!flows().account());

        // Signing in is possible again at once.
        auto signIn = flows().signIn();
        QCOMPARE(flows().syncState().kind, Kind::signingIn);
        QCOMPARE(provider().signInCalls.pendingCount(), 1);
        provider().signInCalls.complete(customer);
        QVERIFY(finishes(signIn));
    }

    // Signing out and switching accounts go ahead only once the offline copy is gone. With the real
    // file, so that a removal failing anywhere on the way counts: everything stays as it was, the
    // website is not asked, and the message says that nothing was completed.
    void keepsTheAccountWhenTheSnapshotCannotBeRemoved_data() {
        QTest::addColumn<bool>("signingOut");
        QTest::newRow("sign-out") << true;
        QTest::newRow("sign-in to another account") << false;
    }

    void keepsTheAccountWhenTheSnapshotCannotBeRemoved() {
        QFETCH(bool, signingOut);
        startStore(true, true);
        const AccountSyncState state = flows().syncState();
        // A folder in the file's place resists removal whatever the permissions.
        QVERIFY(QFile::remove(snapshotFile()) && QDir().mkpath(snapshotFile() + u"/kept"_s));

        QVERIFY(finishes(signingOut ? flows().signOut() : flows().signIn()));
        QCOMPARE(
            m_store->message(),
            u"Saved account data could not be removed. Sign-out or account switching was not completed. Please try again."_s);
        QCOMPARE(flows().account(), customer);
        QCOMPARE(flows().syncState(), state);
        QCOMPARE(provider().signInCalls.callCount() + provider().signOutCalls.callCount(), 0);
        QVERIFY(QFileInfo::exists(snapshotFile() + u"/kept"_s));
    }

    // The automatic sync tries at most once a minute, whether or not the last attempt worked.
    void automaticSyncIsThrottled_data() {
        QTest::addColumn<bool>("failing");
        QTest::newRow("succeeding") << false;
        QTest::newRow("failing") << true;
    }

    void automaticSyncIsThrottled() {
        QFETCH(bool, failing);
        startStore(true);
        QCOMPARE(provider().refreshCalls.callCount(), 1); // start-up's own attempt
        if (failing)
            provider().refreshCalls.failWith(LaunchError::url(LaunchError::timedOut));
        else
            provider().refreshCalls.answerWith(customer);
        QVERIFY(syncAfter(30));
        QCOMPARE(provider().refreshCalls.callCount(), 1);
        QVERIFY(syncAfter(31));
        QCOMPARE(provider().refreshCalls.callCount(), 2);
        QCOMPARE(flows().syncState().kind, failing ? Kind::failed : Kind::synced);
        QVERIFY(syncAfter(59));
        QCOMPARE(provider().refreshCalls.callCount(), 2);
        QVERIFY(syncAfter(1)); // exactly 60 s after the last attempt: due again
        QCOMPARE(provider().refreshCalls.callCount(), 3);
    }

    void automaticSyncWaitsWhileBusyAndStopsWhenSignedOut() {
        startStore(true);
        m_fixture->clock = m_fixture->clock.addSecs(120);
        auto manual = flows().refreshAccount(); // ignores the window
        QCOMPARE(flows().syncState().kind, Kind::syncing);
        QVERIFY(syncAfter(120));
        QCOMPARE(provider().refreshCalls.callCount(), 2);
        provider().refreshCalls.complete(customer);
        QVERIFY(finishes(manual));

        auto signOut = flows().signOut();
        QVERIFY(flows().isSigningOut());
        QVERIFY(syncAfter(120));
        provider().signOutCalls.complete({});
        QVERIFY(finishes(signOut));
        QVERIFY(syncAfter(120)); // signed out now
        QCOMPARE(provider().refreshCalls.callCount(), 2);
    }

    void signInWithoutAProviderSaysSo() {
        StoreFixture fixture;
        auto collaborators = fixture.collaborators();
        collaborators.productionAccountProvider = nullptr;
        LaunchStore store(collaborators);
        QVERIFY(finishes(store.accountFlows().signIn()));
        QCOMPARE(store.message(), u"Website account sign-in is not configured in this build."_s);
        QCOMPARE(store.accountFlows().syncState(), AccountSyncState::signedOut());
    }

    // Nor does the automatic sync run.
    void demoModeLeavesNoTraceOnDisk() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        store->setDemoEnabled(true);
        store->setDemoScenario(Launch::DemoScenario::signedOut);
        QVERIFY(finishes(store->start()));
        fixture.demoAccountProvider->signInCalls.answerWith(customer);
        fixture.demoAccountProvider->signOutCalls.answerWith(Done{});
        QVERIFY(finishes(store->accountFlows().signIn()));
        fixture.clock = fixture.clock.addSecs(120);
        QVERIFY(finishes(store->accountFlows().syncAccountIfDue()));
        QCOMPARE(fixture.demoAccountProvider->refreshCalls.callCount(), 0);
        QVERIFY(!store->accountFlows().lastAutomaticSyncAttempt());
        QVERIFY(finishes(store->accountFlows().signOut()));
        QCOMPARE(fixture.snapshotCache->loads + fixture.snapshotCache->saves +
                     fixture.snapshotCache->clears,
                 0);
    }
};

QTEST_GUILESS_MAIN(AccountFlowsTest)
#include "AccountFlowsTest.moc"
