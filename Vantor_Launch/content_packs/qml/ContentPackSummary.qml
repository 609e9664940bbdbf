import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// The overview's preview of the first three packs; a tile opens the pack in the Content Packs
// section.
ColumnLayout {
    id: root

    readonly property int minimumTileWidth: 170
    readonly property int tileSpacing: 14

    objectName: "contentPackSummary"
    spacing: 14

    RowLayout {
        Layout.fillWidth: true
        spacing: 14

        Label {
            Layout.fillWidth: true
            text: qsTr("Content Packs")
            font.pixelSize: 20
            font.bold: true
            color: LaunchPalette.paper
            Accessible.role: Accessible.Heading
        }

        TextButton {
            objectName: "viewAllPacksButton"
            text: qsTr("View all packs")
            onClicked: Store.selection = Sections.packs
        }
    }

    // Adaptive columns: as many as fit at the minimum width, sharing the width equally.
    GridLayout {
        id: grid

        Layout.fillWidth: true
        visible: tiles.count > 0
        columns: Math.max(1, Math.floor((root.width + root.tileSpacing)
                                        / (root.minimumTileWidth + root.tileSpacing)))
        columnSpacing: root.tileSpacing
        rowSpacing: root.tileSpacing

        Repeater {
            id: tiles

            model: Store.packs

            PackTile {
                id: tile

                required property int index

                // The first three packs only.
                visible: tile.index < 3
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: (root.width - (grid.columns - 1) * root.tileSpacing)
                                       / grid.columns
                Layout.maximumWidth: Layout.preferredWidth
                artworkHeight: 92
                onClicked: {
                    Store.selection = Sections.packs
                    Store.selectedPackID = tile.pack.id
                }
            }
        }
    }
}
