import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.Applications
import Vantor.Launch.Controls

// Every release of an application, newest first, in a sheet over the detail sheet; Return or
// Done closes it.
LaunchSheet {
    id: root

    required property string appName
    required property var releases

    objectName: "fullChangelogView"
    idealWidth: 720
    idealHeight: 640

    Shortcut {
        sequences: ["Return", "Enter"]
        enabled: root.opened
        onActivated: root.close()
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 28
        spacing: 18

        RowLayout {
            Layout.fillWidth: true
            spacing: 16

            Label {
                Layout.fillWidth: true
                text: qsTr("%1 Changelog").arg(root.appName)
                font.pixelSize: 26
                font.bold: true
                color: LaunchPalette.paper
                elide: Text.ElideRight
                Accessible.role: Accessible.Heading
            }

            LaunchButton {
                objectName: "changelogDoneButton"
                highlighted: true
                text: qsTr("Done")
                onClicked: root.close()
            }
        }

        ListView {
            id: list

            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 22
            model: root.releases
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}

            delegate: ColumnLayout {
                required property var modelData

                width: list.width - 16
                spacing: 5

                Label {
                    text: qsTr("Version %1").arg(modelData.version)
                    font.pixelSize: 15
                    font.weight: Font.DemiBold
                    color: LaunchPalette.paper
                }

                Label {
                    text: modelData.releasedText
                    font.pixelSize: 11
                    color: LaunchPalette.slate
                }

                Repeater {
                    model: modelData.changes

                    ChangeLine {
                        required property string modelData

                        Layout.fillWidth: true
                        text: modelData
                    }
                }
            }
        }
    }
}
