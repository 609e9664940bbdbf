import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch.ContentPacks
import Vantor.Launch.Controls

// One pack in the list: its mark, its name and, when installed, "Installed"; while it installs,
// its progress and Cancel.
AbstractButton {
    id: root

    required property var pack
    required property QtObject transfer
    required property bool selected
    // The list has the keyboard focus: the selection shows in the accent colour.
    property bool focused: false

    objectName: "packRow-" + root.pack.id
    hoverEnabled: true
    implicitHeight: row.implicitHeight + 16
    Accessible.role: Accessible.ListItem
    Accessible.name: PackPresentation.isInstalled(root.pack) ? qsTr("%1, Installed").arg(root.pack.name)
                                                             : root.pack.name
    Accessible.selectable: true
    Accessible.selected: root.selected

    background: Rectangle {
        radius: 8
        color: root.selected ? (root.focused ? LaunchPalette.selection : LaunchPalette.raised)
                             : root.hovered ? Qt.rgba(LaunchPalette.paper.r, LaunchPalette.paper.g,
                                                      LaunchPalette.paper.b, 0.05)
                                            : "transparent"
    }

    contentItem: RowLayout {
        id: row

        spacing: 10

        SymbolIcon {
            Layout.leftMargin: 10
            implicitWidth: 18
            implicitHeight: 18
            name: PackPresentation.rowSymbol(root.pack)
            color: PackPresentation.rowColor(root.pack)
            Accessible.ignored: true
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.rightMargin: 10
            spacing: 1

            Label {
                Layout.fillWidth: true
                text: root.pack.name
                font.pixelSize: 13
                font.weight: Font.Medium
                color: LaunchPalette.paper
                elide: Text.ElideRight
            }

            Label {
                visible: PackPresentation.isInstalled(root.pack)
                text: qsTr("Installed")
                font.pixelSize: 11
                color: LaunchPalette.slate
            }

            TransferProgress {
                objectName: "packRowProgress"
                Layout.fillWidth: true
                Layout.topMargin: 3
                visible: root.transfer !== null
                compact: true
                transfer: root.transfer
                progressName: qsTr("Progress of installing %1").arg(root.pack.name)
                cancelName: qsTr("Cancel installing %1").arg(root.pack.name)
                onCancelClicked: Store.packFlows.cancelInstall(root.pack.id)
            }
        }
    }
}
