#include "foundation/LaunchError.h"
#include "store/ClearOnExit.h"
#include "store/LaunchStore.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

enum NotificationKind { launch = 0, termination = 1 };

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
    runDetached(refreshApplications());
}
void LaunchStore::requestSyncAccountIfDue() {
    runDetached(syncAccountIfDue());
}
void LaunchStore::requestSignIn() {
    runDetached(signIn());
}
void LaunchStore::requestSignOut() {
    runDetached(signOut());
}
void LaunchStore::requestRefreshAccount() {
    runDetached(refreshAccount());
}
void LaunchStore::requestRefreshContentPacks() {
    runDetached(refreshContentPacks());
}
void LaunchStore::requestInstallPack(const QString& packID) {
    runDetached(installPack(packID));
}
void LaunchStore::requestOpenContentPackManagement() {
    runDetached(openContentPackManagement());
}

void LaunchStore::requestChooseApplicationLocation(const QString& appID) {
    if (const auto app = appWithID(appID))
        runDetached(chooseApplicationLocation(*app));
}

void LaunchStore::openApplication(const QString& appID) {
    if (const auto app = appWithID(appID))
        open(*app);
}

void LaunchStore::revealApplication(const QString& appID) {
    if (const auto app = appWithID(appID))
        revealInFileBrowser(*app);
}

void LaunchStore::requestUpdate(const QString& appID) {
    if (const auto app = appWithID(appID))
        updateApplication(*app);
}

void LaunchStore::confirmRunningUpdatePrompt() {
    confirmRunningUpdate();
}
void LaunchStore::dismissRunningUpdate() {
    dismissRunningUpdatePrompt();
}
void LaunchStore::dismissMessage() {
    setMessage(std::nullopt);
}

void LaunchStore::setFollowsWorkspace(bool follows) {
    for (const auto& connection : std::as_const(m_workspaceConnections))
        disconnect(connection);
    m_workspaceConnections.clear();
    m_pendingNotifications[launch] = 0;
    m_pendingNotifications[termination] = 0;
    if (!follows || !m_services.workspace)
        return;

    const auto onNotification = [this](int kind) {
        ++m_pendingNotifications[kind];
        if (!m_notificationLoopRunning[kind])
            runDetached(followNotifications(kind));
    };
    Workspace* workspace = m_services.workspace.get();
    m_workspaceConnections.append(connect(workspace, &Workspace::applicationLaunched, this,
                                          [onNotification] { onNotification(launch); }));
    m_workspaceConnections.append(connect(workspace, &Workspace::applicationTerminated, this,
                                          [onNotification] { onNotification(termination); }));
}

// One loop per kind of notification: each notification gets its own refresh, and the next one
// waits until the previous refresh has finished.
QCoro::Task<> LaunchStore::followNotifications(int kind) {
    m_notificationLoopRunning[kind] = true;
    const ClearOnExit running(
        *this, [kind](LaunchStore& store) { store.m_notificationLoopRunning[kind] = false; });
    QPointer<LaunchStore> guard(this);
    while (guard && m_pendingNotifications[kind] > 0) {
        --m_pendingNotifications[kind];
        // One failed refresh must not end the loop: later notifications still need theirs.
        std::optional<QString> failure;
        try {
            co_await refreshApplications();
        } catch (const std::exception& error) {
            failure = LaunchError::describe(error);
        }
        if (failure && guard)
            setMessage(*failure);
    }
}
