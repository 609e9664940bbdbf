#pragma once

#include "foundation/WebsiteAccount.h"

#include <QByteArray>
#include <QDateTime>

class LaunchError;

// The offline copy of the last successfully synced account.
struct LaunchAccountSnapshot {
    qint64 schemaVersion = 1;
    WebsiteAccount account;
    QDateTime lastSuccessfulSync;

    // Valid when the schema is 1 and the account id is not blank.
    bool isValid() const { return schemaVersion == 1 && !account.id.trimmed().isEmpty(); }
    // This snapshot when it is valid; throws the invalid-snapshot LaunchError otherwise.
    const LaunchAccountSnapshot& validated() const;

    // Compact JSON: "schemaVersion", "account" ("id", "displayName", "email") and
    // "lastSuccessfulSync" in reference-date seconds.
    QByteArray encoded() const;
    // Throws a decoding LaunchError when a key is missing or of the wrong type. Does not validate.
    static LaunchAccountSnapshot decode(const QByteArray& document);

    static LaunchError invalidSnapshotError();

    friend bool operator==(const LaunchAccountSnapshot&, const LaunchAccountSnapshot&) = default;
};
