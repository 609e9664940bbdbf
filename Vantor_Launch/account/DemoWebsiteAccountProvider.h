#pragma once

#include "account/WebsiteAccountProviding.h"
#include "foundation/DomainEnums.h"

// The account of demo mode: no website, no browser, no secret store. It waits briefly so that
// the signing-in and syncing states can be seen.
class DemoWebsiteAccountProvider : public WebsiteAccountProviding {
public:
    explicit DemoWebsiteAccountProvider(Launch::DemoScenario scenario);

    QCoro::Task<WebsiteAccount> signIn() override;
    QCoro::Task<> signOut() override;
    QCoro::Task<WebsiteAccount> refreshAccount() override;
    QCoro::Task<LaunchContentPackManifest> downloadContentPackManifest() override;

private:
    Launch::DemoScenario m_scenario;
};
