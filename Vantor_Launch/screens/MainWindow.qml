import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch
import Vantor.Launch.Controls

// The main window "launcher-main". Each time it appears it starts the store afresh and follows
// the workspace's launches and terminations until it closes; each time it becomes active it runs
// the throttled account sync.
DarkWindow {
    id: window

    required property var launcher

    signal settingsRequested

    objectName: "launcher-main"
    title: qsTr("Vantor Launcher")
    width: 1440
    height: 960
    minimumWidth: 1000
    minimumHeight: 720
    visible: true

    onVisibleChanged: {
        Store.followWorkspace(window.visible)
        if (window.visible)
            Store.requestStart()
    }
    onActiveChanged: {
        if (window.active)
            Store.requestSyncAccountIfDue()
    }

    menuBar: LauncherMenus {
        launcher: window.launcher
        onSettingsRequested: window.settingsRequested()
    }

    RootView {
        anchors.fill: parent
        launcher: window.launcher
    }
}
