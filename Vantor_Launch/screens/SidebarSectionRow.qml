import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import Vantor.Launch
import Vantor.Launch.Controls

// One section of the sidebar: its icon and text across the row, highlighted while selected.
AbstractButton {
    id: root

    // An entry of Sections.all.
    required property var section
    required property bool selected

    signal activated

    objectName: root.section.identifier
    implicitHeight: row.implicitHeight + 14
    hoverEnabled: true
    Accessible.role: Accessible.Button
    Accessible.name: root.section.title
    Accessible.selectable: true
    Accessible.selected: root.selected

    onClicked: root.activated()

    background: Rectangle {
        radius: 7
        color: root.selected ? LaunchPalette.selection : "transparent"
    }

    contentItem: RowLayout {
        id: row

        spacing: 10

        SymbolIcon {
            Layout.leftMargin: 10
            implicitWidth: 18
            implicitHeight: 18
            name: root.section.symbol
            color: root.selected ? LaunchPalette.paper : LaunchPalette.accentBlue
        }

        Label {
            Layout.fillWidth: true
            text: root.section.title
            font.pixelSize: 14
            color: LaunchPalette.paper
            elide: Text.ElideRight
        }
    }
}
