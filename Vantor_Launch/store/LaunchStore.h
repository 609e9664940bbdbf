#pragma once

#include "foundation/AccountSyncState.h"
#include "foundation/AvailableApplicationRelease.h"
#include "foundation/ContentPack.h"
#include "foundation/InstalledApp.h"
#include "foundation/WebsiteAccount.h"
#include "store/ApplicationListModel.h"
#include "store/ContentPackListModel.h"
#include "store/LaunchCollaborators.h"

#include <QCoroTask>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QVariant>
#include <optional>

class GenerationTicket;
class StoreViewModels;

// The single source of truth of the launcher. Every view reads its properties and calls its
// operations; every flow runs here, on the main thread. The flows of each feature are defined in
// that feature's folder (applications/UpdateFlow.cpp, content_packs/PackFlows.cpp,
// account/AccountFlows.cpp).
class LaunchStore : public QObject {
    Q_OBJECT

    Q_PROPERTY(
        Launch::LaunchSection selection READ selection WRITE setSelection NOTIFY selectionChanged)
    // The lists are models that signal the rows that change; each pack row carries its download's
    // progress.
    Q_PROPERTY(ApplicationListModel* apps READ appsForView CONSTANT)
    Q_PROPERTY(QVariant account READ accountForView NOTIFY accountChanged)
    Q_PROPERTY(ContentPackListModel* packs READ packsForView CONSTANT)
    Q_PROPERTY(AccountSyncState syncState READ syncState NOTIFY syncStateChanged)
    Q_PROPERTY(QDateTime lastSuccessfulSync READ lastSuccessfulSyncForView NOTIFY
                   lastSuccessfulSyncChanged)
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
    Q_PROPERTY(QString runningUpdatePromptAppID READ runningUpdatePromptAppIDForView NOTIFY
                   runningUpdatePromptAppIDChanged)
    Q_PROPERTY(QString updatingAppID READ updatingAppIDForView NOTIFY updatingAppIDChanged)
    Q_PROPERTY(bool isRefreshingContentPacks READ isRefreshingContentPacks NOTIFY
                   isRefreshingContentPacksChanged)
    Q_PROPERTY(bool automaticallyChecksForUpdates READ automaticallyChecksForUpdates WRITE
                   setAutomaticallyChecksForUpdates NOTIFY automaticallyChecksForUpdatesChanged)
    Q_PROPERTY(bool includesBetaReleases READ includesBetaReleases WRITE setIncludesBetaReleases
                   NOTIFY includesBetaReleasesChanged)
    Q_PROPERTY(qint64 accountGeneration READ accountGeneration NOTIFY accountGenerationChanged)
    Q_PROPERTY(qint64 modeGeneration READ modeGeneration NOTIFY modeGenerationChanged)
    Q_PROPERTY(bool isSigningOut READ isSigningOut NOTIFY isSigningOutChanged)
    Q_PROPERTY(bool isWaitingForBrowser READ isWaitingForBrowser NOTIFY isWaitingForBrowserChanged)
    Q_PROPERTY(ContentPackListModel* publicPacks READ publicPacksForView CONSTANT)
    Q_PROPERTY(bool hasLoadedPublicCatalogue READ hasLoadedPublicCatalogue NOTIFY
                   hasLoadedPublicCatalogueChanged)
    Q_PROPERTY(QString reopenAfterUpdateAppID READ reopenAfterUpdateAppIDForView NOTIFY
                   reopenAfterUpdateAppIDChanged)
    Q_PROPERTY(QVariant availableDirectorRelease READ availableDirectorReleaseForView NOTIFY
                   availableDirectorReleaseChanged)
    Q_PROPERTY(QVariant queuedUpdateApplication READ queuedUpdateApplicationForView NOTIFY
                   queuedUpdateApplicationChanged)
    Q_PROPERTY(QDateTime lastAutomaticSyncAttempt READ lastAutomaticSyncAttemptForView NOTIFY
                   lastAutomaticSyncAttemptChanged)
    Q_PROPERTY(QVariantMap securityScopedApplicationURLs READ securityScopedApplicationURLsForView
                   NOTIFY securityScopedApplicationURLsChanged)

    // Derived.
    Q_PROPERTY(ContentPackListModel* filteredPacks READ filteredPacksForView CONSTANT)
    // The selected pack as a list of zero rows or one, so that its detail follows its changes.
    Q_PROPERTY(ContentPackListModel* selectedPack READ selectedPackForView CONSTANT)
    Q_PROPERTY(int updateCount READ updateCount NOTIFY updateCountChanged)

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

    // Published state.
    Launch::LaunchSection selection() const { return m_selection; }
    const QList<InstalledApp>& apps() const { return m_apps; }
    const std::optional<WebsiteAccount>& account() const { return m_account; }
    const QList<ContentPack>& packs() const { return m_packs; }
    const AccountSyncState& syncState() const { return m_syncState; }
    const std::optional<QDateTime>& lastSuccessfulSync() const { return m_lastSuccessfulSync; }
    bool demoEnabled() const { return m_demoEnabled; }
    Launch::DemoScenario demoScenario() const { return m_demoScenario; }
    const QString& searchText() const { return m_searchText; }
    Launch::PackFilter packFilter() const { return m_packFilter; }
    const std::optional<QString>& selectedPackID() const { return m_selectedPackID; }
    const std::optional<QString>& message() const { return m_message; }
    const std::optional<QString>& runningUpdatePromptAppID() const {
        return m_runningUpdatePromptAppID;
    }
    const std::optional<QString>& updatingAppID() const { return m_updatingAppID; }
    bool isRefreshingContentPacks() const { return m_isRefreshingContentPacks; }
    bool automaticallyChecksForUpdates() const { return m_automaticallyChecksForUpdates; }
    bool includesBetaReleases() const { return m_includesBetaReleases; }
    const std::shared_ptr<WebsiteAccountProviding>& accountProvider() const {
        return m_accountProvider;
    }
    qint64 accountGeneration() const { return m_accountGeneration; }
    qint64 modeGeneration() const { return m_modeGeneration; }
    bool isSigningOut() const { return m_isSigningOut; }
    // A sign-in waits for the user to finish in the browser.
    bool isWaitingForBrowser() const;
    const std::optional<QDateTime>& lastAutomaticSyncAttempt() const {
        return m_lastAutomaticSyncAttempt;
    }
    const QList<ContentPack>& publicPacks() const { return m_publicPacks; }
    bool hasLoadedPublicCatalogue() const { return m_hasLoadedPublicCatalogue; }
    const QHash<QString, QUrl>& securityScopedApplicationURLs() const {
        return m_securityScopedApplicationURLs;
    }
    const std::optional<InstalledApp>& queuedUpdateApplication() const {
        return m_queuedUpdateApplication;
    }
    const std::optional<QString>& reopenAfterUpdateAppID() const {
        return m_reopenAfterUpdateAppID;
    }
    const std::optional<AvailableApplicationRelease>& availableDirectorRelease() const {
        return m_availableDirectorRelease;
    }
    // Pack id to {"received": bytes, "expected": bytes} while that pack downloads.
    const QVariantMap& packProgress() const { return m_packProgress; }

    // Fixed collaborators.
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

    // Start-up and refreshes.
    QCoro::Task<> start();
    QCoro::Task<> refreshApplications();
    QCoro::Task<> refreshReleaseAndCatalogue();
    QCoro::Task<> syncAccountIfDue();
    QList<InstalledApp> applyRememberedLocations(QList<InstalledApp> discovered);
    void reconcileBuiltInCreator();
    void open(const InstalledApp& app);
    QCoro::Task<> chooseApplicationLocation(InstalledApp app);
    void revealInFileBrowser(const InstalledApp& app);
    void setMessage(std::optional<QString> text);

    // Update flow.
    QCoro::Task<> checkDirectorRelease();
    enum class ReleaseDecision { newer, notNewer, undetermined };
    static ReleaseDecision releaseDecision(const std::optional<QString>& installedVersion,
                                           const std::optional<QString>& installedBuild,
                                           const AvailableApplicationRelease& release);
    QString updateButtonTitle(const InstalledApp& app) const {
        return updateButtonTitle(app, m_availableDirectorRelease);
    }
    static QString updateButtonTitle(const InstalledApp& app,
                                     const std::optional<AvailableApplicationRelease>& release);
    void updateApplication(const InstalledApp& app);
    void confirmRunningUpdate();
    void dismissRunningUpdatePrompt();
    QCoro::Task<> resumeQueuedUpdate();
    QCoro::Task<> installUpdate(InstalledApp app);

    // Pack flows.
    QCoro::Task<> refreshContentPacks();
    QCoro::Task<> refreshCatalogue();
    QCoro::Task<> refreshPackInstallations();
    QCoro::Task<> installPack(QString packID);
    QCoro::Task<> openContentPackManagement();
    void selectPack(const QString& packID);

    // Account flows.
    QCoro::Task<> signIn();
    QCoro::Task<> signOut();
    QCoro::Task<> refreshAccount();
    void applyAccount(const WebsiteAccount& account);
    void applySnapshot(const LaunchAccountSnapshot& snapshot);
    void resetAccount();
    // Ends a sign-in that waits for the browser; it fails with the cancellation error.
    Q_INVOKABLE void cancelSignIn();

    // Re-discovers after every launch or termination that the workspace reports, one refresh at a
    // time per kind of notification, while the main window is shown.
    void setFollowsWorkspace(bool follows);

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
    Q_INVOKABLE void followWorkspace(bool follows) { setFollowsWorkspace(follows); }

Q_SIGNALS:
    void selectionChanged();
    void appsChanged();
    void accountChanged();
    void packsChanged();
    void syncStateChanged();
    void lastSuccessfulSyncChanged();
    void demoEnabledChanged();
    void demoScenarioChanged();
    void searchTextChanged();
    void packFilterChanged();
    void selectedPackIDChanged();
    void messageChanged();
    void runningUpdatePromptAppIDChanged();
    void updatingAppIDChanged();
    void isRefreshingContentPacksChanged();
    void automaticallyChecksForUpdatesChanged();
    void includesBetaReleasesChanged();
    void accountGenerationChanged();
    void modeGenerationChanged();
    void isSigningOutChanged();
    void isWaitingForBrowserChanged();
    void publicPacksChanged();
    void hasLoadedPublicCatalogueChanged();
    void reopenAfterUpdateAppIDChanged();
    void availableDirectorReleaseChanged();
    void queuedUpdateApplicationChanged();
    void lastAutomaticSyncAttemptChanged();
    void securityScopedApplicationURLsChanged();
    // The provider is a service, not a value for views: C++ observers only.
    void accountProviderChanged();
    void packProgressChanged();
    void filteredPacksChanged();
    void updateCountChanged();

private:
    friend class GenerationTicket;

    // Property writers: each notifies only on a real change.
    void setApps(QList<InstalledApp> apps);
    void replaceApp(const InstalledApp& app);
    void setAccount(std::optional<WebsiteAccount> account);
    void setPacks(QList<ContentPack> packs);
    void setSyncState(AccountSyncState state);
    void setLastSuccessfulSync(std::optional<QDateTime> date);
    void setSelectedPackID(std::optional<QString> packID);
    void selectFirstPack();
    void setRunningUpdatePromptAppID(std::optional<QString> appID);
    void setUpdatingAppID(std::optional<QString> appID);
    void setIsRefreshingContentPacks(bool refreshing);
    void setIsSigningOut(bool signingOut);
    void setPublicPacks(QList<ContentPack> packs);
    void setHasLoadedPublicCatalogue(bool loaded);
    void setQueuedUpdateApplication(std::optional<InstalledApp> app);
    void setReopenAfterUpdateAppID(std::optional<QString> appID);
    void setAvailableDirectorRelease(std::optional<AvailableApplicationRelease> release);
    void setLastAutomaticSyncAttempt(std::optional<QDateTime> attempt);
    void setAccountProvider(std::shared_ptr<WebsiteAccountProviding> provider);
    void recordSecurityScopedURL(const QString& appID, const QUrl& bundle);
    void bumpModeGeneration();
    void bumpAccountGeneration();

    void startDemo();
    void restoreSavedSnapshot();
    bool clearSavedSnapshot();
    InstalledApp recordFromBundle(const InstalledApp& app, const QUrl& bundle) const;
    const InstalledApp* findApp(const QString& appID) const;
    std::optional<InstalledApp> appWithID(const QString& appID) const;
    QList<RunningApplication> runningCopiesAt(const InstalledApp& app) const;
    static QString updaterMissingDescription();
    QString rememberedLocationKey(const QString& appID) const;
    void setPackInstallation(const QString& packID, Launch::PackInstallation installation);
    // No value removes the pack's entry.
    void setPackProgress(const QString& packID,
                         std::optional<std::pair<qint64, qint64>> receivedOfExpected);

    // Runs a flow that nobody awaits; its failure becomes the message instead of being lost.
    void runDetached(QCoro::Task<> flow);
    QCoro::Task<> followNotifications(int kind);

    // View adapters.
    StoreViewModels& viewModels();
    ApplicationListModel* appsForView();
    QVariant accountForView() const;
    ContentPackListModel* packsForView();
    QDateTime lastSuccessfulSyncForView() const {
        return m_lastSuccessfulSync.value_or(QDateTime());
    }
    QString selectedPackIDForView() const { return m_selectedPackID.value_or(QString()); }
    bool hasMessage() const { return m_message.has_value(); }
    QString messageForView() const { return m_message.value_or(QString()); }
    QString runningUpdatePromptAppIDForView() const {
        return m_runningUpdatePromptAppID.value_or(QString());
    }
    QString updatingAppIDForView() const { return m_updatingAppID.value_or(QString()); }
    ContentPackListModel* publicPacksForView();
    QString reopenAfterUpdateAppIDForView() const {
        return m_reopenAfterUpdateAppID.value_or(QString());
    }
    QVariant availableDirectorReleaseForView() const;
    QVariant queuedUpdateApplicationForView() const;
    QDateTime lastAutomaticSyncAttemptForView() const {
        return m_lastAutomaticSyncAttempt.value_or(QDateTime());
    }
    QVariantMap securityScopedApplicationURLsForView() const;
    ContentPackListModel* filteredPacksForView();
    ContentPackListModel* selectedPackForView();
    QString directorName() const { return configuration().director.name; }
    QString creatorName() const { return configuration().creator.name; }
    bool signInConfigured() const { return configuration().isSignInConfigured(); }
    QStringList missingIntegrations() const { return configuration().integrationStatus(); }
    QUrl supportURL() const { return configuration().supportURL.value_or(QUrl()); }

    LaunchCollaborators m_services;

    Launch::LaunchSection m_selection = Launch::LaunchSection::overview;
    QList<InstalledApp> m_apps;
    std::optional<WebsiteAccount> m_account;
    QList<ContentPack> m_packs;
    AccountSyncState m_syncState = AccountSyncState::signedOut();
    std::optional<QDateTime> m_lastSuccessfulSync;
    bool m_demoEnabled = false;
    Launch::DemoScenario m_demoScenario = Launch::DemoScenario::combined;
    QString m_searchText;
    Launch::PackFilter m_packFilter = Launch::PackFilter::all;
    std::optional<QString> m_selectedPackID;
    std::optional<QString> m_message;
    std::optional<QString> m_runningUpdatePromptAppID;
    std::optional<QString> m_updatingAppID;
    bool m_isRefreshingContentPacks = false;
    bool m_automaticallyChecksForUpdates = true;
    bool m_includesBetaReleases = false;
    std::shared_ptr<WebsiteAccountProviding> m_accountProvider;
    qint64 m_accountGeneration = 0;
    qint64 m_modeGeneration = 0;
    bool m_isSigningOut = false;
    std::optional<QDateTime> m_lastAutomaticSyncAttempt;
    QList<ContentPack> m_publicPacks;
    bool m_hasLoadedPublicCatalogue = false;
    QHash<QString, QUrl> m_securityScopedApplicationURLs;
    std::optional<InstalledApp> m_queuedUpdateApplication;
    std::optional<QString> m_reopenAfterUpdateAppID;
    std::optional<AvailableApplicationRelease> m_availableDirectorRelease;
    QVariantMap m_packProgress;
    // Made when a view first reads a list.
    StoreViewModels* m_viewModels = nullptr;

    // Workspace notifications waiting for their refresh, per kind (launch, termination).
    int m_pendingNotifications[2] = {0, 0};
    bool m_notificationLoopRunning[2] = {false, false};
    QList<QMetaObject::Connection> m_workspaceConnections;
};
