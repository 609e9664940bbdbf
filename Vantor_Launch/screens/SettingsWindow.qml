import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch

// The settings window: 560 wide, its height that of its content, 24 points of padding.
DarkWindow {
    id: window

    required property var launcher

    objectName: "launcher-settings"
    title: qsTr("Vantor Launcher Settings")
    width: 560
    minimumWidth: 560
    maximumWidth: 560
    height: view.implicitHeight + 48
    minimumHeight: height
    maximumHeight: height

    SettingsView {
        id: view

        anchors.fill: parent
        anchors.margins: 24
        launcher: window.launcher
    }
}
