#include "store/LaunchStore.h"

#include "foundation/SemanticVersion.h"
#include "store/StoreViewModels.h"

#include <QLocale>

using namespace Qt::StringLiterals;
using Launch::InstallationState;
using Launch::PackInstallation;

LaunchStore::LaunchStore(QObject* parent)
    : LaunchStore(LaunchCollaborators::production(LaunchConfiguration::production()), parent) {}

LaunchStore::LaunchStore(LaunchCollaborators collaborators, QObject* parent)
    : QObject(parent)
    , m_services(std::move(collaborators))
    , m_accountProvider(m_services.productionAccountProvider) {
    if (!m_services.now)
        m_services.now = [] { return QDateTime::currentDateTimeUtc(); };

    // Derived values follow the properties they are computed from.
    connect(this, &LaunchStore::packsChanged, this, &LaunchStore::filteredPacksChanged);
    connect(this, &LaunchStore::searchTextChanged, this, &LaunchStore::filteredPacksChanged);
    connect(this, &LaunchStore::packFilterChanged, this, &LaunchStore::filteredPacksChanged);
    connect(this, &LaunchStore::appsChanged, this, &LaunchStore::updateCountChanged);
    connect(this, &LaunchStore::packsChanged, this, &LaunchStore::updateCountChanged);
    if (m_services.browserSignIn)
        connect(m_services.browserSignIn.get(), &BrowserSignIn::waitingChanged, this,
                &LaunchStore::isWaitingForBrowserChanged);
}

LaunchStore::~LaunchStore() = default;

QList<ContentPack> LaunchStore::filteredPacks() const {
    const QLocale locale;
    const QString needle = locale.toLower(m_searchText);
    QList<ContentPack> result;
    for (const ContentPack& pack : m_packs) {
        const bool matchesSearch = needle.isEmpty() || locale.toLower(pack.name).contains(needle) ||
                                   locale.toLower(pack.summary).contains(needle);
        const bool matchesFilter = m_packFilter == Launch::PackFilter::all ||
                                   pack.installation == PackInstallation::installed;
        if (matchesSearch && matchesFilter)
            result.append(pack);
    }
    return result;
}

int LaunchStore::updateCount() const {
    const auto apps = std::count_if(m_apps.begin(), m_apps.end(), [](const InstalledApp& app) {
        return app.state == InstallationState::updateAvailable;
    });
    const auto packs = std::count_if(m_packs.begin(), m_packs.end(), [](const ContentPack& pack) {
        return pack.installation == PackInstallation::updateAvailable;
    });
    return int(apps + packs);
}

namespace {

template <typename T, typename Signal>
void assign(LaunchStore* store, T& field, T value, Signal signal) {
    if (field == value)
        return;
    field = std::move(value);
    Q_EMIT(store->*signal)();
}

} // namespace

void LaunchStore::setSelection(Launch::LaunchSection section) {
    assign(this, m_selection, section, &LaunchStore::selectionChanged);
}

void LaunchStore::setDemoEnabled(bool enabled) {
    if (enabled != m_demoEnabled) {
        // What the update flow remembered belongs to the mode that is ending: a Director closed
        // for an update is not reopened, nor a waiting update started, in the other mode.
        setReopenAfterUpdateAppID(std::nullopt);
        setQueuedUpdateApplication(std::nullopt);
    }
    assign(this, m_demoEnabled, enabled, &LaunchStore::demoEnabledChanged);
}

void LaunchStore::setDemoScenario(Launch::DemoScenario scenario) {
    assign(this, m_demoScenario, scenario, &LaunchStore::demoScenarioChanged);
}

void LaunchStore::setSearchText(const QString& text) {
    assign(this, m_searchText, text, &LaunchStore::searchTextChanged);
}

void LaunchStore::setPackFilter(Launch::PackFilter filter) {
    assign(this, m_packFilter, filter, &LaunchStore::packFilterChanged);
}

void LaunchStore::setAutomaticallyChecksForUpdates(bool enabled) {
    assign(this, m_automaticallyChecksForUpdates, enabled,
           &LaunchStore::automaticallyChecksForUpdatesChanged);
}

void LaunchStore::setIncludesBetaReleases(bool enabled) {
    assign(this, m_includesBetaReleases, enabled, &LaunchStore::includesBetaReleasesChanged);
}

void LaunchStore::setMessage(std::optional<QString> text) {
    assign(this, m_message, std::move(text), &LaunchStore::messageChanged);
}

void LaunchStore::setApps(QList<InstalledApp> apps) {
    assign(this, m_apps, std::move(apps), &LaunchStore::appsChanged);
}

void LaunchStore::replaceApp(const InstalledApp& app) {
    QList<InstalledApp> apps = m_apps;
    for (InstalledApp& existing : apps) {
        if (existing.id == app.id)
            existing = app;
    }
    setApps(std::move(apps));
}

void LaunchStore::setAccount(std::optional<WebsiteAccount> account) {
    assign(this, m_account, std::move(account), &LaunchStore::accountChanged);
}

void LaunchStore::setPacks(QList<ContentPack> packs) {
    assign(this, m_packs, std::move(packs), &LaunchStore::packsChanged);
}

void LaunchStore::setSyncState(AccountSyncState state) {
    assign(this, m_syncState, std::move(state), &LaunchStore::syncStateChanged);
}

void LaunchStore::setLastSuccessfulSync(std::optional<QDateTime> date) {
    assign(this, m_lastSuccessfulSync, std::move(date), &LaunchStore::lastSuccessfulSyncChanged);
}

void LaunchStore::setSelectedPackID(std::optional<QString> packID) {
    assign(this, m_selectedPackID, std::move(packID), &LaunchStore::selectedPackIDChanged);
}

void LaunchStore::selectPack(const QString& packID) {
    setSelectedPackID(packID.isEmpty() ? std::nullopt : std::optional<QString>(packID));
}

void LaunchStore::selectFirstPack() {
    setSelectedPackID(m_packs.isEmpty() ? std::nullopt
                                        : std::optional<QString>(m_packs.first().id));
}

void LaunchStore::setRunningUpdatePromptAppID(std::optional<QString> appID) {
    assign(this, m_runningUpdatePromptAppID, std::move(appID),
           &LaunchStore::runningUpdatePromptAppIDChanged);
}

void LaunchStore::setUpdatingAppID(std::optional<QString> appID) {
    assign(this, m_updatingAppID, std::move(appID), &LaunchStore::updatingAppIDChanged);
}

void LaunchStore::setIsRefreshingContentPacks(bool refreshing) {
    assign(this, m_isRefreshingContentPacks, refreshing,
           &LaunchStore::isRefreshingContentPacksChanged);
}

void LaunchStore::setIsSigningOut(bool signingOut) {
    assign(this, m_isSigningOut, signingOut, &LaunchStore::isSigningOutChanged);
}

void LaunchStore::setPublicPacks(QList<ContentPack> packs) {
    assign(this, m_publicPacks, std::move(packs), &LaunchStore::publicPacksChanged);
}

void LaunchStore::setHasLoadedPublicCatalogue(bool loaded) {
    assign(this, m_hasLoadedPublicCatalogue, loaded, &LaunchStore::hasLoadedPublicCatalogueChanged);
}

void LaunchStore::setQueuedUpdateApplication(std::optional<InstalledApp> app) {
    assign(this, m_queuedUpdateApplication, std::move(app),
           &LaunchStore::queuedUpdateApplicationChanged);
}

void LaunchStore::setLastAutomaticSyncAttempt(std::optional<QDateTime> attempt) {
    assign(this, m_lastAutomaticSyncAttempt, std::move(attempt),
           &LaunchStore::lastAutomaticSyncAttemptChanged);
}

void LaunchStore::setAccountProvider(std::shared_ptr<WebsiteAccountProviding> provider) {
    assign(this, m_accountProvider, std::move(provider), &LaunchStore::accountProviderChanged);
}

void LaunchStore::recordSecurityScopedURL(const QString& appID, const QUrl& bundle) {
    if (m_securityScopedApplicationURLs.value(appID) == bundle)
        return;
    m_securityScopedApplicationURLs.insert(appID, bundle);
    Q_EMIT securityScopedApplicationURLsChanged();
}

void LaunchStore::setReopenAfterUpdateAppID(std::optional<QString> appID) {
    assign(this, m_reopenAfterUpdateAppID, std::move(appID),
           &LaunchStore::reopenAfterUpdateAppIDChanged);
}

void LaunchStore::setAvailableDirectorRelease(std::optional<AvailableApplicationRelease> release) {
    assign(this, m_availableDirectorRelease, std::move(release),
           &LaunchStore::availableDirectorReleaseChanged);
}

void LaunchStore::bumpModeGeneration() {
    ++m_modeGeneration;
    Q_EMIT modeGenerationChanged();
}

void LaunchStore::bumpAccountGeneration() {
    ++m_accountGeneration;
    Q_EMIT accountGenerationChanged();
}

void LaunchStore::setPackInstallation(const QString& packID, PackInstallation installation) {
    QList<ContentPack> packs = m_packs;
    for (ContentPack& pack : packs) {
        if (pack.id == packID)
            pack.installation = installation;
    }
    setPacks(std::move(packs));
}

const InstalledApp* LaunchStore::findApp(const QString& appID) const {
    const auto it = std::find_if(m_apps.begin(), m_apps.end(),
                                 [&](const InstalledApp& app) { return app.id == appID; });
    return it == m_apps.end() ? nullptr : &*it;
}

std::optional<InstalledApp> LaunchStore::appWithID(const QString& appID) const {
    const InstalledApp* app = findApp(appID);
    return app ? std::optional<InstalledApp>(*app) : std::nullopt;
}

StoreViewModels& LaunchStore::viewModels() {
    if (!m_viewModels)
        m_viewModels = new StoreViewModels(*this);
    return *m_viewModels;
}

ApplicationListModel* LaunchStore::appsForView() {
    return &viewModels().apps;
}

QVariant LaunchStore::accountForView() const {
    return m_account ? QVariant::fromValue(*m_account) : QVariant();
}

ContentPackListModel* LaunchStore::packsForView() {
    return &viewModels().packs;
}

ContentPackListModel* LaunchStore::publicPacksForView() {
    return &viewModels().publicPacks;
}

ContentPackListModel* LaunchStore::filteredPacksForView() {
    return &viewModels().filteredPacks;
}

ContentPackListModel* LaunchStore::selectedPackForView() {
    return &viewModels().selectedPack;
}

QVariant LaunchStore::queuedUpdateApplicationForView() const {
    return m_queuedUpdateApplication ? QVariant::fromValue(*m_queuedUpdateApplication) : QVariant();
}

QVariantMap LaunchStore::securityScopedApplicationURLsForView() const {
    QVariantMap urls;
    for (auto it = m_securityScopedApplicationURLs.cbegin();
         it != m_securityScopedApplicationURLs.cend(); ++it)
        urls.insert(it.key(), it.value());
    return urls;
}

QVariant LaunchStore::availableDirectorReleaseForView() const {
    return m_availableDirectorRelease ? QVariant::fromValue(*m_availableDirectorRelease)
                                      : QVariant();
}
