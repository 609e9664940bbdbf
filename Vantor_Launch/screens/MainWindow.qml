import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch

// The main window "launcher-main". Each time it appears it starts the store afresh and follows
// the workspace's launches and terminations until it closes; each time it becomes active it runs
// the throttled account sync.
DarkWindow {
    id: window

    required property var store
    required property var launcher

    signal settingsRequested

    objectName: "launcher-main"
    title: "Vantor Launcher"
    width: 1440
    height: 960
    minimumWidth: 1000
    minimumHeight: 720
    visible: true

    onVisibleChanged: {
        window.store.followWorkspace(window.visible)
        if (window.visible)
            window.store.requestStart()
    }
    onActiveChanged: {
        if (window.active)
            window.store.requestSyncAccountIfDue()
    }

    menuBar: LauncherMenus {
        store: window.store
        launcher: window.launcher
        onSettingsRequested: window.settingsRequested()
    }

    RootView {
        anchors.fill: parent
        store: window.store
        launcher: window.launcher
    }
}
