#include "account/LaunchTokenStore.h"

#include "foundation/LaunchError.h"

#include <QCoreApplication>

namespace {

LaunchError storageUnavailable() {
    return LaunchError::notConfigured(
        QCoreApplication::translate("LaunchTokenStore", "Secure session storage"));
}

} // namespace

LaunchTokenStore::LaunchTokenStore(std::shared_ptr<SecretStore> secrets, QString service,
                                   QString account)
    : m_secrets(std::move(secrets))
    , m_service(std::move(service))
    , m_account(std::move(account)) {}

QCoro::Task<std::optional<LaunchTokens>> LaunchTokenStore::load() {
    const SerialTurns::Turn turn = co_await m_turns.next();
    const SecretStore::ReadResult result = co_await m_secrets->read(m_service, m_account);
    switch (result.status) {
    case SecretStore::Status::itemNotFound:
        co_return std::nullopt;
    case SecretStore::Status::success:
        co_return LaunchTokens::decode(result.secret);
    case SecretStore::Status::failure:
        break;
    }
    throw storageUnavailable();
}

QCoro::Task<> LaunchTokenStore::save(LaunchTokens tokens) {
    const QByteArray encoded = tokens.encoded();
    const SerialTurns::Turn turn = co_await m_turns.next();
    // The secret service replaces an existing item in place and adds a missing one in the same
    // call, which is the update-then-add of a keychain in one step.
    const SecretStore::Status status = co_await m_secrets->write(m_service, m_account, encoded);
    if (status != SecretStore::Status::success)
        throw storageUnavailable();
}

QCoro::Task<> LaunchTokenStore::remove() {
    const SerialTurns::Turn turn = co_await m_turns.next();
    co_await m_secrets->remove(m_service, m_account);
}
