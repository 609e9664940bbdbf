#include "StoreDoubles.h"
#include "UpdateFixture.h"
#include "applications/ApplicationUpdaterError.h"
#include "applications/DirectorReleaseChecker.h"
#include "applications/ProductionApplicationDiscovery.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

namespace {

const QString manifestPath = u"/updates/macos.json"_s;

} // namespace

// The whole update of a running Director through the store, with every part real: discovery of
// the installed bundle and its running process, the release manifest and the archive on an HTTPS
// server, the polite quit, the verified installation, the refresh and the reopening.
class UpdateEndToEndTest : public QObject {
    Q_OBJECT

private:
    struct Launcher {
        std::unique_ptr<StoreFixture> doubles;
        std::unique_ptr<LaunchStore> store;
    };

    // A store whose application services are the production ones, pointed at the fixture.
    static Launcher makeLauncher(UpdateFixture& fixture) {
        const QUrl manifestURL = fixture.server.url(manifestPath);
        LaunchConfiguration configuration = UpdateFixture::configuration();
        configuration.releaseMetadataURL = manifestURL;
        configuration.catalogueURL.reset();
        Launcher launcher{std::make_unique<StoreFixture>(configuration), nullptr};
        launcher.doubles->installer->versions.answerWith(QHash<QString, QString>{});

        const auto workspace = std::make_shared<LinuxWorkspace>();
        LaunchCollaborators services = launcher.doubles->collaborators();
        services.workspace = workspace;
        services.discovery = std::make_shared<ProductionApplicationDiscovery>(
            configuration, workspace,
            ProductionApplicationDiscovery::Locations{fixture.root.filePath(u"system"_s),
                                                      fixture.root.filePath(u"home"_s)});
        services.releaseChecker = std::make_shared<DirectorReleaseChecker>(
            manifestURL, fixture.server.makeNetworkAccess());
        services.applicationUpdater = fixture.makeUpdater(workspace);
        launcher.store = std::make_unique<LaunchStore>(std::move(services));
        launcher.store->setFollowsWorkspace(true);
        return launcher;
    }

    static void publishManifest(UpdateFixture& fixture) {
        const QByteArray manifest = "{\"direct\": {\"version\": \"2.5.0\", \"build\": 2500, "
                                    "\"downloadURL\": \"" +
                                    fixture.server.url(UpdateFixture::downloadPath).toEncoded() +
                                    "\"}}";
        fixture.server.reply(u"GET"_s, manifestPath, {200, manifest});
    }

    // Starts the launcher on a running Director 2.4.1 and confirms the update prompt.
    static void confirmUpdateOfRunningDirector(UpdateFixture& fixture, LaunchStore& store) {
        QVERIFY(fixture.startInstalledCopy() > 0);
        QTRY_COMPARE_WITH_TIMEOUT(fixture.launches().size(), 1, 10000);
        QVERIFY(finishes(store.start(), 30000));
        QCOMPARE(store.apps().size(), 2);
        const InstalledApp director = store.apps().constFirst();
        QCOMPARE(director.path, fixture.installed);
        QVERIFY(director.isRunning);
        QCOMPARE(director.state, InstallationState::updateAvailable);

        store.updateApplication(director);
        QCOMPARE(store.runningUpdatePromptAppID(), std::optional<QString>(director.id));
        store.confirmRunningUpdate();
        QCOMPARE(store.message().value_or(QString()),
                 u"Closing Vantor Director before installing the update…"_s);
    }

private Q_SLOTS:
    void updatesARunningDirector() {
        UpdateFixture fixture;
        fixture.publishBundle(fixture.buildRelease(UpdateFixture::releaseSpec()));
        publishManifest(fixture);
        Launcher launcher = makeLauncher(fixture);
        LaunchStore& store = *launcher.store;
        confirmUpdateOfRunningDirector(fixture, store);
        if (QTest::currentTestFailed())
            return;

        QTRY_COMPARE_WITH_TIMEOUT(store.message().value_or(QString()),
                                  u"Vantor Director 2.5.0 was installed successfully."_s, 60000);
        QTRY_VERIFY_WITH_TIMEOUT(!store.updatingAppID(), 30000);
        const InstalledApp director = store.apps().constFirst();
        QCOMPARE(director.installedVersion, u"2.5.0"_s);
        QCOMPARE(director.build, u"2500"_s);
        QCOMPARE(director.state, InstallationState::current);
        QCOMPARE(fixture.installedVersion(), u"2.5.0"_s);
        QCOMPARE(fixture.leftovers(), QStringList());
        // Reopened: a second start of the Director, now the new version at the same place.
        QTRY_COMPARE_WITH_TIMEOUT(fixture.launches().size(), 2, 10000);
        QCOMPARE(store.reopenAfterUpdateAppID(), std::nullopt);
    }

    void reopensTheOldDirectorWhenTheUpdateFails() {
        UpdateFixture fixture;
        fixture.publishBundle(fixture.buildRelease(u"release"_s, u"Vantor Director.app"_s,
                                                   UpdateFixture::releaseSpec(),
                                                   &fixture.signing.developerB));
        publishManifest(fixture);
        Launcher launcher = makeLauncher(fixture);
        LaunchStore& store = *launcher.store;
        confirmUpdateOfRunningDirector(fixture, store);
        if (QTest::currentTestFailed())
            return;

        const QString expected = u"Vantor Director could not be updated: "_s +
                                 errorDescription(ApplicationUpdaterError::signingIdentityMismatch);
        QTRY_COMPARE_WITH_TIMEOUT(store.message().value_or(QString()), expected, 60000);
        QCOMPARE(store.updatingAppID(), std::nullopt);
        QCOMPARE(store.apps().constFirst().state, InstallationState::updateAvailable);
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
        QTRY_COMPARE_WITH_TIMEOUT(fixture.launches().size(), 2, 10000);
        QCOMPARE(fixture.leftovers(), QStringList());
    }
};

QTEST_GUILESS_MAIN(UpdateEndToEndTest)
#include "UpdateEndToEndTest.moc"
