#pragma once

#include "applications/ApplicationUpdating.h"
#include "foundation/AvailableApplicationRelease.h"
#include "foundation/InstalledApp.h"
#include "platform/Workspace.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QVariant>
#include <optional>

class LaunchStore;
#include "store/Transfer.h"

// Director's updates: the release check and its decision, the release prepared in the background
// while Director runs, the prompt, the download with its progress and Cancel, and the exchange,
// for which alone a running Director is closed and then reopened.
class UpdateFlow : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString runningUpdatePromptAppID READ runningUpdatePromptAppIDForView NOTIFY
                   runningUpdatePromptAppIDChanged)
    Q_PROPERTY(QString updatingAppID READ updatingAppIDForView NOTIFY updatingAppIDChanged)
    Q_PROPERTY(QString reopenAfterUpdateAppID READ reopenAfterUpdateAppIDForView NOTIFY
                   reopenAfterUpdateAppIDChanged)
    Q_PROPERTY(QVariant availableDirectorRelease READ availableDirectorReleaseForView NOTIFY
                   availableDirectorReleaseChanged)
    Q_PROPERTY(QVariant queuedUpdateApplication READ queuedUpdateApplicationForView NOTIFY
                   queuedUpdateApplicationChanged)
    // The running update's download; null when none runs.
    Q_PROPERTY(Transfer* transfer READ transfer NOTIFY transferChanged)
    // A newer release downloaded and verified beside Director, waiting for Update Now.
    Q_PROPERTY(bool hasPreparedRelease READ hasPreparedRelease NOTIFY preparedReleaseChanged)

public:
    explicit UpdateFlow(LaunchStore& store);

    const std::optional<QString>& runningUpdatePromptAppID() const {
        return m_runningUpdatePromptAppID;
    }
    const std::optional<QString>& updatingAppID() const { return m_updatingAppID; }
    const std::optional<InstalledApp>& queuedUpdateApplication() const {
        return m_queuedUpdateApplication;
    }
    const std::optional<QString>& reopenAfterUpdateAppID() const {
        return m_reopenAfterUpdateAppID;
    }
    const std::optional<AvailableApplicationRelease>& availableDirectorRelease() const {
        return m_availableDirectorRelease;
    }
    Transfer* transfer() const { return m_transfer; }
    const std::optional<PreparedRelease>& preparedRelease() const { return m_prepared; }
    bool hasPreparedRelease() const { return m_prepared.has_value(); }

    QCoro::Task<> checkDirectorRelease();
    enum class ReleaseDecision { newer, notNewer, undetermined };
    static ReleaseDecision releaseDecision(const std::optional<QString>& installedVersion,
                                           const std::optional<QString>& installedBuild,
                                           const AvailableApplicationRelease& release);
    static QString updateButtonTitle(const InstalledApp& app,
                                     const std::optional<AvailableApplicationRelease>& release);

    void updateApplication(const InstalledApp& app);
    void confirmRunningUpdate();
    void dismissRunningUpdatePrompt();
    QCoro::Task<> resumeQueuedUpdate();
    QCoro::Task<> installUpdate(InstalledApp app);
    // Stops the running download; nothing happens once the installed copy is being replaced.
    Q_INVOKABLE void cancelUpdate();
    // A mode switch: a Director closed for an update is not reopened, nor a waiting update
    // started, in the other mode.
    void forgetPendingWork();

Q_SIGNALS:
    void runningUpdatePromptAppIDChanged();
    void updatingAppIDChanged();
    void reopenAfterUpdateAppIDChanged();
    void availableDirectorReleaseChanged();
    void queuedUpdateApplicationChanged();
    void transferChanged();
    void preparedReleaseChanged();

private:
    void setRunningUpdatePromptAppID(std::optional<QString> appID);
    void setUpdatingAppID(std::optional<QString> appID);
    void setQueuedUpdateApplication(std::optional<InstalledApp> app);
    void setReopenAfterUpdateAppID(std::optional<QString> appID);
    void setAvailableDirectorRelease(std::optional<AvailableApplicationRelease> release);
    void setTransfer(Transfer* transfer);
    void markApp(const QString& appID, Launch::InstallationState state);
    QCoro::Task<QList<RunningApplication>> runningCopiesAt(InstalledApp app) const;
    QCoro::Task<std::optional<AvailableApplicationRelease>> releaseForUpdate();
    QCoro::Task<> prepareInBackground(InstalledApp app, AvailableApplicationRelease release);
    void followRelease(const InstalledApp& app,
                       const std::optional<AvailableApplicationRelease>& release,
                       ReleaseDecision decision);
    void setPrepared(std::optional<PreparedRelease> prepared);
    // Asks every copy to quit; false when one could not be asked, or there was none.
    bool closeRunningCopies(const QList<RunningApplication>& copies);
    static QString updaterMissingDescription();

    QString runningUpdatePromptAppIDForView() const {
        return m_runningUpdatePromptAppID.value_or(QString());
    }
    QString updatingAppIDForView() const { return m_updatingAppID.value_or(QString()); }
    QString reopenAfterUpdateAppIDForView() const {
        return m_reopenAfterUpdateAppID.value_or(QString());
    }
    QVariant availableDirectorReleaseForView() const;
    QVariant queuedUpdateApplicationForView() const;

    LaunchStore& m_store;
    std::optional<QString> m_runningUpdatePromptAppID;
    std::optional<QString> m_updatingAppID;
    std::optional<InstalledApp> m_queuedUpdateApplication;
    std::optional<QString> m_reopenAfterUpdateAppID;
    std::optional<AvailableApplicationRelease> m_availableDirectorRelease;
    QPointer<Transfer> m_transfer;
    std::optional<PreparedRelease> m_prepared;
    // The background preparation that runs, and the release it was last tried for: one try per
    // release and run, so that a failing or costly connection is never retried in a loop.
    QPointer<Transfer> m_background;
    std::optional<AvailableApplicationRelease> m_backgroundTried;
    // The user agreed to close this Director for its update.
    std::optional<QString> m_closeAgreedAppID;
};
