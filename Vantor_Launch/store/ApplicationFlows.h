#pragma once

#include "foundation/InstalledApp.h"

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QUrl>
#include <QVariantMap>

class LaunchStore;

// The installed applications: discovery, locations the user chose, opening and revealing them,
// and the refresh that follows each launch or termination.
class ApplicationFlows : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap securityScopedApplicationURLs READ securityScopedApplicationURLsForView
                   NOTIFY securityScopedApplicationURLsChanged)

public:
    explicit ApplicationFlows(LaunchStore& store);

    const QHash<QString, QUrl>& securityScopedApplicationURLs() const {
        return m_securityScopedApplicationURLs;
    }

    // Discovery with the remembered locations applied, as start() shows it.
    QCoro::Task<> discover();
    QCoro::Task<> refreshApplications();
    QList<InstalledApp> applyRememberedLocations(QList<InstalledApp> discovered);
    // Creator lives inside Director: its row mirrors Director's.
    void reconcileBuiltInCreator();
    void open(const InstalledApp& app);
    QCoro::Task<> chooseApplicationLocation(InstalledApp app);
    void revealInFileBrowser(const InstalledApp& app);

    // Re-discovers after every launch or termination that the workspace reports, one refresh at a
    // time per kind of notification, while the main window is shown.
    void setFollowsWorkspace(bool follows);

Q_SIGNALS:
    void securityScopedApplicationURLsChanged();

private:
    InstalledApp recordFromBundle(const InstalledApp& app, const QUrl& bundle) const;
    void recordSecurityScopedURL(const QString& appID, const QUrl& bundle);
    QString rememberedLocationKey(const QString& appID) const;
    QCoro::Task<> followNotifications(int kind);
    QVariantMap securityScopedApplicationURLsForView() const;

    LaunchStore& m_store;
    QHash<QString, QUrl> m_securityScopedApplicationURLs;
    // Workspace notifications waiting for their refresh, per kind (launch, termination).
    int m_pendingNotifications[2] = {0, 0};
    bool m_notificationLoopRunning[2] = {false, false};
    QList<QMetaObject::Connection> m_workspaceConnections;
};
