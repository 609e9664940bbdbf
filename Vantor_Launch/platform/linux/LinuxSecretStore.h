#pragma once

#include "platform/SecretStore.h"

// The desktop's Secret Service (GNOME Keyring, KWallet) through QtKeychain. The plaintext fallback
// of QtKeychain stays off: without a secret service every call fails, and nothing is written to a
// file. An item in a locked keyring is a failure to read, not a missing item.
class LinuxSecretStore : public SecretStore {
public:
    QCoro::Task<ReadResult> read(QString service, QString account) override;
    QCoro::Task<Status> write(QString service, QString account, QByteArray secret) override;
    QCoro::Task<Status> remove(QString service, QString account) override;
};
