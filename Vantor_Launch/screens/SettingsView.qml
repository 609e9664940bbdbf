import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch

// The launcher's two preferences: beta releases (for this run) and the tray menu (persisted).
ColumnLayout {
    id: root

    required property var launcher

    spacing: 20

    FormGroup {
        Layout.fillWidth: true
        title: "Updates"

        LabeledValue {
            Layout.fillWidth: true
            label: "Automatic checks"
            value: "At launch and every 6 hours"
        }

        RowLayout {
            Layout.fillWidth: true

            Label {
                Layout.fillWidth: true
                text: "Include beta releases"
                color: LaunchPalette.paper
                font.pixelSize: 13
            }

            LaunchSwitch {
                objectName: "betaSwitch"
                checked: Store.includesBetaReleases
                Accessible.name: "Include beta releases"
                onToggled: Store.includesBetaReleases = checked
            }
        }

        Label {
            Layout.fillWidth: true
            text: "Automatic installation is never performed. Beta participation is opt-in."
            font.pixelSize: 11
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }
    }

    FormGroup {
        Layout.fillWidth: true
        title: "Menu Bar"

        RowLayout {
            Layout.fillWidth: true

            Label {
                Layout.fillWidth: true
                text: "Show Vantor Launcher in the menu bar"
                color: LaunchPalette.paper
                font.pixelSize: 13
            }

            LaunchSwitch {
                objectName: "menuBarSwitch"
                checked: root.launcher.showsMenuBarItem
                Accessible.name: "Show Vantor Launcher in the menu bar"
                onToggled: root.launcher.showsMenuBarItem = checked
            }
        }

        Label {
            Layout.fillWidth: true
            text: "Quickly open Vantor apps, browse Content Packs and check for updates."
            font.pixelSize: 11
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
        }
    }
}
