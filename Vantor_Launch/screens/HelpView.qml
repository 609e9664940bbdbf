import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch
import Vantor.Launch.Controls

// The Help section: the launcher's version and support link, the integration status of this build
// and the privacy statement.
ScrollView {
    id: root

    required property var launcher

    objectName: "helpView"
    contentWidth: availableWidth

    ColumnLayout {
        id: column

        width: Math.min(root.availableWidth - 56, 1280)
        x: (root.availableWidth - width) / 2
        spacing: 20

        Item {
            implicitHeight: 8
        }

        ScreenHeader {
            Layout.fillWidth: true
            title: qsTr("Help")
            subtitle: qsTr("Support, privacy and integration status.")
            demoEnabled: Store.demoEnabled
        }

        LaunchCard {
            objectName: "aboutGroup"
            Layout.fillWidth: true

            Label {
                text: qsTr("Vantor Launcher")
                font.pixelSize: 20
                font.bold: true
                color: LaunchPalette.paper
                Accessible.role: Accessible.Heading
            }

            LabeledValue {
                objectName: "versionValue"
                Layout.fillWidth: true
                label: qsTr("Version")
                value: LauncherInfo.version
            }

            LabeledValue {
                objectName: "buildValue"
                Layout.fillWidth: true
                label: qsTr("Build")
                value: LauncherInfo.build
            }

            Label {
                Layout.fillWidth: true
                text: qsTr("Launcher is an optional companion. Vantor Director and Vantor Creator remain independently usable.")
                color: LaunchPalette.slate
                font.pixelSize: 13
                wrapMode: Text.WordWrap
            }

            StatusLabel {
                objectName: "launcherCriticalUpdate"
                Layout.fillWidth: true
                visible: root.launcher.updater.updateAvailable && root.launcher.updater.criticalUpdate
                text: qsTr("Critical update")
                symbol: "exclamationmark.triangle.fill"
                color: LaunchPalette.gold
                font.pixelSize: 13
            }

            Label {
                objectName: "launcherUpdateStatus"
                Layout.fillWidth: true
                visible: root.launcher.updater.statusText !== ""
                text: root.launcher.updater.statusText
                color: root.launcher.updater.updateAvailable ? LaunchPalette.gold : LaunchPalette.slate
                font.pixelSize: 13
                wrapMode: Text.WordWrap
            }

            RowLayout {
                spacing: 10

                LaunchButton {
                    objectName: "downloadLauncherButton"
                    visible: root.launcher.updater.updateAvailable && root.launcher.updater.downloadURL.toString() !== ""
                    highlighted: true
                    text: qsTr("Download Vantor Launcher %1").arg(root.launcher.updater.availableVersion)
                    onClicked: Qt.openUrlExternally(root.launcher.updater.downloadURL)
                }

                LinkButton {
                    objectName: "launcherReleasePageLink"
                    visible: root.launcher.updater.updateAvailable && root.launcher.updater.releasePageURL.toString() !== ""
                    text: qsTr("About Vantor Launcher %1").arg(root.launcher.updater.availableVersion)
                    onClicked: Qt.openUrlExternally(root.launcher.updater.releasePageURL)
                }

                LinkButton {
                    objectName: "supportLink"
                    visible: Store.supportURL.toString() !== ""
                    text: qsTr("Open Vantor Director support")
                    onClicked: Qt.openUrlExternally(Store.supportURL)
                }
            }
        }

        LaunchCard {
            objectName: "integrationGroup"
            Layout.fillWidth: true

            Label {
                text: qsTr("Production integration status")
                font.pixelSize: 20
                font.bold: true
                color: LaunchPalette.paper
                Accessible.role: Accessible.Heading
            }

            StatusLabel {
                objectName: "integrationsConfigured"
                Layout.fillWidth: true
                visible: Store.missingIntegrations.length === 0
                text: qsTr("Account sign-in, release checking, updater handoff and account-management links are configured.")
                symbol: "checkmark.seal.fill"
                color: LaunchPalette.green
                font.pixelSize: 13
            }

            Label {
                objectName: "integrationsMissing"
                Layout.fillWidth: true
                visible: Store.missingIntegrations.length > 0
                text: qsTr("These operations remain unavailable until their production contracts are supplied:")
                color: LaunchPalette.gold
                font.pixelSize: 13
                wrapMode: Text.WordWrap
            }

            Repeater {
                model: Store.missingIntegrations

                StatusLabel {
                    required property string modelData

                    objectName: "missingIntegration"
                    Layout.fillWidth: true
                    text: modelData
                    symbol: "wrench.and.screwdriver"
                    color: LaunchPalette.paper
                    font.pixelSize: 13
                    font.weight: Font.Normal
                }
            }
        }

        LaunchCard {
            objectName: "privacyGroup"
            Layout.fillWidth: true

            Label {
                text: qsTr("Privacy")
                font.pixelSize: 20
                font.bold: true
                color: LaunchPalette.paper
                Accessible.role: Accessible.Heading
            }

            Label {
                Layout.fillWidth: true
                text: qsTr("No telemetry is included. Account access and refresh tokens are stored in Keychain and are removed when Launcher signs out.")
                color: LaunchPalette.paper
                font.pixelSize: 13
                wrapMode: Text.WordWrap
            }

            Label {
                Layout.fillWidth: true
                text: qsTr("Diagnostics you share must leave out account data and tokens; redact them first.")
                color: LaunchPalette.slate
                font.pixelSize: 13
                wrapMode: Text.WordWrap
            }
        }

        Item {
            implicitHeight: 8
        }
    }
}
