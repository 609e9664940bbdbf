#pragma once

#include "account/LaunchTokens.h"
#include "account/SerialTurns.h"
#include "foundation/LaunchConfiguration.h"
#include "platform/SecretStore.h"

#include <QCoroTask>
#include <memory>
#include <optional>

// Keeps the website session as one item of the user's secret store. Calls on one store run one
// after another, in the order they were made. Every failure of the secret store itself is
// reported as "Secure session storage is not configured in this build.": the user can do nothing
// with a status code.
class LaunchTokenStore {
public:
    static inline const QString productionService =
        LaunchConfiguration::productionSecretStoreService;
    static inline const QString productionAccount = QStringLiteral("current");

    LaunchTokenStore(std::shared_ptr<SecretStore> secrets, QString service = productionService,
                     QString account = productionAccount);

    // None when no session is stored. A stored item that does not decode fails with the decoding
    // error and stays in place (the next save replaces it).
    QCoro::Task<std::optional<LaunchTokens>> load();
    // Replaces the stored session or adds it; a failure leaves the previous item as it was.
    QCoro::Task<> save(LaunchTokens tokens);
    // Never fails: a missing item and a failing secret store are both silent.
    QCoro::Task<> remove();

    const QString& service() const { return m_service; }
    const QString& account() const { return m_account; }

private:
    std::shared_ptr<SecretStore> m_secrets;
    QString m_service;
    QString m_account;
    SerialTurns m_turns;
};
