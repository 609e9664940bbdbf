import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch.Controls

// A rounded text field with a magnifying glass.
TextField {
    id: root

    leftPadding: 32
    rightPadding: 10
    topPadding: 7
    bottomPadding: 7
    font.pixelSize: 13
    color: LaunchPalette.paper
    placeholderTextColor: LaunchPalette.slate
    selectByMouse: true

    background: Rectangle {
        implicitHeight: 32
        radius: 8
        color: LaunchPalette.field
        border.width: root.activeFocus ? 2 : 1
        border.color: root.activeFocus ? LaunchPalette.accentBlue : LaunchPalette.cardOutline

        SymbolIcon {
            x: 10
            anchors.verticalCenter: parent.verticalCenter
            implicitWidth: 14
            implicitHeight: 14
            name: "magnifyingglass"
            color: LaunchPalette.slate
            Accessible.ignored: true
        }
    }
}
