#pragma once

#include "PanelLocationChooser.h"
#include "store/LaunchCollaborators.h"
#include "store/LaunchStore.h"

#include <QTemporaryDir>

// Services for pictures of the real views: fixed applications and release, an account snapshot, an
// account provider whose refresh succeeds, fails in a chosen way or never ends, and an update or a
// pack download that can be held in progress. Nothing here
// touches the network, the desktop or the user's files.
struct ScreenshotScene {
    enum class Refresh { succeeds, offline, sessionOver, otherAccount, neverEnds };

    bool snapshotSaved = true;
    std::optional<Refresh> refresh; // none: no account provider, the snapshot stays cached
    bool directorRunning = false;
    bool catalogueConfigured = true;
    bool directorInstalled = true;
    bool updatePublished = true;        // otherwise the published release is the installed one
    bool releaseCheckFails = false;     // the Director shows as stale
    bool updateNeverEnds = false;       // an update stays in its checking state
    bool packDownloadNeverEnds = false; // an installed pack stays downloading
};

class ScreenshotServices {
public:
    explicit ScreenshotServices(const ScreenshotScene& scene);

    std::unique_ptr<LaunchStore> makeStore();
    QString settingsPath() const { return m_folder.filePath(QStringLiteral("settings.ini")); }
    // The chooser the store asks, for the windows to show.
    std::shared_ptr<PanelLocationChooser> locationChooser() const { return m_locationChooser; }

private:
    ScreenshotScene m_scene;
    QTemporaryDir m_folder;
    std::shared_ptr<Workspace> m_workspace;
    std::shared_ptr<PanelLocationChooser> m_locationChooser =
        std::make_shared<PanelLocationChooser>();
};
