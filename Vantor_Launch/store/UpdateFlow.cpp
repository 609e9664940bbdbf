#include "store/UpdateFlow.h"

#include "foundation/LaunchError.h"
#include "foundation/SemanticVersion.h"
#include "platform/BundleMetadata.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"
#include "store/PropertyAssign.h"
#include "store/Transfer.h"

#include <QLoggingCategory>

using Launch::InstallationState;

Q_DECLARE_LOGGING_CATEGORY(lcStore)

UpdateFlow::UpdateFlow(LaunchStore& store)
    : QObject(&store)
    , m_store(store) {}

UpdateFlow::ReleaseDecision
UpdateFlow::releaseDecision(const std::optional<QString>& installedVersion,
                            const std::optional<QString>& installedBuild,
                            const AvailableApplicationRelease& release) {
    if (!installedVersion)
        return ReleaseDecision::undetermined;
    const auto newer = isUpdate(*installedVersion, installedBuild, release.version, release.build);
    if (!newer)
        return ReleaseDecision::undetermined;
    return *newer ? ReleaseDecision::newer : ReleaseDecision::notNewer;
}

QCoro::Task<> UpdateFlow::checkDirectorRelease() {
    const auto checker = m_store.services().releaseChecker;
    if (!checker)
        co_return;
    const auto& director = m_store.configuration().director;
    const auto& apps = m_store.apps();
    const auto it = std::find_if(apps.begin(), apps.end(), [&](const InstalledApp& app) {
        return director.isVerifiedIdentifier(app.bundleIdentifier);
    });
    if (it == apps.end())
        co_return;
    const QString appID = it->id;
    const auto ticket = GenerationTicket::forMode(m_store);

    std::optional<AvailableApplicationRelease> release;
    try {
        release = co_await checker->latestRelease();
    } catch (const std::exception&) {
        if (!ticket.stillApplies())
            co_return;
        if (auto app = m_store.appWithID(appID); app && app->path)
            markApp(appID, InstallationState::stale);
        setAvailableDirectorRelease(std::nullopt);
        m_store.setMessage(tr("The Vantor Director update check could not be completed."));
        co_return;
    }
    if (!ticket.stillApplies())
        co_return;

    // The release is the Director's whether or not its row is still there.
    setAvailableDirectorRelease(release);
    auto app = m_store.appWithID(appID);
    if (!app)
        co_return;
    app->availableVersion = release ? std::optional<QString>(release->version) : std::nullopt;
    const auto decision = release && app->installedVersion
                              ? releaseDecision(app->installedVersion, app->build, *release)
                              : ReleaseDecision::undetermined;
    if (decision == ReleaseDecision::undetermined) {
        if (app->path)
            app->state = InstallationState::stale;
    } else {
        app->state = decision == ReleaseDecision::newer ? InstallationState::updateAvailable
                                                        : InstallationState::current;
    }
    app->lastChecked = m_store.now();
    m_store.replaceApp(*app);
    followRelease(*app, release, decision);
}

// A prepared release the manifest no longer names goes; a newer one is fetched in the background.
void UpdateFlow::followRelease(const InstalledApp& app,
                               const std::optional<AvailableApplicationRelease>& release,
                               ReleaseDecision decision) {
    const auto updater = m_store.services().applicationUpdater;
    if (!updater || !app.path || m_store.demoEnabled())
        return;
    if (m_prepared && (!release || m_prepared->release != *release)) {
        setPrepared(std::nullopt);
        m_store.runDetached(updater->discardPrepared(*app.path));
    }
    if (release && decision == ReleaseDecision::newer)
        m_store.runDetached(prepareInBackground(app, *release));
}

QCoro::Task<> UpdateFlow::prepareInBackground(InstalledApp app,
                                              AvailableApplicationRelease release) {
    const LaunchCollaborators& services = m_store.services();
    const auto updater = services.applicationUpdater;
    if (!services.preparesUpdatesInBackground || !updater || m_updatingAppID || m_background ||
        (m_prepared && m_prepared->release == release) || m_backgroundTried == release ||
        (services.isConnectionMetered && services.isConnectionMetered()))
        co_return;
    m_backgroundTried = release;
    auto* transfer = new Transfer(this);
    m_background = transfer;
    const ClearOnExit preparing(*this, [transfer](UpdateFlow&) { transfer->deleteLater(); });
    const auto ticket = GenerationTicket::forMode(m_store);
    const QUrl installed = *app.path;
    const QStringList identifiers = m_store.configuration().director.bundleIdentifiers;
    std::optional<PreparedRelease> prepared;
    try {
        prepared = co_await updater->preparedRelease(release, installed);
        if (!prepared) {
            TransferControl control = transfer->control();
            control.background = true;
            prepared = co_await updater->prepareUpdate(release, installed, identifiers, control);
        }
    } catch (const std::exception& error) {
        // Said nowhere: Update Now tries again in the open and reports what fails.
        qCInfo(lcStore) << "The release was not prepared in the background:" << error.what();
    }
    if (prepared && ticket.stillApplies())
        setPrepared(prepared);
}

QString UpdateFlow::updateButtonTitle(const InstalledApp& app,
                                      const std::optional<AvailableApplicationRelease>& release) {
    if (!release)
        return app.availableVersion ? tr("Update to %1").arg(*app.availableVersion)
                                    : tr("Update Now");
    if (release->build && !release->build->isEmpty())
        return tr("Update to %1 build %2").arg(release->version, *release->build);
    return tr("Update to %1").arg(release->version);
}

void UpdateFlow::updateApplication(const InstalledApp& app) {
    if (m_store.demoEnabled()) {
        m_store.setMessage(tr("Demo mode cannot update real applications."));
        return;
    }
    if (app.isRunning) {
        setRunningUpdatePromptAppID(app.id);
        return;
    }
    m_store.runDetached(installUpdate(app));
}

void UpdateFlow::dismissRunningUpdatePrompt() {
    setRunningUpdatePromptAppID(std::nullopt);
}

// Read off the main thread where finding the running copies reads /proc.
QCoro::Task<QList<RunningApplication>> UpdateFlow::runningCopiesAt(InstalledApp app) const {
    QList<RunningApplication> copies;
    if (!app.path)
        co_return copies;
    const QString path = bundleIdentity(*app.path);
    const auto workspace = m_store.services().workspace;
    const QList<RunningApplication> running =
        co_await workspace->findRunningApplications(app.bundleIdentifier);
    for (const RunningApplication& copy : running) {
        if (bundleIdentity(copy.bundleURL) == path)
            copies.append(copy);
    }
    co_return copies;
}

void UpdateFlow::confirmRunningUpdate() {
    if (!m_runningUpdatePromptAppID)
        return;
    const auto app = m_store.appWithID(*m_runningUpdatePromptAppID);
    setRunningUpdatePromptAppID(std::nullopt);
    if (!app || !app->path) {
        m_store.setMessage(tr("The running Vantor Director installation could not be verified."));
        return;
    }
    if (!m_store.services().applicationUpdater) {
        // Closing the user's Director only to fail afterwards would be worse than not starting.
        m_store.setMessage(
            tr("Vantor Director could not be updated: %1").arg(updaterMissingDescription()));
        return;
    }
    // Director keeps running while its update downloads; it is closed once only the exchange
    // remains.
    m_closeAgreedAppID = app->id;
    m_store.runDetached(installUpdate(*app));
}

bool UpdateFlow::closeRunningCopies(const QList<RunningApplication>& copies) {
    for (const RunningApplication& copy : copies) {
        if (!m_store.services().workspace->terminate(copy))
            return false;
    }
    return !copies.isEmpty();
}

QCoro::Task<> UpdateFlow::resumeQueuedUpdate() {
    if (!m_queuedUpdateApplication || m_store.demoEnabled())
        co_return;
    InstalledApp app = *m_queuedUpdateApplication;
    const QPointer<UpdateFlow> alive(this);
    const QList<RunningApplication> copies = co_await runningCopiesAt(app);
    // Another refresh may have taken the queued update meanwhile.
    if (!alive || !copies.isEmpty() || m_queuedUpdateApplication != app)
        co_return;
    app.isRunning = false;
    setQueuedUpdateApplication(std::nullopt);
    co_await installUpdate(app);
}

void UpdateFlow::forgetPendingWork() {
    m_closeAgreedAppID.reset();
    setReopenAfterUpdateAppID(std::nullopt);
    setQueuedUpdateApplication(std::nullopt);
}

// The release to install: the one the last check found, or a fresh answer. Throws the check's
// failure; no value when a mode switch or another update made the answer someone else's.
QCoro::Task<std::optional<AvailableApplicationRelease>> UpdateFlow::releaseForUpdate() {
    const auto checker = m_store.services().releaseChecker;
    if (m_availableDirectorRelease || !checker)
        co_return m_availableDirectorRelease;
    const auto ticket = GenerationTicket::forMode(m_store);
    std::optional<AvailableApplicationRelease> release = co_await checker->latestRelease();
    // Another update that began while the manifest was on its way goes first: one at a time.
    if (!ticket.stillApplies() || m_updatingAppID)
        throw LaunchError::url(LaunchError::cancelled);
    setAvailableDirectorRelease(release);
    if (!release)
        throw LaunchError(LaunchError::Domain::updater, 0,
                          tr("This release does not include a direct download."));
    co_return release;
}

QCoro::Task<> UpdateFlow::installUpdate(InstalledApp app) {
    if (m_updatingAppID)
        co_return;
    if (!app.path) {
        m_store.setMessage(tr("The verified Vantor Director installation could not be found."));
        co_return;
    }

    const auto reopen = [this](const InstalledApp& flowApp) {
        if (m_reopenAfterUpdateAppID != flowApp.id || m_store.demoEnabled())
            return;
        setReopenAfterUpdateAppID(std::nullopt);
        m_store.applicationFlows().open(m_store.appWithID(flowApp.id).value_or(flowApp));
    };
    const auto fail = [&](const QString& text) {
        setUpdatingAppID(std::nullopt);
        m_closeAgreedAppID.reset();
        if (!m_store.demoEnabled())
            markApp(app.id, InstallationState::updateAvailable);
        m_store.setMessage(text);
        reopen(app);
    };
    const auto failWith = [&](const QString& description) {
        fail(tr("Vantor Director could not be updated: %1").arg(description));
    };

    const auto ticket = GenerationTicket::forMode(m_store);
    std::optional<AvailableApplicationRelease> release;
    std::optional<QString> failure;
    try {
        release = co_await releaseForUpdate();
    } catch (const std::exception& error) {
        failure = LaunchError::describe(error);
    }
    if (!ticket.stillApplies() || m_updatingAppID)
        co_return;
    if (failure || !release) {
        failWith(failure.value_or(tr("This release does not include a direct download.")));
        co_return;
    }
    const auto updater = m_store.services().applicationUpdater;
    if (!updater) {
        failWith(updaterMissingDescription());
        co_return;
    }

    setUpdatingAppID(app.id);
    auto* transfer = new Transfer(this);
    setTransfer(transfer);
    const ClearOnExit updating(*this, [transfer](UpdateFlow& flow) {
        flow.setUpdatingAppID(std::nullopt);
        flow.setTransfer(nullptr);
        transfer->deleteLater();
    });
    markApp(app.id, InstallationState::checking);
    // The background preparation gives way to the one the user watches.
    if (m_background)
        m_background->cancel();

    const AvailableApplicationRelease chosenRelease = *release;
    const QUrl installed = *app.path;
    const QStringList identifiers = m_store.configuration().director.bundleIdentifiers;
    TransferControl control = transfer->control();
    bool cancelled = false;
    bool installing = false;
    const QPointer<UpdateFlow> alive(this);
    try {
        std::optional<PreparedRelease> prepared;
        if (m_prepared && m_prepared->release == chosenRelease)
            prepared = m_prepared;
        else
            prepared = co_await updater->preparedRelease(chosenRelease, installed);
        if (!alive)
            co_return;
        if (!prepared) {
            m_store.setMessage(tr("Downloading Vantor Director %1…").arg(chosenRelease.version));
            prepared =
                co_await updater->prepareUpdate(chosenRelease, installed, identifiers, control);
        }
        if (!alive)
            co_return;
        setPrepared(prepared);

        const QList<RunningApplication> copies = co_await runningCopiesAt(app);
        if (!alive)
            co_return;
        if (!copies.isEmpty()) {
            // Only the exchange remains: now Director is closed, if the user agreed; the
            // termination brings the update back here.
            if (m_closeAgreedAppID != app.id) {
                setRunningUpdatePromptAppID(app.id);
            } else if (closeRunningCopies(copies)) {
                setQueuedUpdateApplication(app);
                setReopenAfterUpdateAppID(app.id);
                m_store.setMessage(tr("Closing Vantor Director before installing the update…"));
            } else {
                m_closeAgreedAppID.reset();
                m_store.setMessage(tr("Vantor Director could not be closed automatically. Quit "
                                      "it normally, then try the update again."));
            }
            co_return;
        }
        control.commit();
        installing = true;
        m_store.setMessage(tr("Installing Vantor Director %1…").arg(chosenRelease.version));
        co_await updater->installPrepared(*prepared, installed, identifiers);
        if (!alive)
            co_return;
        setPrepared(std::nullopt);
    } catch (const LaunchError& error) {
        cancelled = error.isUrlError(LaunchError::cancelled) && transfer->cancelRequested();
        failure = error.description();
    } catch (const std::exception& error) {
        failure = LaunchError::describe(error);
    }
    // Gone with its store: the outcome is on disk, and nobody is left to tell.
    if (!alive)
        co_return;
    // A failed exchange leaves nothing prepared: the updater has discarded what it refused.
    if (failure && installing)
        setPrepared(std::nullopt);
    // The outcome is the installed Director's, whatever start() did meanwhile: it is reported,
    // and a Director this flow closed is reopened. Only a mode switch (which forgets the reopen)
    // keeps it closed.
    if (cancelled) {
        fail(tr("The Vantor Director update was cancelled. The installed version was not "
                "changed."));
        co_return;
    }
    if (failure) {
        failWith(*failure);
        co_return;
    }

    m_closeAgreedAppID.reset();
    m_store.setMessage(
        tr("Vantor Director %1 was installed successfully.").arg(chosenRelease.version));
    try {
        co_await m_store.applicationFlows().refreshApplications();
    } catch (const std::exception& error) {
        // The update itself succeeded; only the fresh look at it failed.
        qCWarning(lcStore) << "Refreshing after the update failed:" << error.what();
    }
    reopen(app);
}

void UpdateFlow::cancelUpdate() {
    if (m_transfer)
        m_transfer->cancel();
}

QString UpdateFlow::updaterMissingDescription() {
    return LaunchError::notConfigured(tr("Verified application updates")).description();
}

void UpdateFlow::markApp(const QString& appID, InstallationState state) {
    if (auto app = m_store.appWithID(appID)) {
        app->state = state;
        m_store.replaceApp(*app);
    }
}

void UpdateFlow::setRunningUpdatePromptAppID(std::optional<QString> appID) {
    assignProperty(this, m_runningUpdatePromptAppID, std::move(appID),
                   &UpdateFlow::runningUpdatePromptAppIDChanged);
}

void UpdateFlow::setUpdatingAppID(std::optional<QString> appID) {
    assignProperty(this, m_updatingAppID, std::move(appID), &UpdateFlow::updatingAppIDChanged);
}

void UpdateFlow::setQueuedUpdateApplication(std::optional<InstalledApp> app) {
    assignProperty(this, m_queuedUpdateApplication, std::move(app),
                   &UpdateFlow::queuedUpdateApplicationChanged);
}

void UpdateFlow::setReopenAfterUpdateAppID(std::optional<QString> appID) {
    assignProperty(this, m_reopenAfterUpdateAppID, std::move(appID),
                   &UpdateFlow::reopenAfterUpdateAppIDChanged);
}

void UpdateFlow::setAvailableDirectorRelease(std::optional<AvailableApplicationRelease> release) {
    assignProperty(this, m_availableDirectorRelease, std::move(release),
                   &UpdateFlow::availableDirectorReleaseChanged);
}

void UpdateFlow::setPrepared(std::optional<PreparedRelease> prepared) {
    assignProperty(this, m_prepared, std::move(prepared), &UpdateFlow::preparedReleaseChanged);
}

void UpdateFlow::setTransfer(Transfer* transfer) {
    if (m_transfer == transfer)
        return;
    m_transfer = transfer;
    Q_EMIT transferChanged();
}

QVariant UpdateFlow::availableDirectorReleaseForView() const {
    return m_availableDirectorRelease ? QVariant::fromValue(*m_availableDirectorRelease)
                                      : QVariant();
}

QVariant UpdateFlow::queuedUpdateApplicationForView() const {
    return m_queuedUpdateApplication ? QVariant::fromValue(*m_queuedUpdateApplication) : QVariant();
}
