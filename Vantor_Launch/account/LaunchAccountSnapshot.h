#pragma once

#include "account/WebsiteAccount.h"

#include <QDateTime>

// The offline copy of the last successfully synced account.
struct LaunchAccountSnapshot {
    qint64 schemaVersion = 1;
    WebsiteAccount account;
    QDateTime lastSuccessfulSync;

    // Valid when the schema is 1 and the account id is not blank.
    bool isValid() const { return schemaVersion == 1 && !account.id.trimmed().isEmpty(); }

    friend bool operator==(const LaunchAccountSnapshot&, const LaunchAccountSnapshot&) = default;
};
