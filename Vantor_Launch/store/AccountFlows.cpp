#include "store/AccountFlows.h"

#include "foundation/DemoData.h"
#include "foundation/LaunchError.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"
#include "store/PropertyAssign.h"

using Kind = AccountSyncState::Kind;

AccountFlows::AccountFlows(LaunchStore& store)
    : QObject(&store)
    , m_store(store)
    , m_accountProvider(store.services().productionAccountProvider) {
    if (const auto& browser = store.services().browserSignIn)
        connect(browser.get(), &BrowserSignIn::waitingChanged, this,
                &AccountFlows::isWaitingForBrowserChanged);
}

// Before the account changes hands the offline copy must go; demo mode never had one.
bool AccountFlows::clearSavedSnapshot() {
    const auto& cache = m_store.services().snapshotCache;
    if (m_store.demoEnabled() || !cache)
        return true;
    try {
        cache->clear();
        return true;
    } catch (const std::exception&) {
        m_store.setMessage(tr("Saved account data could not be removed. Sign-out or account "
                              "switching was not completed. Please try again."));
        return false;
    }
}

QCoro::Task<> AccountFlows::signIn() {
    if (m_isSigningOut) {
        m_store.setMessage(tr("Sign-out is still finishing. Please try signing in again shortly."));
        co_return;
    }
    if (m_syncState.kind == Kind::signingIn)
        co_return;
    if (!m_accountProvider) {
        // This build has no website sign-in: say so rather than ignore the button.
        m_store.setMessage(LaunchError::notConfigured(tr("Website account sign-in")).description());
        co_return;
    }

    m_store.bumpAccountGeneration();
    const auto ticket = GenerationTicket::forAccount(m_store);
    if (!clearSavedSnapshot())
        co_return;
    resetAccount();
    setSyncState(AccountSyncState::signingIn());

    const auto provider = m_accountProvider;
    try {
        const WebsiteAccount account = co_await provider->signIn();
        if (ticket.stillApplies())
            applyAccount(account);
    } catch (const std::exception& error) {
        if (!ticket.stillApplies())
            co_return;
        const QString description = LaunchError::describe(error);
        setSyncState(AccountSyncState::failed(description, std::nullopt));
        m_store.setMessage(description);
    }
}

QCoro::Task<> AccountFlows::signOut() {
    if (m_isSigningOut)
        co_return;
    m_store.bumpAccountGeneration();
    const auto ticket = GenerationTicket::forAccount(m_store);
    if (!clearSavedSnapshot())
        co_return;
    // Local state goes before the website is asked, so a slow website never looks signed in.
    resetAccount();
    setIsSigningOut(true);
    const ClearOnExit signingOut(*this, [](AccountFlows& flows) { flows.setIsSigningOut(false); });

    // The provider never fails by contract; should one throw anyway, the flag still clears and
    // the failure reaches the banner through the flow's runner.
    if (const auto provider = m_accountProvider)
        co_await provider->signOut();
    if (ticket.stillApplies()) {
        m_store.setMessage(tr("You are signed out of Vantor Launcher. Installed applications and "
                              "content were not changed."));
    }
}

QCoro::Task<> AccountFlows::refreshAccount() {
    if (!m_account || !m_accountProvider)
        co_return;
    const QString previousID = m_account->id;
    m_store.bumpAccountGeneration();
    const auto ticket = GenerationTicket::forAccount(m_store);
    setSyncState(AccountSyncState::syncing());

    const auto provider = m_accountProvider;
    try {
        const WebsiteAccount account = co_await provider->refreshAccount();
        if (!ticket.stillApplies())
            co_return;
        if (account.id != previousID) {
            setSyncState(AccountSyncState::failed(
                tr("The account changed. Sign out before signing in to another account."),
                m_lastSuccessfulSync));
            co_return;
        }
        applyAccount(account);
    } catch (const std::exception& error) {
        if (!ticket.stillApplies())
            co_return;
        const auto* launchError = dynamic_cast<const LaunchError*>(&error);
        if (m_lastSuccessfulSync && launchError && launchError->isOffline()) {
            setSyncState(AccountSyncState::offline(*m_lastSuccessfulSync));
        } else if (launchError &&
                   launchError->isUrlError(LaunchError::userAuthenticationRequired)) {
            setSyncState(AccountSyncState::sessionExpired(m_lastSuccessfulSync));
        } else {
            setSyncState(
                AccountSyncState::failed(LaunchError::describe(error), m_lastSuccessfulSync));
        }
        m_store.setMessage(tr("Website account refresh was unavailable. Your installed "
                              "applications were not changed."));
    }
}

QCoro::Task<> AccountFlows::syncAccountIfDue() {
    if (m_store.demoEnabled() || !m_account || m_isSigningOut ||
        m_syncState.kind == Kind::signingIn || m_syncState.kind == Kind::syncing)
        co_return;

    // The window applies to attempts, successful or not.
    const QDateTime current = m_store.now();
    if (m_lastAutomaticSyncAttempt && m_lastAutomaticSyncAttempt->msecsTo(current) < 60'000)
        co_return;
    setLastAutomaticSyncAttempt(current);
    co_await refreshAccount();
}

void AccountFlows::applyAccount(const WebsiteAccount& account) {
    const LaunchAccountSnapshot snapshot{1, account, m_store.now()};
    if (!snapshot.isValid()) {
        setSyncState(AccountSyncState::failed(
            tr("The website returned an invalid account identity."), m_lastSuccessfulSync));
        return;
    }
    applySnapshot(snapshot);
    setSyncState(AccountSyncState::synced(snapshot.lastSuccessfulSync));
    m_store.setMessage(std::nullopt);
    if (m_store.demoEnabled())
        return;
    if (const auto& cache = m_store.services().snapshotCache) {
        try {
            cache->save(snapshot);
        } catch (const std::exception&) {
            m_store.setMessage(tr("Account refreshed, but its offline copy could not be saved."));
        }
    }
    m_store.runDetached(m_store.packFlows().refreshPackInstallations());
}

void AccountFlows::applySnapshot(const LaunchAccountSnapshot& snapshot) {
    setAccount(snapshot.account);
    setLastSuccessfulSync(snapshot.lastSuccessfulSync);
    m_store.selectFirstPack();
    m_store.applicationFlows().reconcileBuiltInCreator();
}

bool AccountFlows::isWaitingForBrowser() const {
    const auto& browser = m_store.services().browserSignIn;
    return browser && browser->isWaiting();
}

void AccountFlows::cancelSignIn() {
    if (const auto& browser = m_store.services().browserSignIn)
        browser->cancel();
}

void AccountFlows::resetAccount() {
    setAccount(std::nullopt);
    m_store.setPacks(m_store.demoEnabled() ? DemoData::packs() : m_store.packFlows().publicPacks());
    setLastSuccessfulSync(std::nullopt);
    setSyncState(AccountSyncState::signedOut());
    m_store.selectFirstPack();
    m_store.applicationFlows().reconcileBuiltInCreator();
}

void AccountFlows::forgetForStart() {
    // A sign-in still waiting in the browser belongs to the mode that is ending.
    cancelSignIn();
    setAccount(std::nullopt);
    setLastSuccessfulSync(std::nullopt);
    setSyncState(AccountSyncState::signedOut());
}

void AccountFlows::restoreSavedSnapshot() {
    setAccountProvider(m_store.services().productionAccountProvider);
    const auto& cache = m_store.services().snapshotCache;
    if (!cache)
        return;
    std::optional<LaunchAccountSnapshot> snapshot;
    try {
        snapshot = cache->load();
    } catch (const std::exception&) {
        // The file stays where it is; the next save replaces it.
        m_store.setMessage(
            tr("Saved website account data could not be read. Sign in again to refresh it."));
        return;
    }
    if (!snapshot)
        return;
    applySnapshot(*snapshot);
    setSyncState(AccountSyncState::stale(snapshot->lastSuccessfulSync));
}

void AccountFlows::startDemo(Launch::DemoScenario scenario) {
    const auto& makeProvider = m_store.services().makeDemoAccountProvider;
    setAccountProvider(makeProvider ? makeProvider(scenario) : nullptr);
    if (scenario == Launch::DemoScenario::signedOut)
        return;
    const LaunchAccountSnapshot snapshot = DemoData::snapshot(scenario);
    setAccount(snapshot.account);
    setLastSuccessfulSync(snapshot.lastSuccessfulSync);
    setSyncState(scenario == Launch::DemoScenario::expiredSession
                     ? AccountSyncState::sessionExpired(snapshot.lastSuccessfulSync)
                     : AccountSyncState::synced(snapshot.lastSuccessfulSync));
}

void AccountFlows::setAccount(std::optional<WebsiteAccount> account) {
    assignProperty(this, m_account, std::move(account), &AccountFlows::accountChanged);
}

void AccountFlows::setSyncState(AccountSyncState state) {
    assignProperty(this, m_syncState, std::move(state), &AccountFlows::syncStateChanged);
}

void AccountFlows::setLastSuccessfulSync(std::optional<QDateTime> date) {
    assignProperty(this, m_lastSuccessfulSync, std::move(date),
                   &AccountFlows::lastSuccessfulSyncChanged);
}

void AccountFlows::setIsSigningOut(bool signingOut) {
    assignProperty(this, m_isSigningOut, signingOut, &AccountFlows::isSigningOutChanged);
}

void AccountFlows::setLastAutomaticSyncAttempt(std::optional<QDateTime> attempt) {
    assignProperty(this, m_lastAutomaticSyncAttempt, std::move(attempt),
                   &AccountFlows::lastAutomaticSyncAttemptChanged);
}

void AccountFlows::setAccountProvider(std::shared_ptr<WebsiteAccountProviding> provider) {
    assignProperty(this, m_accountProvider, std::move(provider),
                   &AccountFlows::accountProviderChanged);
}

QVariant AccountFlows::accountForView() const {
    return m_account ? QVariant::fromValue(*m_account) : QVariant();
}
