import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// A clickable card of one pack: artwork, name, summary and, when installed, "Installed".
AbstractButton {
    id: root

    required property var pack
    property real artworkHeight: 92

    objectName: "packTile-" + root.pack.id
    hoverEnabled: true
    padding: 10
    Accessible.role: Accessible.Button
    Accessible.name: root.pack.name
    Accessible.description: qsTr("Shows Content Pack details")

    background: Rectangle {
        radius: 12
        color: root.hovered ? Qt.rgba(LaunchPalette.paper.r, LaunchPalette.paper.g,
                                      LaunchPalette.paper.b, 0.07)
                            : Qt.rgba(LaunchPalette.paper.r, LaunchPalette.paper.g,
                                      LaunchPalette.paper.b, 0.035)
        border.width: root.visualFocus ? 2 : 1
        border.color: root.visualFocus ? LaunchPalette.accentBlue : LaunchPalette.cardOutline
    }

    contentItem: ColumnLayout {
        spacing: 8

        PackArtwork {
            Layout.fillWidth: true
            Layout.preferredHeight: root.artworkHeight
            url: root.pack.artwork
            accessibleName: qsTr("%1 collection artwork").arg(root.pack.name)
        }

        Label {
            Layout.fillWidth: true
            text: root.pack.name
            font.pixelSize: 14
            font.weight: Font.DemiBold
            color: LaunchPalette.paper
            elide: Text.ElideRight
        }

        Label {
            Layout.fillWidth: true
            text: root.pack.summary
            font.pixelSize: 13
            color: LaunchPalette.slate
            wrapMode: Text.WordWrap
            maximumLineCount: 2
            elide: Text.ElideRight
        }

        Label {
            objectName: "tileInstalled"
            visible: PackPresentation.isInstalled(root.pack)
            text: qsTr("Installed")
            font.pixelSize: 11
            font.weight: Font.Medium
            color: LaunchPalette.green
        }

        Item {
            Layout.fillHeight: true
        }
    }

    HoverHandler {
        cursorShape: Qt.PointingHandCursor
    }
}
