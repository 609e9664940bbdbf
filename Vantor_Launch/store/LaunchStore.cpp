#include "store/LaunchStore.h"

#include "foundation/DemoData.h"
#include "store/GenerationTicket.h"
#include "store/PropertyAssign.h"
#include "store/StoreViewModels.h"

#include <QLocale>
#include <QLoggingCategory>

using Launch::InstallationState;
using Launch::PackInstallation;

Q_LOGGING_CATEGORY(lcStore, "vantor.launch.store")

LaunchStore::LaunchStore(QObject* parent)
    : LaunchStore(LaunchCollaborators::production(LaunchConfiguration::production()), parent) {}

LaunchStore::LaunchStore(LaunchCollaborators collaborators, QObject* parent)
    : QObject(parent)
    , m_services(std::move(collaborators)) {
    if (!m_services.now)
        m_services.now = [] { return QDateTime::currentDateTimeUtc(); };
    m_applicationFlows = new ApplicationFlows(*this);
    m_updateFlow = new UpdateFlow(*this);
    m_packFlows = new PackFlows(*this);
    m_accountFlows = new AccountFlows(*this);

    // Derived values follow the properties they are computed from.
    connect(this, &LaunchStore::packsChanged, this, &LaunchStore::filteredPacksChanged);
    connect(this, &LaunchStore::searchTextChanged, this, &LaunchStore::filteredPacksChanged);
    connect(this, &LaunchStore::packFilterChanged, this, &LaunchStore::filteredPacksChanged);
    connect(this, &LaunchStore::appsChanged, this, &LaunchStore::updateCountChanged);
    connect(this, &LaunchStore::packsChanged, this, &LaunchStore::updateCountChanged);
}

LaunchStore::~LaunchStore() = default;

QCoro::Task<> LaunchStore::start() {
    bumpAccountGeneration();
    bumpModeGeneration();
    const auto ticket = GenerationTicket::forMode(*this);

    // Whatever belonged to the previous mode goes first.
    setMessage(std::nullopt);
    m_accountFlows->forgetForStart();
    setPacks({});
    m_packFlows->forgetCatalogue();

    if (m_demoEnabled) {
        setApps(DemoData::applications(m_demoScenario));
        setPacks(DemoData::packs());
        m_accountFlows->startDemo(m_demoScenario);
    } else {
        m_accountFlows->restoreSavedSnapshot();
        co_await m_applicationFlows->discover();
        if (!ticket.stillApplies())
            co_return;
        co_await m_packFlows->refreshReleaseAndCatalogue();
        if (!ticket.stillApplies())
            co_return;
        co_await m_accountFlows->syncAccountIfDue();
        if (!ticket.stillApplies())
            co_return;
    }

    m_applicationFlows->reconcileBuiltInCreator();
    selectFirstPack();
}

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

void LaunchStore::setSelection(Launch::LaunchSection section) {
    assignProperty(this, m_selection, section, &LaunchStore::selectionChanged);
}

void LaunchStore::setDemoEnabled(bool enabled) {
    if (enabled != m_demoEnabled)
        m_updateFlow->forgetPendingWork();
    assignProperty(this, m_demoEnabled, enabled, &LaunchStore::demoEnabledChanged);
}

void LaunchStore::setDemoScenario(Launch::DemoScenario scenario) {
    assignProperty(this, m_demoScenario, scenario, &LaunchStore::demoScenarioChanged);
}

void LaunchStore::setSearchText(const QString& text) {
    assignProperty(this, m_searchText, text, &LaunchStore::searchTextChanged);
}

void LaunchStore::setPackFilter(Launch::PackFilter filter) {
    assignProperty(this, m_packFilter, filter, &LaunchStore::packFilterChanged);
}

void LaunchStore::setAutomaticallyChecksForUpdates(bool enabled) {
    assignProperty(this, m_automaticallyChecksForUpdates, enabled,
                   &LaunchStore::automaticallyChecksForUpdatesChanged);
}

void LaunchStore::setIncludesBetaReleases(bool enabled) {
    assignProperty(this, m_includesBetaReleases, enabled,
                   &LaunchStore::includesBetaReleasesChanged);
}

void LaunchStore::setMessage(std::optional<QString> text) {
    assignProperty(this, m_message, std::move(text), &LaunchStore::messageChanged);
}

void LaunchStore::setApps(QList<InstalledApp> apps) {
    assignProperty(this, m_apps, std::move(apps), &LaunchStore::appsChanged);
}

void LaunchStore::replaceApp(const InstalledApp& app) {
    QList<InstalledApp> apps = m_apps;
    for (InstalledApp& existing : apps) {
        if (existing.id == app.id)
            existing = app;
    }
    setApps(std::move(apps));
}

void LaunchStore::setPacks(QList<ContentPack> packs) {
    assignProperty(this, m_packs, std::move(packs), &LaunchStore::packsChanged);
}

void LaunchStore::setSelectedPackID(std::optional<QString> packID) {
    assignProperty(this, m_selectedPackID, std::move(packID), &LaunchStore::selectedPackIDChanged);
}

void LaunchStore::selectPack(const QString& packID) {
    setSelectedPackID(packID.isEmpty() ? std::nullopt : std::optional<QString>(packID));
}

void LaunchStore::selectFirstPack() {
    setSelectedPackID(m_packs.isEmpty() ? std::nullopt
                                        : std::optional<QString>(m_packs.first().id));
}

void LaunchStore::bumpModeGeneration() {
    ++m_modeGeneration;
    Q_EMIT modeGenerationChanged();
}

void LaunchStore::bumpAccountGeneration() {
    ++m_accountGeneration;
    Q_EMIT accountGenerationChanged();
}

std::optional<InstalledApp> LaunchStore::appWithID(const QString& appID) const {
    const auto it = std::find_if(m_apps.begin(), m_apps.end(),
                                 [&](const InstalledApp& app) { return app.id == appID; });
    return it == m_apps.end() ? std::nullopt : std::optional<InstalledApp>(*it);
}

StoreViewModels& LaunchStore::viewModels() {
    if (!m_viewModels)
        m_viewModels = new StoreViewModels(*this);
    return *m_viewModels;
}

ApplicationListModel* LaunchStore::appsForView() {
    return &viewModels().apps;
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
