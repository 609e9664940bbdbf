import QtQml
import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Templates as T
import Vantor.Launch.Controls

// A modal sheet over the window: centred, dimming what is behind it, closed by Escape.
Popup {
    id: root

    property int idealWidth: 1120
    property int idealHeight: 820

    parent: T.Overlay.overlay
    anchors.centerIn: parent
    width: Math.min(root.idealWidth, parent ? parent.width - 48 : root.idealWidth)
    height: Math.min(root.idealHeight, parent ? parent.height - 40 : root.idealHeight)
    modal: true
    focus: true
    closePolicy: Popup.CloseOnEscape
    padding: 0

    background: Rectangle {
        radius: 14
        color: LaunchPalette.midnight
        border.color: LaunchPalette.cardOutline
        border.width: 1

        Rectangle {
            anchors.fill: parent
            anchors.margins: 1
            radius: 13
            color: LaunchPalette.gradientMiddle
        }
    }

    T.Overlay.modal: Rectangle {
        color: Qt.rgba(0, 0, 0, 0.55)
    }
}
