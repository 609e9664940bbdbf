#pragma once

#include "foundation/AccountSyncState.h"
#include "foundation/ContentPack.h"
#include "foundation/InstalledApp.h"
#include "foundation/WebsiteAccount.h"

#include <QtQmlIntegration>

// The store's records, known to QML as value types so that views read their properties and hand
// them back to C++ helpers unchanged.

struct InstalledAppValueType {
    Q_GADGET
    QML_FOREIGN(InstalledApp)
    QML_VALUE_TYPE(installedApp)
};

struct AccountSyncStateValueType {
    Q_GADGET
    QML_FOREIGN(AccountSyncState)
    QML_VALUE_TYPE(accountSyncState)
};

struct WebsiteAccountValueType {
    Q_GADGET
    QML_FOREIGN(WebsiteAccount)
    QML_VALUE_TYPE(websiteAccount)
};

struct ContentPackValueType {
    Q_GADGET
    QML_FOREIGN(ContentPack)
    QML_VALUE_TYPE(contentPack)
};
