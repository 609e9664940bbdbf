import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch
import Vantor.Launch.Controls

// The launcher's two preferences: beta releases (for this run) and the tray menu (persisted).
ColumnLayout {
    id: root

    required property var launcher

    spacing: 20

    FormGroup {
        Layout.fillWidth: true
        title: qsTr("Updates")

        LabeledValue {
            Layout.fillWidth: true
            label: qsTr("Automatic checks")
            value: qsTr("At launch and every 6 hours")
        }

        RowLayout {
            Layout.fillWidth: true

            Label {
                Layout.fillWidth: true
                text: qsTr("Include beta releases")
                color: LaunchPalette.paper
                font.pixelSize: 13
            }

            LaunchSwitch {
                objectName: "betaSwitch"
                checked: Store.includesBetaReleases
                Accessible.name: qsTr("Include beta releases")
                onToggled: Store.includesBetaReleases = checked
            }
        }

        Label {
            Layout.fillWidth: true
            text: qsTr("Automatic installation is never performed. Beta participation is opt-in.")
            font.pixelSize: 11
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }
    }

    FormGroup {
        Layout.fillWidth: true
        title: qsTr("Menu Bar")

        RowLayout {
            Layout.fillWidth: true

            Label {
                Layout.fillWidth: true
                text: qsTr("Show Vantor Launcher in the menu bar")
                color: LaunchPalette.paper
                font.pixelSize: 13
            }

            LaunchSwitch {
                objectName: "menuBarSwitch"
                checked: root.launcher.showsMenuBarItem
                Accessible.name: qsTr("Show Vantor Launcher in the menu bar")
                onToggled: root.launcher.showsMenuBarItem = checked
            }
        }

        Label {
            Layout.fillWidth: true
            text: qsTr("Quickly open Vantor apps, browse Content Packs and check for updates.")
            font.pixelSize: 11
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }
    }
}
