#include "StoreDoubles.h"

#include <QSignalSpy>
#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Release = std::optional<AvailableApplicationRelease>;

namespace {

RunningApplication runningCopy(const InstalledApp& app) {
    return {4242, app.bundleIdentifier, *app.path};
}

// A Director that runs from the place discovery recorded.
InstalledApp runningDirector(StoreFixture& fixture) {
    InstalledApp director = fixture.director();
    director.isRunning = true;
    fixture.workspace->running = {runningCopy(director)};
    return director;
}

} // namespace

// The store's update flow: the release check and its decision, and an update from button to
// reopened application.
class UpdateFlowTest : public QObject {
    Q_OBJECT

    std::unique_ptr<StoreFixture> fixture;
    std::unique_ptr<LaunchStore> store;

    UpdateFlow& flow() { return store->updateFlow(); }

    // Discovery (this Director and the Creator) and the release check answer at once; the refresh
    // runs to its end.
    [[nodiscard]] bool refresh(const InstalledApp& director, Release latest) {
        fixture->discovery->discover.answerWith({director, fixture->creator()});
        fixture->releaseChecker->latest.answerWith(std::move(latest));
        return finishes(store->applicationFlows().refreshApplications());
    }

private Q_SLOTS:
    void init() {
        store.reset();
        fixture = std::make_unique<StoreFixture>();
        store = fixture->makeStore();
    }

    // Director 2.5.0 of the given build against the release the check finds.
    void decidesFromTheRelease_data() {
        QTest::addColumn<QString>("installedBuild");
        QTest::addColumn<Release>("latest");
        QTest::addColumn<InstallationState>("state");
        QTest::addColumn<QString>("buttonTitle");

        QTest::newRow("newer build")
            << u"2500"_s << Release(makeRelease(u"2.5.0"_s, u"2501"_s))
            << InstallationState::updateAvailable << u"Update to 2.5.0 build 2501"_s;
        QTest::newRow("release without build")
            << u"2500"_s << Release(makeRelease(u"2.5.0"_s)) << InstallationState::current
            << u"Update to 2.5.0"_s;
        QTest::newRow("installed build not a number")
            << u"25a"_s << Release(makeRelease(u"2.5.0"_s, u"2501"_s)) << InstallationState::stale
            << u"Update to 2.5.0 build 2501"_s;
        QTest::newRow("no applicable release")
            << u"2500"_s << Release() << InstallationState::stale << u"Update Now"_s;
    }

    void decidesFromTheRelease() {
        QFETCH(QString, installedBuild);
        QFETCH(Release, latest);
        QFETCH(InstallationState, state);
        QFETCH(QString, buttonTitle);
        fixture->clock = fixture->clock.addSecs(60);

        QVERIFY(refresh(fixture->director(u"2.5.0"_s, installedBuild), latest));
        const InstalledApp& director = store->apps()[0];
        QCOMPARE(director.state, state);
        QCOMPARE(director.availableVersion,
                 latest ? std::optional<QString>(latest->version) : std::nullopt);
        QCOMPARE(director.lastChecked, fixture->clock);
        QCOMPARE(flow().availableDirectorRelease(), latest);
        QCOMPARE(UpdateFlow::updateButtonTitle(director, flow().availableDirectorRelease()),
                 buttonTitle);
    }

    void failedCheckLeavesTheDirectorUnknown() {
        QVERIFY(refresh(fixture->director(), makeRelease(u"2.5.0"_s)));
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);

        fixture->releaseChecker->latest.failWith(LaunchError::url(LaunchError::timedOut));
        QVERIFY(finishes(flow().checkDirectorRelease()));
        QCOMPARE(store->apps()[0].state, InstallationState::stale);
        QVERIFY(!flow().availableDirectorRelease());
        QCOMPARE(store->message(), u"The Vantor Director update check could not be completed."_s);

        // A Director that is not installed stays so.
        store->setMessage(std::nullopt);
        fixture->discovery->discover.answerWith(
            QList<InstalledApp>{fixture->missingDirector(), fixture->creator()});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        QCOMPARE(store->apps()[0].state, InstallationState::notInstalled);
        QVERIFY(store->message());
    }

    void olderCheckOvertakenByANewerOneIsDropped() {
        fixture->answerStartUp({fixture->director(u"2.5.0"_s), fixture->creator()});
        fixture->releaseChecker->latest.holdCalls();
        auto first = store->start();
        auto second = store->start();
        QCOMPARE(fixture->releaseChecker->latest.pendingCount(), 2);

        fixture->releaseChecker->latest.completeNewest(makeRelease(u"2.5.0"_s));
        QVERIFY(finishes(second));
        fixture->releaseChecker->latest.complete(makeRelease(u"2.6.0"_s));
        QVERIFY(finishes(first));
        QCOMPARE(store->apps()[0].state, InstallationState::current);
        QCOMPARE(store->apps()[0].availableVersion, u"2.5.0"_s);
        QCOMPARE(flow().availableDirectorRelease(), makeRelease(u"2.5.0"_s));
    }

    void releaseIsKeptWhenTheRowIsGone() {
        QVERIFY(refresh(fixture->director(), std::nullopt));
        fixture->releaseChecker->latest.holdCalls();
        auto check = flow().checkDirectorRelease();

        // Meanwhile discovery reports no Director row at all.
        fixture->discovery->discover.answerWith(QList<InstalledApp>{fixture->creator()});
        QVERIFY(finishes(store->applicationFlows().refreshApplications()));
        fixture->releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        QVERIFY(finishes(check));
        QCOMPARE(flow().availableDirectorRelease(), makeRelease(u"2.5.0"_s));
    }

    void demoSwitchDuringTheManifestWaitStopsTheUpdate() {
        QVERIFY(refresh(fixture->director(), std::nullopt));
        fixture->releaseChecker->latest.holdCalls();
        fixture->updater->install.holdCalls();
        auto update = flow().installUpdate(store->apps()[0]);

        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        fixture->releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        QVERIFY(finishes(update));
        QCOMPARE(fixture->updater->install.callCount(), 0);
        QVERIFY(!flow().availableDirectorRelease());
        QVERIFY(!flow().updatingAppID());
        QVERIFY(!store->message());
        QCOMPARE(store->apps()[0].id, u"nz.co.halvex.Pellomar"_s);
    }

    // A release the check finds is prepared at once, at the lowest priority, while Director runs.
    void preparesAFoundReleaseInTheBackground() {
        LaunchCollaborators collaborators = fixture->collaborators();
        collaborators.preparesUpdatesInBackground = true;
        store = std::make_unique<LaunchStore>(collaborators);
        fixture->updater->prepare.holdCalls();
        QVERIFY(refresh(fixture->director(), makeRelease(u"2.5.0"_s)));
        QTRY_COMPARE(fixture->updater->prepare.pendingCount(), 1);
        QVERIFY(fixture->updater->control.background);
        fixture->updater->prepare.complete({});
    }

    // An update of a Director that is not running starts at once, at the usual priority: the user
    // waits for it. Cancel reaches the updater's download until the exchange begins; whatever way
    // it ends, the row and the message say so, and a Director that was not running stays closed.
    void updatesAStoppedDirector_data() {
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("message");
        QTest::addColumn<InstallationState>("state");
        QTest::newRow("installed")
            << u"installed"_s << u"Vantor Director 2.5.0 was installed successfully."_s
            << InstallationState::current;
        QTest::newRow("cancelled")
            << u"cancelled"_s
            << u"The Vantor Director update was cancelled. The installed version was not changed."_s
            << InstallationState::updateAvailable;
        // The updater's own words are for the log; the user gets the launcher's sentence.
        QTest::newRow("unplanned failure") << u"unplanned"_s
                                           << u"Vantor Director could not be updated: Vantor "
                                              u"Launcher could not complete the operation."_s
                                           << InstallationState::updateAvailable;
    }

    void updatesAStoppedDirector() {
        QFETCH(QString, end);
        QFETCH(QString, message);
        QFETCH(InstallationState, state);
        QVERIFY(refresh(fixture->director(), makeRelease(u"2.5.0"_s)));
        fixture->updater->prepare.holdCalls();

        flow().updateApplication(store->apps()[0]);
        QCOMPARE(fixture->updater->releases, QList{makeRelease(u"2.5.0"_s)});
        QVERIFY(!fixture->updater->control.background);
        QCOMPARE(store->message(), u"Downloading Vantor Director 2.5.0…"_s);
        QCOMPARE(flow().updatingAppID(), fixture->director().id);
        QCOMPARE(store->apps()[0].state, InstallationState::checking);
        // A second press while the update runs is ignored without a word.
        flow().updateApplication(store->apps()[0]);
        QCOMPARE(fixture->updater->prepare.callCount(), 1);

        if (end == u"installed"_s) {
            fixture->discovery->discover.answerWith(
                {fixture->director(u"2.5.0"_s), fixture->creator()});
            fixture->updater->install.answerWith(Done{});
            fixture->updater->prepare.complete({});
        } else if (end == u"cancelled"_s) {
            Transfer* transfer = flow().transfer();
            QVERIFY(transfer && transfer->cancellable());
            fixture->updater->control.committing();
            QVERIFY(!transfer->cancellable());
            flow().cancelUpdate();
            QVERIFY(!fixture->updater->control.isCancelled());
            transfer->setCancellable(true);
            flow().cancelUpdate();
            QVERIFY(fixture->updater->control.isCancelled());
            fixture->updater->prepare.fail(LaunchError::url(LaunchError::cancelled));
        } else {
            fixture->updater->prepare.fail(std::runtime_error("disk on fire"));
        }
        QTRY_VERIFY(!flow().updatingAppID());
        QVERIFY(!flow().transfer());
        QCOMPARE(store->message(), message);
        QCOMPARE(store->apps()[0].state, state);
        QCOMPARE(store->apps()[0].installedVersion,
                 end == u"installed"_s ? u"2.5.0"_s : u"2.4.1"_s);
        QVERIFY(fixture->workspace->opened.isEmpty());
    }

    void oneUpdateAtATimeWhileTheManifestLoads() {
        QVERIFY(refresh(fixture->director(), std::nullopt));
        fixture->releaseChecker->latest.holdCalls();
        fixture->updater->install.holdCalls();

        // Without a known release each press asks for the manifest first.
        flow().updateApplication(store->apps()[0]);
        flow().updateApplication(store->apps()[0]);
        QCOMPARE(fixture->releaseChecker->latest.pendingCount(), 2);
        fixture->releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));
        fixture->releaseChecker->latest.complete(makeRelease(u"2.5.0"_s));

        QCOMPARE(fixture->updater->install.callCount(), 1);
        QCOMPARE(flow().updatingAppID(), fixture->director().id);
        fixture->updater->install.fail(LaunchError::url(LaunchError::networkConnectionLost));
        QVERIFY(!flow().updatingAppID());
    }

    // Director keeps running while its update downloads and is closed only once the exchange
    // remains; the flow reopens it afterwards, even when the exchange is refused.
    void closesUpdatesAndReopensARunningDirector() {
        const InstalledApp director = runningDirector(*fixture);
        // Another copy runs from elsewhere; only the recorded one is asked to quit.
        const RunningApplication otherCopy{
            7, director.bundleIdentifier,
            QUrl::fromLocalFile(u"/home/ana/Applications/Vantor Director.app"_s)};
        fixture->workspace->running.append(otherCopy);
        QVERIFY(refresh(director, makeRelease(u"2.5.0"_s)));

        flow().updateApplication(store->apps()[0]);
        QCOMPARE(flow().runningUpdatePromptAppID(), director.id);
        QCOMPARE(fixture->updater->prepare.callCount(), 0);

        QSignalSpy queued(&flow(), &UpdateFlow::queuedUpdateApplicationChanged);
        fixture->updater->prepare.holdCalls();
        flow().confirmRunningUpdate();
        QVERIFY(!flow().runningUpdatePromptAppID());
        QCOMPARE(fixture->updater->prepare.pendingCount(), 1);
        QVERIFY(fixture->workspace->terminated.isEmpty());
        fixture->updater->prepare.complete({});
        QCOMPARE(fixture->workspace->terminated, QList{runningCopy(director)});
        QCOMPARE(store->message(), u"Closing Vantor Director before installing the update…"_s);
        QCOMPARE(queued.count(), 1);
        QCOMPARE(flow().queuedUpdateApplication()->id, director.id);

        // It refuses to quit (unsaved work): a launch elsewhere refreshes, nothing installs.
        QVERIFY(refresh(director, makeRelease(u"2.5.0"_s)));
        QCOMPARE(fixture->updater->install.callCount(), 0);

        // Quitting later installs without another prompt; a refused update reopens it anyway.
        fixture->workspace->running = {otherCopy};
        InstalledApp quit = fixture->director();
        fixture->updater->install.failWith(
            LaunchError(LaunchError::Domain::updater, 3, u"The download could not be verified."_s));
        QVERIFY(refresh(quit, makeRelease(u"2.5.0"_s)));
        QCOMPARE(fixture->updater->install.callCount(), 1);
        QVERIFY(!flow().runningUpdatePromptAppID());
        QCOMPARE(store->message(),
                 u"Vantor Director could not be updated: The download could not be verified."_s);
        QCOMPARE(store->apps()[0].state, InstallationState::updateAvailable);
        QCOMPARE(fixture->workspace->opened, QList{*director.path});
        QVERIFY(!flow().reopenAfterUpdateAppID());
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
        InstalledApp director = runningDirector(*fixture);
        QVERIFY(refresh(director, makeRelease(u"2.5.0"_s)));
        flow().updateApplication(store->apps()[0]);
        flow().confirmRunningUpdate();

        // Director quits; the refresh that follows resumes the queued update.
        fixture->workspace->running = {};
        director.isRunning = false;
        fixture->updater->install.holdCalls();
        fixture->discovery->discover.answerWith({director, fixture->creator()});
        fixture->releaseChecker->latest.answerWith(makeRelease(u"2.5.0"_s));
        auto resumed = store->applicationFlows().refreshApplications();
        QTRY_COMPARE(fixture->updater->install.pendingCount(), 1);
        QVERIFY(fixture->workspace->opened.isEmpty()); // reopened only once installed

        const bool demoInRefresh = interruption == u"demo in refresh"_s;
        if (interruption == u"demo"_s)
            store->setDemoEnabled(true);
        if (!demoInRefresh) {
            fixture->answerStartUp({director, fixture->creator()});
            QVERIFY(finishes(store->start()));
        }
        fixture->discovery->discover.holdCalls();
        fixture->updater->install.complete({});
        if (!store->demoEnabled()) {
            QTRY_COMPARE(fixture->discovery->discover.pendingCount(), 1);
            if (demoInRefresh)
                store->setDemoEnabled(true);
            fixture->discovery->discover.complete(
                {fixture->director(u"2.5.0"_s), fixture->creator()});
        }
        QVERIFY(finishes(resumed));
        QVERIFY(!flow().updatingAppID());
        QCOMPARE(store->message(), u"Vantor Director 2.5.0 was installed successfully."_s);
        QCOMPARE(fixture->workspace->opened.size(), reopened ? 1 : 0);
        QVERIFY(!flow().reopenAfterUpdateAppID());
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
        if (!hasUpdater) {
            LaunchCollaborators collaborators = fixture->collaborators();
            collaborators.applicationUpdater = nullptr;
            store = std::make_unique<LaunchStore>(collaborators);
        }
        fixture->workspace->terminateSucceeds = false;
        QVERIFY(refresh(runningDirector(*fixture), makeRelease(u"2.5.0"_s)));

        flow().updateApplication(store->apps()[0]);
        flow().confirmRunningUpdate();
        QCOMPARE(store->message(), message);
        QCOMPARE(fixture->workspace->terminated.size(), hasUpdater ? 1 : 0);
        QVERIFY(!flow().queuedUpdateApplication());
        QVERIFY(!flow().reopenAfterUpdateAppID());
        QVERIFY(!flow().runningUpdatePromptAppID());
    }
};

QTEST_GUILESS_MAIN(UpdateFlowTest)
#include "UpdateFlowTest.moc"
