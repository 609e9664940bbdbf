#include "foundation/LaunchError.h"
#include "foundation/SemanticVersion.h"
#include "platform/BundleMetadata.h"
#include "store/ClearOnExit.h"
#include "store/GenerationTicket.h"
#include "store/LaunchStore.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

Q_DECLARE_LOGGING_CATEGORY(lcStore)

LaunchStore::ReleaseDecision
LaunchStore::releaseDecision(const std::optional<QString>& installedVersion,
                             const std::optional<QString>& installedBuild,
                             const AvailableApplicationRelease& release) {
    if (!installedVersion)
        return ReleaseDecision::undetermined;
    const auto newer = isUpdate(*installedVersion, installedBuild, release.version, release.build);
    if (!newer)
        return ReleaseDecision::undetermined;
    return *newer ? ReleaseDecision::newer : ReleaseDecision::notNewer;
}

QCoro::Task<> LaunchStore::checkDirectorRelease() {
    if (!m_services.releaseChecker)
        co_return;
    const auto& director = configuration().director;
    const auto it = std::find_if(m_apps.begin(), m_apps.end(), [&](const InstalledApp& app) {
        return director.isVerifiedIdentifier(app.bundleIdentifier);
    });
    if (it == m_apps.end())
        co_return;
    const QString appID = it->id;
    const auto ticket = GenerationTicket::forMode(*this);

    std::optional<AvailableApplicationRelease> release;
    try {
        release = co_await m_services.releaseChecker->latestRelease();
    } catch (const std::exception&) {
        if (!ticket.stillApplies())
            co_return;
        if (auto app = appWithID(appID); app && app->path) {
            app->state = InstallationState::stale;
            replaceApp(*app);
        }
        setAvailableDirectorRelease(std::nullopt);
        setMessage(u"The Vantor Director update check could not be completed."_s);
        co_return;
    }
    if (!ticket.stillApplies())
        co_return;

    // The release is the Director's whether or not its row is still there.
    setAvailableDirectorRelease(release);
    auto app = appWithID(appID);
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
    app->lastChecked = now();
    replaceApp(*app);
}

QString LaunchStore::updateButtonTitle(const InstalledApp& app,
                                       const std::optional<AvailableApplicationRelease>& release) {
    if (!release)
        return app.availableVersion ? u"Update to "_s + *app.availableVersion : u"Update Now"_s;
    if (release->build && !release->build->isEmpty())
        return u"Update to "_s + release->version + u" build "_s + *release->build;
    return u"Update to "_s + release->version;
}

void LaunchStore::updateApplication(const InstalledApp& app) {
    if (m_demoEnabled) {
        setMessage(u"Demo mode cannot update real applications."_s);
        return;
    }
    if (app.isRunning) {
        setRunningUpdatePromptAppID(app.id);
        return;
    }
    runDetached(installUpdate(app));
}

void LaunchStore::dismissRunningUpdatePrompt() {
    setRunningUpdatePromptAppID(std::nullopt);
}

QList<RunningApplication> LaunchStore::runningCopiesAt(const InstalledApp& app) const {
    QList<RunningApplication> copies;
    if (!app.path)
        return copies;
    const QString path = bundleIdentity(*app.path);
    for (const RunningApplication& running :
         m_services.workspace->runningApplications(app.bundleIdentifier)) {
        if (bundleIdentity(running.bundleURL) == path)
            copies.append(running);
    }
    return copies;
}

void LaunchStore::confirmRunningUpdate() {
    if (!m_runningUpdatePromptAppID)
        return;
    const auto app = appWithID(*m_runningUpdatePromptAppID);
    if (!app || !app->path) {
        setRunningUpdatePromptAppID(std::nullopt);
        setMessage(u"The running Vantor Director installation could not be verified."_s);
        return;
    }
    if (!m_services.applicationUpdater) {
        // Closing the user's Director only to fail afterwards would be worse than not starting.
        setRunningUpdatePromptAppID(std::nullopt);
        setMessage(u"Vantor Director could not be updated: "_s + updaterMissingDescription());
        return;
    }
    setQueuedUpdateApplication(app);
    setReopenAfterUpdateAppID(app->id);
    setRunningUpdatePromptAppID(std::nullopt);

    const QList<RunningApplication> copies = runningCopiesAt(*app);
    bool allAsked = !copies.isEmpty();
    for (const RunningApplication& copy : copies) {
        if (!m_services.workspace->terminate(copy)) {
            allAsked = false;
            break;
        }
    }
    if (!allAsked) {
        setQueuedUpdateApplication(std::nullopt);
        setReopenAfterUpdateAppID(std::nullopt);
        setMessage(
            u"Vantor Director could not be closed automatically. Quit it normally, then try the update again."_s);
        return;
    }
    // No time-out and no forced quit: the termination notification resumes the update.
    setMessage(u"Closing Vantor Director before installing the update…"_s);
}

QCoro::Task<> LaunchStore::resumeQueuedUpdate() {
    if (!m_queuedUpdateApplication || m_demoEnabled)
        co_return;
    InstalledApp app = *m_queuedUpdateApplication;
    if (!runningCopiesAt(app).isEmpty())
        co_return;
    app.isRunning = false;
    setQueuedUpdateApplication(std::nullopt);
    co_await installUpdate(app);
}

QCoro::Task<> LaunchStore::installUpdate(InstalledApp app) {
    if (m_updatingAppID)
        co_return;
    if (!app.path) {
        setMessage(u"The verified Vantor Director installation could not be found."_s);
        co_return;
    }

    const auto reopen = [this](const InstalledApp& flowApp) {
        if (m_reopenAfterUpdateAppID != flowApp.id || m_demoEnabled)
            return;
        setReopenAfterUpdateAppID(std::nullopt);
        open(appWithID(flowApp.id).value_or(flowApp));
    };
    const auto fail = [&](const QString& description) {
        setUpdatingAppID(std::nullopt);
        if (auto current = appWithID(app.id); current && !m_demoEnabled) {
            current->state = InstallationState::updateAvailable;
            replaceApp(*current);
        }
        setMessage(u"Vantor Director could not be updated: "_s + description);
        reopen(app);
    };

    std::optional<AvailableApplicationRelease> release = m_availableDirectorRelease;
    if (!release && m_services.releaseChecker) {
        const auto ticket = GenerationTicket::forMode(*this);
        std::optional<QString> failure;
        try {
            release = co_await m_services.releaseChecker->latestRelease();
        } catch (const std::exception& error) {
            failure = LaunchError::describe(error);
        }
        // A mode switch meanwhile makes the answer someone else's; another update that began
        // while the manifest was on its way goes first: one at a time.
        if (!ticket.stillApplies() || m_updatingAppID)
            co_return;
        if (failure) {
            fail(*failure);
            co_return;
        }
        setAvailableDirectorRelease(release);
    }
    if (!release) {
        fail(u"This release does not include a direct download."_s);
        co_return;
    }

    if (!m_services.applicationUpdater) {
        fail(updaterMissingDescription());
        co_return;
    }

    setUpdatingAppID(app.id);
    const ClearOnExit updating(*this,
                               [](LaunchStore& store) { store.setUpdatingAppID(std::nullopt); });
    if (auto current = appWithID(app.id)) {
        current->state = InstallationState::checking;
        replaceApp(*current);
    }
    setMessage(u"Downloading Vantor Director "_s + release->version + u"…"_s);

    const AvailableApplicationRelease chosenRelease = *release;
    const QUrl installed = *app.path;
    const QStringList identifiers = configuration().director.bundleIdentifiers;
    std::optional<QString> failure;
    try {
        co_await m_services.applicationUpdater->installUpdate(chosenRelease, installed, identifiers,
                                                              {});
    } catch (const std::exception& error) {
        failure = LaunchError::describe(error);
    }
    // The outcome is the installed Director's, whatever start() did meanwhile: it is reported,
    // and a Director this flow closed is reopened. Only a mode switch (which forgets the reopen)
    // keeps it closed.
    if (failure) {
        fail(*failure);
        co_return;
    }

    setMessage(u"Vantor Director "_s + release->version + u" was installed successfully."_s);
    try {
        co_await refreshApplications();
    } catch (const std::exception& error) {
        // The update itself succeeded; only the fresh look at it failed.
        qCWarning(lcStore) << "Refreshing after the update failed:" << error.what();
    }
    reopen(app);
}

QString LaunchStore::updaterMissingDescription() {
    return LaunchError::notConfigured(u"Verified application updates"_s).description();
}
