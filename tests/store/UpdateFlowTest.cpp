#include "StoreDoubles.h"

#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Release = std::optional<AvailableApplicationRelease>;

namespace {

RunningApplication runningCopy(const InstalledApp& app, qint64 processId = 4242) {
    return {processId, app.bundleIdentifier, *app.path};
}

} // namespace

// An updater that fails in a way nobody planned for.
class BrokenUpdater : public ApplicationUpdating {
public:
    QCoro::Task<> installUpdate(AvailableApplicationRelease, QUrl, QStringList,
                                TransferControl) override {
        throw std::runtime_error("disk on fire");
        co_return;
    }
    QCoro::Task<PreparedRelease> prepareUpdate(AvailableApplicationRelease, QUrl, QStringList,
                                               TransferControl) override {
        throw std::runtime_error("disk on fire");
        co_return PreparedRelease{};
    }
    QCoro::Task<std::optional<PreparedRelease>> preparedRelease(AvailableApplicationRelease,
                                                                QUrl) override {
        co_return std::nullopt;
    }
    QCoro::Task<> installPrepared(PreparedRelease, QUrl, QStringList) override {
        throw std::runtime_error("disk on fire");
        co_return;
    }
    QCoro::Task<> discardPrepared(QUrl) override { co_return; }
};

// The store's update flow: the release check and its decision, and an update from button to
// reopened application.
class UpdateFlowTest : public QObject {
    Q_OBJECT

private:
    // Discovery (this Director and the Creator) and the release check answer at once;
    // refreshApplications() runs to its end.
    [[nodiscard]] static bool refresh(StoreFixture& fixture, LaunchStore& store,
                                      const InstalledApp& director, Release latest) {
        fixture.discovery->discover.answerWith({director, fixture.creator()});
        fixture.releaseChecker->latest.answerWith(std::move(latest));
        auto task = store.applicationFlows().refreshApplications();
        return finishes(task);
    }

private Q_SLOTS:
    void decidesFromTheRelease_data() {
        QTest::addColumn<QString>("installedVersion");
        QTest::addColumn<QString>("installedBuild");
        QTest::addColumn<Release>("latest");
        QTest::addColumn<InstallationState>("state");
        QTest::addColumn<QString>("buttonTitle");

        QTest::newRow("newer build")
            << u"2.5.0"_s << u"2500"_s << Release(makeRelease(u"2.5.0"_s, u"2501"_s))
            << InstallationState::updateAvailable << u"Update to 2.5.0 build 2501"_s;
        QTest::newRow("release without build")
            << u"2.5.0"_s << u"2500"_s << Release(makeRelease(u"2.5.0"_s))
            << InstallationState::current << u"Update to 2.5.0"_s;
        QTest::newRow("installed build not a number")
            << u"2.5.0"_s << u"25a"_s << Release(makeRelease(u"2.5.0"_s, u"2501"_s))
            << InstallationState::stale << u"Update to 2.5.0 build 2501"_s;
        QTest::newRow("no applicable release")
            << u"2.5.0"_s << u"2500"_s << Release() << InstallationState::stale << u"Update Now"_s;
    }

    void decidesFromTheRelease() {
        QFETCH(QString, installedVersion);
        QFETCH(QString, installedBuild);
        QFETCH(Release, latest);
        QFETCH(InstallationState, state);
        QFETCH(QString, buttonTitle);
        StoreFixture fixture;
        auto store = fixture.makeStore();
        fixture.clock = fixture.clock.addSecs(60);

        QVERIFY(
            refresh(fixture, *store, fixture.director(installedVersion, installedBuild), latest));
        const InstalledApp& director = store->apps()[0];
        QCOMPARE(director.state, state);
        QCOMPARE(director.availableVersion,
                 latest ? std::optional<QString>(latest->version) : std::nullopt);
        QCOMPARE(director.lastChecked, fixture.clock);
        QCOMPARE(store->updateFlow().availableDirectorRelease(), latest);
        QCOMPARE(
            UpdateFlow::updateButtonTitle(director, store->updateFlow().availableDirectorRelease()),
            buttonTitle);
    }

    void failedCheckLeavesTheDirectorUnknown() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        QVERIFY(refresh(fixture, *store, fixture.director(u"2.4.1"_s), makeRelease(u"2.5.0"_s)));
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);

        fixture.releaseChecker->latest.failWith(LaunchError::url(LaunchError::timedOut));
        auto check = store->updateFlow().checkDirectorRelease();
        QVERIFY(finishes(check));
        QCOMPARE(store->apps()[0].state, InstallationState::stale);
        QVERIFY(!store->updateFlow().availableDirectorRelease());
        QCOMPARE(store->message(), u"The Vantor Director update check could not be completed."_s);

        // A Director that is not installed stays so.
        store->setMessage(std::nullopt);
        fixture.discovery->discover.answerWith(
            QList<InstalledApp>{fixture.missingDirector(), fixture.creator()});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QCOMPARE(store->apps()[0].state, InstallationState::notInstalled);
        QVERIFY(store->message());
    }

    void olderCheckOvertakenByANewerOneIsDropped() {
        StoreFixture fixture;
        fixture.answerStartUp({fixture.director(u"2.5.0"_s), fixture.creator()});
        fixture.releaseChecker->latest.holdCalls();
        auto store = fixture.makeStore();
        auto first = store->start();
        auto second = store->start();
        QCOMPARE(fixture.releaseChecker->latest.pendingCount(), 2);

        fixture.releaseChecker->latest.completeNewest(makeRelease(u"2.5.0"_s));
        QVERIFY(finishes(second));
        fixture.releaseChecker->latest.complete(makeRelease(u"2.6.0"_s));
        QVERIFY(finishes(first));
        QCOMPARE(store->apps()[0].state, InstallationState::current);
        QCOMPARE(store->apps()[0].availableVersion, u"2.5.0"_s);
        QCOMPARE(store->updateFlow().availableDirectorRelease(), makeRelease(u"2.5.0"_s));
    }

    void releaseIsKeptWhenTheRowIsGone() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        QVERIFY(refresh(fixture, *store, fixture.director(u"2.4.1"_s), std::nullopt));
        fixture.releaseChecker->latest.holdCalls();
        auto check = store->updateFlow().checkDirectorRelease();

        // Meanwhile discovery reports no Director row at all.
        fixture.discovery->discover.answerWith(QList<InstalledApp>{fixture.creator()});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        fixture.releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        QVERIFY(finishes(check));
        QCOMPARE(store->updateFlow().availableDirectorRelease(), makeRelease(u"2.5.0"_s));
    }

    void demoSwitchDuringTheManifestWaitStopsTheUpdate() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        QVERIFY(refresh(fixture, *store, fixture.director(u"2.4.1"_s), std::nullopt));
        fixture.releaseChecker->latest.holdCalls();
        fixture.updater->install.holdCalls();
        auto update = store->updateFlow().installUpdate(store->apps()[0]);

        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        fixture.releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        QVERIFY(finishes(update));
        QCOMPARE(fixture.updater->install.callCount(), 0);
        QVERIFY(!store->updateFlow().availableDirectorRelease());
        QVERIFY(!store->updateFlow().updatingAppID());
        QVERIFY(!store->message());
        QCOMPARE(store->apps()[0].id, u"nz.co.halvex.Pellomar"_s);
    }

    // A release the check finds is prepared at once, at the lowest priority, while Director runs.
    void preparesAFoundReleaseInTheBackground() {
        StoreFixture fixture;
        LaunchCollaborators collaborators = fixture.collaborators();
        collaborators.preparesUpdatesInBackground = true;
        auto store = std::make_unique<LaunchStore>(std::move(collaborators));
        fixture.updater->prepare.holdCalls();
        QVERIFY(refresh(fixture, *store, fixture.director(u"2.4.1"_s), makeRelease(u"2.5.0"_s)));
        QTRY_COMPARE(fixture.updater->prepare.pendingCount(), 1);
        QVERIFY(fixture.updater->control.background);
        fixture.updater->prepare.complete({});
    }

    void updatesAStoppedDirectorAtOnce() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        const InstalledApp director = fixture.director(u"2.4.1"_s);
        QVERIFY(refresh(fixture, *store, director, makeRelease(u"2.5.0"_s)));
        fixture.updater->prepare.holdCalls();

        store->updateFlow().updateApplication(store->apps()[0]);
        QCOMPARE(fixture.updater->prepare.pendingCount(), 1);
        QCOMPARE(fixture.updater->releases, QList{makeRelease(u"2.5.0"_s)});
        // The user waits for this one: it runs at the usual priority.
        QVERIFY(!fixture.updater->control.background);
        QCOMPARE(store->message(), u"Downloading Vantor Director 2.5.0…"_s);
        QCOMPARE(store->updateFlow().updatingAppID(), director.id);
        QCOMPARE(store->apps()[0].state, InstallationState::checking);

        // A second press while the update runs is ignored without a word.
        store->updateFlow().updateApplication(store->apps()[0]);
        QCOMPARE(fixture.updater->prepare.callCount(), 1);

        fixture.discovery->discover.answerWith(
            QList<InstalledApp>{fixture.director(u"2.5.0"_s), fixture.creator()});
        fixture.updater->install.answerWith(Done{});
        fixture.updater->prepare.complete({});
        QTRY_VERIFY_WITH_TIMEOUT(!store->updateFlow().updatingAppID(), 5000);
        QCOMPARE(store->message(), u"Vantor Director 2.5.0 was installed successfully."_s);
        QCOMPARE(store->apps()[0].installedVersion, u"2.5.0"_s);
        QCOMPARE(store->apps()[0].state, InstallationState::current);
        // It was not running, so it is not opened.
        QVERIFY(fixture.workspace->opened.isEmpty());
    }

    // Cancel reaches the updater's download; until the exchange begins, the installed Director
    // stays and the row offers the update again. Past that point Cancel is no longer offered.
    void cancelledUpdateLeavesTheInstalledDirector() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        QVERIFY(refresh(fixture, *store, fixture.director(u"2.4.1"_s), makeRelease(u"2.5.0"_s)));
        fixture.updater->prepare.holdCalls();
        store->updateFlow().updateApplication(store->apps()[0]);
        Transfer* transfer = store->updateFlow().transfer();
        QVERIFY(transfer && transfer->cancellable());

        fixture.updater->control.committing();
        QVERIFY(!transfer->cancellable());
        store->updateFlow().cancelUpdate();
        QVERIFY(!fixture.updater->control.isCancelled());
        transfer->setCancellable(true);
        store->updateFlow().cancelUpdate();
        QVERIFY(fixture.updater->control.isCancelled());

        fixture.updater->prepare.fail(LaunchError::url(LaunchError::cancelled));
        QTRY_VERIFY_WITH_TIMEOUT(!store->updateFlow().updatingAppID(), 5000);
        QVERIFY(!store->updateFlow().transfer());
        QCOMPARE(
            store->message(),
            u"The Vantor Director update was cancelled. The installed version was not changed."_s);
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);
    }

    void oneUpdateAtATimeWhileTheManifestLoads() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        QVERIFY(refresh(fixture, *store, fixture.director(u"2.4.1"_s), std::nullopt));
        fixture.releaseChecker->latest.holdCalls();
        fixture.updater->install.holdCalls();

        // Without a known release each press asks for the manifest first.
        store->updateFlow().updateApplication(store->apps()[0]);
        store->updateFlow().updateApplication(store->apps()[0]);
        QCOMPARE(fixture.releaseChecker->latest.pendingCount(), 2);
        fixture.releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        fixture.releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));

        QCOMPARE(fixture.updater->install.callCount(), 1);
        QCOMPARE(store->updateFlow().updatingAppID(), fixture.director().id);
        fixture.updater->install.fail(LaunchError::url(LaunchError::networkConnectionLost));
        QVERIFY(!store->updateFlow().updatingAppID());
    }

    void unplannedUpdaterFailureStillEndsTheUpdate() {
        StoreFixture fixture;
        LaunchCollaborators collaborators = fixture.collaborators();
        collaborators.applicationUpdater = std::make_shared<BrokenUpdater>();
        LaunchStore store(collaborators);
        QVERIFY(refresh(fixture, store, fixture.director(u"2.4.1"_s), makeRelease(u"2.5.0"_s)));

        store.updateFlow().updateApplication(store.apps()[0]);
        QTRY_VERIFY_WITH_TIMEOUT(!store.updateFlow().updatingAppID() &&
                                     store.message() != u"Downloading Vantor Director 2.5.0…"_s,
                                 5000);
        // Its own words are for the log; the user gets the launcher's sentence.
        QCOMPARE(store.message(), u"Vantor Director could not be updated: Vantor Launcher could "
                                  u"not complete the operation."_s);
        QCOMPARE(store.apps()[0].state, InstallationState::updateAvailable);
    }

    void closesUpdatesAndReopensARunningDirector() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        InstalledApp director = fixture.director(u"2.4.1"_s);
        director.isRunning = true;
        director.state = InstallationState::running;
        // Another copy runs from elsewhere; only the recorded one is asked to quit.
        const RunningApplication otherCopy{
            7, director.bundleIdentifier,
            QUrl::fromLocalFile(u"/home/ana/Applications/Vantor Director.app"_s)};
        fixture.workspace->running = {runningCopy(director), otherCopy};
        QVERIFY(refresh(fixture, *store, director, makeRelease(u"2.5.0"_s)));

        store->updateFlow().updateApplication(store->apps()[0]);
        QCOMPARE(store->updateFlow().runningUpdatePromptAppID(), director.id);
        QCOMPARE(fixture.updater->install.callCount(), 0);

        store->updateFlow().confirmRunningUpdate();
        QVERIFY(!store->updateFlow().runningUpdatePromptAppID());
        QCOMPARE(fixture.workspace->terminated, QList{runningCopy(director)});
        QCOMPARE(store->message(), u"Closing Vantor Director before installing the update…"_s);

        // It refuses to quit (unsaved work): a launch elsewhere refreshes, nothing installs.
        QVERIFY(refresh(fixture, *store, director, makeRelease(u"2.5.0"_s)));
        QCOMPARE(fixture.updater->install.callCount(), 0);

        // Quitting later installs without another prompt; a refused update reopens it anyway.
        fixture.workspace->running = {otherCopy};
        InstalledApp quit = director;
        quit.isRunning = false;
        quit.state = InstallationState::stale;
        fixture.updater->install.failWith(
            LaunchError(LaunchError::Domain::updater, 3, u"The download could not be verified."_s));
        QVERIFY(refresh(fixture, *store, quit, makeRelease(u"2.5.0"_s)));
        QCOMPARE(fixture.updater->install.callCount(), 1);
        QVERIFY(!store->updateFlow().runningUpdatePromptAppID());
        QCOMPARE(store->message(),
                 u"Vantor Director could not be updated: The download could not be verified."_s);
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);
        QCOMPARE(fixture.workspace->opened, QList{*director.path});
        QVERIFY(!store->updateFlow().reopenAfterUpdateAppID());
    }

    // Closing the window to the tray and showing it again runs start() while an update installs:
    // the outcome is still told and the Director this flow closed reopens. A mode switch, at any
    // point up to the reopening, forgets the reopen instead.
    void updateOutcomeOutlivesAStart_data() {
        QTest::addColumn<QString>("interruption");
        QTest::addColumn<bool>("reopened");
        QTest::newRow("start while installing") << u"start"_s << true;
        QTest::newRow("demo while installing") << u"demo"_s << false;
        QTest::newRow("demo during the closing refresh") << u"demo in refresh"_s << false;
    }

    void updateOutcomeOutlivesAStart() {
        QFETCH(QString, interruption);
        QFETCH(bool, reopened);
        StoreFixture fixture;
        auto store = fixture.makeStore();
        InstalledApp director = fixture.director(u"2.4.1"_s);
        director.isRunning = true;
        fixture.workspace->running = {runningCopy(director)};
        QVERIFY(refresh(fixture, *store, director, makeRelease(u"2.5.0"_s)));
        store->updateFlow().updateApplication(store->apps()[0]);
        store->updateFlow().confirmRunningUpdate();

        // Director quits; the refresh that follows resumes the queued update.
        fixture.workspace->running = {};
        director.isRunning = false;
        fixture.updater->install.holdCalls();
        fixture.discovery->discover.answerWith({director, fixture.creator()});
        fixture.releaseChecker->latest.answerWith(makeRelease(u"2.5.0"_s));
        auto resumed = store->applicationFlows().refreshApplications();
        QTRY_COMPARE(fixture.updater->install.pendingCount(), 1);

        if (interruption == u"demo"_s)
            store->setDemoEnabled(true);
        if (interruption != u"demo in refresh"_s) {
            fixture.answerStartUp({director, fixture.creator()});
            QVERIFY(finishes(store->start()));
        }
        fixture.discovery->discover.holdCalls();
        fixture.updater->install.complete({});
        if (interruption == u"demo in refresh"_s) {
            QTRY_COMPARE(fixture.discovery->discover.pendingCount(), 1);
            store->setDemoEnabled(true);
            fixture.discovery->discover.complete({fixture.director(u"2.5.0"_s), fixture.creator()});
        } else if (!store->demoEnabled()) {
            QTRY_COMPARE(fixture.discovery->discover.pendingCount(), 1);
            fixture.discovery->discover.complete({fixture.director(u"2.5.0"_s), fixture.creator()});
        }
        QVERIFY(finishes(resumed));
        QVERIFY(!store->updateFlow().updatingAppID());
        QCOMPARE(store->message(), u"Vantor Director 2.5.0 was installed successfully."_s);
        QCOMPARE(fixture.workspace->opened.size(), reopened ? 1 : 0);
        QVERIFY(!store->updateFlow().reopenAfterUpdateAppID());
    }

    // Nothing is queued for a running Director that this build cannot update or cannot close.
    void runningDirectorThatCannotBeUpdatedIsNotQueued_data() {
        QTest::addColumn<bool>("hasUpdater");
        QTest::addColumn<QString>("message");
        QTest::newRow("no updater: not even asked to quit")
            << false
            << u"Vantor Director could not be updated: Verified application updates is not "
               u"configured in this build."_s;
        QTest::newRow("cannot be asked to quit")
            << true
            << u"Vantor Director could not be closed automatically. Quit it normally, then try "
               u"the update again."_s;
    }

    void runningDirectorThatCannotBeUpdatedIsNotQueued() {
        QFETCH(bool, hasUpdater);
        QFETCH(QString, message);
        StoreFixture fixture;
        LaunchCollaborators collaborators = fixture.collaborators();
        if (!hasUpdater)
            collaborators.applicationUpdater = nullptr;
        LaunchStore store(collaborators);
        InstalledApp director = fixture.director(u"2.4.1"_s);
        director.isRunning = true;
        fixture.workspace->running = {runningCopy(director)};
        fixture.workspace->terminateSucceeds = false;
        QVERIFY(refresh(fixture, store, director, makeRelease(u"2.5.0"_s)));

        store.updateFlow().updateApplication(store.apps()[0]);
        store.updateFlow().confirmRunningUpdate();
        QCOMPARE(store.message(), message);
        QCOMPARE(fixture.workspace->terminated.size(), hasUpdater ? 1 : 0);
        QVERIFY(!store.updateFlow().queuedUpdateApplication());
        QVERIFY(!store.updateFlow().reopenAfterUpdateAppID());
        QVERIFY(!store.updateFlow().runningUpdatePromptAppID());
    }
};

QTEST_GUILESS_MAIN(UpdateFlowTest)
#include "UpdateFlowTest.moc"
