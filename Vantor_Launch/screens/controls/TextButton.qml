import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import Vantor.Launch.Controls

// A button drawn as accent-coloured text, for a secondary action beside a line of text.
AbstractButton {
    id: root

    hoverEnabled: true
    topPadding: 2
    bottomPadding: 2
    implicitWidth: implicitContentWidth + leftPadding + rightPadding
    implicitHeight: implicitContentHeight + topPadding + bottomPadding
    Accessible.role: Accessible.Button
    Accessible.name: root.text

    contentItem: Label {
        text: root.text
        font.pixelSize: 13
        font.underline: root.hovered || root.visualFocus
        color: root.down ? Qt.darker(LaunchPalette.accentBlue, 1.2) : LaunchPalette.accentBlue
    }

    HoverHandler {
        cursorShape: Qt.PointingHandCursor
    }
}
