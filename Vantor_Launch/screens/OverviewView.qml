import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch
import Vantor.Launch.Applications
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// The Overview section: the header with the last update check, the managed applications and a
// preview of the Content Packs.
ScrollView {
    id: root


    objectName: "overviewView"
    contentWidth: availableWidth

    LastCheckedPresenter {
        id: lastChecked

        store: Store
    }

    // The page, 28 points inside the visible area on every side.
    Item {
        implicitHeight: column.implicitHeight + 56

        ColumnLayout {
            id: column

            y: 28
            width: Math.min(root.availableWidth - 56, 1280)
            x: (root.availableWidth - width) / 2
            spacing: 20

            ColumnLayout {
                Layout.fillWidth: true
                spacing: 12

                ScreenHeader {
                    Layout.fillWidth: true
                    title: qsTr("Your Vantor workspace")
                    subtitle: qsTr("Your apps, their updates and your content, in one place.")
                    demoEnabled: Store.demoEnabled
                }

                RowLayout {
                    Layout.fillWidth: true
                    spacing: 14

                    StatusLabel {
                        objectName: "lastChecked"
                        Layout.fillWidth: false
                        text: lastChecked.text
                        symbol: "arrow.clockwise"
                        color: LaunchPalette.slate
                        font.pixelSize: 13
                        font.weight: Font.Normal
                    }

                    TextButton {
                        objectName: "checkForUpdatesButton"
                        text: qsTr("Check for updates")
                        onClicked: Store.requestRefreshApplications()
                    }

                    Item {
                        Layout.fillWidth: true
                    }
                }
            }

            ApplicationPanel {
                Layout.fillWidth: true
            }

            ContentPackSummary {
                Layout.fillWidth: true
                Layout.topMargin: 8
            }
        }
    }
}
