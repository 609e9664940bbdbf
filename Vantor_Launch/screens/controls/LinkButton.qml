import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch.Controls

// A text link that opens a page in the browser.
AbstractButton {
    id: root

    hoverEnabled: true
    implicitWidth: label.implicitWidth
    implicitHeight: label.implicitHeight + 4
    Accessible.role: Accessible.Link
    Accessible.name: root.text

    contentItem: Label {
        id: label

        text: root.text
        font.pixelSize: 13
        font.underline: root.hovered || root.visualFocus
        color: LaunchPalette.accentBlue
    }

    HoverHandler {
        cursorShape: Qt.PointingHandCursor
    }
}
