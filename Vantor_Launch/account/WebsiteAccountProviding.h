#pragma once

#include "foundation/LaunchContentPackManifest.h"
#include "foundation/WebsiteAccount.h"

#include <QCoroTask>

// The website account as the store sees it: production talks to the website, demo imitates it.
class WebsiteAccountProviding {
public:
    virtual ~WebsiteAccountProviding() = default;
    virtual QCoro::Task<WebsiteAccount> signIn() = 0;
    // Best effort; never throws.
    virtual QCoro::Task<> signOut() = 0;
    virtual QCoro::Task<WebsiteAccount> refreshAccount() = 0;
    virtual QCoro::Task<LaunchContentPackManifest> downloadContentPackManifest() = 0;
};
