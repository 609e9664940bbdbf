#include "ScreenshotServices.h"

#include "foundation/DemoData.h"
#include "foundation/LaunchError.h"

#include <QCoroTimer>

using namespace Qt::StringLiterals;

namespace {

using Refresh = ScreenshotScene::Refresh;

class FixedDiscovery : public ApplicationDiscovering {
public:
    explicit FixedDiscovery(QList<InstalledApp> apps)
        : m_apps(std::move(apps)) {}
    QCoro::Task<QList<InstalledApp>> discoverApplications() override { co_return m_apps; }

private:
    QList<InstalledApp> m_apps;
};

class FixedRelease : public ReleaseChecking {
public:
    FixedRelease(AvailableApplicationRelease release, bool fails)
        : m_release(std::move(release))
        , m_fails(fails) {}
    QCoro::Task<std::optional<AvailableApplicationRelease>> latestRelease() override {
        if (m_fails)
            throw LaunchError::url(LaunchError::notConnectedToInternet);
        co_return m_release;
    }

private:
    AvailableApplicationRelease m_release;
    bool m_fails;
};

// An update that is still downloading when the picture is taken.
class EndlessUpdater : public ApplicationUpdating {
public:
    QCoro::Task<> installUpdate(AvailableApplicationRelease, QUrl, QStringList,
                                TransferControl) override {
        co_await QCoro::sleepFor(std::chrono::hours(24));
    }
    QCoro::Task<PreparedRelease> prepareUpdate(AvailableApplicationRelease, QUrl, QStringList,
                                               TransferControl) override {
        co_await QCoro::sleepFor(std::chrono::hours(24));
        co_return PreparedRelease{};
    }
    QCoro::Task<std::optional<PreparedRelease>> preparedRelease(AvailableApplicationRelease,
                                                                QUrl) override {
        co_return std::nullopt;
    }
    QCoro::Task<> installPrepared(PreparedRelease, QUrl, QStringList) override { co_return; }
    QCoro::Task<> discardPrepared(QUrl) override { co_return; }
};

// Floral Reflections is installed; an installation stops at 40 % and never finishes.
class EndlessInstaller : public ContentPackInstalling {
public:
    QCoro::Task<> install(QString, LaunchContentPackManifest, TransferControl control) override {
        control.report(40'000'000, 100'000'000);
        co_await QCoro::sleepFor(std::chrono::hours(24));
    }
    QCoro::Task<QHash<QString, QString>> installedPackVersions() override {
        co_return QHash<QString, QString>{{u"demo-floral-reflections"_s, u"1.0"_s}};
    }
};

class FixedCatalogue : public CatalogueProviding {
public:
    QCoro::Task<QList<ContentPack>> loadCatalogue() override { co_return DemoData::packs(); }
};

class ChosenAccount : public WebsiteAccountProviding {
public:
    explicit ChosenAccount(Refresh refresh)
        : m_refresh(refresh) {}

    QCoro::Task<WebsiteAccount> signIn() override { co_return DemoData::account(); }
    QCoro::Task<> signOut() override { co_return; }
    QCoro::Task<WebsiteAccount> refreshAccount() override {
        switch (m_refresh) {
        case Refresh::succeeds:
            co_return DemoData::account();
        case Refresh::offline:
            throw LaunchError::url(LaunchError::notConnectedToInternet);
        case Refresh::sessionOver:
            throw LaunchError::url(LaunchError::userAuthenticationRequired);
        case Refresh::otherAccount:
            co_return WebsiteAccount{u"someone-else"_s, u"Someone Else"_s, u"else@example.com"_s};
        case Refresh::neverEnds:
            co_await QCoro::sleepFor(std::chrono::hours(24));
            co_return DemoData::account();
        }
        co_return DemoData::account();
    }
    QCoro::Task<LaunchContentPackManifest> downloadContentPackManifest() override {
        co_return LaunchContentPackManifest{};
    }

private:
    Refresh m_refresh;
};

class FixedSnapshot : public AccountSnapshotCaching {
public:
    explicit FixedSnapshot(bool saved)
        : m_saved(saved) {}
    std::optional<LaunchAccountSnapshot> load() override {
        if (!m_saved)
            return std::nullopt;
        return DemoData::snapshot(Launch::DemoScenario::combined);
    }
    void save(const LaunchAccountSnapshot&) override {}
    void clear() override { m_saved = false; }

private:
    bool m_saved;
};

class StillWorkspace : public Workspace {
public:
    QList<RunningApplication> running;

    std::optional<QUrl> urlForApplication(const QString&) const override { return std::nullopt; }
    QList<RunningApplication> runningApplications(const QString& identifier) const override {
        QList<RunningApplication> matching;
        for (const RunningApplication& application : running) {
            if (application.bundleIdentifier == identifier)
                matching.append(application);
        }
        return matching;
    }
    bool terminate(const RunningApplication&) override { return false; }
    void openApplication(const QUrl&) override {}
    QCoro::Task<> openURL(QUrl, QUrl, OpenOptions) override { co_return; }
    void revealInFileBrowser(const QUrl&) override {}
};

} // namespace

ScreenshotServices::ScreenshotServices(const ScreenshotScene& scene)
    : m_scene(scene) {
    auto workspace = std::make_shared<StillWorkspace>();
    if (scene.directorRunning) {
        const InstalledApp director = DemoData::applications(Launch::DemoScenario::combined)[0];
        workspace->running.append({4242, director.bundleIdentifier, *director.path});
    }
    m_workspace = workspace;
}

std::unique_ptr<LaunchStore> ScreenshotServices::makeStore() {
    QList<InstalledApp> apps = DemoData::applications(Launch::DemoScenario::combined);
    for (InstalledApp& app : apps) {
        const bool isDirector = app.name == u"Vantor Director"_s;
        app.state = Launch::InstallationState::checking;
        app.isRunning = m_scene.directorRunning && isDirector;
        // Creator is never found by itself: its row mirrors the Director's.
        if (!isDirector || !m_scene.directorInstalled) {
            app.path.reset();
            app.installedVersion.reset();
            app.build.reset();
            app.state = Launch::InstallationState::notInstalled;
        }
    }

    LaunchCollaborators services;
    services.configuration = LaunchConfiguration::production();
    if (!m_scene.catalogueConfigured)
        services.configuration.catalogueURL.reset();
    services.discovery = std::make_shared<FixedDiscovery>(apps);
    services.releaseChecker = std::make_shared<FixedRelease>(
        m_scene.updatePublished ? AvailableApplicationRelease{u"2.5.0"_s, u"2500"_s, std::nullopt}
                                : AvailableApplicationRelease{u"2.4.1"_s, u"2410"_s, std::nullopt},
        m_scene.releaseCheckFails);
    if (m_scene.updateNeverEnds)
        services.applicationUpdater = std::make_shared<EndlessUpdater>();
    if (m_scene.packDownloadNeverEnds)
        services.contentPackInstaller = std::make_shared<EndlessInstaller>();
    if (m_scene.catalogueConfigured)
        services.catalogueProvider = std::make_shared<FixedCatalogue>();
    services.snapshotCache = std::make_shared<FixedSnapshot>(m_scene.snapshotSaved);
    if (m_scene.refresh)
        services.productionAccountProvider = std::make_shared<ChosenAccount>(*m_scene.refresh);
    services.now = [] { return QDateTime::currentDateTimeUtc(); };
    services.workspace = m_workspace;
    services.settings = std::make_shared<QSettings>(settingsPath(), QSettings::IniFormat);
    services.locationChooser = m_locationChooser;
    services.makeDemoAccountProvider = [](Launch::DemoScenario) {
        return std::make_shared<ChosenAccount>(Refresh::succeeds);
    };
    return std::make_unique<LaunchStore>(std::move(services));
}
