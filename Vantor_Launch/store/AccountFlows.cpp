#include "foundation/DemoData.h"
#include "foundation/LaunchError.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"

using namespace Qt::StringLiterals;
using Kind = AccountSyncState::Kind;

// Before the account changes hands the offline copy must go; demo mode never had one.
bool LaunchStore::clearSavedSnapshot() {
    if (m_demoEnabled || !m_services.snapshotCache)
        return true;
    try {
        m_services.snapshotCache->clear();
        return true;
    } catch (const std::exception&) {
        setMessage(
            u"Saved account data could not be removed. Sign-out or account switching was not completed. Please try again."_s);
        return false;
    }
}

QCoro::Task<> LaunchStore::signIn() {
    if (m_isSigningOut) {
        setMessage(u"Sign-out is still finishing. Please try signing in again shortly."_s);
        co_return;
    }
    if (m_syncState.kind == Kind::signingIn)
        co_return;
    if (!m_accountProvider) {
        // This build has no website sign-in: say so rather than ignore the button.
        setMessage(LaunchError::notConfigured(u"Website account sign-in"_s).description());
        co_return;
    }

    bumpAccountGeneration();
    const auto ticket = GenerationTicket::forAccount(*this);
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
        setMessage(description);
    }
}

QCoro::Task<> LaunchStore::signOut() {
    if (m_isSigningOut)
        co_return;
    bumpAccountGeneration();
    const auto ticket = GenerationTicket::forAccount(*this);
    if (!clearSavedSnapshot())
        co_return;
    // Local state goes before the website is asked, so a slow website never looks signed in.
    resetAccount();
    setIsSigningOut(true);
    const ClearOnExit signingOut(*this, [](LaunchStore& store) { store.setIsSigningOut(false); });

    // The provider never fails by contract; should one throw anyway, the flag still clears and
    // the failure reaches the banner through the flow's runner.
    if (const auto provider = m_accountProvider)
        co_await provider->signOut();
    if (ticket.stillApplies()) {
        setMessage(
            u"You are signed out of Vantor Launcher. Installed applications and content were not changed."_s);
    }
}

QCoro::Task<> LaunchStore::refreshAccount() {
    if (!m_account || !m_accountProvider)
        co_return;
    const QString previousID = m_account->id;
    bumpAccountGeneration();
    const auto ticket = GenerationTicket::forAccount(*this);
    setSyncState(AccountSyncState::syncing());

    const auto provider = m_accountProvider;
    try {
        const WebsiteAccount account = co_await provider->refreshAccount();
        if (!ticket.stillApplies())
            co_return;
        if (account.id != previousID) {
            setSyncState(AccountSyncState::failed(
                u"The account changed. Sign out before signing in to another account."_s,
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
        setMessage(
            u"Website account refresh was unavailable. Your installed applications were not changed."_s);
    }
}

void LaunchStore::applyAccount(const WebsiteAccount& account) {
    const LaunchAccountSnapshot snapshot{1, account, now()};
    if (!snapshot.isValid()) {
        setSyncState(AccountSyncState::failed(
            u"The website returned an invalid account identity."_s, m_lastSuccessfulSync));
        return;
    }
    applySnapshot(snapshot);
    setSyncState(AccountSyncState::synced(snapshot.lastSuccessfulSync));
    setMessage(std::nullopt);
    if (m_demoEnabled)
        return;
    if (m_services.snapshotCache) {
        try {
            m_services.snapshotCache->save(snapshot);
        } catch (const std::exception&) {
            setMessage(u"Account refreshed, but its offline copy could not be saved."_s);
        }
    }
    runDetached(refreshPackInstallations());
}

void LaunchStore::applySnapshot(const LaunchAccountSnapshot& snapshot) {
    setAccount(snapshot.account);
    setLastSuccessfulSync(snapshot.lastSuccessfulSync);
    selectFirstPack();
    reconcileBuiltInCreator();
}

bool LaunchStore::isWaitingForBrowser() const {
    return m_services.browserSignIn && m_services.browserSignIn->isWaiting();
}

void LaunchStore::cancelSignIn() {
    if (m_services.browserSignIn)
        m_services.browserSignIn->cancel();
}

void LaunchStore::resetAccount() {
    setAccount(std::nullopt);
    setPacks(m_demoEnabled ? DemoData::packs() : m_publicPacks);
    setLastSuccessfulSync(std::nullopt);
    setSyncState(AccountSyncState::signedOut());
    selectFirstPack();
    reconcileBuiltInCreator();
}
