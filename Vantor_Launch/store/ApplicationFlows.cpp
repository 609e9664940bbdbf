#include "store/ApplicationFlows.h"

#include "foundation/DemoData.h"
#include "foundation/LaunchError.h"
#include "platform/BundleMetadata.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"

#include <QPointer>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

namespace {

enum NotificationKind { launch = 0, termination = 1 };

} // namespace

ApplicationFlows::ApplicationFlows(LaunchStore& store)
    : QObject(&store)
    , m_store(store) {}

QCoro::Task<> ApplicationFlows::discover() {
    const auto ticket = GenerationTicket::forMode(m_store);
    const QList<InstalledApp> discovered =
        co_await m_store.services().discovery->discoverApplications();
    if (!ticket.stillApplies())
        co_return;
    m_store.setApps(applyRememberedLocations(discovered));
    reconcileBuiltInCreator();
}

QCoro::Task<> ApplicationFlows::refreshApplications() {
    if (m_store.demoEnabled()) {
        // Deliberately without the built-in Creator rule: Creator shows its own demo record.
        m_store.setApps(DemoData::applications(m_store.demoScenario()));
        co_return;
    }
    const auto ticket = GenerationTicket::forMode(m_store);
    co_await discover();
    if (!ticket.stillApplies())
        co_return;
    const QPointer<ApplicationFlows> alive(this);
    co_await m_store.updateFlow().checkDirectorRelease();
    // Gone with its store, which a restart may have replaced meanwhile.
    if (!alive)
        co_return;
    // Not dropped when a start() came meanwhile: a queued update waits for exactly this refresh,
    // and resumeQueuedUpdate() looks at the running copies afresh.
    co_await m_store.updateFlow().resumeQueuedUpdate();
}

QString ApplicationFlows::rememberedLocationKey(const QString& appID) const {
    return u"selectedApplication."_s + appID;
}

QList<InstalledApp> ApplicationFlows::applyRememberedLocations(QList<InstalledApp> discovered) {
    const LaunchCollaborators& services = m_store.services();
    if (!services.settings || !services.bookmarks)
        return discovered;
    QSettings& settings = *services.settings;

    for (InstalledApp& app : discovered) {
        if (app.path)
            continue;
        const QString key = rememberedLocationKey(app.id);
        if (!settings.contains(key))
            continue;

        const auto resolution = services.bookmarks->resolve(settings.value(key).toByteArray());
        const auto metadata =
            resolution && !resolution->isStale ? readBundleMetadata(resolution->url) : std::nullopt;
        const auto& product = m_store.configuration().productNamed(app.name);
        if (!metadata || !metadata->bundleIdentifier ||
            !product.isVerifiedIdentifier(*metadata->bundleIdentifier)) {
            // A stale or foreign bookmark is forgotten; the application shows as not found.
            settings.remove(key);
            continue;
        }

        services.bookmarks->startAccessing(resolution->url);
        recordSecurityScopedURL(app.id, resolution->url);
        app = recordFromBundle(app, resolution->url);
    }
    return discovered;
}

InstalledApp ApplicationFlows::recordFromBundle(const InstalledApp& app, const QUrl& bundle) const {
    const auto metadata = readBundleMetadata(bundle).value_or(ApplicationBundleMetadata{});
    InstalledApp record = app;
    record.bundleIdentifier = metadata.bundleIdentifier.value_or(app.bundleIdentifier);
    record.path = bundle;
    record.installedVersion = metadata.version;
    record.build = metadata.build;
    record.state = InstallationState::stale;
    record.lastChecked = m_store.now();
    return record;
}

void ApplicationFlows::reconcileBuiltInCreator() {
    const InstalledApp* director = nullptr;
    const InstalledApp* creator = nullptr;
    for (const InstalledApp& app : m_store.apps()) {
        if (!director && app.name == m_store.configuration().director.name)
            director = &app;
        if (!creator && app.name == m_store.configuration().creator.name)
            creator = &app;
    }
    if (!director || !creator || !director->path)
        return;

    InstalledApp mirrored = *creator;
    mirrored.bundleIdentifier = director->bundleIdentifier;
    mirrored.path = director->path;
    mirrored.installedVersion = director->installedVersion;
    mirrored.build = director->build;
    mirrored.availableVersion = director->availableVersion;
    mirrored.lastChecked = director->lastChecked;
    mirrored.isRunning = false;
    mirrored.state = InstallationState::included;
    m_store.replaceApp(mirrored);
}

void ApplicationFlows::open(const InstalledApp& app) {
    if (!app.path) {
        m_store.setMessage(tr("%1 is not installed at a verified location.").arg(app.name));
        return;
    }
    if (m_store.demoEnabled()) {
        m_store.setMessage(
            tr("Demo mode did not open %1 or change the installed application.").arg(app.name));
        return;
    }
    // The launch notification that follows refreshes the running state.
    m_store.services().workspace->openApplication(*app.path);
}

QCoro::Task<> ApplicationFlows::chooseApplicationLocation(InstalledApp app) {
    const LaunchCollaborators& services = m_store.services();
    if (m_store.demoEnabled() || !services.locationChooser)
        co_return;

    const auto ticket = GenerationTicket::forMode(m_store);
    // Named, not a temporary inside the co_await: GCC 12 mishandles such temporaries.
    ApplicationLocationChooser::Request request{
        tr("Locate %1").arg(app.name),
        tr("Select the %1 application. Its bundle identifier will be verified.").arg(app.name),
        tr("Use This Application")};
    const auto chooser = services.locationChooser;
    const std::optional<QUrl> chosen = co_await chooser->chooseApplication(std::move(request));
    if (!chosen || !ticket.stillApplies())
        co_return;

    const auto metadata = readBundleMetadata(*chosen);
    const auto& product = m_store.configuration().productNamed(app.name);
    if (!metadata || !metadata->bundleIdentifier ||
        !product.isVerifiedIdentifier(*metadata->bundleIdentifier)) {
        m_store.setMessage(
            tr("The selected application is not a verified %1 installation.").arg(app.name));
        co_return;
    }

    const auto bookmark = services.bookmarks->createBookmark(*chosen);
    if (!bookmark) {
        m_store.setMessage(tr("Vantor Launcher could not remember the selected application."));
        co_return;
    }
    services.settings->setValue(rememberedLocationKey(app.id), *bookmark);
    // Access starts here as it does for a remembered location, or a sandboxed launcher would
    // lose the bundle it was just given.
    services.bookmarks->startAccessing(*chosen);
    recordSecurityScopedURL(app.id, *chosen);
    m_store.replaceApp(recordFromBundle(app, *chosen));
    m_store.runDetached(m_store.updateFlow().checkDirectorRelease());
}

void ApplicationFlows::revealInFileBrowser(const InstalledApp& app) {
    if (m_store.demoEnabled()) {
        m_store.setMessage(tr("Demo mode did not reveal a simulated application."));
        return;
    }
    if (app.path)
        m_store.services().workspace->revealInFileBrowser(*app.path);
}

void ApplicationFlows::setFollowsWorkspace(bool follows) {
    for (const auto& connection : std::as_const(m_workspaceConnections))
        disconnect(connection);
    m_workspaceConnections.clear();
    m_pendingNotifications[launch] = 0;
    m_pendingNotifications[termination] = 0;
    Workspace* workspace = m_store.services().workspace.get();
    if (!follows || !workspace)
        return;

    const auto onNotification = [this](int kind) {
        ++m_pendingNotifications[kind];
        if (!m_notificationLoopRunning[kind])
            m_store.runDetached(followNotifications(kind));
    };
    m_workspaceConnections.append(connect(workspace, &Workspace::applicationLaunched, this,
                                          [onNotification] { onNotification(launch); }));
    m_workspaceConnections.append(connect(workspace, &Workspace::applicationTerminated, this,
                                          [onNotification] { onNotification(termination); }));
}

// One loop per kind of notification: each notification gets its own refresh, and the next one
// waits until the previous refresh has finished.
QCoro::Task<> ApplicationFlows::followNotifications(int kind) {
    m_notificationLoopRunning[kind] = true;
    const ClearOnExit running(
        *this, [kind](ApplicationFlows& flows) { flows.m_notificationLoopRunning[kind] = false; });
    QPointer<ApplicationFlows> guard(this);
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
            m_store.setMessage(*failure);
    }
}

void ApplicationFlows::recordSecurityScopedURL(const QString& appID, const QUrl& bundle) {
    if (m_securityScopedApplicationURLs.value(appID) == bundle)
        return;
    m_securityScopedApplicationURLs.insert(appID, bundle);
    Q_EMIT securityScopedApplicationURLsChanged();
}

QVariantMap ApplicationFlows::securityScopedApplicationURLsForView() const {
    QVariantMap urls;
    for (auto it = m_securityScopedApplicationURLs.cbegin();
         it != m_securityScopedApplicationURLs.cend(); ++it)
        urls.insert(it.key(), it.value());
    return urls;
}
