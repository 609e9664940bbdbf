#include "foundation/LaunchError.h"
#include "store/LaunchStore.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

// Awaits a flow that nobody else awaits. A failure that escaped the flow would otherwise vanish
// with the task, so it becomes the banner message.
QCoro::Task<> awaitDetached(QPointer<LaunchStore> store, QCoro::Task<> flow) {
    std::optional<QString> failure;
    try {
        co_await std::move(flow);
    } catch (const std::exception& error) {
        failure = LaunchError::describe(error);
    } catch (...) {
        failure = LaunchError::unexpectedFailureDescription();
    }
    if (failure && store)
        store->setMessage(*failure);
}

} // namespace

void LaunchStore::runDetached(QCoro::Task<> flow) {
    // Tasks start eagerly and outlive the handle, so dropping it here is safe.
    awaitDetached(QPointer<LaunchStore>(this), std::move(flow));
}

void LaunchStore::requestStart() {
    runDetached(start());
}
void LaunchStore::requestRefreshApplications() {
    runDetached(m_applicationFlows->refreshApplications());
}
void LaunchStore::requestSyncAccountIfDue() {
    runDetached(m_accountFlows->syncAccountIfDue());
}
void LaunchStore::requestSignIn() {
    runDetached(m_accountFlows->signIn());
}
void LaunchStore::requestSignOut() {
    runDetached(m_accountFlows->signOut());
}
void LaunchStore::requestRefreshAccount() {
    runDetached(m_accountFlows->refreshAccount());
}
void LaunchStore::requestRefreshContentPacks() {
    runDetached(m_packFlows->refreshContentPacks());
}
void LaunchStore::requestInstallPack(const QString& packID) {
    runDetached(m_packFlows->installPack(packID));
}
void LaunchStore::requestOpenContentPackManagement() {
    runDetached(m_packFlows->openContentPackManagement());
}

void LaunchStore::requestChooseApplicationLocation(const QString& appID) {
    if (const auto app = appWithID(appID))
        runDetached(m_applicationFlows->chooseApplicationLocation(*app));
}

void LaunchStore::openApplication(const QString& appID) {
    if (const auto app = appWithID(appID))
        m_applicationFlows->open(*app);
}

void LaunchStore::revealApplication(const QString& appID) {
    if (const auto app = appWithID(appID))
        m_applicationFlows->revealInFileBrowser(*app);
}

void LaunchStore::requestUpdate(const QString& appID) {
    if (const auto app = appWithID(appID))
        m_updateFlow->updateApplication(*app);
}

void LaunchStore::confirmRunningUpdatePrompt() {
    m_updateFlow->confirmRunningUpdate();
}
void LaunchStore::dismissRunningUpdate() {
    m_updateFlow->dismissRunningUpdatePrompt();
}
void LaunchStore::dismissMessage() {
    setMessage(std::nullopt);
}
void LaunchStore::followWorkspace(bool follows) {
    m_applicationFlows->setFollowsWorkspace(follows);
}
