import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// One managed application on the overview: its logo, name, status and the actions that apply.
Rectangle {
    id: root

    required property var app
    readonly property var row: ApplicationPresentation.row(root.app, Store.creatorName,
                                                           Store.updateFlow.availableDirectorRelease)

    // The logo was clicked: the panel presents the application's details.
    signal showDetails

    objectName: "applicationRow-" + root.app.name
    implicitHeight: layout.implicitHeight + 24
    radius: 10
    color: LaunchPalette.rowBackground

    RowLayout {
        id: layout

        anchors.fill: parent
        anchors.margins: 12
        spacing: 20

        // Narrower in a narrow window, so that the status keeps its room.
        AbstractButton {
            id: logoButton

            objectName: "logoButton"
            Layout.fillWidth: true
            Layout.preferredWidth: 260
            Layout.minimumWidth: 160
            Layout.maximumWidth: 260
            Layout.preferredHeight: 96
            hoverEnabled: true
            Accessible.role: Accessible.Button
            Accessible.name: qsTr("Show details for %1").arg(root.app.name)
            onClicked: root.showDetails()

            background: Rectangle {
                radius: 10
                color: LaunchPalette.tileBackground
                border.width: logoButton.visualFocus ? 2 : 1
                border.color: logoButton.visualFocus ? LaunchPalette.accentBlue
                                                     : logoButton.hovered ? LaunchPalette.divider
                                                                          : "transparent"
            }

            contentItem: Item {
                SymbolIcon {
                    objectName: "logoImage"
                    anchors.centerIn: parent
                    width: parent.width - 32
                    height: 58
                    name: root.app.logoAsset
                    Accessible.role: Accessible.Graphic
                    Accessible.name: root.row.logoAccessibleName
                }
            }

            HoverHandler {
                cursorShape: Qt.PointingHandCursor
            }
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.minimumWidth: 200
            Layout.alignment: Qt.AlignVCenter
            spacing: 6

            Label {
                objectName: "appName"
                Layout.fillWidth: true
                text: root.app.name
                font.pixelSize: 15
                font.weight: Font.DemiBold
                color: LaunchPalette.paper
                elide: Text.ElideRight
                Accessible.role: Accessible.Heading
            }

            Label {
                objectName: "statusText"
                Layout.fillWidth: true
                text: root.row.statusText
                font.pixelSize: 13
                color: LaunchPalette.slate
                wrapMode: Text.WordWrap
            }

            Flow {
                Layout.fillWidth: true
                spacing: 14

                Repeater {
                    model: root.row.badges

                    StatusLabel {
                        required property var modelData

                        objectName: "stateBadge"
                        text: modelData.text
                        symbol: modelData.symbol
                        color: modelData.color
                        font.pixelSize: 11
                    }
                }
            }

            // Only the Director updates through the launcher; its download shows here.
            TransferProgress {
                objectName: "updateProgress"
                Layout.fillWidth: true
                Layout.topMargin: 4
                visible: Store.updateFlow.transfer !== null
                         && Store.updateFlow.updatingAppID === root.app.id
                transfer: Store.updateFlow.transfer
                progressName: qsTr("Progress of the %1 update").arg(root.app.name)
                cancelName: qsTr("Cancel the %1 update").arg(root.app.name)
                onCancelClicked: Store.updateFlow.cancelUpdate()
            }
        }

        // One width in every row, so that the rows' buttons line up; narrower only when the
        // window is.
        ColumnLayout {
            Layout.alignment: Qt.AlignVCenter
            Layout.fillWidth: true
            Layout.preferredWidth: 230
            Layout.minimumWidth: 190
            Layout.maximumWidth: 230
            spacing: 8

            LaunchButton {
                objectName: "locateButton"
                Layout.fillWidth: true
                visible: root.row.showsLocate
                highlighted: true
                text: qsTr("Locate app…")
                onClicked: Store.requestChooseApplicationLocation(root.app.id)
            }

            LaunchButton {
                objectName: "openButton"
                Layout.fillWidth: true
                visible: root.row.showsOpen
                highlighted: true
                text: root.row.openTitle
                onClicked: Store.openApplication(root.app.id)
            }

            LaunchButton {
                objectName: "updateButton"
                Layout.fillWidth: true
                visible: root.row.showsUpdate
                text: root.row.updateTitle
                onClicked: Store.requestUpdate(root.app.id)
            }

            LaunchButton {
                objectName: "revealButton"
                Layout.alignment: Qt.AlignHCenter
                visible: root.row.showsReveal
                small: true
                text: qsTr("Reveal in Finder")
                onClicked: Store.revealApplication(root.app.id)
            }
        }
    }
}
