#include "foundation/DemoData.h"
#include "foundation/LaunchError.h"
#include "platform/BundleMetadata.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

Q_LOGGING_CATEGORY(lcStore, "vantor.launch.store")

QCoro::Task<> LaunchStore::start() {
    bumpAccountGeneration();
    bumpModeGeneration();
    const auto ticket = GenerationTicket::forMode(*this);
    // A sign-in still waiting in the browser belongs to the mode that is ending.
    cancelSignIn();

    // Whatever belonged to the previous mode goes first.
    setMessage(std::nullopt);
    setAccount(std::nullopt);
    setPacks({});
    setPublicPacks({});
    setHasLoadedPublicCatalogue(false);
    setLastSuccessfulSync(std::nullopt);
    setSyncState(AccountSyncState::signedOut());

    if (m_demoEnabled) {
        startDemo();
    } else {
        setAccountProvider(m_services.productionAccountProvider);
        restoreSavedSnapshot();

        const QList<InstalledApp> discovered =
            co_await m_services.discovery->discoverApplications();
        if (!ticket.stillApplies())
            co_return;
        setApps(applyRememberedLocations(discovered));
        reconcileBuiltInCreator();

        co_await refreshReleaseAndCatalogue();
        if (!ticket.stillApplies())
            co_return;
        co_await syncAccountIfDue();
        if (!ticket.stillApplies())
            co_return;
    }

    reconcileBuiltInCreator();
    selectFirstPack();
}

void LaunchStore::startDemo() {
    setApps(DemoData::applications(m_demoScenario));
    setPacks(DemoData::packs());
    setAccountProvider(m_services.makeDemoAccountProvider
                           ? m_services.makeDemoAccountProvider(m_demoScenario)
                           : nullptr);

    if (m_demoScenario == Launch::DemoScenario::signedOut) {
        setAccount(std::nullopt);
        setSyncState(AccountSyncState::signedOut());
        return;
    }
    const LaunchAccountSnapshot snapshot = DemoData::snapshot(m_demoScenario);
    setAccount(snapshot.account);
    setPacks(DemoData::packs());
    setLastSuccessfulSync(snapshot.lastSuccessfulSync);
    setSyncState(m_demoScenario == Launch::DemoScenario::expiredSession
                     ? AccountSyncState::sessionExpired(snapshot.lastSuccessfulSync)
                     : AccountSyncState::synced(snapshot.lastSuccessfulSync));
}

void LaunchStore::restoreSavedSnapshot() {
    if (!m_services.snapshotCache)
        return;
    std::optional<LaunchAccountSnapshot> snapshot;
    try {
        snapshot = m_services.snapshotCache->load();
    } catch (const std::exception&) {
        // The file stays where it is; the next save replaces it.
        setMessage(u"Saved website account data could not be read. Sign in again to refresh it."_s);
        return;
    }
    if (!snapshot)
        return;
    applySnapshot(*snapshot);
    setSyncState(AccountSyncState::stale(snapshot->lastSuccessfulSync));
}

QCoro::Task<> LaunchStore::refreshApplications() {
    if (m_demoEnabled) {
        // Deliberately without the built-in Creator rule: Creator shows its own demo record.
        setApps(DemoData::applications(m_demoScenario));
        co_return;
    }
    const auto ticket = GenerationTicket::forMode(*this);
    const QList<InstalledApp> discovered = co_await m_services.discovery->discoverApplications();
    if (!ticket.stillApplies())
        co_return;
    setApps(applyRememberedLocations(discovered));
    reconcileBuiltInCreator();
    co_await checkDirectorRelease();
    // Not dropped when a start() came meanwhile: a queued update waits for exactly this refresh,
    // and resumeQueuedUpdate() looks at the running copies afresh.
    co_await resumeQueuedUpdate();
}

QCoro::Task<> LaunchStore::refreshReleaseAndCatalogue() {
    const auto ticket = GenerationTicket::forMode(*this);
    co_await checkDirectorRelease();
    if (ticket.stillApplies() && m_services.catalogueProvider)
        co_await refreshCatalogue();
}

QCoro::Task<> LaunchStore::syncAccountIfDue() {
    if (m_demoEnabled || !m_account || m_isSigningOut ||
        m_syncState.kind == AccountSyncState::Kind::signingIn ||
        m_syncState.kind == AccountSyncState::Kind::syncing)
        co_return;

    // The window applies to attempts, successful or not.
    const QDateTime current = now();
    if (m_lastAutomaticSyncAttempt && m_lastAutomaticSyncAttempt->msecsTo(current) < 60'000)
        co_return;
    setLastAutomaticSyncAttempt(current);
    co_await refreshAccount();
}

QString LaunchStore::rememberedLocationKey(const QString& appID) const {
    return u"selectedApplication."_s + appID;
}

QList<InstalledApp> LaunchStore::applyRememberedLocations(QList<InstalledApp> discovered) {
    if (!m_services.settings || !m_services.bookmarks)
        return discovered;
    QSettings& settings = *m_services.settings;

    for (InstalledApp& app : discovered) {
        if (app.path)
            continue;
        const QString key = rememberedLocationKey(app.id);
        if (!settings.contains(key))
            continue;

        const auto resolution = m_services.bookmarks->resolve(settings.value(key).toByteArray());
        const auto metadata =
            resolution && !resolution->isStale ? readBundleMetadata(resolution->url) : std::nullopt;
        const auto& product = configuration().productNamed(app.name);
        if (!metadata || !metadata->bundleIdentifier ||
            !product.isVerifiedIdentifier(*metadata->bundleIdentifier)) {
            // A stale or foreign bookmark is forgotten; the application shows as not found.
            settings.remove(key);
            continue;
        }

        m_services.bookmarks->startAccessing(resolution->url);
        recordSecurityScopedURL(app.id, resolution->url);
        app = recordFromBundle(app, resolution->url);
    }
    return discovered;
}

InstalledApp LaunchStore::recordFromBundle(const InstalledApp& app, const QUrl& bundle) const {
    const auto metadata = readBundleMetadata(bundle).value_or(ApplicationBundleMetadata{});
    InstalledApp record = app;
    record.bundleIdentifier = metadata.bundleIdentifier.value_or(app.bundleIdentifier);
    record.path = bundle;
    record.installedVersion = metadata.version;
    record.build = metadata.build;
    record.state = InstallationState::stale;
    record.lastChecked = now();
    return record;
}

void LaunchStore::reconcileBuiltInCreator() {
    const InstalledApp* director = nullptr;
    const InstalledApp* creator = nullptr;
    for (const InstalledApp& app : m_apps) {
        if (!director && app.name == configuration().director.name)
            director = &app;
        if (!creator && app.name == configuration().creator.name)
            creator = &app;
    }
    if (!director || !creator || !director->path)
        return;

    InstalledApp mirrored = *creator;
    mirrored.bundleIdentifier = director->bundleIdentifier;
    mirrored.path = director->path;
    mirrored.installedVersion = director->installedVersion;
    mirrored.build = director->build;
    mirrored.availableVersion = director->availableVersion;
    mirrored.lastChecked = director->lastChecked;
    mirrored.isRunning = false;
    mirrored.state = InstallationState::included;
    replaceApp(mirrored);
}

void LaunchStore::open(const InstalledApp& app) {
    if (!app.path) {
        setMessage(app.name + u" is not installed at a verified location."_s);
        return;
    }
    if (m_demoEnabled) {
        setMessage(u"Demo mode did not open "_s + app.name +
                   u" or change the installed application."_s);
        return;
    }
    // The launch notification that follows refreshes the running state.
    m_services.workspace->openApplication(*app.path);
}

QCoro::Task<> LaunchStore::chooseApplicationLocation(InstalledApp app) {
    if (m_demoEnabled || !m_services.locationChooser)
        co_return;

    const auto ticket = GenerationTicket::forMode(*this);
    // Named, not a temporary inside the co_await: GCC 12 mishandles such temporaries.
    ApplicationLocationChooser::Request request{
        u"Locate "_s + app.name,
        u"Select the "_s + app.name + u" application. Its bundle identifier will be verified."_s,
        u"Use This Application"_s};
    const std::optional<QUrl> chosen =
        co_await m_services.locationChooser->chooseApplication(std::move(request));
    if (!chosen || !ticket.stillApplies())
        co_return;

    const auto metadata = readBundleMetadata(*chosen);
    const auto& product = configuration().productNamed(app.name);
    if (!metadata || !metadata->bundleIdentifier ||
        !product.isVerifiedIdentifier(*metadata->bundleIdentifier)) {
        setMessage(u"The selected application is not a verified "_s + app.name +
                   u" installation."_s);
        co_return;
    }

    const auto bookmark = m_services.bookmarks->createBookmark(*chosen);
    if (!bookmark) {
        setMessage(u"Vantor Launcher could not remember the selected application."_s);
        co_return;
    }
    m_services.settings->setValue(rememberedLocationKey(app.id), *bookmark);
    // Access starts here as it does for a remembered location, or a sandboxed launcher would
    // lose the bundle it was just given.
    m_services.bookmarks->startAccessing(*chosen);
    recordSecurityScopedURL(app.id, *chosen);
    replaceApp(recordFromBundle(app, *chosen));
    runDetached(checkDirectorRelease());
}

void LaunchStore::revealInFileBrowser(const InstalledApp& app) {
    if (m_demoEnabled) {
        setMessage(u"Demo mode did not reveal a simulated application."_s);
        return;
    }
    if (app.path)
        m_services.workspace->revealInFileBrowser(*app.path);
}
