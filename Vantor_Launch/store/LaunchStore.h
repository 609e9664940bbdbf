#pragma once

#include "foundation/ContentPack.h"
#include "foundation/InstalledApp.h"
#include "store/AccountFlows.h"
#include "store/ApplicationFlows.h"
#include "store/ApplicationListModel.h"
#include "store/ContentPackListModel.h"
#include "store/LaunchCollaborators.h"
#include "store/PackFlows.h"
#include "store/UpdateFlow.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <optional>

class GenerationTicket;
class StoreViewModels;

// The single source of truth of the launcher. It holds what every feature shares (the
// applications, the packs, the banner message, the mode and its generation counters) and owns
// one flow object per feature, each with its own state: the applications, updates, packs and
// the account. Every flow runs on the main thread.
class LaunchStore : public QObject {
    Q_OBJECT

    Q_PROPERTY(
        Launch::LaunchSection selection READ selection WRITE setSelection NOTIFY selectionChanged)
    // The lists are models that signal the rows that change; each pack row carries its download.
    Q_PROPERTY(ApplicationListModel* apps READ appsForView CONSTANT)
    Q_PROPERTY(ContentPackListModel* packs READ packsForView CONSTANT)
    Q_PROPERTY(ContentPackListModel* publicPacks READ publicPacksForView CONSTANT)
    Q_PROPERTY(ContentPackListModel* filteredPacks READ filteredPacksForView CONSTANT)
    // The selected pack as a list of zero rows or one, so that its detail follows its changes.
    Q_PROPERTY(ContentPackListModel* selectedPack READ selectedPackForView CONSTANT)
    Q_PROPERTY(bool demoEnabled READ demoEnabled WRITE setDemoEnabled NOTIFY demoEnabledChanged)
    Q_PROPERTY(Launch::DemoScenario demoScenario READ demoScenario WRITE setDemoScenario NOTIFY
                   demoScenarioChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(
        Launch::PackFilter packFilter READ packFilter WRITE setPackFilter NOTIFY packFilterChanged)
    Q_PROPERTY(QString selectedPackID READ selectedPackIDForView WRITE selectPack NOTIFY
                   selectedPackIDChanged)
    Q_PROPERTY(bool hasMessage READ hasMessage NOTIFY messageChanged)
    Q_PROPERTY(QString message READ messageForView NOTIFY messageChanged)
    Q_PROPERTY(bool automaticallyChecksForUpdates READ automaticallyChecksForUpdates WRITE
                   setAutomaticallyChecksForUpdates NOTIFY automaticallyChecksForUpdatesChanged)
    Q_PROPERTY(bool includesBetaReleases READ includesBetaReleases WRITE setIncludesBetaReleases
                   NOTIFY includesBetaReleasesChanged)
    Q_PROPERTY(qint64 accountGeneration READ accountGeneration NOTIFY accountGenerationChanged)
    Q_PROPERTY(qint64 modeGeneration READ modeGeneration NOTIFY modeGenerationChanged)
    Q_PROPERTY(int updateCount READ updateCount NOTIFY updateCountChanged)

    // The flows, for the views that show their own state.
    Q_PROPERTY(ApplicationFlows* applicationFlows READ applicationFlowsForView CONSTANT)
    Q_PROPERTY(UpdateFlow* updateFlow READ updateFlowForView CONSTANT)
    Q_PROPERTY(PackFlows* packFlows READ packFlowsForView CONSTANT)
    Q_PROPERTY(AccountFlows* accountFlows READ accountFlowsForView CONSTANT)

    // The fixed configuration, for the views that describe it.
    Q_PROPERTY(QString directorName READ directorName CONSTANT)
    Q_PROPERTY(QString creatorName READ creatorName CONSTANT)
    Q_PROPERTY(bool signInConfigured READ signInConfigured CONSTANT)
    Q_PROPERTY(QStringList missingIntegrations READ missingIntegrations CONSTANT)
    Q_PROPERTY(QUrl supportURL READ supportURL CONSTANT)

public:
    // The production collaborators.
    explicit LaunchStore(QObject* parent = nullptr);
    // Every collaborator explicit (tests, previews, other configurations).
    explicit LaunchStore(LaunchCollaborators collaborators, QObject* parent = nullptr);
    ~LaunchStore() override;

    ApplicationFlows& applicationFlows() { return *m_applicationFlows; }
    UpdateFlow& updateFlow() { return *m_updateFlow; }
    PackFlows& packFlows() { return *m_packFlows; }
    AccountFlows& accountFlows() { return *m_accountFlows; }
    const UpdateFlow& updateFlow() const { return *m_updateFlow; }
    const PackFlows& packFlows() const { return *m_packFlows; }
    const AccountFlows& accountFlows() const { return *m_accountFlows; }

    // Shared state.
    Launch::LaunchSection selection() const { return m_selection; }
    const QList<InstalledApp>& apps() const { return m_apps; }
    const QList<ContentPack>& packs() const { return m_packs; }
    bool demoEnabled() const { return m_demoEnabled; }
    Launch::DemoScenario demoScenario() const { return m_demoScenario; }
    const QString& searchText() const { return m_searchText; }
    Launch::PackFilter packFilter() const { return m_packFilter; }
    const std::optional<QString>& selectedPackID() const { return m_selectedPackID; }
    const std::optional<QString>& message() const { return m_message; }
    bool automaticallyChecksForUpdates() const { return m_automaticallyChecksForUpdates; }
    bool includesBetaReleases() const { return m_includesBetaReleases; }
    qint64 accountGeneration() const { return m_accountGeneration; }
    qint64 modeGeneration() const { return m_modeGeneration; }
    std::optional<InstalledApp> appWithID(const QString& appID) const;

    // Fixed collaborators.
    const LaunchCollaborators& services() const { return m_services; }
    const LaunchConfiguration& configuration() const { return m_services.configuration; }
    QDateTime now() const { return m_services.now(); }

    // Derived.
    QList<ContentPack> filteredPacks() const;
    int updateCount() const;

    // Writable from the views.
    void setSelection(Launch::LaunchSection section);
    void setDemoEnabled(bool enabled);
    void setDemoScenario(Launch::DemoScenario scenario);
    void setSearchText(const QString& text);
    void setPackFilter(Launch::PackFilter filter);
    void setAutomaticallyChecksForUpdates(bool enabled);
    void setIncludesBetaReleases(bool enabled);
    void selectPack(const QString& packID);
    void setMessage(std::optional<QString> text);

    // Forgets the previous mode's state and loads the current mode's: discovery, release,
    // catalogue and account.
    QCoro::Task<> start();

    // Runs a flow that nobody awaits; its failure becomes the message instead of being lost.
    void runDetached(QCoro::Task<> flow);

    // The operations the views call: each starts its flow and returns at once.
    Q_INVOKABLE void requestStart();
    Q_INVOKABLE void requestRefreshApplications();
    Q_INVOKABLE void requestSyncAccountIfDue();
    Q_INVOKABLE void requestSignIn();
    Q_INVOKABLE void requestSignOut();
    Q_INVOKABLE void requestRefreshAccount();
    Q_INVOKABLE void requestRefreshContentPacks();
    Q_INVOKABLE void requestInstallPack(const QString& packID);
    Q_INVOKABLE void requestOpenContentPackManagement();
    Q_INVOKABLE void requestChooseApplicationLocation(const QString& appID);
    Q_INVOKABLE void openApplication(const QString& appID);
    Q_INVOKABLE void revealApplication(const QString& appID);
    Q_INVOKABLE void requestUpdate(const QString& appID);
    Q_INVOKABLE void confirmRunningUpdatePrompt();
    Q_INVOKABLE void dismissRunningUpdate();
    Q_INVOKABLE void dismissMessage();
    Q_INVOKABLE void followWorkspace(bool follows);

Q_SIGNALS:
    void selectionChanged();
    void appsChanged();
    void packsChanged();
    void demoEnabledChanged();
    void demoScenarioChanged();
    void searchTextChanged();
    void packFilterChanged();
    void selectedPackIDChanged();
    void messageChanged();
    void automaticallyChecksForUpdatesChanged();
    void includesBetaReleasesChanged();
    void accountGenerationChanged();
    void modeGenerationChanged();
    void filteredPacksChanged();
    void updateCountChanged();

private:
    friend class GenerationTicket;
    // The flows write the shared state.
    friend class ApplicationFlows;
    friend class UpdateFlow;
    friend class PackFlows;
    friend class AccountFlows;

    void setApps(QList<InstalledApp> apps);
    void replaceApp(const InstalledApp& app);
    void setPacks(QList<ContentPack> packs);
    void setSelectedPackID(std::optional<QString> packID);
    void selectFirstPack();
    void bumpModeGeneration();
    void bumpAccountGeneration();

    // View adapters.
    StoreViewModels& viewModels();
    ApplicationListModel* appsForView();
    ContentPackListModel* packsForView();
    ContentPackListModel* publicPacksForView();
    ContentPackListModel* filteredPacksForView();
    ContentPackListModel* selectedPackForView();
    ApplicationFlows* applicationFlowsForView() { return m_applicationFlows; }
    UpdateFlow* updateFlowForView() { return m_updateFlow; }
    PackFlows* packFlowsForView() { return m_packFlows; }
    AccountFlows* accountFlowsForView() { return m_accountFlows; }
    QString selectedPackIDForView() const { return m_selectedPackID.value_or(QString()); }
    bool hasMessage() const { return m_message.has_value(); }
    QString messageForView() const { return m_message.value_or(QString()); }
    QString directorName() const { return configuration().director.name; }
    QString creatorName() const { return configuration().creator.name; }
    bool signInConfigured() const { return configuration().isSignInConfigured(); }
    QStringList missingIntegrations() const { return configuration().integrationStatus(); }
    QUrl supportURL() const { return configuration().supportURL.value_or(QUrl()); }

    LaunchCollaborators m_services;

    Launch::LaunchSection m_selection = Launch::LaunchSection::overview;
    QList<InstalledApp> m_apps;
    QList<ContentPack> m_packs;
    bool m_demoEnabled = false;
    Launch::DemoScenario m_demoScenario = Launch::DemoScenario::combined;
    QString m_searchText;
    Launch::PackFilter m_packFilter = Launch::PackFilter::all;
    std::optional<QString> m_selectedPackID;
    std::optional<QString> m_message;
    bool m_automaticallyChecksForUpdates = true;
    bool m_includesBetaReleases = false;
    qint64 m_accountGeneration = 0;
    qint64 m_modeGeneration = 0;

    // Children of the store, made in its constructor.
    ApplicationFlows* m_applicationFlows;
    UpdateFlow* m_updateFlow;
    PackFlows* m_packFlows;
    AccountFlows* m_accountFlows;
    // Made when a view first reads a list.
    StoreViewModels* m_viewModels = nullptr;
};
