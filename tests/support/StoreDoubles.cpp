#include "StoreDoubles.h"

#include "platform/PlatformServices.h"

using namespace Qt::StringLiterals;

QCoro::Task<> ScriptedUpdater::installUpdate(AvailableApplicationRelease release, QUrl bundle,
                                             QStringList identifiers, TransferControl latest) {
    const PreparedRelease prepared =
        co_await prepareUpdate(std::move(release), bundle, identifiers, std::move(latest));
    co_await installPrepared(prepared, bundle, identifiers);
}

QCoro::Task<PreparedRelease> ScriptedUpdater::prepareUpdate(AvailableApplicationRelease release,
                                                            QUrl bundle, QStringList,
                                                            TransferControl latest) {
    releases.append(release);
    control = std::move(latest);
    co_await prepare.call();
    co_return PreparedRelease{release, bundle};
}

std::optional<LaunchAccountSnapshot> MemorySnapshotCache::load() {
    ++loads;
    if (failsToLoad)
        throw LaunchError(LaunchError::Domain::snapshot, 0, u"invalid snapshot"_s);
    return stored;
}

void MemorySnapshotCache::save(const LaunchAccountSnapshot& snapshot) {
    ++saves;
    if (failsToSave)
        throw LaunchError::file(u"disk full"_s);
    stored = snapshot;
}

QList<RunningApplication>
RecordingWorkspace::runningApplications(const QString& bundleIdentifier) const {
    QList<RunningApplication> matching;
    for (const RunningApplication& application : running) {
        if (application.bundleIdentifier == bundleIdentifier)
            matching.append(application);
    }
    return matching;
}

StoreFixture::StoreFixture(LaunchConfiguration configuration)
    : configuration(std::move(configuration))
    , settings(
          std::make_shared<QSettings>(folder.filePath(u"settings.ini"_s), QSettings::IniFormat)) {}

LaunchCollaborators StoreFixture::collaborators() {
    LaunchCollaborators collaborators;
    collaborators.configuration = configuration;
    collaborators.productionAccountProvider = accountProvider;
    collaborators.snapshotCache = snapshotCache;
    collaborators.discovery = discovery;
    if (configuration.catalogueURL)
        collaborators.catalogueProvider = catalogue;
    if (configuration.releaseMetadataURL)
        collaborators.releaseChecker = releaseChecker;
    collaborators.contentPackInstaller = installer;
    collaborators.applicationUpdater = updater;
    collaborators.now = [this] { return clock; };
    collaborators.workspace = workspace;
    collaborators.bookmarks = PlatformServices::makeBookmarkStore();
    collaborators.settings = settings;
    collaborators.locationChooser = locationChooser;
    collaborators.notifier = notifier;
    collaborators.browserSignIn = browserSignIn;
    collaborators.makeDemoAccountProvider = [this](Launch::DemoScenario) {
        return demoAccountProvider;
    };
    return collaborators;
}

void StoreFixture::answerStartUp(QList<InstalledApp> apps, QList<ContentPack> packs,
                                 std::optional<WebsiteAccount> account) {
    discovery->discover.answerWith(apps);
    releaseChecker->latest.answerWith(std::nullopt);
    catalogue->load.answerWith(packs);
    installer->versions.answerWith(QHash<QString, QString>{});
    if (account)
        accountProvider->refreshCalls.answerWith(*account);
}

InstalledApp StoreFixture::director(const QString& version, const QString& build) const {
    InstalledApp app = missingDirector();
    app.path = QUrl::fromLocalFile(u"/Applications/Vantor Director.app"_s);
    app.installedVersion = version;
    app.build = build;
    app.state = Launch::InstallationState::stale;
    return app;
}

InstalledApp StoreFixture::notFound(const LaunchConfiguration::Product& product) const {
    InstalledApp app;
    app.id = product.name;
    app.name = product.name;
    app.bundleIdentifier = product.bundleIdentifiers.first();
    app.logoAsset = product.logoAsset;
    app.lastChecked = clock;
    return app;
}

ContentPack makePack(const QString& id, const QString& name, const QString& summary,
                     std::optional<QString> version, Launch::PackInstallation installation) {
    ContentPack pack;
    pack.id = id;
    pack.name = name;
    pack.summary = summary;
    pack.version = std::move(version);
    pack.installation = installation;
    return pack;
}
