#pragma once

#include "account/WebsiteAccountProviding.h"
#include "foundation/AccountSyncState.h"
#include "foundation/DomainEnums.h"
#include "foundation/LaunchAccountSnapshot.h"
#include "foundation/WebsiteAccount.h"

#include <QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QVariant>
#include <memory>
#include <optional>

class LaunchStore;

// The website account: sign-in through the browser, sign-out, refreshes, and the offline
// snapshot that shows the account while the website cannot be reached.
class AccountFlows : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariant account READ accountForView NOTIFY accountChanged)
    Q_PROPERTY(AccountSyncState syncState READ syncState NOTIFY syncStateChanged)
    Q_PROPERTY(QDateTime lastSuccessfulSync READ lastSuccessfulSyncForView NOTIFY
                   lastSuccessfulSyncChanged)
    Q_PROPERTY(bool isSigningOut READ isSigningOut NOTIFY isSigningOutChanged)
    Q_PROPERTY(bool isWaitingForBrowser READ isWaitingForBrowser NOTIFY isWaitingForBrowserChanged)

public:
    explicit AccountFlows(LaunchStore& store);

    const std::optional<WebsiteAccount>& account() const { return m_account; }
    const AccountSyncState& syncState() const { return m_syncState; }
    const std::optional<QDateTime>& lastSuccessfulSync() const { return m_lastSuccessfulSync; }
    bool isSigningOut() const { return m_isSigningOut; }
    // A sign-in waits for the user to finish in the browser.
    bool isWaitingForBrowser() const;
    const std::optional<QDateTime>& lastAutomaticSyncAttempt() const {
        return m_lastAutomaticSyncAttempt;
    }
    const std::shared_ptr<WebsiteAccountProviding>& accountProvider() const {
        return m_accountProvider;
    }

    QCoro::Task<> signIn();
    QCoro::Task<> signOut();
    QCoro::Task<> refreshAccount();
    QCoro::Task<> syncAccountIfDue();
    void applyAccount(const WebsiteAccount& account);
    void applySnapshot(const LaunchAccountSnapshot& snapshot);
    // Ends a sign-in that waits for the browser; it fails with the cancellation error.
    Q_INVOKABLE void cancelSignIn();

    // What start() does to the account: forget everything, then restore the mode's own.
    void forgetForStart();
    void restoreSavedSnapshot();
    void startDemo(Launch::DemoScenario scenario);

Q_SIGNALS:
    void accountChanged();
    void syncStateChanged();
    void lastSuccessfulSyncChanged();
    void isSigningOutChanged();
    void isWaitingForBrowserChanged();
    void lastAutomaticSyncAttemptChanged();
    // The provider is a service, not a value for views: C++ observers only.
    void accountProviderChanged();

private:
    void setAccount(std::optional<WebsiteAccount> account);
    void setSyncState(AccountSyncState state);
    void setLastSuccessfulSync(std::optional<QDateTime> date);
    void setIsSigningOut(bool signingOut);
    void setLastAutomaticSyncAttempt(std::optional<QDateTime> attempt);
    void setAccountProvider(std::shared_ptr<WebsiteAccountProviding> provider);
    void resetAccount();
    bool clearSavedSnapshot();

    QVariant accountForView() const;
    QDateTime lastSuccessfulSyncForView() const {
        return m_lastSuccessfulSync.value_or(QDateTime());
    }

    LaunchStore& m_store;
    std::optional<WebsiteAccount> m_account;
    AccountSyncState m_syncState = AccountSyncState::signedOut();
    std::optional<QDateTime> m_lastSuccessfulSync;
    bool m_isSigningOut = false;
    std::optional<QDateTime> m_lastAutomaticSyncAttempt;
    std::shared_ptr<WebsiteAccountProviding> m_accountProvider;
};
